#include "DHCPCore/Threads.hpp"

#include <pthread.h>
#include <sys/resource.h>

namespace DHCPCore::Threads {

void nameCurrent(const std::string& name) {
    constexpr std::size_t longestName = 15; // the kernel keeps 16 bytes with the closing zero
    ::pthread_setname_np(::pthread_self(), name.substr(0, longestName).c_str());
}

void makeWayForOthers() {
    constexpr int niceness = 19;              // a seventieth of an ordinary thread's share
    ::setpriority(PRIO_PROCESS, 0, niceness); // of a thread alone on this system; never refused
}

} // namespace DHCPCore::Threads
