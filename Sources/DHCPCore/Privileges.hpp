#pragma once

namespace DHCPCore::Privileges {

/// Gives up for good every right of the process that serving a card does not need, so that a fault can't use it. What
/// stays is docs/decisions.md's matter. It holds for the calling thread and for those that it starts afterwards: call
/// it before there are others. (Linux/, Darwin/)
/// @return 0, or the error number with which the system refused.
[[nodiscard]] int keepOnlyThoseForServing();

} // namespace DHCPCore::Privileges
