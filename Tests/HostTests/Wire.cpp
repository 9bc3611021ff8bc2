#include "HostTests/Wire.hpp"

#include "Support/Patience.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <net/ethernet.h>
#include <net/if.h>
#include <netpacket/packet.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <system_error>
#include <thread>

namespace Tarnwick {

namespace {

using namespace DHCPCore;

constexpr std::size_t ethernetHeader = 14;
constexpr std::size_t shortestIPHeader = 20;
constexpr std::size_t udpHeader = 8;
constexpr std::uint16_t serverPort = 67;
constexpr std::uint16_t clientPort = 68;
constexpr MACAddress everybody{{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}};

std::uint16_t number16(std::span<const std::uint8_t> bytes, std::size_t offset) {
    return static_cast<std::uint16_t>(std::uint32_t{bytes[offset]} << 8U | bytes[offset + 1]);
}

void append(Bytes& bytes, std::span<const std::uint8_t> more) { bytes.insert(bytes.end(), more.begin(), more.end()); }

void append16(Bytes& bytes, std::size_t number) { append(bytes, bigEndianBytes(static_cast<std::uint16_t>(number))); }

/// The Internet checksum (RFC 1071) of an even number of bytes.
std::uint16_t checksum(std::span<const std::uint8_t> bytes) {
    std::uint32_t sum = 0;
    for (std::size_t index = 0; index + 1 < bytes.size(); index += 2) {
        sum += number16(bytes, index);
    }
    while (sum > 0xFFFFU) {
        sum = (sum & 0xFFFFU) + (sum >> 16U);
    }
    return static_cast<std::uint16_t>(~sum);
}

sockaddr_ll linkAddress(const std::string& card) {
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_IP);
    address.sll_ifindex = static_cast<int>(::if_nametoindex(card.c_str()));
    return address;
}

} // namespace

std::optional<Frame> parseFrame(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < ethernetHeader + shortestIPHeader || number16(bytes, 12) != ETHERTYPE_IP) {
        return std::nullopt;
    }
    Frame frame;
    frame.to = *MACAddress::fromBytes(bytes.first(6));
    frame.from = *MACAddress::fromBytes(bytes.subspan(6, 6));
    auto packet = bytes.subspan(ethernetHeader);
    const std::size_t headerLength = std::size_t{4} * (packet[0] & 0x0FU);
    const std::size_t length = number16(packet, 2);
    if (packet[9] != IPPROTO_UDP || headerLength < shortestIPHeader || length > packet.size() ||
        length < headerLength + udpHeader) {
        return std::nullopt;
    }
    frame.source = *IPv4Address::fromBytes(packet.subspan(12, 4));
    frame.destination = *IPv4Address::fromBytes(packet.subspan(16, 4));
    const auto datagram = packet.subspan(headerLength, length - headerLength);
    frame.sourcePort = number16(datagram, 0);
    frame.destinationPort = number16(datagram, 2);
    const auto payload = datagram.subspan(udpHeader);
    frame.payload.assign(payload.begin(), payload.end());
    return frame;
}

Bytes serializeFrame(const Frame& frame) {
    Bytes header{0x45, 0};
    append16(header, shortestIPHeader + udpHeader + frame.payload.size());
    append(header, std::array<std::uint8_t, 8>{0, 0, 0, 0, 64, IPPROTO_UDP, 0, 0});
    append(header, frame.source.bytes());
    append(header, frame.destination.bytes());
    constexpr std::ptrdiff_t checksumOffset = 10;
    std::ranges::copy(bigEndianBytes(checksum(header)), header.begin() + checksumOffset);

    Bytes bytes;
    append(bytes, frame.to.bytes);
    append(bytes, frame.from.bytes);
    append16(bytes, ETHERTYPE_IP);
    append(bytes, header);
    append16(bytes, frame.sourcePort);
    append16(bytes, frame.destinationPort);
    append16(bytes, udpHeader + frame.payload.size());
    append16(bytes, 0);
    append(bytes, frame.payload);
    return bytes;
}

Wire::Wire(const Network& network, const std::string& card) {
    network.within([&] {
        socket_ = FileDescriptor{::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)};
        const sockaddr_ll address = linkAddress(card);
        if (::bind(socket_.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            throw std::system_error(errno, std::generic_category(), "packet socket on " + card);
        }
    });
}

void Wire::send(const DHCPPacket& packet) const {
    send(Frame{.from = packet.mac().value(),
               .to = everybody,
               .source = IPv4Address::zero,
               .destination = IPv4Address::broadcast,
               .sourcePort = clientPort,
               .destinationPort = serverPort,
               .payload = packet.serialize(0)});
}

void Wire::send(const Frame& frame) const {
    const Bytes bytes = serializeFrame(frame);
    const auto end = std::chrono::steady_clock::now() + TestSupport::patience;
    while (::send(socket_.number(), bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        // ENOBUFS: the host is so busy that its queue of arriving frames is full, and this one was dropped.
        if (errno != ENOBUFS || std::chrono::steady_clock::now() > end) {
            throw std::system_error(errno, std::generic_category(), "sending a frame");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds{1});
    }
}

std::optional<Frame> Wire::nextReply(std::chrono::milliseconds longest) const {
    pollfd waiting{.fd = socket_.number(), .events = POLLIN, .revents = 0};
    while (::poll(&waiting, 1, static_cast<int>(longest.count())) == 1) {
        std::array<std::uint8_t, 4096> buffer{};
        sockaddr_ll source{};
        socklen_t length = sizeof source;
        const ssize_t count = ::recvfrom(socket_.number(), buffer.data(), buffer.size(), 0,
                                         reinterpret_cast<sockaddr*>(&source), &length);
        if (count < 0) {
            return std::nullopt;
        }
        auto frame = parseFrame(std::span(buffer).first(static_cast<std::size_t>(count)));
        if (source.sll_pkttype != PACKET_OUTGOING && frame && frame->sourcePort == serverPort) {
            return frame;
        }
    }
    return std::nullopt;
}

Frame Wire::ask(const DHCPPacket& packet) const {
    send(packet);
    while (const auto reply = nextReply()) {
        if (messageIn(*reply).xid == packet.xid) {
            return *reply;
        }
    }
    throw std::runtime_error("no answer on the wire");
}

} // namespace Tarnwick
