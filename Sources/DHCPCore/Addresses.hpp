#pragma once

#include "DHCPCore/KeyedHash.hpp"

#include <nlohmann/json_fwd.hpp>

#include <array>
#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace DHCPCore {

using Bytes = std::vector<std::uint8_t>;

/// The bytes of an integer, most significant first: the order of the wire.
template <std::integral Integer>
[[nodiscard]] constexpr std::array<std::uint8_t, sizeof(Integer)> bigEndianBytes(Integer value) {
    const auto bits = static_cast<std::make_unsigned_t<Integer>>(value);
    std::array<std::uint8_t, sizeof(Integer)> bytes{};
    for (std::size_t index = 0; index < sizeof(Integer); ++index) {
        const std::size_t shift = 8 * (sizeof(Integer) - 1 - index);
        bytes.at(index) = static_cast<std::uint8_t>(bits >> shift);
    }
    return bytes;
}

/// An IPv4 address. Its order is numeric: 10.0.0.2 comes before 10.0.0.10.
struct IPv4Address {
    std::uint32_t value = 0; ///< The first dotted octet is the most significant byte.

    static const IPv4Address zero;
    static const IPv4Address broadcast;
    static const IPv4Address loopback;

    constexpr IPv4Address() = default;
    constexpr explicit IPv4Address(std::uint32_t number) : value(number) {}
    constexpr IPv4Address(std::uint8_t a, std::uint8_t b, std::uint8_t c, std::uint8_t d)
        : value(std::uint32_t{a} << 24U | std::uint32_t{b} << 16U | std::uint32_t{c} << 8U | std::uint32_t{d}) {}

    /// Reads exactly four bytes, most significant first; nothing for any other count.
    [[nodiscard]] static std::optional<IPv4Address> fromBytes(std::span<const std::uint8_t> bytes);

    /// Reads four decimal octets, as in "192.168.0.1". Nothing is trimmed; leading zeros are decimal.
    /// @return nothing when the text is anything else.
    [[nodiscard]] static std::optional<IPv4Address> parse(std::string_view text);

    [[nodiscard]] constexpr std::array<std::uint8_t, 4> bytes() const { return bigEndianBytes(value); }

    /// In 169.254.0.0/16 (RFC 3927, section 2.1).
    [[nodiscard]] constexpr bool isLinkLocal() const { return value >> 16U == 0xA9FEU; }

    /// Dotted decimal without leading zeros.
    [[nodiscard]] std::string description() const;

    auto operator<=>(const IPv4Address&) const = default;
};
inline constexpr IPv4Address IPv4Address::zero{};
inline constexpr IPv4Address IPv4Address::broadcast{255, 255, 255, 255};
inline constexpr IPv4Address IPv4Address::loopback{127, 0, 0, 1};

/// The addresses from `lower` to `upper`, both inclusive. Empty where `upper` is below `lower`.
struct AddressRange {
    IPv4Address lower;
    IPv4Address upper;

    [[nodiscard]] constexpr bool contains(IPv4Address address) const { return lower <= address && address <= upper; }

    bool operator==(const AddressRange&) const = default;
};

/// An Ethernet hardware address, first byte first.
struct MACAddress {
    std::array<std::uint8_t, 6> bytes{};

    /// Reads exactly six bytes; nothing for any other count.
    [[nodiscard]] static std::optional<MACAddress> fromBytes(std::span<const std::uint8_t> bytes);

    /// Reads six pairs of hexadecimal digits of either case, joined by ":"; nothing for any other text.
    [[nodiscard]] static std::optional<MACAddress> parse(std::string_view text);

    /// Lower-case pairs joined by ":", as in "00:1c:42:ab:cd:ef".
    [[nodiscard]] std::string description() const;

    bool operator==(const MACAddress&) const = default;
};

/// An address with the length of its network prefix. Two subnets are equal only when the stored addresses are:
/// compare `network()` and `prefixLength` to ask whether they name the same network.
struct Subnet {
    IPv4Address address;  ///< As given: host bits are kept.
    int prefixLength = 0; ///< 0 to 32.

    /// Nothing when the prefix length is not in 0 to 32.
    [[nodiscard]] static std::optional<Subnet> make(IPv4Address address, int prefixLength);

    /// Reads "192.168.0.1/24". Empty pieces around a "/" are tolerated; the prefix may carry a sign.
    [[nodiscard]] static std::optional<Subnet> parse(std::string_view cidr);

    /// The number of leading ones of a netmask; nothing when its ones are not contiguous from the top.
    [[nodiscard]] static std::optional<int> prefixLengthOfMask(IPv4Address mask);

    [[nodiscard]] constexpr IPv4Address mask() const { return maskOf(prefixLength); }
    [[nodiscard]] constexpr IPv4Address network() const { return IPv4Address{address.value & mask().value}; }
    [[nodiscard]] constexpr IPv4Address broadcast() const { return IPv4Address{network().value | ~mask().value}; }

    [[nodiscard]] constexpr bool contains(IPv4Address other) const {
        return (address.value & mask().value) == (other.value & mask().value);
    }

    /// Whether the two networks share an address: one holds the other.
    [[nodiscard]] constexpr bool overlaps(const Subnet& other) const {
        const int shorter = prefixLength < other.prefixLength ? prefixLength : other.prefixLength;
        return ((address.value ^ other.address.value) & maskOf(shorter).value) == 0;
    }

    /// The network in CIDR form: 192.168.0.1 with prefix 24 is "192.168.0.0/24".
    [[nodiscard]] std::string description() const;

    bool operator==(const Subnet&) const = default;

  private:
    [[nodiscard]] static constexpr IPv4Address maskOf(int length) {
        // A shift by 32 is undefined, so the empty prefix has its own answer.
        return length == 0 ? IPv4Address::zero : IPv4Address{0xFFFFFFFFU << static_cast<unsigned>(32 - length)};
    }
};

/// Both travel in JSON as their printed form. @throws DecodingError, as in "Not an IPv4 address: 1.2.3".
void to_json(nlohmann::json& json, const IPv4Address& address);
void from_json(const nlohmann::json& json, IPv4Address& address);
void to_json(nlohmann::json& json, const MACAddress& mac);
void from_json(const nlohmann::json& json, MACAddress& mac);

} // namespace DHCPCore

template <>
struct std::hash<DHCPCore::IPv4Address> {
    std::size_t operator()(const DHCPCore::IPv4Address& address) const noexcept {
        return DHCPCore::keyedHash(address.value);
    }
};

template <>
struct std::hash<DHCPCore::MACAddress> {
    std::size_t operator()(const DHCPCore::MACAddress& mac) const noexcept;
};

template <>
struct std::hash<DHCPCore::Subnet> {
    std::size_t operator()(const DHCPCore::Subnet& subnet) const noexcept;
};
