#pragma once

#include "HostileMessages.hpp"
#include "ServerProcess.hpp"
#include "Wire.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <sys/types.h>
#include <vector>

namespace DHCPLoad {

/// Hostile packets at a rate, and an honest device beside them that asks again and again.
struct FloodPlan {
    Hostility kind = Hostility::malformed;
    std::uint32_t rate = 5000;   ///< Packets a second; 0 for as many as can be sent.
    std::size_t most = SIZE_MAX; ///< Packets at most.
    std::chrono::milliseconds duration{5000};
    std::chrono::milliseconds interval{20}; ///< Between two questions of the honest device.
    bool renews = false;           ///< The honest device has an address and renews it; otherwise it sends DISCOVERs.
    std::optional<pid_t> server{}; ///< The server's process, where its own figures are wanted.
};

struct FloodResult {
    std::chrono::nanoseconds span{};
    std::size_t flooded = 0;  ///< Hostile packets that were sent.
    std::size_t asked = 0;    ///< Questions of the honest device.
    std::size_t answered = 0; ///< Those that were answered at all, until a second after the flood.
    std::size_t promptly = 0; ///< Those that were answered within 100 ms.
    std::vector<std::chrono::nanoseconds> answerTimes{}; ///< Of those answered.
    /// Of the server's process: before the flood, at the worst, and when it had nothing left to do.
    std::optional<ProcessFigures> before{};
    std::optional<ProcessFigures> worst{};
    std::optional<ProcessFigures> after{};
};

/// @throws std::runtime_error when the honest device gets no address to renew.
[[nodiscard]] FloodResult flood(Wire& wire, const FloodPlan& plan);

} // namespace DHCPLoad
