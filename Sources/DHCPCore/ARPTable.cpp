#include "DHCPCore/LittleEndian.hpp"
#include "DHCPCore/Presence.hpp"

#include <cstddef>
#include <utility>

namespace DHCPCore {

namespace {

// A routing message (route(4)) is a header and the socket addresses behind it. All of them begin with their length, in
// the message 16 bits, in a socket address 8 bits with the family behind it.
constexpr std::size_t messageLengthSize = 2;
constexpr std::size_t messageHeaderSize = 92;
constexpr std::size_t socketAddressHeaderSize = 2;
constexpr std::size_t alignment = 4;

constexpr std::uint8_t internetFamily = 2; // AF_INET
constexpr std::size_t internetAddressOffset = 4;
constexpr std::size_t internetAddressSize = 4;

constexpr std::uint8_t linkFamily = 18; // AF_LINK
constexpr std::size_t nameLengthOffset = 5;
constexpr std::size_t addressLengthOffset = 6;
constexpr std::size_t nameOffset = 8;
constexpr std::size_t macSize = 6;

std::span<const std::uint8_t> after(std::span<const std::uint8_t> bytes, std::size_t count) {
    return count < bytes.size() ? bytes.subspan(count) : std::span<const std::uint8_t>{};
}

bool isOfFamily(std::span<const std::uint8_t> socketAddress, std::uint8_t family) {
    return socketAddress.size() >= socketAddressHeaderSize && socketAddress[1] == family;
}

std::optional<IPv4Address> internetAddress(std::span<const std::uint8_t> socketAddress) {
    if (!isOfFamily(socketAddress, internetFamily) ||
        socketAddress.size() < internetAddressOffset + internetAddressSize) {
        return std::nullopt;
    }
    return IPv4Address::fromBytes(socketAddress.subspan(internetAddressOffset, internetAddressSize));
}

std::optional<MACAddress> hardwareAddress(std::span<const std::uint8_t> socketAddress) {
    if (!isOfFamily(socketAddress, linkFamily) || socketAddress.size() < nameOffset ||
        socketAddress[addressLengthOffset] != macSize) {
        return std::nullopt;
    }
    const auto behindName = after(socketAddress, nameOffset + socketAddress[nameLengthOffset]);
    return behindName.size() < macSize ? std::nullopt : MACAddress::fromBytes(behindName.first(macSize));
}

/// The pair in one message; nothing for a message about anything else.
std::optional<std::pair<IPv4Address, MACAddress>> neighbourIn(std::span<const std::uint8_t> message) {
    const auto destination = after(message, messageHeaderSize);
    const auto ip = internetAddress(destination);
    if (!ip) {
        return std::nullopt;
    }
    const std::size_t paddedLength = (destination[0] + alignment - 1) / alignment * alignment;
    const auto mac = hardwareAddress(after(destination, paddedLength));
    return mac ? std::optional(std::pair(*ip, *mac)) : std::nullopt;
}

} // namespace

ARPTable::Map ARPTable::parse(std::span<const std::uint8_t> dump) {
    Map map;
    while (dump.size() >= messageLengthSize) {
        const std::size_t length = littleEndianAt<std::uint16_t>(dump, 0);
        if (length == 0 || length > dump.size()) {
            break;
        }
        if (const auto neighbour = neighbourIn(dump.first(length))) {
            map.insert_or_assign(neighbour->first, neighbour->second);
        }
        dump = dump.subspan(length);
    }
    return map;
}

} // namespace DHCPCore
