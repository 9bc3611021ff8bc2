#pragma once

#include "Wire.hpp"

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace DHCPLoad {

struct StartResult {
    std::chrono::nanoseconds time{};          ///< From the start of the process to the first OFFER.
    std::optional<std::size_t> residentKiB{}; ///< Of the process, then.
};

/// Starts a server, asks every half millisecond until it offers an address, and ends it again. Without words, only
/// waits for the server that runs already, until it has answered all that it was asked.
/// @param network the network namespace to run it in; this process's own where it is empty.
/// @throws std::runtime_error when no OFFER came in time or the server could not be started.
[[nodiscard]] StartResult measureStart(Wire& wire, const std::vector<std::string>& words, const std::string& network,
                                       std::chrono::milliseconds patience);

} // namespace DHCPLoad
