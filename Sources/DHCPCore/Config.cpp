#include "DHCPCore/Config.hpp"

#include "DHCPCore/IntegerJSON.hpp"
#include "DHCPCore/Overloaded.hpp"
#include "DHCPCore/TextPieces.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <limits>

namespace DHCPCore {

namespace {

constexpr int minimumPrefixLength = 8;
constexpr int maximumPrefixLength = 30;
constexpr std::size_t maximumDNSServers = 3;

constexpr std::uint32_t secondsPerMinute = 60;
constexpr std::uint32_t secondsPerHour = 3600;
constexpr std::uint32_t secondsPerDay = 86400;

/// The seconds that a unit letter stands for; nothing for any other character.
std::optional<std::uint32_t> secondsPerUnit(char letter) {
    switch (letter) {
    case 's':
        return 1;
    case 'm':
        return secondsPerMinute;
    case 'h':
        return secondsPerHour;
    case 'd':
        return secondsPerDay;
    default:
        return std::nullopt;
    }
}

} // namespace

std::string ConfigError::description() const {
    using namespace std::string_literals;
    return std::visit(
        Overloaded{
            [](const PrefixOutOfBounds& fault) {
                return fmt::format("Prefix /{} is not allowed. Use /8 to /30.", fault.prefixLength);
            },
            [](const RangeOutsideSubnet& fault) {
                return fmt::format("Range must be inside {}.", fault.subnet.description());
            },
            [](const GatewayOutsideSubnet& fault) {
                return fmt::format("Gateway must be inside {}.", fault.subnet.description());
            },
            [](const ServerIPIsNetworkOrBroadcast&) {
                return "Server IP can't be the subnet's network or broadcast address."s;
            },
            [](const RangeReversed&) { return "Range start must not be after range end."s; },
            [](const RangeIncludesNetworkOrBroadcast&) {
                return "Range can't include the subnet's network or broadcast address."s;
            },
            [](const ServerIPInsideRange&) { return "Server IP must not be inside the range."s; },
            [](const LeaseTimeOutOfBounds&) { return "Lease time must be between 1 minute and 30 days."s; },
            [](const TooManyDNSServers&) { return "Use at most 3 DNS servers."s; },
        },
        value);
}

std::vector<ConfigError> ServerConfig::validate() const {
    if (prefixLength < minimumPrefixLength || prefixLength > maximumPrefixLength) {
        return {{ConfigError::PrefixOutOfBounds{prefixLength}}};
    }
    std::vector<ConfigError> errors;
    const Subnet served = subnet();
    const IPv4Address network = served.network();
    const IPv4Address broadcast = served.broadcast();
    if (serverIP == network || serverIP == broadcast) {
        errors.push_back({ConfigError::ServerIPIsNetworkOrBroadcast{}});
    }
    if (rangeEnd < rangeStart) {
        errors.push_back({ConfigError::RangeReversed{}});
    }
    if (!served.contains(rangeStart) || !served.contains(rangeEnd)) {
        errors.push_back({ConfigError::RangeOutsideSubnet{served}});
    } else if (range().contains(network) || range().contains(broadcast)) {
        errors.push_back({ConfigError::RangeIncludesNetworkOrBroadcast{}});
    }
    if (inRange(serverIP)) {
        errors.push_back({ConfigError::ServerIPInsideRange{}});
    }
    if (router && !served.contains(*router)) {
        errors.push_back({ConfigError::GatewayOutsideSubnet{served}});
    }
    if (leaseSeconds < Timing::minimumLease || leaseSeconds > Timing::maximumLease) {
        errors.push_back({ConfigError::LeaseTimeOutOfBounds{}});
    }
    if (dns.size() > maximumDNSServers) {
        errors.push_back({ConfigError::TooManyDNSServers{}});
    }
    return errors;
}

Subnet ServerConfig::subnet() const { return {.address = serverIP, .prefixLength = std::clamp(prefixLength, 0, 32)}; }

IPv4Address ServerConfig::mask() const { return subnet().mask(); }

IPv4Address ServerConfig::broadcastAddress() const { return subnet().broadcast(); }

std::uint32_t ServerConfig::renewalSeconds() const { return leaseSeconds / 2; }

std::uint32_t ServerConfig::rebindingSeconds() const {
    return static_cast<std::uint32_t>(std::uint64_t{leaseSeconds} * 7 / 8);
}

AddressRange ServerConfig::range() const {
    return {.lower = std::min(rangeStart, rangeEnd), .upper = std::max(rangeStart, rangeEnd)};
}

std::int64_t ServerConfig::rangeCount() const {
    if (rangeEnd < rangeStart) {
        return 0;
    }
    return std::int64_t{rangeEnd.value} - std::int64_t{rangeStart.value} + 1;
}

bool ServerConfig::inRange(IPv4Address address) const { return rangeStart <= address && address <= rangeEnd; }

void to_json(nlohmann::json& json, const ServerConfig& config) {
    json = {{"serverIP", config.serverIP}, {"prefixLength", config.prefixLength}, {"rangeStart", config.rangeStart},
            {"rangeEnd", config.rangeEnd}, {"leaseSeconds", config.leaseSeconds}, {"dns", config.dns}};
    if (config.router) {
        json["router"] = *config.router;
    }
}

void from_json(const nlohmann::json& json, ServerConfig& config) {
    ServerConfig read{
        .serverIP = json.at("serverIP").get<IPv4Address>(),
        .prefixLength = integerFromJSON<int>(json.at("prefixLength"), "prefix length"),
        .rangeStart = json.at("rangeStart").get<IPv4Address>(),
        .rangeEnd = json.at("rangeEnd").get<IPv4Address>(),
        .leaseSeconds = integerFromJSON<std::uint32_t>(json.at("leaseSeconds"), "lease time"),
        .router = std::nullopt,
        .dns = json.at("dns").get<std::vector<IPv4Address>>(),
    };
    if (const auto router = json.find("router"); router != json.end() && !router->is_null()) {
        read.router = router->get<IPv4Address>();
    }
    config = std::move(read);
}

std::optional<std::uint32_t> parseDuration(std::string_view text) {
    if (text.empty()) {
        return std::nullopt;
    }
    const auto unit = secondsPerUnit(text.back());
    if (unit) {
        text.remove_suffix(1);
    }
    const std::uint64_t factor = unit.value_or(1);
    if (!std::ranges::all_of(text, isDecimalDigit)) { // no sign, which `parseDecimal` would take
        return std::nullopt;
    }
    const auto number = parseDecimal<std::uint64_t>(text);
    if (!number || *number > std::numeric_limits<std::uint32_t>::max() / factor) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(*number * factor);
}

std::string formatDuration(std::uint32_t seconds) {
    if (seconds >= 2 * secondsPerDay && seconds % secondsPerDay == 0) {
        return fmt::format("{} d", seconds / secondsPerDay);
    }
    const std::uint32_t hours = seconds / secondsPerHour;
    const std::uint32_t minutes = seconds % secondsPerHour / secondsPerMinute;
    const std::uint32_t rest = seconds % secondsPerMinute;
    std::vector<std::string> parts;
    if (hours > 0) {
        parts.push_back(fmt::format("{} h", hours));
    }
    if (minutes > 0) {
        parts.push_back(fmt::format("{} m", minutes));
    }
    if (rest > 0 || parts.empty()) {
        parts.push_back(fmt::format("{} s", rest));
    }
    constexpr std::size_t shownParts = 2;
    parts.resize(std::min(parts.size(), shownParts));
    return fmt::format("{}", fmt::join(parts, " "));
}

} // namespace DHCPCore
