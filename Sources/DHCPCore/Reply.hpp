#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/Config.hpp"
#include "DHCPCore/Events.hpp"
#include "DHCPCore/Packet.hpp"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace DHCPCore {

/// A complete answer, ready to serialise and send.
struct Reply {
    DHCPPacket packet;
    ReplyDestination destination;
    DHCPMessageType type = DHCPMessageType::offer; ///< OFFER, ACK or NAK.
    IPv4Address ip;                                ///< The address that the reply is about.
    MACAddress mac;                                ///< The client.
    std::optional<std::string> note;               ///< A short explanation for the event stream.

    bool operator==(const Reply&) const = default;
};

/// Builds the answers to one client's message (RFC 2131, section 4.3.1). Every OFFER and ACK carries the same options,
/// whatever the client asks for. Lives no longer than the configuration and the message.
struct ReplyBuilder {
    /// Vendor-specific sub-option 1 with the text "1APC": without it, APC devices refuse an offer.
    static constexpr std::array<std::uint8_t, 6> apcCookie{0x01, 0x04, 0x31, 0x41, 0x50, 0x43};

    const ServerConfig& config;
    const DHCPPacket& request;
    const MACAddress& mac;

    [[nodiscard]] Reply offer(IPv4Address ip) const;
    [[nodiscard]] Reply ack(IPv4Address ip) const;
    /// The ACK to a device that has its address already and only asks for the rest (RFC 2131, section 4.3.5).
    [[nodiscard]] Reply optionsOnly() const;
    /// @param reason goes to the client, cut to the 255 bytes of an option, and to the event stream.
    [[nodiscard]] Reply nak(std::string_view reason) const;
};

} // namespace DHCPCore
