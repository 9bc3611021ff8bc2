#include "DHCPCore/Sockets.hpp"

#include "DHCPCore/ControlMessages.hpp"
#include "DHCPCore/Interfaces.hpp"
#include "DHCPCore/SocketAddress.hpp"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <net/if_dl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <tuple>

namespace DHCPCore::Sockets {

namespace {

// What ControlMessages takes for granted.
static_assert(sizeof(cmsghdr) == 12 && CMSG_LEN(0) == 12 && CMSG_SPACE(1) == 16);
static_assert(offsetof(cmsghdr, cmsg_level) == 4 && offsetof(cmsghdr, cmsg_type) == 8);
static_assert(IPPROTO_IP == 0 && IP_RECVIF == 20 && offsetof(sockaddr_dl, sdl_index) == 2);

/// The error number of a call that gives 0 on success.
int errorOf(int result) { return result == 0 ? 0 : errno; }

} // namespace

FileDescriptor open(int domain, int type, int protocol) {
    FileDescriptor socket{::socket(domain, type, protocol)};
    if (socket.isOpen()) {
        // Neither is refused to an open socket.
        std::ignore = ::fcntl(socket.number(), F_SETFD, FD_CLOEXEC);
        const int on = 1;
        std::ignore = ::setsockopt(socket.number(), SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
    }
    return socket;
}

std::string loopbackDevice() { return "lo0"; }

int tieToInterface(const FileDescriptor& socket, std::uint32_t index) {
    return errorOf(::setsockopt(socket.number(), IPPROTO_IP, IP_BOUND_IF, &index, sizeof index));
}

int reportArrivalInterface(const FileDescriptor& socket) {
    const int on = 1;
    return errorOf(::setsockopt(socket.number(), IPPROTO_IP, IP_RECVIF, &on, sizeof on));
}

std::optional<std::uint32_t> arrivalInterface(std::span<const std::uint8_t> control) {
    return ControlMessages::arrivalInterface(control);
}

bool awaitReadable(const FileDescriptor& socket, std::chrono::nanoseconds patience) {
    pollfd waiting{.fd = socket.number(), .events = POLLIN, .revents = 0};
    const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(patience).count(); // no finer clock here
    return ::poll(&waiting, 1, static_cast<int>(std::min<decltype(milliseconds)>(milliseconds, 1000))) > 0;
}

int receive(const FileDescriptor& socket, std::span<msghdr> messages, std::span<std::size_t> sizes) {
    // One by one: there is no call for several, and an error after the first one would be lost.
    const ssize_t size = ::recvmsg(socket.number(), &messages.front(), 0);
    if (size < 0) {
        return -1;
    }
    sizes.front() = static_cast<std::size_t>(size);
    return 1;
}

bool holdsAddress(const FileDescriptor& /*socket*/, std::uint32_t interfaceIndex, IPv4Address address) {
    const auto name = nameOfInterface(interfaceIndex);
    return name && std::ranges::any_of(Interfaces::interfaceAddresses(), [&](const InterfaceAddress& held) {
               return held.name == *name && held.subnet.address == address;
           });
}

int send(const FileDescriptor& socket, std::span<const std::uint8_t> bytes, const Route& route) {
    // The socket is tied to the card, so that the source is an address of the card's: the one asked for, where the card
    // has no other.
    const sockaddr_in destination = socketAddress(route.destination, route.port);
    const ssize_t sent = ::sendto(socket.number(), bytes.data(), bytes.size(), 0,
                                  reinterpret_cast<const sockaddr*>(&destination), sizeof destination);
    if (sent < 0) {
        return errno;
    }
    return static_cast<std::size_t>(sent) == bytes.size() ? 0 : EIO;
}

} // namespace DHCPCore::Sockets
