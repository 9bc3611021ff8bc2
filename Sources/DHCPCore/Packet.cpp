#include "DHCPCore/Packet.hpp"

#include "DHCPCore/IntegerJSON.hpp"
#include "DHCPCore/Overloaded.hpp"
#include "DHCPCore/TextPieces.hpp"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cassert>
#include <iterator>
#include <limits>
#include <utility>

namespace DHCPCore {

namespace {

/// Where the fields stand in a message (RFC 2131, section 2, figure 1).
namespace Offset {
constexpr std::size_t op = 0;
constexpr std::size_t htype = 1;
constexpr std::size_t hlen = 2;
constexpr std::size_t hops = 3;
constexpr std::size_t xid = 4;
constexpr std::size_t secs = 8;
constexpr std::size_t flags = 10;
constexpr std::size_t ciaddr = 12;
constexpr std::size_t yiaddr = 16;
constexpr std::size_t siaddr = 20;
constexpr std::size_t giaddr = 24;
constexpr std::size_t chaddr = 28;
constexpr std::size_t cookie = DHCPPacket::headerLength;
constexpr std::size_t options = cookie + DHCPPacket::magicCookie.size();
} // namespace Offset

constexpr std::size_t usualLength = 320;     // a normal reply fits
constexpr std::size_t usualOptionCount = 16; // a normal message has fewer
constexpr std::size_t longestShownText = 64; // of the texts that a client sends about itself

/// The part of a message that is always there: the fields and the cookie.
using FixedPart = std::span<const std::uint8_t, Offset::options>;

template <std::unsigned_integral Integer, std::size_t offset>
Integer field(FixedPart fixedPart) {
    Integer value = 0;
    for (const std::uint8_t byte : fixedPart.subspan<offset, sizeof(Integer)>()) {
        value = static_cast<Integer>(value << 8U | byte);
    }
    return value;
}

template <std::size_t offset>
IPv4Address addressField(FixedPart fixedPart) {
    return IPv4Address{field<std::uint32_t, offset>(fixedPart)};
}

/// Splits the options area (RFC 2132, section 2) into its fields, in wire order.
/// @return the fault when an option does not fit into what was received.
std::optional<PacketError::OptionOverrun> parseOptions(std::span<const std::uint8_t> rest,
                                                       std::vector<DHCPOptionField>& options) {
    options.reserve(usualOptionCount);
    while (!rest.empty() && rest[0] != OptionCode::end) {
        const std::uint8_t code = rest[0];
        if (code == OptionCode::pad) {
            rest = rest.subspan(1);
            continue;
        }
        if (rest.size() < 2 || rest.size() - 2 < rest[1]) {
            return PacketError::OptionOverrun{code};
        }
        const auto data = rest.subspan(2, rest[1]);
        options.push_back({.code = code, .data = data});
        rest = rest.subspan(2 + data.size());
    }
    return std::nullopt;
}

void append(Bytes& bytes, std::span<const std::uint8_t> piece) {
    bytes.insert(bytes.end(), piece.begin(), piece.end());
}

[[maybe_unused]] bool fitsLengthByte(std::span<const std::uint8_t> data) {
    return data.size() <= std::numeric_limits<std::uint8_t>::max();
}

std::optional<std::string> printableOption(const DHCPPacket& packet, std::uint8_t code) {
    const auto data = packet.option(code);
    if (!data) {
        return std::nullopt;
    }
    return DHCPPacket::printable(*data, longestShownText);
}

std::optional<IPv4Address> addressOption(const DHCPPacket& packet, std::uint8_t code) {
    const auto data = packet.option(code);
    if (!data) {
        return std::nullopt;
    }
    return IPv4Address::fromBytes(*data);
}

std::string describe(const PacketError::Value& reason) {
    return std::visit(Overloaded{[](const PacketError::TooShort& fault) {
                                     return fmt::format("too short ({} bytes)", fault.byteCount);
                                 },
                                 [](const PacketError::OptionOverrun& fault) {
                                     return fmt::format("option {} runs past the end", fault.code);
                                 },
                                 [](const PacketError::BadMagicCookie&) { return std::string("bad magic cookie"); }},
                      reason);
}

} // namespace

std::string_view description(DHCPMessageType type) {
    switch (type) {
    case DHCPMessageType::discover:
        return "DISCOVER";
    case DHCPMessageType::offer:
        return "OFFER";
    case DHCPMessageType::request:
        return "REQUEST";
    case DHCPMessageType::decline:
        return "DECLINE";
    case DHCPMessageType::ack:
        return "ACK";
    case DHCPMessageType::nak:
        return "NAK";
    case DHCPMessageType::release:
        return "RELEASE";
    case DHCPMessageType::inform:
        return "INFORM";
    }
    return "";
}

void to_json(nlohmann::json& json, DHCPMessageType type) { json = static_cast<std::uint8_t>(type); }

void from_json(const nlohmann::json& json, DHCPMessageType& type) {
    constexpr std::string_view what = "DHCP message type";
    const auto number = integerFromJSON<std::uint8_t>(json, what);
    const auto known = fromRawValue<DHCPMessageType>(number);
    if (!known) {
        throw DecodingError(fmt::format("Not a {}: {}", what, number));
    }
    type = *known;
}

PacketError::PacketError(Value reason) : Error(describe(reason)), value(reason) {}

DHCPPacket DHCPPacket::parse(std::span<const std::uint8_t> datagram) {
    auto result = read(datagram);
    if (const auto* const fault = std::get_if<PacketError::Value>(&result)) {
        throw PacketError{*fault};
    }
    return std::get<DHCPPacket>(std::move(result));
}

std::variant<DHCPPacket, PacketError::Value> DHCPPacket::read(std::span<const std::uint8_t> datagram) {
    if (datagram.size() < Offset::options) {
        return PacketError::TooShort{datagram.size()};
    }
    const auto fixedPart = datagram.first<Offset::options>();
    if (!std::ranges::equal(fixedPart.subspan<Offset::cookie, magicCookie.size()>(), magicCookie)) {
        return PacketError::BadMagicCookie{};
    }
    DHCPPacket packet{
        .op = field<std::uint8_t, Offset::op>(fixedPart),
        .htype = field<std::uint8_t, Offset::htype>(fixedPart),
        .hlen = field<std::uint8_t, Offset::hlen>(fixedPart),
        .hops = field<std::uint8_t, Offset::hops>(fixedPart),
        .xid = field<std::uint32_t, Offset::xid>(fixedPart),
        .secs = field<std::uint16_t, Offset::secs>(fixedPart),
        .flags = field<std::uint16_t, Offset::flags>(fixedPart),
        .ciaddr = addressField<Offset::ciaddr>(fixedPart),
        .yiaddr = addressField<Offset::yiaddr>(fixedPart),
        .siaddr = addressField<Offset::siaddr>(fixedPart),
        .giaddr = addressField<Offset::giaddr>(fixedPart),
    };
    if (const auto fault = parseOptions(datagram.subspan(Offset::options), packet.options)) {
        return *fault;
    }
    std::ranges::copy(fixedPart.subspan<Offset::chaddr, chaddrLength>(), packet.chaddr.begin());
    return packet;
}

Bytes DHCPPacket::serialize(std::size_t minimumLength) const {
    Bytes bytes;
    bytes.reserve(std::max(usualLength, minimumLength));
    append(bytes, std::array{op, htype, hlen, hops});
    append(bytes, bigEndianBytes(xid));
    append(bytes, bigEndianBytes(secs));
    append(bytes, bigEndianBytes(flags));
    append(bytes, ciaddr.bytes());
    append(bytes, yiaddr.bytes());
    append(bytes, siaddr.bytes());
    append(bytes, giaddr.bytes());
    append(bytes, chaddr);
    bytes.resize(headerLength); // sname and file
    append(bytes, magicCookie);
    for (const DHCPOptionField& option : options) {
        assert(fitsLengthByte(option.data));
        bytes.push_back(option.code);
        bytes.push_back(static_cast<std::uint8_t>(option.data.size()));
        append(bytes, option.data);
    }
    bytes.push_back(OptionCode::end);
    bytes.resize(std::max(bytes.size(), minimumLength));
    return bytes;
}

std::optional<std::span<const std::uint8_t>> DHCPPacket::option(std::uint8_t code) const {
    const auto found = std::ranges::find(options, code, &DHCPOptionField::code);
    if (found == options.end()) {
        return std::nullopt;
    }
    return std::span(found->data);
}

void DHCPPacket::setOption(std::uint8_t code, std::span<const std::uint8_t> data) {
    assert(fitsLengthByte(data));
    OptionData copy(data); // first of all: the data may be this packet's own
    const auto found = std::ranges::find(options, code, &DHCPOptionField::code);
    if (found == options.end()) {
        options.push_back({.code = code, .data = std::move(copy)});
    } else {
        found->data = std::move(copy);
    }
}

std::optional<DHCPMessageType> DHCPPacket::messageType() const {
    const auto data = option(OptionCode::messageType);
    if (!data || data->size() != 1) {
        return std::nullopt;
    }
    return fromRawValue<DHCPMessageType>(data->front());
}

std::optional<MACAddress> DHCPPacket::mac() const {
    constexpr std::size_t macLength = 6;
    if (hlen != macLength) {
        return std::nullopt;
    }
    return MACAddress::fromBytes(std::span(chaddr).first<macLength>());
}

std::optional<std::string> DHCPPacket::hostname() const { return printableOption(*this, OptionCode::hostname); }

std::optional<std::string> DHCPPacket::vendorClass() const { return printableOption(*this, OptionCode::vendorClass); }

std::optional<std::string> DHCPPacket::clientID() const {
    const auto data = option(OptionCode::clientID);
    if (!data) {
        return std::nullopt;
    }
    return hexadecimal(*data);
}

std::optional<IPv4Address> DHCPPacket::requestedIP() const { return addressOption(*this, OptionCode::requestedIP); }

std::optional<IPv4Address> DHCPPacket::serverID() const { return addressOption(*this, OptionCode::serverID); }

std::string DHCPPacket::printable(std::span<const std::uint8_t> bytes, std::size_t limit) {
    constexpr std::size_t escapeLength = 4; // "\x00"
    std::string text;
    for (const std::uint8_t byte : bytes) {
        const bool isPlain = byte >= ' ' && byte <= '~';
        if (limit - text.size() < (isPlain ? 1 : escapeLength)) {
            break;
        }
        if (isPlain) {
            text.push_back(static_cast<char>(byte));
        } else {
            fmt::format_to(std::back_inserter(text), "\\x{:02x}", byte);
        }
    }
    return text;
}

} // namespace DHCPCore
