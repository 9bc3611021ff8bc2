#include "ServerProcess.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

namespace DHCPLoad {

namespace {

/// The number that the system's account of a process has behind a label.
std::size_t statusNumber(pid_t pid, std::string_view label) {
    std::ifstream status(fmt::format("/proc/{}/status", pid));
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(label)) {
            return std::stoul(line.substr(label.size()));
        }
    }
    throw std::runtime_error(fmt::format("process {} does not run", pid));
}

} // namespace

std::chrono::nanoseconds processorTime(pid_t pid) {
    clockid_t clock{};
    timespec time{};
    if (::clock_getcpuclockid(pid, &clock) != 0 || ::clock_gettime(clock, &time) != 0) {
        throw std::runtime_error(fmt::format("process {} does not run", pid));
    }
    return std::chrono::seconds{time.tv_sec} + std::chrono::nanoseconds{time.tv_nsec};
}

std::size_t residentKiB(pid_t pid) { return statusNumber(pid, "VmRSS:"); }

ProcessFigures processFigures(pid_t pid) {
    const std::filesystem::directory_iterator descriptors(fmt::format("/proc/{}/fd", pid));
    return {.residentKiB = residentKiB(pid),
            .descriptors = static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors))),
            .threads = statusNumber(pid, "Threads:")};
}

ProcessFigures worst(const ProcessFigures& one, const ProcessFigures& other) {
    return {.residentKiB = std::max(one.residentKiB, other.residentKiB),
            .descriptors = std::max(one.descriptors, other.descriptors),
            .threads = std::max(one.threads, other.threads)};
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
