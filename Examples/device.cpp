// A device under test in miniature: it gets an address from `tarnwick serve --test-loopback`, renews it and gives it
// back, and says on standard error what it does.
#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/FileDescriptor.hpp"
#include "DHCPCore/Packet.hpp"
#include "DHCPCore/SocketAddress.hpp"
#include "DHCPCore/Sockets.hpp"
#include "DHCPCore/TextPieces.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <poll.h>
#include <span>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <tuple>
#include <vector>

namespace {

using namespace DHCPCore;

constexpr std::string_view usage = "usage: device [--port 6767] [--client-port 6868]";

struct Ports {
    std::uint16_t server = 6767;
    std::uint16_t client = 6868;
};

void say(std::string_view text) { fmt::print(stderr, "device: {}\n", text); }

/// A DHCP client on loopback (RFC 2131, section 4.4), for one exchange at a time.
class Device {
  public:
    explicit Device(Ports ports) : ports_(ports), socket_(Sockets::open(AF_INET, SOCK_DGRAM, 0)) {}

    /// Whether the client port could be had.
    [[nodiscard]] bool open() {
        const sockaddr_in address = socketAddress(IPv4Address::loopback, ports_.client);
        return ::bind(socket_.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    }

    [[nodiscard]] DHCPPacket message(DHCPMessageType type) {
        DHCPPacket packet;
        packet.xid = ++xid_;
        std::ranges::copy(mac_.bytes, packet.chaddr.begin());
        packet.setOption(OptionCode::messageType, std::array{static_cast<std::uint8_t>(type)});
        setText(packet, OptionCode::hostname, "demo-device");
        setText(packet, OptionCode::vendorClass, "tarnwick-example");
        return packet;
    }

    void send(const DHCPPacket& packet) {
        const Bytes bytes = packet.serialize(DHCPPacket::minimumReplyLength);
        const sockaddr_in address = socketAddress(IPv4Address::loopback, ports_.server);
        // A server that does not listen yet is no reason to give up: the message is sent again.
        std::ignore = ::sendto(socket_.number(), bytes.data(), bytes.size(), 0,
                               reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }

    /// Sends the message again after every fifth of a second of silence; nothing after ten seconds.
    [[nodiscard]] std::optional<DHCPPacket> ask(const DHCPPacket& packet) {
        constexpr int tries = 50;
        for (int turn = 0; turn < tries; ++turn) {
            send(packet);
            if (auto answer = receive(packet.xid)) {
                return answer;
            }
        }
        return std::nullopt;
    }

  private:
    static void setText(DHCPPacket& packet, std::uint8_t code, std::string_view text) {
        packet.setOption(code, Bytes(text.begin(), text.end()));
    }

    /// The next answer to that transaction; nothing after a fifth of a second of silence.
    [[nodiscard]] std::optional<DHCPPacket> receive(std::uint32_t xid) {
        constexpr int milliseconds = 200;
        pollfd waiting{.fd = socket_.number(), .events = POLLIN, .revents = 0};
        while (::poll(&waiting, 1, milliseconds) == 1) {
            std::array<std::uint8_t, 2048> buffer{};
            const ssize_t count = ::recv(socket_.number(), buffer.data(), buffer.size(), 0);
            if (count < 0) {
                continue; // nobody listened to the last message
            }
            try {
                DHCPPacket answer = DHCPPacket::parse(std::span(buffer).first(static_cast<std::size_t>(count)));
                if (answer.op == 2 && answer.xid == xid) {
                    return answer;
                }
            } catch (const PacketError& error) {
                say("ignored an answer: " + error.description());
            }
        }
        return std::nullopt;
    }

    Ports ports_;
    FileDescriptor socket_;
    MACAddress mac_{{0x02, 0x00, 0x5E, 0x10, 0x00, 0x01}};
    std::uint32_t xid_ = 0x7A000000;
};

/// Asks, and requires an answer of that type.
std::optional<DHCPPacket> exchange(Device& device, const DHCPPacket& packet, DHCPMessageType expected) {
    auto answer = device.ask(packet);
    if (!answer) {
        say("no answer");
        return std::nullopt;
    }
    if (answer->messageType() != expected) {
        say("refused");
        return std::nullopt;
    }
    say(fmt::format("{} {}", description(expected), answer->yiaddr.description()));
    return answer;
}

/// DISCOVER, OFFER, REQUEST, ACK; then a renewal; then RELEASE.
bool liveOnce(Device& device) {
    const auto offer = exchange(device, device.message(DHCPMessageType::discover), DHCPMessageType::offer);
    if (!offer || !offer->serverID()) {
        return false;
    }
    DHCPPacket request = device.message(DHCPMessageType::request);
    request.setOption(OptionCode::requestedIP, offer->yiaddr.bytes());
    request.setOption(OptionCode::serverID, offer->serverID()->bytes());
    const auto ack = exchange(device, request, DHCPMessageType::ack);
    if (!ack) {
        return false;
    }
    DHCPPacket renewal = device.message(DHCPMessageType::request);
    renewal.ciaddr = ack->yiaddr;
    if (!exchange(device, renewal, DHCPMessageType::ack)) {
        return false;
    }
    DHCPPacket release = device.message(DHCPMessageType::release);
    release.ciaddr = ack->yiaddr;
    release.setOption(OptionCode::serverID, offer->serverID()->bytes());
    device.send(release);
    say("released " + ack->yiaddr.description());
    return true;
}

std::optional<Ports> parsePorts(std::span<const std::string> arguments) {
    Ports ports;
    for (; arguments.size() >= 2; arguments = arguments.subspan(2)) {
        const auto port = parseDecimal<std::uint16_t>(arguments[1]);
        if (!port || (arguments[0] != "--port" && arguments[0] != "--client-port")) {
            return std::nullopt;
        }
        (arguments[0] == "--port" ? ports.server : ports.client) = *port;
    }
    return arguments.empty() ? std::optional(ports) : std::nullopt;
}

} // namespace

int main(int argumentCount, char** arguments) {
    const std::vector<std::string> words(arguments + 1, arguments + argumentCount);
    const auto ports = parsePorts(words);
    if (!ports) {
        fmt::print(stderr, "{}\n", usage);
        return 2;
    }
    Device device(*ports);
    if (!device.open()) {
        say(fmt::format("can't have port {} on 127.0.0.1", ports->client));
        return EXIT_FAILURE;
    }
    return liveOnce(device) ? EXIT_SUCCESS : EXIT_FAILURE;
}
