#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/Error.hpp"
#include "DHCPCore/Events.hpp"
#include "DHCPCore/FileDescriptor.hpp"
#include "DHCPCore/Sockets.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace DHCPCore {

/// What the server serves.
struct TransportMode {
    /// One card, on the DHCP ports.
    struct Interface {
        std::string name;
        bool operator==(const Interface&) const = default;
    };
    /// A test mode on 127.0.0.1: listening on `serverPort`, answering to `clientPort`.
    struct Loopback {
        std::uint16_t serverPort;
        std::uint16_t clientPort;
        bool operator==(const Loopback&) const = default;
    };
    std::variant<Interface, Loopback> value;

    [[nodiscard]] bool isLoopback() const { return std::holds_alternative<Loopback>(value); }
    /// The card's name; "lo0" in loopback mode.
    [[nodiscard]] std::string interfaceName() const;

    bool operator==(const TransportMode&) const = default;
};

/// A refused system call, as in "bind 0.0.0.0:67 failed: Address already in use (errno 98)".
class TransportError : public Error {
  public:
    TransportError(std::string what, int number);

    std::string operation;
    int code;
    bool operator==(const TransportError& other) const { return code == other.code && operation == other.operation; }
};

/// One received message.
struct Datagram {
    Bytes bytes;                                 ///< At most 2048: what is longer arrives cut.
    std::optional<std::uint32_t> interfaceIndex; ///< The card on which it arrived; absent when the system did not tell.
    IPv4Address source;
    std::uint16_t sourcePort = 0;

    bool operator==(const Datagram&) const = default;
};

/// The server's one datagram socket. Never blocks. Belongs to the caller's queue.
class UDPTransport {
  public:
    static constexpr std::uint16_t serverPort = 67; ///< RFC 2131, section 4.1.
    static constexpr std::uint16_t clientPort = 68;

    /// Opens nothing. On a card, replies leave with the source address given, or not at all.
    explicit UDPTransport(TransportMode transportMode, std::optional<IPv4Address> replySource = std::nullopt);
    UDPTransport(const UDPTransport&) = delete;
    UDPTransport& operator=(const UDPTransport&) = delete;
    UDPTransport(UDPTransport&&) = delete;
    UDPTransport& operator=(UDPTransport&&) = delete;
    virtual ~UDPTransport();

    /// @throws TransportError naming the step that failed; nothing is left open then.
    virtual void open();

    /// One read; nothing when no datagram is waiting. @throws TransportError
    [[nodiscard]] std::optional<Datagram> receive();

    /// What waits, at most so many datagrams (one or more), and not always all of it; none when nothing is waiting.
    /// @throws TransportError
    [[nodiscard]] virtual std::vector<Datagram> receiveSome(std::size_t most);

    /// Waits so long for a datagram. @return whether there is something to read.
    [[nodiscard]] bool awaitDatagram(std::chrono::nanoseconds patience) const;

    /// One datagram; in loopback mode always to 127.0.0.1 and the mode's client port. @throws TransportError
    virtual void send(std::span<const std::uint8_t> bytes, const ReplyDestination& destination);

    /// Harmless when closed already.
    void close() { socket_.close(); }

    [[nodiscard]] const TransportMode& mode() const { return mode_; }
    [[nodiscard]] std::string interfaceName() const { return mode_.interfaceName(); }
    /// The socket; -1 while closed.
    [[nodiscard]] int fd() const { return socket_.number(); }
    /// The card's index; 0 until `open` succeeded, kept by `close`.
    [[nodiscard]] std::uint32_t interfaceIndex() const { return interfaceIndex_; }

  protected:
    /// For a transport that tests its server with a socket of its own making.
    void adopt(FileDescriptor socket, std::uint32_t index);

  private:
    struct Room; ///< For one datagram.

    [[nodiscard]] bool holdsSource(const Sockets::Route& route);

    TransportMode mode_;
    std::optional<IPv4Address> replySource_;
    FileDescriptor socket_;
    std::vector<Room> room_; ///< Where datagrams are received; made once.
    std::uint32_t interfaceIndex_ = 0;
    std::chrono::steady_clock::time_point askSourceAt_; ///< The card held the source address a moment ago.
};

} // namespace DHCPCore
