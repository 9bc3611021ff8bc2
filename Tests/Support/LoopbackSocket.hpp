#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/FileDescriptor.hpp"
#include "DHCPCore/SocketAddress.hpp"
#include "DHCPCore/Sockets.hpp"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <netinet/in.h>
#include <optional>
#include <poll.h>
#include <span>
#include <stdexcept>
#include <sys/socket.h>

namespace DHCPCore::TestSupport {

/// Waits until the descriptor has something to read; false when the deadline passed first.
[[nodiscard]] inline bool waitUntilReadable(int fd, std::chrono::milliseconds patience = std::chrono::seconds{10}) {
    pollfd entry{.fd = fd, .events = POLLIN, .revents = 0};
    return ::poll(&entry, 1, static_cast<int>(patience.count())) == 1;
}

/// A datagram socket on a port of its own at 127.0.0.1: a test's other end.
class LoopbackSocket {
  public:
    struct Message {
        Bytes bytes;
        IPv4Address source;
        std::uint16_t sourcePort = 0;
        bool operator==(const Message&) const = default;
    };

    LoopbackSocket() : socket_(Sockets::open(AF_INET, SOCK_DGRAM, 0)) {
        const sockaddr_in any = socketAddress(IPv4Address::loopback, 0);
        if (::bind(socket_.number(), reinterpret_cast<const sockaddr*>(&any), sizeof any) != 0) {
            throw std::runtime_error("no port on 127.0.0.1");
        }
        sockaddr_in own{};
        socklen_t length = sizeof own;
        ::getsockname(socket_.number(), reinterpret_cast<sockaddr*>(&own), &length);
        port_ = ntohs(own.sin_port);
    }

    [[nodiscard]] std::uint16_t port() const { return port_; }
    [[nodiscard]] int fd() const { return socket_.number(); }

    void send(std::span<const std::uint8_t> bytes, std::uint16_t port) const {
        const sockaddr_in to = socketAddress(IPv4Address::loopback, port);
        const auto sent = ::sendto(socket_.number(), bytes.data(), bytes.size(), 0,
                                   reinterpret_cast<const sockaddr*>(&to), sizeof to);
        if (sent != static_cast<ssize_t>(bytes.size())) {
            throw std::runtime_error("could not send on loopback");
        }
    }

    /// The next message; nothing when none came in time.
    [[nodiscard]] std::optional<Message> receive() const {
        if (!waitUntilReadable(socket_.number())) {
            return std::nullopt;
        }
        Bytes bytes(65536);
        sockaddr_in from{};
        socklen_t length = sizeof from;
        const auto count =
            ::recvfrom(socket_.number(), bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&from), &length);
        if (count < 0) {
            return std::nullopt;
        }
        bytes.resize(static_cast<std::size_t>(count));
        return Message{.bytes = std::move(bytes),
                       .source = IPv4Address{ntohl(from.sin_addr.s_addr)},
                       .sourcePort = ntohs(from.sin_port)};
    }

  private:
    FileDescriptor socket_;
    std::uint16_t port_ = 0;
};

/// A port of 127.0.0.1 that was free a moment ago.
[[nodiscard]] inline std::uint16_t freePort() { return LoopbackSocket().port(); }

} // namespace DHCPCore::TestSupport
