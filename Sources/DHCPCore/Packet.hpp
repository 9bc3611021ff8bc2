#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/Error.hpp"
#include "DHCPCore/OptionData.hpp"

#include <nlohmann/json_fwd.hpp>

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace DHCPCore {

/// The option codes that this program names (RFC 2132).
namespace OptionCode {
inline constexpr std::uint8_t pad = 0;               // section 3.1
inline constexpr std::uint8_t subnetMask = 1;        // section 3.3
inline constexpr std::uint8_t router = 3;            // section 3.5
inline constexpr std::uint8_t dns = 6;               // section 3.8
inline constexpr std::uint8_t hostname = 12;         // section 3.14
inline constexpr std::uint8_t broadcastAddress = 28; // section 5.3
inline constexpr std::uint8_t vendorSpecific = 43;   // section 8.4
inline constexpr std::uint8_t requestedIP = 50;      // section 9.1
inline constexpr std::uint8_t leaseTime = 51;        // section 9.2
inline constexpr std::uint8_t overload = 52;         // section 9.3
inline constexpr std::uint8_t messageType = 53;      // section 9.6
inline constexpr std::uint8_t serverID = 54;         // section 9.7
inline constexpr std::uint8_t parameterList = 55;    // section 9.8
inline constexpr std::uint8_t message = 56;          // section 9.9
inline constexpr std::uint8_t renewalTime = 58;      // section 9.11
inline constexpr std::uint8_t rebindingTime = 59;    // section 9.12
inline constexpr std::uint8_t vendorClass = 60;      // section 9.13
inline constexpr std::uint8_t clientID = 61;         // section 9.14
inline constexpr std::uint8_t end = 255;             // section 3.2
} // namespace OptionCode

/// The DHCP message types (RFC 2132, section 9.6).
enum class DHCPMessageType : std::uint8_t {
    discover = 1,
    offer = 2,
    request = 3,
    decline = 4,
    ack = 5,
    nak = 6,
    release = 7,
    inform = 8,
};

/// The type with that number; nothing for any other number.
template <std::same_as<DHCPMessageType> E>
[[nodiscard]] constexpr std::optional<E> fromRawValue(std::uint8_t number) {
    if (number < static_cast<std::uint8_t>(E::discover) || number > static_cast<std::uint8_t>(E::inform)) {
        return std::nullopt;
    }
    return static_cast<E>(number);
}

/// The upper-case name, as in "DISCOVER".
[[nodiscard]] std::string_view description(DHCPMessageType type);

/// Travels as its number. @throws DecodingError for any other number.
void to_json(nlohmann::json& json, DHCPMessageType type);
void from_json(const nlohmann::json& json, DHCPMessageType& type);

/// Why a datagram is no DHCP message.
class PacketError : public Error {
  public:
    struct TooShort {
        std::size_t byteCount;
        bool operator==(const TooShort&) const = default;
    };
    struct OptionOverrun {
        std::uint8_t code;
        bool operator==(const OptionOverrun&) const = default;
    };
    struct BadMagicCookie {
        bool operator==(const BadMagicCookie&) const = default;
    };
    using Value = std::variant<TooShort, OptionOverrun, BadMagicCookie>;

    explicit PacketError(Value reason);

    Value value;
    bool operator==(const PacketError& other) const { return value == other.value; }
};

/// One option as it stands on the wire.
struct DHCPOptionField {
    std::uint8_t code = OptionCode::pad;
    OptionData data; ///< At most 255 bytes when written.

    bool operator==(const DHCPOptionField&) const = default;
};

/// One BOOTP/DHCP message (RFC 2131, section 2). The areas `sname` and `file` are ignored when read and written as
/// zeros; option overload is not interpreted. The default is an empty BOOTREQUEST for Ethernet.
struct DHCPPacket {
    static constexpr std::size_t headerLength = 236;                           ///< The fixed part before the cookie.
    static constexpr std::array<std::uint8_t, 4> magicCookie{99, 130, 83, 99}; ///< RFC 2131, section 3.
    static constexpr std::size_t minimumReplyLength = 300; ///< What old BOOTP clients expect at least.
    static constexpr std::size_t chaddrLength = 16;

    std::uint8_t op = 1; ///< 1 request, 2 reply.
    std::uint8_t htype = 1;
    std::uint8_t hlen = 6;
    std::uint8_t hops = 0;
    std::uint32_t xid = 0;
    std::uint16_t secs = 0;
    std::uint16_t flags = 0; ///< Carried verbatim.
    IPv4Address ciaddr{};
    IPv4Address yiaddr{};
    IPv4Address siaddr{};
    IPv4Address giaddr{};
    std::array<std::uint8_t, chaddrLength> chaddr{}; ///< The whole field, whatever `hlen` says.
    std::vector<DHCPOptionField> options{};          ///< In wire order, duplicates kept.

    /// Reads a datagram. @throws PacketError with the first fault met.
    [[nodiscard]] static DHCPPacket parse(std::span<const std::uint8_t> datagram);
    /// The same with the fault as a value: exceptions would be dear where anybody may send anything.
    [[nodiscard]] static std::variant<DHCPPacket, PacketError::Value> read(std::span<const std::uint8_t> datagram);

    /// The message as bytes, with an end option, padded with zeros to at least `minimumLength`.
    [[nodiscard]] Bytes serialize(std::size_t minimumLength) const;

    /// The data of the first option with that code, up to the next change of the options; nothing when there is none.
    [[nodiscard]] std::optional<std::span<const std::uint8_t>> option(std::uint8_t code) const;

    /// Replaces the data of the first option with that code where it stands, else appends a new option. At most 255
    /// bytes.
    void setOption(std::uint8_t code, std::span<const std::uint8_t> data);

    /// Option 53, exactly one byte of a known value.
    [[nodiscard]] std::optional<DHCPMessageType> messageType() const;
    /// The first six bytes of `chaddr`, when `hlen` is 6; `htype` is not looked at.
    [[nodiscard]] std::optional<MACAddress> mac() const;
    /// Option 12 as printable text of at most 64 characters.
    [[nodiscard]] std::optional<std::string> hostname() const;
    /// Option 60 as printable text of at most 64 characters.
    [[nodiscard]] std::optional<std::string> vendorClass() const;
    /// Option 61 as lower-case hexadecimal bytes joined by ":", the type byte included, of any length.
    [[nodiscard]] std::optional<std::string> clientID() const;
    /// Option 50, exactly four bytes.
    [[nodiscard]] std::optional<IPv4Address> requestedIP() const;
    /// Option 54, exactly four bytes.
    [[nodiscard]] std::optional<IPv4Address> serverID() const;

    /// Bytes as ASCII text; a byte outside 32 to 126 becomes "\x00" in its own two digits. Stops before the piece
    /// (a character or a whole escape) that would exceed the limit.
    [[nodiscard]] static std::string printable(std::span<const std::uint8_t> bytes, std::size_t limit);

    bool operator==(const DHCPPacket&) const = default;
};

} // namespace DHCPCore
