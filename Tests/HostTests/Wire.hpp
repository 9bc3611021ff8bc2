#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/FileDescriptor.hpp"
#include "DHCPCore/Packet.hpp"
#include "HostTests/Network.hpp"

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace Tarnwick {

/// A UDP datagram as it is on the cable.
struct Frame {
    DHCPCore::MACAddress from;
    DHCPCore::MACAddress to;
    DHCPCore::IPv4Address source;
    DHCPCore::IPv4Address destination;
    std::uint16_t sourcePort = 0;
    std::uint16_t destinationPort = 0;
    DHCPCore::Bytes payload{};

    bool operator==(const Frame&) const = default;
};

/// Reads an Ethernet frame (RFC 894, RFC 791, RFC 768); nothing when it holds no whole UDP datagram.
[[nodiscard]] std::optional<Frame> parseFrame(std::span<const std::uint8_t> bytes);

/// The frame's bytes, without a UDP checksum, as RFC 768 allows.
[[nodiscard]] DHCPCore::Bytes serializeFrame(const Frame& frame);

/// The cable at one card, past the network code of its host: sees what arrives, and sends as any device.
class Wire {
  public:
    Wire(const Network& network, const std::string& card);

    /// Sends a message as a device without an address does: from its own MAC and 0.0.0.0, to everybody.
    void send(const DHCPCore::DHCPPacket& packet) const;
    void send(const Frame& frame) const;

    /// The next datagram from a DHCP server; nothing when none came in time.
    [[nodiscard]] std::optional<Frame> nextReply(std::chrono::milliseconds longest = longestWait) const;

    /// Sends, and reads replies up to the one to this message. @throws std::runtime_error when none came in time.
    [[nodiscard]] Frame ask(const DHCPCore::DHCPPacket& packet) const;

  private:
    static constexpr std::chrono::milliseconds longestWait{20'000}; ///< Reached only by a test that fails.

    DHCPCore::FileDescriptor socket_;
};

/// The DHCP message in a frame. @throws DHCPCore::PacketError
[[nodiscard]] inline DHCPCore::DHCPPacket messageIn(const Frame& frame) {
    return DHCPCore::DHCPPacket::parse(frame.payload);
}

} // namespace Tarnwick
