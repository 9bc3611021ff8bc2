#include "DHCPCore/SettingsForm.hpp"

#include "DHCPCore/Overloaded.hpp"
#include "DHCPCore/TextPieces.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <utility>
#include <variant>

namespace DHCPCore {

namespace {

using Field = SettingsForm::Field;

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t";
    const auto first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

LeasePreset presetOf(std::uint32_t leaseSeconds) {
    const auto presets = allCases<LeasePreset>();
    const auto* const match =
        std::ranges::find_if(presets, [&](LeasePreset preset) { return seconds(preset) == leaseSeconds; });
    return match == presets.end() ? LeasePreset::custom : *match;
}

std::string listText(const std::vector<IPv4Address>& addresses) {
    std::vector<std::string> texts;
    for (const IPv4Address& address : addresses) {
        texts.push_back(address.description());
    }
    return fmt::format("{}", fmt::join(texts, ", "));
}

/// The addresses between commas; nothing when one of them can't be read. A blank between two commas is none.
std::optional<std::vector<IPv4Address>> parseList(std::string_view text) {
    std::vector<IPv4Address> addresses;
    for (const std::string_view piece : splitDroppingEmpty(text, ',')) {
        const std::string_view word = trimmed(piece);
        if (word.empty()) {
            continue;
        }
        const auto address = IPv4Address::parse(word);
        if (!address) {
            return std::nullopt;
        }
        addresses.push_back(*address);
    }
    return addresses;
}

/// The field under which a fault of the whole configuration is shown.
Field fieldOf(const ConfigError& error) {
    return std::visit(Overloaded{
                          [](const ConfigError::PrefixOutOfBounds&) { return Field::server; },
                          [](const ConfigError::RangeOutsideSubnet&) { return Field::range; },
                          [](const ConfigError::GatewayOutsideSubnet&) { return Field::gateway; },
                          [](const ConfigError::ServerIPIsNetworkOrBroadcast&) { return Field::server; },
                          [](const ConfigError::RangeReversed&) { return Field::range; },
                          [](const ConfigError::RangeIncludesNetworkOrBroadcast&) { return Field::range; },
                          [](const ConfigError::ServerIPInsideRange&) { return Field::server; },
                          [](const ConfigError::LeaseTimeOutOfBounds&) { return Field::lease; },
                          [](const ConfigError::TooManyDNSServers&) { return Field::dns; },
                      },
                      error.value);
}

} // namespace

std::string_view label(LeasePreset preset) {
    switch (preset) {
    case LeasePreset::oneHour:
        return "1 h";
    case LeasePreset::eightHours:
        return "8 h";
    case LeasePreset::oneDay:
        return "24 h";
    case LeasePreset::sevenDays:
        return "7 d";
    case LeasePreset::custom:
        break;
    }
    return "Custom";
}

std::optional<std::uint32_t> seconds(LeasePreset preset) {
    constexpr std::uint32_t secondsPerHour = 3600;
    switch (preset) {
    case LeasePreset::oneHour:
        return secondsPerHour;
    case LeasePreset::eightHours:
        return 8 * secondsPerHour;
    case LeasePreset::oneDay:
        return 24 * secondsPerHour;
    case LeasePreset::sevenDays:
        return 7 * 24 * secondsPerHour;
    case LeasePreset::custom:
        break;
    }
    return std::nullopt;
}

/// What the texts come to.
struct SettingsForm::Evaluation {
    ServerConfig config; ///< Meaningful without errors only.
    Errors errors;

    /// Takes what was read; adds the complaint to the field when that is nothing.
    template <class Value, class Read>
    void take(Value& value, const std::optional<Read>& read, Field field, std::string_view complaint) {
        if (read) {
            value = *read;
        } else {
            errors[field].emplace_back(complaint);
        }
    }

    void validate() {
        for (const ConfigError& error : config.validate()) {
            errors[fieldOf(error)].push_back(error.description());
        }
    }
};

SettingsForm::SettingsForm(const ServerConfig& config)
    : serverIP(config.serverIP.description()), prefix(fmt::format("{}", config.prefixLength)),
      rangeStart(config.rangeStart.description()), rangeEnd(config.rangeEnd.description()),
      leasePreset(presetOf(config.leaseSeconds)),
      customLease(leasePreset == LeasePreset::custom ? fmt::format("{}s", config.leaseSeconds) : ""),
      router(config.router ? config.router->description() : ""), dns(listText(config.dns)) {}

std::optional<ServerConfig> SettingsForm::config() const {
    Evaluation evaluation = evaluate();
    return evaluation.errors.empty() ? std::optional(std::move(evaluation.config)) : std::nullopt;
}

SettingsForm::Errors SettingsForm::errors() const { return evaluate().errors; }

std::optional<std::uint32_t> SettingsForm::leaseSeconds() const {
    return leasePreset == LeasePreset::custom ? parseDuration(trimmed(customLease)) : seconds(leasePreset);
}

std::optional<std::int64_t> SettingsForm::rangeCount() const {
    const auto start = IPv4Address::parse(trimmed(rangeStart));
    const auto end = IPv4Address::parse(trimmed(rangeEnd));
    if (!start || !end || *end < *start) {
        return std::nullopt;
    }
    return std::int64_t{end->value} - std::int64_t{start->value} + 1;
}

SettingsForm::Evaluation SettingsForm::evaluate() const {
    Evaluation result;
    ServerConfig& config = result.config;
    result.take(config.serverIP, IPv4Address::parse(trimmed(serverIP)), Field::server,
                "Server IP must look like 192.168.0.1.");
    result.take(config.prefixLength, parseDecimal<int>(trimmed(prefix)), Field::server,
                "Prefix must be a number such as 24.");
    const auto start = IPv4Address::parse(trimmed(rangeStart));
    const auto end = IPv4Address::parse(trimmed(rangeEnd));
    if (start && end) {
        config.rangeStart = *start;
        config.rangeEnd = *end;
    } else {
        result.errors[Field::range].emplace_back("Range must be two IPv4 addresses.");
    }
    result.take(config.leaseSeconds, leaseSeconds(), Field::lease, "Lease time must look like 90m, 24h or 7d.");
    if (const std::string_view gateway = trimmed(router); !gateway.empty()) {
        result.take(config.router, IPv4Address::parse(gateway), Field::gateway,
                    "Gateway must be an IPv4 address, or empty for off.");
    }
    result.take(config.dns, parseList(dns), Field::dns,
                "DNS must be IPv4 addresses separated by commas, or empty for off.");
    // Until every text can be read, what the configuration lacks would only be a guess.
    if (result.errors.empty()) {
        result.validate();
    }
    return result;
}

} // namespace DHCPCore
