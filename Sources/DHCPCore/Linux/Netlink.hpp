#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/FileDescriptor.hpp"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

/// What the kernel tells about cards, addresses, routes and neighbours over rtnetlink (RFC 3549). Each question is one
/// dump, and each reader takes the dump's bytes: it stops at the first message that does not fit into what is left.
namespace DHCPCore::Netlink {

enum class Question { links, addresses, routes, neighbours };

/// Asks the kernel; the network is that of the calling thread. All but the links are asked for IPv4 alone.
/// @return nothing when the kernel refuses.
[[nodiscard]] std::optional<Bytes> ask(Question question);

/// A socket on which the kernel tells when a link or an IPv4 address comes, changes or goes, in the network of the
/// calling thread. Reading does not wait. Not open when the kernel refuses.
[[nodiscard]] FileDescriptor openNotices();

/// Takes the next thing that the kernel tells on such a socket.
/// @return whether something changed: a notice, or the word that notices were lost for want of room. False when there
///         is nothing to take, and for what somebody else sent.
[[nodiscard]] bool takeNotice(const FileDescriptor& socket);

struct Link {
    std::uint32_t index = 0;
    std::uint16_t hardwareType = 0; ///< As ARPHRD_ETHER.
    std::uint32_t flags = 0;        ///< As IFF_UP.
    std::string name;
    std::string kind;              ///< What made a virtual card, as "bridge"; empty for a real one.
    std::optional<MACAddress> mac; ///< Absent unless the link-layer address has six bytes.

    bool operator==(const Link&) const = default;
};

/// The links in order of their index.
[[nodiscard]] std::vector<Link> parseLinks(std::span<const std::uint8_t> dump);

struct Address {
    std::uint32_t interfaceIndex = 0;
    Subnet subnet;            ///< The interface's own address, also where it has a peer.
    bool isPermanent = false; ///< It has no end of validity.

    bool operator==(const Address&) const = default;
};

/// The IPv4 addresses in order of their interface's index; the kernel's order on each interface.
[[nodiscard]] std::vector<Address> parseAddresses(std::span<const std::uint8_t> dump);

/// The interface of the default route with the lowest metric in the main table; of equal ones the first.
[[nodiscard]] std::optional<std::uint32_t> parseDefaultInterface(std::span<const std::uint8_t> dump);

struct Neighbour {
    IPv4Address ip;
    MACAddress mac;

    bool operator==(const Neighbour&) const = default;
};

/// The neighbours that were found by ARP, or set by hand, and did not fail since.
[[nodiscard]] std::vector<Neighbour> parseNeighbours(std::span<const std::uint8_t> dump);

} // namespace DHCPCore::Netlink
