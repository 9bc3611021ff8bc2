#include "ServerProcess.hpp"

#include <fmt/format.h>

#include <ctime>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

namespace DHCPLoad {

std::chrono::nanoseconds processorTime(pid_t pid) {
    clockid_t clock{};
    timespec time{};
    if (::clock_getcpuclockid(pid, &clock) != 0 || ::clock_gettime(clock, &time) != 0) {
        throw std::runtime_error(fmt::format("process {} does not run", pid));
    }
    return std::chrono::seconds{time.tv_sec} + std::chrono::nanoseconds{time.tv_nsec};
}

std::size_t residentKiB(pid_t pid) {
    constexpr std::string_view label = "VmRSS:";
    std::ifstream status(fmt::format("/proc/{}/status", pid));
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(label)) {
            return std::stoul(line.substr(label.size()));
        }
    }
    throw std::runtime_error(fmt::format("process {} does not run", pid));
}

void awaitIdle(pid_t pid) {
    using namespace std::chrono_literals;
    constexpr int tries = 100;
    auto before = processorTime(pid);
    for (int attempt = 0; attempt < tries; ++attempt) {
        std::this_thread::sleep_for(50ms);
        const auto after = processorTime(pid);
        if (after - before < 2ms) {
            return;
        }
        before = after;
    }
}

} // namespace DHCPLoad
