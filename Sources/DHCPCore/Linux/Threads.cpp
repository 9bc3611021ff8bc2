#include "DHCPCore/Threads.hpp"

#include <pthread.h>

namespace DHCPCore::Threads {

void nameCurrent(const std::string& name) {
    constexpr std::size_t longestName = 15; // the kernel keeps 16 bytes with the closing zero
    ::pthread_setname_np(::pthread_self(), name.substr(0, longestName).c_str());
}

} // namespace DHCPCore::Threads
