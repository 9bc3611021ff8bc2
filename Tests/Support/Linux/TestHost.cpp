#include "Support/TestHost.hpp"

#include <csignal>
#include <fcntl.h>
#include <sys/prctl.h>

namespace DHCPCore::TestSupport {

void dieWithParent() { ::prctl(PR_SET_PDEATHSIG, SIGKILL); }

FileDescriptor unwatchableDescriptor() { return FileDescriptor(::open("/", O_PATH | O_CLOEXEC)); }

} // namespace DHCPCore::TestSupport
