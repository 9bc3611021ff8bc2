#include "DHCPCore/Threads.hpp"

#include <pthread.h>
#include <pthread/qos.h>

namespace DHCPCore::Threads {

void nameCurrent(const std::string& name) {
    constexpr std::size_t longestName = 63; // the kernel keeps 64 bytes with the closing zero
    ::pthread_setname_np(name.substr(0, longestName).c_str());
}

void makeWayForOthers() { ::pthread_set_qos_class_self_np(QOS_CLASS_UTILITY, 0); }

void leaveProcessorsToOthers() { makeWayForOthers(); }

void beginPromptly() { ::pthread_set_qos_class_self_np(QOS_CLASS_USER_INITIATED, 0); }

} // namespace DHCPCore::Threads
