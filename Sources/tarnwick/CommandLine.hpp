#pragma once

#include "DHCPCore/Config.hpp"
#include "DHCPCore/Error.hpp"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace Tarnwick {

/// What `tarnwick serve` was asked to do.
struct ServeOptions {
    std::optional<std::string> interface; ///< The card to serve on.
    DHCPCore::ServerConfig config{
        .serverIP = DHCPCore::IPv4Address{192, 168, 0, 1},
        .prefixLength = 24,
        .rangeStart = DHCPCore::IPv4Address{192, 168, 0, 100},
        .rangeEnd = DHCPCore::IPv4Address{192, 168, 0, 200},
        .leaseSeconds = 86400,
        .router = std::nullopt,
        .dns = {},
    };
    std::optional<std::string> leasePath; ///< Absent: the standard place.
    bool json = false;
    bool loopback = false;
    std::uint16_t port = 6767;       ///< Of the server in loopback mode.
    std::uint16_t clientPort = 6868; ///< Of the client in loopback mode.

    bool operator==(const ServeOptions&) const = default;
};

/// An error of the tool, with the sentence shown after "tarnwick: ".
class CLIError : public DHCPCore::Error {
  public:
    CLIError(std::string text, bool usage);

    bool isUsage; ///< The command was typed wrongly: the usage text helps.
    bool operator==(const CLIError& other) const {
        return isUsage == other.isUsage && description() == other.description();
    }
};

/// The usage text, without a line feed at its end.
extern const std::string_view usageText;

/// Reads the arguments after the word `serve`. Validates no configuration and asks the host nothing.
/// @throws CLIError for the first bad argument.
[[nodiscard]] ServeOptions parseServe(std::span<const std::string> arguments);

} // namespace Tarnwick
