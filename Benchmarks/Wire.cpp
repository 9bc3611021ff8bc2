#include "Wire.hpp"

#include "DHCPCore/SocketAddress.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <ctime>
#include <linux/filter.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <optional>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>
#include <utility>

namespace DHCPLoad {

using namespace DHCPCore;

namespace {

constexpr std::size_t ethernetHeader = 14;
constexpr std::size_t ipHeader = 20; // ours, and the shortest
constexpr std::size_t udpHeader = 8;
constexpr std::size_t arpLength = 28; // RFC 826, for Ethernet and IPv4
constexpr std::uint16_t serverPort = 67;
constexpr std::uint16_t clientPort = 68;

[[noreturn]] void fail(const std::string& deed) { throw std::system_error(errno, std::generic_category(), deed); }

std::uint16_t number16(std::span<const std::uint8_t> bytes, std::size_t offset) {
    return static_cast<std::uint16_t>(std::uint32_t{bytes[offset]} << 8U | bytes[offset + 1]);
}

void append(Bytes& bytes, std::span<const std::uint8_t> more) { bytes.insert(bytes.end(), more.begin(), more.end()); }

void append16(Bytes& bytes, std::size_t number) { append(bytes, bigEndianBytes(static_cast<std::uint16_t>(number))); }

/// The Internet checksum (RFC 1071) of an even number of bytes. Over a header that carries its own, it is 0.
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

/// A frame without a UDP checksum, as RFC 768 allows.
Bytes frameOf(const Route& route, std::span<const std::uint8_t> payload) {
    constexpr std::size_t checksumOffset = ethernetHeader + 10;
    Bytes bytes;
    bytes.reserve(ethernetHeader + ipHeader + udpHeader + payload.size());
    append(bytes, route.to.bytes);
    append(bytes, route.from.bytes);
    append16(bytes, ETHERTYPE_IP);
    append(bytes, std::array<std::uint8_t, 2>{0x45, 0});
    append16(bytes, ipHeader + udpHeader + payload.size());
    append(bytes, std::array<std::uint8_t, 8>{0, 0, 0, 0, 64, IPPROTO_UDP, 0, 0});
    append(bytes, route.source.bytes());
    append(bytes, route.destination.bytes());
    const auto sum = bigEndianBytes(checksum(std::span(bytes).subspan(ethernetHeader, ipHeader)));
    std::ranges::copy(sum, bytes.begin() + checksumOffset);
    append16(bytes, clientPort);
    append16(bytes, serverPort);
    append16(bytes, udpHeader + payload.size());
    append16(bytes, 0);
    append(bytes, payload);
    return bytes;
}

/// What a frame from a DHCP server holds; nothing when it is something else. The UDP checksum is not looked at: between
/// two ends of a veth pair the system leaves it unmade.
std::optional<Arrival> readFrame(std::span<const std::uint8_t> frame) {
    if (frame.size() < ethernetHeader + ipHeader + udpHeader || number16(frame, 12) != ETHERTYPE_IP) {
        return std::nullopt;
    }
    const auto packet = frame.subspan(ethernetHeader);
    const std::size_t headerLength = std::size_t{4} * (packet[0] & 0x0FU);
    if (packet[9] != IPPROTO_UDP || headerLength < ipHeader || headerLength + udpHeader > packet.size()) {
        return std::nullopt;
    }
    const auto datagram = packet.subspan(headerLength);
    if (number16(datagram, 0) != serverPort || number16(datagram, 2) != clientPort) {
        return std::nullopt;
    }
    Arrival arrival{.from = *MACAddress::fromBytes(frame.subspan(6, 6))};
    const std::size_t total = number16(packet, 2);
    const std::size_t udpLength = number16(datagram, 4);
    arrival.isSound = packet[0] >> 4U == 4 && checksum(packet.first(headerLength)) == 0 && total <= packet.size() &&
                      udpLength >= udpHeader && total == headerLength + udpLength;
    if (arrival.isSound) {
        arrival.payload = datagram.subspan(udpHeader, udpLength - udpHeader);
    }
    return arrival;
}

void put(Bytes& bytes, std::size_t offset, std::span<const std::uint8_t> piece) {
    std::ranges::copy(piece, std::span(bytes).subspan(offset).begin());
}

/// What the owner of an address says to somebody who asks for it (RFC 826); nothing to any other frame.
std::optional<Bytes> addressAnswer(std::span<const std::uint8_t> frame, const AddressOwner& owner) {
    constexpr std::uint8_t request = 1;
    constexpr std::uint8_t reply = 2;
    if (frame.size() < ethernetHeader + arpLength || number16(frame, 12) != ETHERTYPE_ARP || frame[21] != request) {
        return std::nullopt;
    }
    const auto asked = *IPv4Address::fromBytes(frame.subspan(38, 4));
    const auto mac = owner(asked);
    if (!mac) {
        return std::nullopt;
    }
    // The frame that asked, with both sides exchanged and the answer filled in.
    Bytes bytes(frame.begin(), frame.begin() + ethernetHeader + arpLength);
    put(bytes, 0, frame.subspan(6, 6));
    put(bytes, 6, mac->bytes);
    bytes[21] = reply;
    put(bytes, 22, mac->bytes);
    put(bytes, 28, asked.bytes());
    put(bytes, 32, frame.subspan(22, 10)); // who asked
    return bytes;
}

/// What the owner of an address says to an echo request (RFC 792); nothing to any other frame.
std::optional<Bytes> echoAnswer(std::span<const std::uint8_t> frame, const AddressOwner& owner) {
    constexpr std::size_t echo = ethernetHeader + ipHeader;
    constexpr std::size_t echoHeader = 8;
    constexpr std::uint8_t withoutOptions = 0x45;
    constexpr std::uint8_t request = 8;
    if (frame.size() < echo + echoHeader || number16(frame, 12) != ETHERTYPE_IP ||
        frame[ethernetHeader] != withoutOptions || frame[ethernetHeader + 9] != IPPROTO_ICMP ||
        frame[echo] != request) {
        return std::nullopt;
    }
    const auto mac = owner(*IPv4Address::fromBytes(frame.subspan(30, 4)));
    const std::size_t length = number16(frame, 16);
    if (!mac || length < ipHeader + echoHeader || length > frame.size() - ethernetHeader) {
        return std::nullopt;
    }
    // The request, with both sides exchanged: the header's checksum stays what it is.
    Bytes bytes(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(ethernetHeader + length));
    put(bytes, 0, frame.subspan(6, 6));
    put(bytes, 6, mac->bytes);
    put(bytes, 26, frame.subspan(30, 4));
    put(bytes, 30, frame.subspan(26, 4));
    bytes[echo] = 0;
    put(bytes, echo + 2, std::array<std::uint8_t, 2>{});
    Bytes padded(bytes.begin() + echo, bytes.end());
    padded.resize(padded.size() + padded.size() % 2);
    put(bytes, echo + 2, bigEndianBytes(checksum(padded)));
    return bytes;
}

/// Lets through what `receive` can use: ARP, ICMP, and UDP from port 67 without IP options or fragments.
void attachFilter(int socket) {
    constexpr std::uint16_t typeOffset = 12;
    constexpr std::uint16_t protocolOffset = ethernetHeader + 9;
    constexpr std::uint16_t portOffset = ethernetHeader + ipHeader;
    std::array filter{
        sock_filter BPF_STMT(BPF_LD | BPF_H | BPF_ABS, typeOffset),
        sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ETHERTYPE_ARP, 6, 0),
        sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ETHERTYPE_IP, 0, 6),
        sock_filter BPF_STMT(BPF_LD | BPF_B | BPF_ABS, protocolOffset),
        sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, IPPROTO_ICMP, 3, 0),
        sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, IPPROTO_UDP, 0, 3),
        sock_filter BPF_STMT(BPF_LD | BPF_H | BPF_ABS, portOffset),
        sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, serverPort, 0, 1),
        sock_filter BPF_STMT(BPF_RET | BPF_K, 0xFFFF),
        sock_filter BPF_STMT(BPF_RET | BPF_K, 0),
    };
    const sock_fprog program{.len = filter.size(), .filter = filter.data()};
    if (::setsockopt(socket, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) != 0) {
        fail("setting a filter");
    }
}

