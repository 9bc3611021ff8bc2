#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/EnumText.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace DHCPCore {

/// One network card of the host.
struct NetworkCard {
    enum class Kind { ethernet, wifi, bridge, other };

    /// How the card's service configures IPv4.
    struct ConfigMethod {
        struct Manual {
            IPv4Address ip;
            IPv4Address mask;
            bool operator==(const Manual&) const = default;
        };
        struct Other {
            std::string method; ///< The method's own name.
            bool operator==(const Other&) const = default;
        };
        struct DHCP {
            bool operator==(const DHCP&) const = default;
        };
        struct None {
            bool operator==(const None&) const = default;
        };
        std::variant<Manual, Other, DHCP, None> value = None{};

        bool operator==(const ConfigMethod&) const = default;
    };

    std::string bsdName;                    ///< The system's name, such as "en7"; the card's identity.
    std::string displayName;                ///< `bsdName` when the system has no other.
    std::optional<std::string> serviceName; ///< The configuration that owns the card.
    Kind kind = Kind::other;
    std::optional<MACAddress> mac;
    bool linkUp = false;
    std::optional<std::string> media; ///< As "1000baseT full-duplex"; absent when the link is down or not Ethernet.
    std::vector<Subnet> addresses;    ///< In system order.
    ConfigMethod configMethod;
    bool isPrimary = false; ///< The card carries the host's default route.

    [[nodiscard]] const std::string& id() const { return bsdName; }

    /// The first address and where it comes from, as "192.168.0.1 (manual)"; "no address".
    [[nodiscard]] std::string addressSummary() const;

    bool operator==(const NetworkCard&) const = default;
};

template <>
struct EnumText<NetworkCard::Kind> {
    static constexpr std::array<std::string_view, 4> names{"ethernet", "wifi", "bridge", "other"};
};

/// One IPv4 address of one interface, loopback and tunnels included.
struct InterfaceAddress {
    std::string name; ///< The system's name of the interface; "lo0" for loopback on every system.
    Subnet subnet;
    bool isPointToPoint = false;

    bool operator==(const InterfaceAddress&) const = default;
};

/// What the host's network cards are. Nothing here changes the host; a question that the host does not answer gets the
/// neutral value: empty, nothing, link down.
namespace Interfaces {

/// The state of one card's cable.
struct MediaStatus {
    bool linkUp = false;
    std::optional<std::string> description;

    bool operator==(const MediaStatus&) const = default;
};

/// Every card of the host, in system order; loopback is none. May run other programs. (Linux/, Darwin/)
[[nodiscard]] std::vector<NetworkCard> list();

/// Every IPv4 address of every interface. An address with a mask that is none is left out. (Linux/, Darwin/)
[[nodiscard]] std::vector<InterfaceAddress> interfaceAddresses();

/// The cards worth serving: wired, linked ones first, then by display name.
[[nodiscard]] std::vector<NetworkCard> offered(std::vector<NetworkCard> cards, bool showDisconnected);

/// The card to preselect: the current one while running or still offered, else the remembered one, else the first
/// with link.
[[nodiscard]] std::optional<std::string> preferredCardID(const std::vector<NetworkCard>& cards,
                                                         const std::optional<std::string>& current,
                                                         const std::optional<MACAddress>& remembered, bool isRunning);

/// The name of the first card with that MAC, of any kind; quicker than the whole list. (Linux/, Darwin/)
[[nodiscard]] std::optional<std::string> bsdNameForMAC(const MACAddress& mac);

/// The interface of the host's default route. (Linux/, Darwin/)
[[nodiscard]] std::optional<std::string> primaryInterface();

/// Asks the system for one card's link and media; a card that does not exist is down. (Linux/, Darwin/)
[[nodiscard]] MediaStatus mediaStatus(const std::string& name);

/// The media word in words, as "1000baseT full-duplex"; nothing when it is not Ethernet. Pure.
[[nodiscard]] std::optional<std::string> describeMedia(std::int32_t mediaWord);

/// The state of a cable from the two words in which BSD systems tell it: the card's status, and its media. Pure.
[[nodiscard]] MediaStatus mediaStatusOf(std::int32_t statusWord, std::int32_t mediaWord);

/// A netmask from its socket address on BSD systems, which cut it short where only zeros would follow; all bytes may be
/// missing. Pure.
[[nodiscard]] IPv4Address maskOfSocketAddress(std::span<const std::uint8_t> socketAddress);

} // namespace Interfaces
} // namespace DHCPCore

template <>
struct std::hash<DHCPCore::NetworkCard::ConfigMethod> {
    std::size_t operator()(const DHCPCore::NetworkCard::ConfigMethod& method) const noexcept;
};

template <>
struct std::hash<DHCPCore::NetworkCard> {
    std::size_t operator()(const DHCPCore::NetworkCard& card) const noexcept;
};

template <>
struct std::hash<DHCPCore::InterfaceAddress> {
    std::size_t operator()(const DHCPCore::InterfaceAddress& address) const noexcept;
};
