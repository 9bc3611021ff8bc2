#pragma once

#include "DHCPCore/Addresses.hpp"

#include <nlohmann/json_fwd.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace DHCPCore {

/// The times and bounds that several units share.
namespace Timing {
inline constexpr std::chrono::seconds offerHold{60};        ///< How long an offered address is held.
inline constexpr std::chrono::seconds quarantine{600};      ///< How long a declined address stays out of use.
inline constexpr std::chrono::seconds presenceInterval{10}; ///< The period of the presence cycle.
inline constexpr std::chrono::seconds probeTimeout{1};      ///< The longest wait for one probe.
inline constexpr std::size_t maxProbesPerPacket = 5;        ///< Addresses probed for one packet at most.
inline constexpr std::uint32_t minimumLease = 60;           ///< Seconds.
inline constexpr std::uint32_t maximumLease = 2592000;      ///< Seconds: 30 days.
} // namespace Timing

/// One fault of a configuration, with the sentence for the user.
struct ConfigError {
    struct PrefixOutOfBounds {
        int prefixLength;
        bool operator==(const PrefixOutOfBounds&) const = default;
    };
    struct RangeOutsideSubnet {
        Subnet subnet;
        bool operator==(const RangeOutsideSubnet&) const = default;
    };
    struct GatewayOutsideSubnet {
        Subnet subnet;
        bool operator==(const GatewayOutsideSubnet&) const = default;
    };
    struct ServerIPIsNetworkOrBroadcast {
        bool operator==(const ServerIPIsNetworkOrBroadcast&) const = default;
    };
    struct RangeReversed {
        bool operator==(const RangeReversed&) const = default;
    };
    struct RangeIncludesNetworkOrBroadcast {
        bool operator==(const RangeIncludesNetworkOrBroadcast&) const = default;
    };
    struct ServerIPInsideRange {
        bool operator==(const ServerIPInsideRange&) const = default;
    };
    struct LeaseTimeOutOfBounds {
        bool operator==(const LeaseTimeOutOfBounds&) const = default;
    };
    struct TooManyDNSServers {
        bool operator==(const TooManyDNSServers&) const = default;
    };
    std::variant<PrefixOutOfBounds, RangeOutsideSubnet, GatewayOutsideSubnet, ServerIPIsNetworkOrBroadcast,
                 RangeReversed, RangeIncludesNetworkOrBroadcast, ServerIPInsideRange, LeaseTimeOutOfBounds,
                 TooManyDNSServers>
        value;

    [[nodiscard]] std::string description() const;

    bool operator==(const ConfigError&) const = default;
};

/// What the server hands out. A value of any content can be built; `validate` tells whether it can be served.
struct ServerConfig {
    IPv4Address serverIP;           ///< On the served card; also the server identifier.
    int prefixLength = 0;           ///< Of the served subnet; valid 8 to 30.
    IPv4Address rangeStart;         ///< First address of the pool.
    IPv4Address rangeEnd;           ///< Last address of the pool, inclusive.
    std::uint32_t leaseSeconds = 0; ///< Valid `Timing::minimumLease` to `Timing::maximumLease`.
    std::optional<IPv4Address> router;
    std::vector<IPv4Address> dns; ///< In the order offered; valid at most 3.

    /// Every fault, in a fixed order; empty when the configuration is usable. A prefix out of bounds is reported alone.
    [[nodiscard]] std::vector<ConfigError> validate() const;

    /// `serverIP` with the prefix clamped into 0 to 32.
    [[nodiscard]] Subnet subnet() const;
    [[nodiscard]] IPv4Address mask() const;
    [[nodiscard]] IPv4Address broadcastAddress() const;
    /// T1, half of the lease (RFC 2131, section 4.4.5).
    [[nodiscard]] std::uint32_t renewalSeconds() const;
    /// T2, seven eighths of the lease (RFC 2131, section 4.4.5).
    [[nodiscard]] std::uint32_t rebindingSeconds() const;
    /// The pool from its smaller to its larger end, well formed even when the two are reversed.
    [[nodiscard]] AddressRange range() const;
    /// The number of addresses in the pool; 0 when it is reversed.
    [[nodiscard]] std::int64_t rangeCount() const;
    /// In the pool as it stands: a reversed pool contains nothing.
    [[nodiscard]] bool inRange(IPv4Address address) const;

    bool operator==(const ServerConfig&) const = default;
};

/// An object with one key per field; `router` only when present. Reading does not validate.
/// @throws DecodingError or a `nlohmann::json::exception` for a missing key or a bad value.
void to_json(nlohmann::json& json, const ServerConfig& config);
void from_json(const nlohmann::json& json, ServerConfig& config);

/// Reads "90s", "15m", "24h", "7d" or a bare number of seconds.
/// @return nothing for any other text and for more than 4294967295 seconds.
[[nodiscard]] std::optional<std::uint32_t> parseDuration(std::string_view text);

/// Shows seconds in at most two units, as in "1 h 1 m", "24 h", "7 d"; whole days only from two days on.
[[nodiscard]] std::string formatDuration(std::uint32_t seconds);

} // namespace DHCPCore
