#include "DHCPCore/Transport.hpp"

#include "DHCPCore/Overloaded.hpp"
#include "DHCPCore/SocketAddress.hpp"
#include "DHCPCore/Sockets.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
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

struct UDPTransport::Room {
    std::array<std::uint8_t, longestDatagram> bytes;
    alignas(cmsghdr) std::array<std::uint8_t, controlLength> control;
    sockaddr_in source;
    iovec payload;

    /// As recvmsg(2) takes it.
    msghdr message() {
        payload = {.iov_base = bytes.data(), .iov_len = bytes.size()};
        msghdr message{};
        message.msg_name = &source;
        message.msg_namelen = sizeof source;
        message.msg_iov = &payload;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = controlLength;
        return message;
    }

    [[nodiscard]] Datagram datagram(const msghdr& received, std::size_t size) const {
        const auto controlCount = std::min<std::size_t>(received.msg_controllen, control.size());
        return {.bytes = Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size)),
                .interfaceIndex = Sockets::arrivalInterface(std::span(control).first(controlCount)),
                .source = IPv4Address{ntohl(source.sin_addr.s_addr)},
                .sourcePort = ntohs(source.sin_port)};
    }
};

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

UDPTransport::~UDPTransport() = default;

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
    std::vector<Datagram> datagrams = receiveSome(1);
    return datagrams.empty() ? std::nullopt : std::optional(std::move(datagrams.front()));
}

std::vector<Datagram> UDPTransport::receiveSome(std::size_t most) {
    room_.resize(Sockets::mostReceivedAtOnce);
    std::array<msghdr, Sockets::mostReceivedAtOnce> messages{};
    std::array<std::size_t, Sockets::mostReceivedAtOnce> sizes{};
    std::ranges::transform(room_, messages.begin(), [](Room& room) { return room.message(); });
    const std::size_t asked = std::clamp<std::size_t>(most, 1, messages.size());
    const int received = Sockets::receive(socket_, std::span(messages).first(asked), std::span(sizes).first(asked));
    if (received < 0) {
        const int error = errno;
        if (error == EAGAIN) {
            return {};
        }
        throw TransportError("recvmsg", error);
    }
    const auto count = static_cast<std::size_t>(received);
    std::vector<Datagram> datagrams;
    datagrams.reserve(count);
    for (std::size_t place = 0; place < count; ++place) {
        datagrams.push_back(room_[place].datagram(messages[place], sizes[place]));
    }
    return datagrams;
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
