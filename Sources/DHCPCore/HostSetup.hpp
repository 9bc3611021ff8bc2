#pragma once

#include "DHCPCore/Addresses.hpp"

#include <string>
#include <string_view>

/// The commands that give a card the server's address.
namespace DHCPCore::HostSetup {

/// The program that configures a network service.
inline constexpr std::string_view networksetup = "/usr/sbin/networksetup";

/// The text as one single-quoted shell word.
[[nodiscard]] std::string shellQuote(std::string_view text);

/// Sets address and mask of a service, no router.
[[nodiscard]] std::string setManualCommand(std::string_view service, IPv4Address ip, IPv4Address mask);

/// Returns a service to DHCP.
[[nodiscard]] std::string setDHCPCommand(std::string_view service);

/// The command as a user types it who needs administrator rights for it.
[[nodiscard]] std::string sudoLine(std::string_view command);

} // namespace DHCPCore::HostSetup
