#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/FileDescriptor.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace DHCPLoad {

using Clock = std::chrono::steady_clock;

/// The device that has an address; nothing when none has.
using AddressOwner = std::function<std::optional<DHCPCore::MACAddress>(DHCPCore::IPv4Address)>;

/// From whom to whom a message goes on the wire; loopback knows one road only.
struct Route {
    DHCPCore::MACAddress from{};
    DHCPCore::MACAddress to{{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}};
    DHCPCore::IPv4Address source = DHCPCore::IPv4Address::zero;
    DHCPCore::IPv4Address destination = DHCPCore::IPv4Address::broadcast;
};

/// A datagram that came from a DHCP server.
struct Arrival {
    DHCPCore::MACAddress from{};             ///< The server's card; zeros on loopback.
    std::span<const std::uint8_t> payload{}; ///< Valid until the next `receive`.
    bool isSound = false;                    ///< Its headers are those of a whole UDP datagram, unharmed.
};

/// The way to a DHCP server and back, for any number of devices at once. Messages are gathered and sent together.
class Wire {
  public:
    /// Past the network code of this host: frames of our own making (RFC 894, RFC 791, RFC 768), from port 68 to 67.
    /// @throws std::system_error
    [[nodiscard]] static Wire onCard(const std::string& card);
    /// @throws std::system_error
    [[nodiscard]] static Wire onLoopback(std::uint16_t portOfServer, std::uint16_t portOfClient);

    /// Takes a message into the next `flush`.
    void add(const Route& route, std::span<const std::uint8_t> payload);

    /// Sends all that was added, in order, and waits where the card is slow. @throws std::system_error
    void flush();

    /// Waits until datagrams are there, or that long, and hands in all that are there. @throws std::system_error
    void receive(std::chrono::nanoseconds longest, const std::function<void(const Arrival&)>& take);

    /// Says to everybody who asks that these addresses are ours, each at the card of its device, and answers echo
    /// requests there. For devices that are answered at their address, and are to be found there.
    void answerAddressRequests(AddressOwner owner) { owner_ = std::move(owner); }

  private:
    Wire(DHCPCore::FileDescriptor socket, bool isFramed);

    [[nodiscard]] std::size_t readWaiting();
    void answerIfAsked(std::span<const std::uint8_t> frame);

    static constexpr std::size_t largestDatagram = 2048;
    static constexpr std::size_t mostAtOnce = 64;

    DHCPCore::FileDescriptor socket_;
    bool isFramed_; ///< Otherwise the system makes the headers.
    std::vector<DHCPCore::Bytes> outgoing_;
    std::vector<std::uint8_t> buffers_;
    std::vector<std::size_t> lengths_;
    AddressOwner owner_;
};

} // namespace DHCPLoad
