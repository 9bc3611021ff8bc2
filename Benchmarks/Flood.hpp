#pragma once

#include "Wire.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace DHCPLoad {

/// Malformed packets at a rate, and an honest device beside them that asks once every 20 ms.
struct FloodPlan {
    std::uint32_t rate = 5000; ///< Packets a second; 0 for as many as can be sent.
    std::chrono::milliseconds duration{5000};
};

struct FloodResult {
    std::chrono::nanoseconds span{};
    std::size_t flooded = 0;  ///< Malformed packets that were sent.
    std::size_t asked = 0;    ///< DISCOVERs of the honest device.
    std::size_t answered = 0; ///< Those that got an OFFER at all, until a second after the flood.
    std::size_t promptly = 0; ///< Those that got it within 100 ms.
    std::vector<std::chrono::nanoseconds> offerTimes{}; ///< Of those answered.
};

[[nodiscard]] FloodResult flood(Wire& wire, const FloodPlan& plan);

} // namespace DHCPLoad
