#pragma once

#include "DHCPCore/Addresses.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The text of ifupdown's /etc/network/interfaces: see interfaces(5). Everything here is pure.
namespace NetworkSetup::InterfacesFile {

/// The words after "iface CARD inet" of each such stanza: the method, then what may follow it.
[[nodiscard]] std::vector<std::vector<std::string>> stanzas(std::string_view text, std::string_view card);

/// The text with the card's stanza set to that address, or to DHCP without one. The stanza keeps its other options;
/// everything outside it keeps every byte. @return the text as it is when there is no such stanza.
[[nodiscard]] std::string withAddress(std::string_view text, std::string_view card,
                                      const std::optional<DHCPCore::Subnet>& address);

} // namespace NetworkSetup::InterfacesFile
