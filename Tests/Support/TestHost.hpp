#pragma once

#include "DHCPCore/FileDescriptor.hpp"

/// What tests need of the host beyond what every system names alike.
namespace DHCPCore::TestSupport {

/// In a child: it ends with the process that started it, where the system can do that. (Linux/, Darwin/)
void dieWithParent();

/// A descriptor that no event loop can watch. (Linux/, Darwin/)
[[nodiscard]] FileDescriptor unwatchableDescriptor();

} // namespace DHCPCore::TestSupport
