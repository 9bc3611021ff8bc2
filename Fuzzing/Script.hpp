#pragma once

#include "DHCPCore/Addresses.hpp"
#include "Fuzzing/Fuzzing.hpp"
#include "Model/Session.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <variant>

/// The form in which the fuzzer of the whole road gets its sessions, and the seeds are written. The datagrams stand in
/// it as they are on the wire.
namespace DHCPCore::Fuzzing {

/// What a step begins with; any other byte is a message too.
namespace StepCode {
inline constexpr std::uint8_t message = 0;       ///< Probe answers (1 byte), length (2), datagram.
inline constexpr std::uint8_t wait = 1;          ///< Milliseconds (4).
inline constexpr std::uint8_t sight = 2;         ///< Last byte of the address (1), presence state, 4 for none (1).
inline constexpr std::uint8_t forget = 3;        ///< Hardware address (6).
inline constexpr std::uint8_t clearInactive = 4; ///< Nothing.
inline constexpr std::uint8_t restart = 5;       ///< Nothing.
} // namespace StepCode

/// The server is 10.0.0.1/24; only the rest of the configuration is in the script: the last byte of the pool's first
/// and last address, the lease time (4 bytes), the number of DNS servers (1), where 128 more means a router.
inline ServerConfig configFrom(Input& input) {
    ServerConfig config{.serverIP = IPv4Address{10, 0, 0, 1},
                        .prefixLength = 24,
                        .rangeStart = IPv4Address{10, 0, 0, input.byte()},
                        .rangeEnd = IPv4Address{10, 0, 0, input.byte()},
                        .leaseSeconds = input.number(4),
                        .router = {},
                        .dns = {}};
    const std::uint8_t more = input.byte();
    config.dns.assign(more % 4, config.serverIP);
    if (more >= 128) {
        config.router = config.serverIP;
    }
    return config;
}

} // namespace DHCPCore::Fuzzing
