#include "DHCPCore/EchoSocket.hpp"

#include "DHCPCore/Sockets.hpp"

#include <linux/icmp.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <utility>

namespace DHCPCore {

namespace {

std::optional<EchoSocket> prepared(FileDescriptor socket, std::uint32_t interfaceIndex, bool seesEveryReply) {
    if (!socket.isOpen() || (interfaceIndex != 0 && Sockets::tieToInterface(socket, interfaceIndex) != 0) ||
        Sockets::setNonBlocking(socket) != 0) {
        return std::nullopt;
    }
    return EchoSocket{.socket = std::move(socket), .seesEveryReply = seesEveryReply};
}

} // namespace

std::optional<EchoSocket> openEchoSocket(std::uint32_t interfaceIndex) {
    // Needs no rights where net.ipv4.ping_group_range holds the process's group; refused elsewhere even to root.
    if (auto echo = prepared(Sockets::open(AF_INET, SOCK_DGRAM, IPPROTO_ICMP), interfaceIndex, false)) {
        return echo;
    }
    auto echo = prepared(Sockets::open(AF_INET, SOCK_RAW, IPPROTO_ICMP), interfaceIndex, true);
    if (echo) {
        icmp_filter filter{};
        filter.data = ~(1U << unsigned{ICMP_ECHOREPLY}); // a set bit keeps that type out
        ::setsockopt(echo->socket.number(), SOL_RAW, ICMP_FILTER, &filter, sizeof filter);
    }
    return echo;
}

} // namespace DHCPCore