/// Room for the answers to a whole window.
void widen(int socket) {
    constexpr int bytes = 8 << 20;
    if (::setsockopt(socket, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) != 0) {
        ::setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes); // what an ordinary user may have
    }
}

} // namespace

Wire Wire::onCard(const std::string& card) {
    FileDescriptor socket{::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)};
    if (!socket.isOpen()) {
        fail("opening a packet socket");
    }
    attachFilter(socket.number());
    constexpr int yes = 1;
    ::setsockopt(socket.number(), SOL_PACKET, PACKET_IGNORE_OUTGOING, &yes,
                 sizeof yes); // an older system filters later
    widen(socket.number());
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(::if_nametoindex(card.c_str()));
    if (address.sll_ifindex == 0 ||
        ::bind(socket.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        fail("packet socket on " + card);
    }
    return {std::move(socket), true};
}

Wire Wire::onLoopback(std::uint16_t portOfServer, std::uint16_t portOfClient) {
    FileDescriptor socket{::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    const sockaddr_in own = socketAddress(IPv4Address::loopback, portOfClient);
    const sockaddr_in server = socketAddress(IPv4Address::loopback, portOfServer);
    widen(socket.number());
    if (::bind(socket.number(), reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0 ||
        ::connect(socket.number(), reinterpret_cast<const sockaddr*>(&server), sizeof server) != 0) {
        fail("socket on loopback");
    }
    return {std::move(socket), false};
}

Wire::Wire(FileDescriptor socket, bool isFramed)
    : socket_(std::move(socket)), isFramed_(isFramed), buffers_(mostAtOnce * largestDatagram), lengths_(mostAtOnce) {}

void Wire::add(const Route& route, std::span<const std::uint8_t> payload) {
    outgoing_.push_back(isFramed_ ? frameOf(route, payload) : Bytes(payload.begin(), payload.end()));
}

void Wire::flush() {
    std::array<iovec, mostAtOnce> pieces{};
    std::array<mmsghdr, mostAtOnce> messages{};
    std::size_t done = 0;
    while (done < outgoing_.size()) {
        const std::size_t count = std::min(mostAtOnce, outgoing_.size() - done);
        for (std::size_t index = 0; index < count; ++index) {
            Bytes& bytes = outgoing_[done + index];
            pieces.at(index) = {.iov_base = bytes.data(), .iov_len = bytes.size()};
            messages.at(index).msg_hdr.msg_iov = &pieces.at(index);
            messages.at(index).msg_hdr.msg_iovlen = 1;
        }
        const int sent = ::sendmmsg(socket_.number(), messages.data(), static_cast<unsigned>(count), 0);
        if (sent > 0) {
            done += static_cast<std::size_t>(sent);
        } else if (errno == ENOBUFS) { // lost, as on a busy cable
            ++done;
        } else if (errno != EINTR && errno != ECONNREFUSED) { // nobody listens yet, or any more
            fail("sending");
        }
    }
    outgoing_.clear();
}

void Wire::receive(std::chrono::nanoseconds longest, const std::function<void(const Arrival&)>& take) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(longest);
    const timespec patience{.tv_sec = seconds.count(), .tv_nsec = (longest - seconds).count()};
    pollfd waiting{.fd = socket_.number(), .events = POLLIN, .revents = 0};
    if (::ppoll(&waiting, 1, &patience, nullptr) != 1) {
        return;
    }
    const std::size_t count = readWaiting();
    for (std::size_t index = 0; index < count; ++index) {
        const auto bytes = std::span(buffers_).subspan(index * largestDatagram, lengths_[index]);
        if (!isFramed_) {
            take({.payload = bytes, .isSound = true});
        } else if (const auto arrival = readFrame(bytes)) {
            take(*arrival);
        } else if (owner_) {
            answerIfAsked(bytes);
        }
    }
    flush();
}

/// Fills the buffers. @return how many.
std::size_t Wire::readWaiting() {
    std::array<iovec, mostAtOnce> pieces{};
    std::array<mmsghdr, mostAtOnce> messages{};
    for (std::size_t index = 0; index < mostAtOnce; ++index) {
        pieces.at(index) = {.iov_base = buffers_.data() + index * largestDatagram, .iov_len = largestDatagram};
        messages.at(index).msg_hdr.msg_iov = &pieces.at(index);
        messages.at(index).msg_hdr.msg_iovlen = 1;
    }
    const int count = ::recvmmsg(socket_.number(), messages.data(), mostAtOnce, MSG_DONTWAIT, nullptr);
    if (count < 0) {
        if (errno == EAGAIN || errno == EINTR || errno == ECONNREFUSED) { // nobody listens yet, or any more
            return 0;
        }
        fail("receiving");
    }
    for (std::size_t index = 0; index < static_cast<std::size_t>(count); ++index) {
        lengths_[index] = messages.at(index).msg_len;
    }
    return static_cast<std::size_t>(count);
}

void Wire::answerIfAsked(std::span<const std::uint8_t> frame) {
    auto answer = addressAnswer(frame, owner_);
    if (!answer) {
        answer = echoAnswer(frame, owner_);
    }
    if (answer) {
        outgoing_.push_back(*std::move(answer));
    }
}

} // namespace DHCPLoad
