#pragma once

#include "DHCPCore/Interfaces.hpp"
#include "DHCPCore/Linux/CardOwners.hpp"
#include "networksetup/Facts.hpp"

#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace NetworkSetup {

/// Where the managers' programs and files lie. A manager without programs is not there.
struct Places {
    /// Where a program may lie; the first that exists is taken.
    using Program = std::vector<std::string>;

    Program nmcli{"/usr/bin/nmcli"};
    Program systemctl{"/usr/bin/systemctl", "/bin/systemctl"};
    Program networkctl{"/usr/bin/networkctl", "/bin/networkctl"};
    std::string networkdLinks = "/run/systemd/netif/links";
    std::string networkdDirectory = "/etc/systemd/network";
    Program ifup{"/usr/sbin/ifup", "/sbin/ifup"};
    Program ifdown{"/usr/sbin/ifdown", "/sbin/ifdown"};
    std::string interfaces = "/etc/network/interfaces";
    std::string ifstate = "/run/network/ifstate";
};

/// Asks the host what matters for the service. Nothing fails: a question that is not answered leaves its fact out.
/// @param cards  those of the host
[[nodiscard]] Facts survey(const std::string& service, const std::vector<DHCPCore::NetworkCard>& cards,
                           const Places& places);

/// Where they lie for the network of the calling thread: the host's managers know nothing of the cards in another one
/// than theirs, though these may have the same names.
[[nodiscard]] Places placesOfThisNetwork();

// What interprets the answers; pure.

/// What NetworkManager holds, by what nmcli tells about its connections, and by its devices that are cards of this
/// host.
[[nodiscard]] NetworkManagerFacts networkManagerFrom(std::string_view connections,
                                                     const std::vector<DHCPCore::NetworkManager::Device>& devices,
                                                     const std::vector<DHCPCore::NetworkCard>& cards);

/// The cards in ifupdown's state, lines such as "en5=en5".
[[nodiscard]] std::set<std::string> upCardsIn(std::string_view state);

} // namespace NetworkSetup
