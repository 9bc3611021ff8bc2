#pragma once

#include "DHCPCore/Interfaces.hpp"

#include <optional>
#include <string>
#include <vector>

namespace DHCPCore {

/// One entry of the system's network preferences, as macOS keeps them.
struct NetworkService {
    /// The IPv4 settings as they are written down; all are absent where the service has none.
    struct IPv4Settings {
        std::optional<std::string> method;
        std::optional<std::string> address; ///< The first one.
        std::optional<std::string> mask;    ///< The first one.

        bool operator==(const IPv4Settings&) const = default;
    };

    std::optional<std::string> name;
    std::optional<std::string> bsdName; ///< The card's.
    bool isEnabled = false;
    IPv4Settings ipv4;

    bool operator==(const NetworkService&) const = default;
};

/// What the network preferences mean. Pure.
namespace NetworkServices {

/// How a card is configured: "DHCP", "Manual" with an address and a mask, or another method by its name.
[[nodiscard]] NetworkCard::ConfigMethod configMethod(const NetworkService::IPv4Settings& settings);

/// The first enabled service of a card, in the system's order.
[[nodiscard]] std::optional<NetworkService> ofCard(const std::vector<NetworkService>& services,
                                                   const std::string& bsdName);

/// The names of the services that have one, enabled or not.
[[nodiscard]] std::vector<std::string> names(const std::vector<NetworkService>& services);

} // namespace NetworkServices
} // namespace DHCPCore
