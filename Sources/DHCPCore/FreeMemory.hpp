#pragma once

namespace DHCPCore {

/// Gives memory that the process has freed back to the system, where the allocator would keep it for later. Takes a
/// few milliseconds: for the end of a burst. (Linux/, Darwin/)
void giveBackFreeMemory();

} // namespace DHCPCore
