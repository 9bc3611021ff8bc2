#pragma once

#include "DHCPCore/FileDescriptor.hpp"
#include "DHCPCore/Packet.hpp"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Tarnwick {

/// A pair of ports on 127.0.0.1 for one test, and the socket that plays the client on the second one.
class LoopbackClient {
  public:
    LoopbackClient();

    [[nodiscard]] std::uint16_t serverPort() const { return serverPort_; }
    [[nodiscard]] std::uint16_t clientPort() const { return clientPort_; }

    /// "serve --test-loopback" with these ports, then the further arguments.
    [[nodiscard]] std::vector<std::string> serveArguments(const std::vector<std::string>& further = {}) const;

    void send(std::span<const std::uint8_t> bytes) const;
    void send(const DHCPCore::DHCPPacket& packet) const { send(packet.serialize(0)); }

    /// The next datagram from the server; nothing when none came in time.
    [[nodiscard]] std::optional<DHCPCore::Bytes> receiveBytes() const;

    /// Sends, and reads the next answer. @throws std::runtime_error when none came in time.
    [[nodiscard]] DHCPCore::DHCPPacket ask(const DHCPCore::DHCPPacket& packet) const;

  private:
    DHCPCore::FileDescriptor socket_;
    std::uint16_t serverPort_ = 0;
    std::uint16_t clientPort_ = 0;
};

/// The hardware address of test device `number`.
[[nodiscard]] DHCPCore::MACAddress deviceMAC(std::uint8_t number);

/// A message of that type as test device `number` sends it, with transaction id 0x00000001 and no further options.
[[nodiscard]] DHCPCore::DHCPPacket message(DHCPCore::DHCPMessageType type, std::uint8_t device = 1);

/// The packet with one more option that holds an address.
[[nodiscard]] DHCPCore::DHCPPacket with(DHCPCore::DHCPPacket packet, std::uint8_t code, DHCPCore::IPv4Address address);

/// The packet with one more option that holds a text.
[[nodiscard]] DHCPCore::DHCPPacket with(DHCPCore::DHCPPacket packet, std::uint8_t code, std::string_view text);

} // namespace Tarnwick
