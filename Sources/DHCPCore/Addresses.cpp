#include "DHCPCore/Addresses.hpp"

#include "DHCPCore/Error.hpp"
#include "DHCPCore/HashCombine.hpp"
#include "DHCPCore/TextPieces.hpp"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace DHCPCore {

namespace {

constexpr std::size_t longestOctet = 3; // "255", or "001" with leading zeros

std::optional<std::uint8_t> parseOctet(std::string_view piece) {
    if (piece.empty() || piece.size() > longestOctet || !std::ranges::all_of(piece, isDecimalDigit)) {
        return std::nullopt;
    }
    std::uint8_t octet = 0;
    const auto [end, error] = std::from_chars(piece.data(), piece.data() + piece.size(), octet);
    if (error != std::errc{}) { // above 255
        return std::nullopt;
    }
    return octet;
}

std::optional<std::uint8_t> parseHexByte(std::string_view piece) {
    if (piece.size() != 2) {
        return std::nullopt;
    }
    std::uint8_t byte = 0;
    const char* const end = piece.data() + piece.size();
    const auto [stop, error] = std::from_chars(piece.data(), end, byte, 16);
    if (error != std::errc{} || stop != end) {
        return std::nullopt;
    }
    return byte;
}

} // namespace

std::optional<IPv4Address> IPv4Address::fromBytes(std::span<const std::uint8_t> bytes) {
    if (bytes.size() != 4) {
        return std::nullopt;
    }
    return IPv4Address{bytes[0], bytes[1], bytes[2], bytes[3]};
}

std::optional<IPv4Address> IPv4Address::parse(std::string_view text) {
    const auto pieces = splitKeepingEmpty(text, '.');
    if (pieces.size() != 4) {
        return std::nullopt;
    }
    std::uint32_t value = 0;
    for (const std::string_view piece : pieces) {
        const auto octet = parseOctet(piece);
        if (!octet) {
            return std::nullopt;
        }
        value = value << 8U | *octet;
    }
    return IPv4Address{value};
}

std::string IPv4Address::description() const {
    std::array<char, 16> text{}; // "255.255.255.255", which a string holds without memory of its own
    char* end = text.data();
    for (const std::uint8_t octet : bytes()) {
        if (end != text.data()) {
            *end++ = '.';
        }
        end = std::to_chars(end, text.data() + text.size(), octet).ptr;
    }
    return {text.data(), end};
}

std::optional<MACAddress> MACAddress::fromBytes(std::span<const std::uint8_t> bytes) {
    MACAddress mac;
    if (bytes.size() != mac.bytes.size()) {
        return std::nullopt;
    }
    std::ranges::copy(bytes, mac.bytes.begin());
    return mac;
}

std::optional<MACAddress> MACAddress::parse(std::string_view text) {
    MACAddress mac;
    const auto pieces = splitKeepingEmpty(text, ':');
    if (pieces.size() != mac.bytes.size()) {
        return std::nullopt;
    }
    for (std::size_t index = 0; index < pieces.size(); ++index) {
        const auto byte = parseHexByte(pieces[index]);
        if (!byte) {
            return std::nullopt;
        }
        mac.bytes.at(index) = *byte;
    }
    return mac;
}

std::string MACAddress::description() const { return hexadecimal(bytes); }

std::optional<Subnet> Subnet::make(IPv4Address address, int prefixLength) {
    if (prefixLength < 0 || prefixLength > 32) {
        return std::nullopt;
    }
    return Subnet{.address = address, .prefixLength = prefixLength};
}

std::optional<Subnet> Subnet::parse(std::string_view cidr) {
    const auto pieces = splitDroppingEmpty(cidr, '/');
    if (pieces.size() != 2) {
        return std::nullopt;
    }
    const auto address = IPv4Address::parse(pieces[0]);
    const auto prefixLength = parseDecimal<int>(pieces[1]);
    if (!address || !prefixLength) {
        return std::nullopt;
    }
    return make(*address, *prefixLength);
}

std::optional<int> Subnet::prefixLengthOfMask(IPv4Address mask) {
    const int ones = std::popcount(mask.value);
    if (mask != maskOf(ones)) {
        return std::nullopt;
    }
    return ones;
}

std::string Subnet::description() const { return fmt::format("{}/{}", network().description(), prefixLength); }

void to_json(nlohmann::json& json, const IPv4Address& address) { json = address.description(); }

void from_json(const nlohmann::json& json, IPv4Address& address) {
    const auto& text = json.get_ref<const std::string&>();
    const auto parsed = IPv4Address::parse(text);
    if (!parsed) {
        throw DecodingError("Not an IPv4 address: " + text);
    }
    address = *parsed;
}

void to_json(nlohmann::json& json, const MACAddress& mac) { json = mac.description(); }

void from_json(const nlohmann::json& json, MACAddress& mac) {
    const auto& text = json.get_ref<const std::string&>();
    const auto parsed = MACAddress::parse(text);
    if (!parsed) {
        throw DecodingError("Not a MAC address: " + text);
    }
    mac = *parsed;
}

} // namespace DHCPCore

std::size_t std::hash<DHCPCore::MACAddress>::operator()(const DHCPCore::MACAddress& mac) const noexcept {
    std::uint64_t number = 0;
    std::memcpy(&number, mac.bytes.data(), mac.bytes.size());
    return DHCPCore::keyedHash(number);
}

std::size_t std::hash<DHCPCore::Subnet>::operator()(const DHCPCore::Subnet& subnet) const noexcept {
    std::size_t seed = 0;
    DHCPCore::hashCombine(seed, subnet.address);
    DHCPCore::hashCombine(seed, subnet.prefixLength);
    return seed;
}
