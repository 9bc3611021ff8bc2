#pragma once

#include <chrono>
#include <cstddef>
#include <sys/types.h>

namespace DHCPLoad {

/// The processor time that a process has taken so far, with all its threads. @throws std::runtime_error
[[nodiscard]] std::chrono::nanoseconds processorTime(pid_t pid);

/// What a process has in memory now. @throws std::runtime_error
[[nodiscard]] std::size_t residentKiB(pid_t pid);

/// What a process has at one instant.
struct ProcessFigures {
    std::size_t residentKiB = 0;
    std::size_t descriptors = 0;
    std::size_t threads = 0;
};

/// @throws std::runtime_error
[[nodiscard]] ProcessFigures processFigures(pid_t pid);

/// The higher of the two, figure by figure.
[[nodiscard]] ProcessFigures worst(const ProcessFigures& one, const ProcessFigures& other);

/// Waits until a process has done what it had to do, or for five seconds: until it takes next to no processor time.
void awaitIdle(pid_t pid);

} // namespace DHCPLoad
