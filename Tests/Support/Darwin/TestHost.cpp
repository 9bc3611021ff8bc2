#include "Support/TestHost.hpp"

#include <limits>

namespace DHCPCore::TestSupport {

void dieWithParent() {
    // The system has no such wish; `ChildProcess` ends its child in all cases but its own violent end.
}

FileDescriptor unwatchableDescriptor() {
    return FileDescriptor(std::numeric_limits<int>::max()); // kqueue watches everything that is open
}

} // namespace DHCPCore::TestSupport
