#include "TarnwickTests/LoopbackClient.hpp"

#include "DHCPCore/SocketAddress.hpp"
#include "DHCPCore/Sockets.hpp"
#include "TarnwickTests/ToolProcess.hpp"

#include <algorithm>
#include <array>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace Tarnwick {

namespace {

using DHCPCore::FileDescriptor;
using DHCPCore::IPv4Address;

bool bindLoopback(const FileDescriptor& socket, std::uint16_t port) {
    const sockaddr_in address = DHCPCore::socketAddress(IPv4Address::loopback, port);
    return ::bind(socket.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

FileDescriptor openSocket() { return DHCPCore::Sockets::open(AF_INET, SOCK_DGRAM, 0); }

/// A free port below those that the system hands out by itself, so that nobody takes it in between. Tests that run side
/// by side begin at different places.
std::uint16_t nextFreePort() {
    constexpr int first = 10000;
    constexpr int count = 20000;
    static int offset = (::getpid() * 13) % count;
    for (int tries = 0; tries < count; ++tries) {
        offset = (offset + 1) % count;
        const auto port = static_cast<std::uint16_t>(first + offset);
        if (bindLoopback(openSocket(), port)) {
            return port;
        }
    }
    throw std::runtime_error("no free port");
}

} // namespace

LoopbackClient::LoopbackClient() : socket_(openSocket()), serverPort_(nextFreePort()), clientPort_(nextFreePort()) {
    if (!bindLoopback(socket_, clientPort_)) {
        throw std::runtime_error("the client port is taken");
    }
}

std::vector<std::string> LoopbackClient::serveArguments(const std::vector<std::string>& further) const {
    std::vector<std::string> arguments{"serve",         "--test-loopback",
                                       "--port",        std::to_string(serverPort_),
                                       "--client-port", std::to_string(clientPort_)};
    arguments.insert(arguments.end(), further.begin(), further.end());
    return arguments;
}

void LoopbackClient::send(std::span<const std::uint8_t> bytes) const {
    const sockaddr_in address = DHCPCore::socketAddress(IPv4Address::loopback, serverPort_);
    const ssize_t sent = ::sendto(socket_.number(), bytes.data(), bytes.size(), 0,
                                  reinterpret_cast<const sockaddr*>(&address), sizeof address);
    if (sent != static_cast<ssize_t>(bytes.size())) {
        throw std::runtime_error("could not send");
    }
}

std::optional<DHCPCore::Bytes> LoopbackClient::receiveBytes() const {
    pollfd waiting{.fd = socket_.number(), .events = POLLIN, .revents = 0};
    constexpr auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(patience).count();
    if (::poll(&waiting, 1, static_cast<int>(milliseconds)) != 1) {
        return std::nullopt;
    }
    std::array<std::uint8_t, 4096> buffer{};
    const ssize_t count = ::recv(socket_.number(), buffer.data(), buffer.size(), 0);
    if (count < 0) {
        return std::nullopt;
    }
    return DHCPCore::Bytes(buffer.begin(), buffer.begin() + count);
}

DHCPCore::DHCPPacket LoopbackClient::ask(const DHCPCore::DHCPPacket& packet) const {
    send(packet);
    const auto answer = receiveBytes();
    if (!answer) {
        throw std::runtime_error("no answer");
    }
    return DHCPCore::DHCPPacket::parse(*answer);
}

DHCPCore::MACAddress deviceMAC(std::uint8_t number) { return {{0x02, 0, 0, 0, 0, number}}; }

DHCPCore::DHCPPacket message(DHCPCore::DHCPMessageType type, std::uint8_t device) {
    DHCPCore::DHCPPacket packet;
    packet.xid = 1;
    std::ranges::copy(deviceMAC(device).bytes, packet.chaddr.begin());
    packet.setOption(DHCPCore::OptionCode::messageType, std::array{static_cast<std::uint8_t>(type)});
    return packet;
}

DHCPCore::DHCPPacket with(DHCPCore::DHCPPacket packet, std::uint8_t code, IPv4Address address) {
    packet.setOption(code, address.bytes());
    return packet;
}

DHCPCore::DHCPPacket with(DHCPCore::DHCPPacket packet, std::uint8_t code, std::string_view text) {
    packet.setOption(code, DHCPCore::Bytes(text.begin(), text.end()));
    return packet;
}

} // namespace Tarnwick
