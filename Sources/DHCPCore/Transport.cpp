#include "DHCPCore/Transport.hpp"

#include "DHCPCore/Overloaded.hpp"
#include "DHCPCore/SocketAddress.hpp"
#include "DHCPCore/Sockets.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <netinet/in.h>
#include <sys/socket.h>
#include <tuple>
#include <utility>

namespace DHCPCore {

namespace {

constexpr std::size_t longestDatagram = 2048;
constexpr std::size_t controlLength = 256;
constexpr int noSuchInterface = ENXIO; // said whatever the system's own error number was

/// Where the server listens.
struct Endpoint {
    IPv4Address address;
    std::uint16_t port;
};

Endpoint listeningEndpoint(const TransportMode& mode) {
    return std::visit(Overloaded{[](const TransportMode::Interface&) {
                                     return Endpoint{.address = IPv4Address::zero, .port = UDPTransport::serverPort};
                                 },
                                 [](const TransportMode::Loopback& loopback) {
                                     return Endpoint{.address = IPv4Address::loopback, .port = loopback.serverPort};
                                 }},
                      mode.value);
}

/// Where a reply goes: in loopback mode always to the test client on the same host.
Endpoint sendingEndpoint(const TransportMode& mode, const ReplyDestination& destination) {
    if (const auto* loopback = std::get_if<TransportMode::Loopback>(&mode.value)) {
        return {.address = IPv4Address::loopback, .port = loopback->clientPort};
    }
    return std::visit(Overloaded{[](const ReplyDestination::Unicast& unicast) {
                                     return Endpoint{.address = unicast.ip, .port = UDPTransport::clientPort};
                                 },
                                 [](const ReplyDestination::Broadcast&) {
                                     return Endpoint{.address = IPv4Address::broadcast,
                                                     .port = UDPTransport::clientPort};
                                 }},
                      destination.value);
}

std::string endpointText(const Endpoint& endpoint) {
    return fmt::format("{}:{}", endpoint.address.description(), endpoint.port);
}

/// The error number of a call that gives 0 on success.
int errorOf(int result) { return result == 0 ? 0 : errno; }

void require(std::string_view operation, int error) {
    if (error != 0) {
        throw TransportError(std::string(operation), error);
    }
}

int allowBroadcast(const FileDescriptor& socket) {
    const int on = 1;
    return errorOf(::setsockopt(socket.number(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on));
}

/// Room for a burst that comes while leases are saved, as far as the system grants it.
void askForRoom(const FileDescriptor& socket) {
    constexpr int bytes = 1 << 22; // some ten thousand messages, a tenth of a second of the worst floods
    std::ignore = ::setsockopt(socket.number(), SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
}

int bindTo(const FileDescriptor& socket, const Endpoint& endpoint) {
    const sockaddr_in address = socketAddress(endpoint.address, endpoint.port);
    return errorOf(::bind(socket.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address));
}

} // namespace

std::string TransportMode::interfaceName() const {
    return std::visit(
        Overloaded{[](const Interface& card) { return card.name; }, [](const Loopback&) { return std::string("lo0"); }},
        value);
}

TransportError::TransportError(std::string what, int number)
    : Error(fmt::format("{} failed: {} (errno {})", what, systemText(number), number)), operation(std::move(what)),
      code(number) {}

UDPTransport::UDPTransport(TransportMode transportMode, std::optional<IPv4Address> replySource)
    : mode_(std::move(transportMode)), replySource_(replySource) {}

void UDPTransport::open() {
    FileDescriptor socket = Sockets::open(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    require("socket", socket.isOpen() ? 0 : errno);
    require("setsockopt SO_BROADCAST", allowBroadcast(socket));
    askForRoom(socket);
    require("setsockopt IP_RECVIF", Sockets::reportArrivalInterface(socket));

    const std::uint32_t index =
        Sockets::indexOfInterface(mode_.isLoopback() ? Sockets::loopbackDevice() : interfaceName());
    require("find interface " + interfaceName(), index == 0 ? noSuchInterface : 0);
    require("setsockopt IP_BOUND_IF", Sockets::tieToInterface(socket, index));

    const Endpoint endpoint = listeningEndpoint(mode_);
    require("bind " + endpointText(endpoint), bindTo(socket, endpoint));
    require("fcntl O_NONBLOCK", Sockets::setNonBlocking(socket));
    adopt(std::move(socket), index);
}

std::optional<Datagram> UDPTransport::receive() {
    buffer_.resize(longestDatagram);
    alignas(cmsghdr) std::array<std::uint8_t, controlLength> control{};
    sockaddr_in source{};
    iovec payload{.iov_base = buffer_.data(), .iov_len = buffer_.size()};
    msghdr message{};
    message.msg_name = &source;
    message.msg_namelen = sizeof source;
    message.msg_iov = &payload;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();

    const ssize_t count = ::recvmsg(fd(), &message, 0);
    if (count < 0) {
        const int error = errno;
        if (error == EAGAIN) {
            return std::nullopt;
        }
        throw TransportError("recvmsg", error);
    }
    const auto controlCount = std::min<std::size_t>(message.msg_controllen, control.size());
    return Datagram{.bytes = Bytes(buffer_.begin(), buffer_.begin() + count),
                    .interfaceIndex = Sockets::arrivalInterface(std::span(control).first(controlCount)),
                    .source = IPv4Address{ntohl(source.sin_addr.s_addr)},
                    .sourcePort = ntohs(source.sin_port)};
}

bool UDPTransport::awaitDatagram(std::chrono::nanoseconds patience) const {
    return patience > std::chrono::nanoseconds{} && Sockets::awaitReadable(socket_, patience);
}

void UDPTransport::send(std::span<const std::uint8_t> bytes, const ReplyDestination& destination) {
    const Endpoint endpoint = sendingEndpoint(mode_, destination);
    const Sockets::Route route{.destination = endpoint.address,
                               .port = endpoint.port,
                               .interfaceIndex = interfaceIndex_,
                               .source = mode_.isLoopback() ? std::nullopt : replySource_};
    if (const int error = holdsSource(route) ? Sockets::send(socket_, bytes, route) : EADDRNOTAVAIL; error != 0) {
        throw TransportError("send to " + endpointText(endpoint), error);
    }
}

/// Whether the card holds the source asked for; asked once a millisecond, since in a burst the question would cost as
/// much as a third of the answer.
bool UDPTransport::holdsSource(const Sockets::Route& route) {
    constexpr std::chrono::milliseconds patience{1};
    if (!route.source) {
        return true;
    }
    const auto now = std::chrono::steady_clock::now();
    if (now >= askSourceAt_) {
        if (!Sockets::holdsAddress(socket_, route.interfaceIndex, *route.source)) {
            return false;
        }
        askSourceAt_ = now + patience;
    }
    return true;
}

void UDPTransport::adopt(FileDescriptor socket, std::uint32_t index) {
    socket_ = std::move(socket);
    interfaceIndex_ = index;
    askSourceAt_ = {};
}

} // namespace DHCPCore
