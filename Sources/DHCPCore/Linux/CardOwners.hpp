#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/Interfaces.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace DHCPCore {

/// What NetworkManager says about its devices, from the output of its command-line tool. Pure.
namespace NetworkManager {

struct Device {
    std::string name;
    std::optional<MACAddress> mac;
    bool isManaged = false;
    std::string connection;     ///< The active connection's name; empty when there is none.
    std::string connectionUUID; ///< Empty when there is none.

    bool operator==(const Device&) const = default;
};

/// The tool's arguments, and the reader of what it then prints.
[[nodiscard]] std::vector<std::string> deviceArguments();
[[nodiscard]] std::vector<Device> parseDevices(std::string_view output);

/// A connection profile. Several may have the same name; the UUID is its identity.
struct Connection {
    std::string name;
    std::string uuid;
    std::string type;          ///< As the tool prints it: "802-3-ethernet".
    std::string interfaceName; ///< The card that it is tied to; empty when it is for any card.

    bool operator==(const Connection&) const = default;
};

/// The arguments that list the connections' UUIDs, those that ask about all of such a list, and the reader of what
/// the tool then prints.
[[nodiscard]] std::vector<std::string> connectionListArguments();
[[nodiscard]] std::vector<std::string> connectionArguments(std::string_view list);
[[nodiscard]] std::vector<Connection> parseConnections(std::string_view output);

/// Whether the device is managed and has no connection now, as without a cable.
[[nodiscard]] bool isWaiting(const Device& device);

/// Gives each waiting device the connection that is tied to it, where there is just one.
void assignConnections(std::vector<Device>& devices, const std::vector<Connection>& connections);

/// How a connection configures IPv4.
[[nodiscard]] std::vector<std::string> methodArguments(const std::string& connectionUUID);
[[nodiscard]] NetworkCard::ConfigMethod parseMethod(std::string_view output);

} // namespace NetworkManager

/// What systemd-networkd says about a card in its files (systemd.network(5)). Pure.
namespace Networkd {

/// The network file that owns the card, from the card's run-time file.
[[nodiscard]] std::optional<std::string> networkFile(std::string_view runtimeFile);

/// How a network file configures IPv4. Nothing when it does not name the card, or its MAC: a run-time file goes by an
/// index, which may be that of another network's card.
[[nodiscard]] std::optional<NetworkCard::ConfigMethod>
parseMethod(std::string_view networkFile, const std::string& cardName, const std::optional<MACAddress>& mac);

} // namespace Networkd

/// What ifupdown is told about cards (interfaces(5)). Pure.
namespace Ifupdown {

struct Stanza {
    std::string cardName;
    NetworkCard::ConfigMethod method;

    bool operator==(const Stanza&) const = default;
};

struct Configuration {
    std::vector<Stanza> stanzas;      ///< Those for IPv4, in file order.
    std::vector<std::string> sources; ///< Patterns of the further files to read, as they stand.

    bool operator==(const Configuration&) const = default;
};

[[nodiscard]] Configuration parse(std::string_view text);

/// How the first of a card's stanzas configures it; nothing when it has none.
[[nodiscard]] std::optional<NetworkCard::ConfigMethod> methodOf(const std::vector<Stanza>& stanzas,
                                                                const std::string& cardName);

} // namespace Ifupdown
} // namespace DHCPCore
