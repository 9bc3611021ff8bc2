#pragma once

#include "DHCPCore/FileDescriptor.hpp"
#include "DHCPCore/Packet.hpp"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
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

} // namespace Tarnwick
