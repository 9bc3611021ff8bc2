#include "DHCPCore/Threads.hpp"

#include <cstdint>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <tuple>
#include <unistd.h>

namespace DHCPCore::Threads {

namespace {

/// What sched_setattr(2) takes in its first form; the C library may not know it, and the kernel's header does not go
/// together with the C library's.
struct SchedulingAttributes {
    std::uint32_t size;
    std::uint32_t policy;
    std::uint64_t flags;
    std::int32_t nice;
    std::uint32_t priority;
    std::uint64_t runtime; ///< Nanoseconds.
    std::uint64_t deadline;
    std::uint64_t period;
};
static_assert(sizeof(SchedulingAttributes) == 48);

} // namespace

void nameCurrent(const std::string& name) {
    constexpr std::size_t longestName = 15; // the kernel keeps 16 bytes with the closing zero
    ::pthread_setname_np(::pthread_self(), name.substr(0, longestName).c_str());
}

void makeWayForOthers() {
    constexpr int niceness = 19;              // a seventieth of an ordinary thread's share
    ::setpriority(PRIO_PROCESS, 0, niceness); // of a thread alone on this system; never refused
}

void leaveProcessorsToOthers() {
    const sched_param none{};
    std::ignore = ::pthread_setschedparam(::pthread_self(), SCHED_IDLE, &none);
}

void beginPromptly() {
    constexpr std::uint64_t slice = 500'000; // the usual one is some six times as long
    SchedulingAttributes attributes{};
    if (::syscall(SYS_sched_getattr, 0, &attributes, sizeof attributes, 0) == 0) {
        attributes.runtime = slice; // who asks for little at a time goes first, since Linux 6.12
        std::ignore = ::syscall(SYS_sched_setattr, 0, &attributes, 0);
    }
}

} // namespace DHCPCore::Threads
