#pragma once

#include <cstdlib>
#include <functional>
#include <sched.h>
#include <string>
#include <thread>

namespace DHCPCore::TestSupport {

/// Runs the work on a thread that sees a network of its own with nothing in it but a loopback device, which is up. The
/// network is gone when the last socket in it is closed.
/// @return false, and nothing is run, when the process may not make one.
[[nodiscard]] inline bool inFreshNetwork(const std::function<void()>& work) {
    bool made = false;
    std::thread([&] {
        made = ::unshare(CLONE_NEWNET) == 0 && std::system("ip link set lo up") == 0; // NOLINT(*-env33-c,*-mt-unsafe)
        if (made) {
            work();
        }
    }).join();
    return made;
}

/// Runs `ip` with these arguments in the network of the calling thread; whether it succeeded.
[[nodiscard]] inline bool ip(const std::string& arguments) {
    return std::system(("ip " + arguments).c_str()) == 0; // NOLINT(*-env33-c,*-mt-unsafe): fixed texts of tests
}

} // namespace DHCPCore::TestSupport
