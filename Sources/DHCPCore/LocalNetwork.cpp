#include "DHCPCore/LocalNetwork.hpp"

#include "DHCPCore/SocketAddress.hpp"
#include "DHCPCore/Sockets.hpp"

#include <cerrno>
#include <sys/socket.h>
#include <tuple>

namespace DHCPCore::LocalNetwork {

namespace {

constexpr std::uint16_t discardPort = 9; // RFC 863

/// The errors of a network that is gone, or that the system keeps from us.
bool isNetworkUnusable(int code) {
    return code == EADDRNOTAVAIL || code == ENETDOWN || code == ENETUNREACH || code == EHOSTUNREACH;
}

} // namespace

SendFailure classify(const TransportError& error, bool linkUp, bool serverAddressPresent) {
    if (!isNetworkUnusable(error.code)) {
        return {SendFailure::Other{error.description()}};
    }
    if (!linkUp) {
        return {SendFailure::LinkDown{}};
    }
    if (!serverAddressPresent) {
        return {SendFailure::AddressMissing{}};
    }
    return {SendFailure::PossiblyDenied{}};
}

void triggerAlert(const std::string& interfaceName, IPv4Address nearby) {
    const FileDescriptor socket = Sockets::open(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    if (!socket.isOpen()) {
        return;
    }
    if (const std::uint32_t index = Sockets::indexOfInterface(interfaceName); index != 0) {
        std::ignore = Sockets::tieToInterface(socket, index); // untied is good enough for the question
    }
    const sockaddr_in address = socketAddress(nearby, discardPort);
    // Connecting is what makes the system evaluate the permission; its answer does not matter.
    std::ignore = ::connect(socket.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

} // namespace DHCPCore::LocalNetwork
