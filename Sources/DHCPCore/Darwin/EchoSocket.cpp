#include "DHCPCore/EchoSocket.hpp"

#include "DHCPCore/Sockets.hpp"

#include <netinet/in.h>
#include <sys/socket.h>
#include <utility>

namespace DHCPCore {

std::optional<EchoSocket> openEchoSocket(std::uint32_t interfaceIndex) {
    FileDescriptor socket = Sockets::open(AF_INET, SOCK_DGRAM, IPPROTO_ICMP); // needs no rights
    if (!socket.isOpen() || (interfaceIndex != 0 && Sockets::tieToInterface(socket, interfaceIndex) != 0) ||
        Sockets::setNonBlocking(socket) != 0) {
        return std::nullopt;
    }
    // Any echo reply from the address proves that somebody is there, also one to another program's request.
    return EchoSocket{.socket = std::move(socket), .seesEveryReply = false};
}

} // namespace DHCPCore
