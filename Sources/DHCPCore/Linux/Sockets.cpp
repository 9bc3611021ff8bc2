#include "DHCPCore/Sockets.hpp"

#include "DHCPCore/SocketAddress.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <linux/sockios.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <optional>
#include <poll.h>
#include <ratio>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <utility>
#include <vector>

namespace DHCPCore::Sockets {

namespace {

/// Room for one control message that names the card and the source address.
struct alignas(cmsghdr) PacketInfoMessage {
    std::array<std::uint8_t, CMSG_SPACE(sizeof(in_pktinfo))> bytes{};
};

PacketInfoMessage packetInfoMessage(std::uint32_t interfaceIndex, IPv4Address source) {
    cmsghdr header{};
    header.cmsg_len = CMSG_LEN(sizeof(in_pktinfo));
    header.cmsg_level = IPPROTO_IP;
    header.cmsg_type = IP_PKTINFO;
    in_pktinfo info{};
    info.ipi_ifindex = static_cast<int>(interfaceIndex);
    info.ipi_spec_dst.s_addr = htonl(source.value);
    PacketInfoMessage message;
    std::memcpy(message.bytes.data(), &header, sizeof header);
    std::memcpy(message.bytes.data() + CMSG_LEN(0), &info, sizeof info);
    return message;
}

/// Every address of the host, beside the label of the card that holds it. Empty when the system does not tell.
std::vector<ifreq> addressesOfHost(const FileDescriptor& socket) {
    constexpr std::size_t most = 65536;
    for (std::size_t room = 64; room <= most; room *= 2) {
        std::vector<ifreq> entries(room);
        ifconf request{};
        request.ifc_len = static_cast<int>(room * sizeof(ifreq));
        request.ifc_req = entries.data();
        if (::ioctl(socket.number(), SIOCGIFCONF, &request) != 0) {
            return {};
        }
        const std::size_t count = static_cast<std::size_t>(request.ifc_len) / sizeof(ifreq);
        if (count < room) { // else there may be more
            entries.resize(count);
            return entries;
        }
    }
    return {};
}

/// The card as the kernel's requests name it; nothing when it is gone.
std::optional<ifreq> cardOf(const FileDescriptor& socket, std::uint32_t interfaceIndex) {
    ifreq card{};
    card.ifr_ifindex = static_cast<int>(interfaceIndex);
    return ::ioctl(socket.number(), SIOCGIFNAME, &card) == 0 ? std::optional(card) : std::nullopt;
}

/// Whether the kernel knows the hardware address that belongs to an address beyond the card.
bool knowsHardwareAddress(const FileDescriptor& socket, const ifreq& card, IPv4Address address) {
    arpreq entry{};
    const sockaddr_in asked = socketAddress(address, 0);
    std::memcpy(&entry.arp_pa, &asked, sizeof asked);
    std::ranges::copy(card.ifr_name, std::begin(entry.arp_dev));
    return ::ioctl(socket.number(), SIOCGARP, &entry) == 0 && (entry.arp_flags & ATF_COM) != 0;
}

/// Whether half of what the socket may have waiting is waiting now.
bool isHalfFull(const FileDescriptor& socket) {
    int waiting = 0;
    int room = 0;
    socklen_t length = sizeof room;
    return ::ioctl(socket.number(), SIOCOUTQ, &waiting) == 0 &&
           ::getsockopt(socket.number(), SOL_SOCKET, SO_SNDBUF, &room, &length) == 0 && waiting > room / 2;
}

/// Whether the datagram must not be handed to the kernel, which would take it. What is sent to an address that nobody
/// has waits for seconds until the kernel gives up. A few hundred such datagrams would fill the socket, and nobody
/// would be answered meanwhile: they may take half of it.
bool wouldKeepOthersWaiting(const FileDescriptor& socket, const Route& route) {
    if (route.destination == IPv4Address::broadcast || !isHalfFull(socket)) {
        return false;
    }
    const auto card = cardOf(socket, route.interfaceIndex);
    return card && !knowsHardwareAddress(socket, *card, route.destination);
}

} // namespace

FileDescriptor open(int domain, int type, int protocol) {
    // No SIGPIPE option here: only connected sockets raise it, and nothing is written to one.
    return FileDescriptor{::socket(domain, type | SOCK_CLOEXEC, protocol)};
}

std::string loopbackDevice() { return "lo"; }

int tieToInterface(const FileDescriptor& socket, std::uint32_t index) {
    const auto name = nameOfInterface(index);
    if (!name) {
        return errno;
    }
    const auto length = static_cast<socklen_t>(name->size());
    return ::setsockopt(socket.number(), SOL_SOCKET, SO_BINDTODEVICE, name->c_str(), length) == 0 ? 0 : errno;
}

int reportArrivalInterface(const FileDescriptor& socket) {
    const int on = 1;
    return ::setsockopt(socket.number(), IPPROTO_IP, IP_PKTINFO, &on, sizeof on) == 0 ? 0 : errno;
}

std::optional<std::uint32_t> arrivalInterface(std::span<const std::uint8_t> control) {
    while (control.size() >= sizeof(cmsghdr)) {
        cmsghdr header{};
        std::memcpy(&header, control.data(), sizeof header);
        if (header.cmsg_len < CMSG_LEN(0) || header.cmsg_len > control.size()) {
            return std::nullopt;
        }
        if (header.cmsg_level == IPPROTO_IP && header.cmsg_type == IP_PKTINFO &&
            header.cmsg_len >= CMSG_LEN(sizeof(in_pktinfo))) {
            in_pktinfo info{};
            std::memcpy(&info, control.data() + CMSG_LEN(0), sizeof info);
            return static_cast<std::uint32_t>(info.ipi_ifindex);
        }
        control = control.subspan(std::min<std::size_t>(CMSG_ALIGN(header.cmsg_len), control.size()));
    }
    return std::nullopt;
}

bool awaitReadable(const FileDescriptor& socket, std::chrono::nanoseconds patience) {
    pollfd waiting{.fd = socket.number(), .events = POLLIN, .revents = 0};
    const timespec longest{.tv_sec = 0, .tv_nsec = std::min<long>(patience.count(), std::nano::den - 1)};
    return ::ppoll(&waiting, 1, &longest, nullptr) > 0;
}

int receive(const FileDescriptor& socket, std::span<msghdr> messages, std::span<std::size_t> sizes) {
    std::array<mmsghdr, mostReceivedAtOnce> together{};
    const std::size_t asked = std::min(messages.size(), together.size());
    for (std::size_t place = 0; place < asked; ++place) {
        together[place].msg_hdr = messages[place];
    }
    const int count = ::recvmmsg(socket.number(), together.data(), static_cast<unsigned>(asked), 0, nullptr);
    for (std::size_t place = 0; std::cmp_less(place, count); ++place) {
        messages[place] = together[place].msg_hdr;
        sizes[place] = together[place].msg_len;
    }
    return count;
}

bool holdsAddress(const FileDescriptor& socket, std::uint32_t interfaceIndex, IPv4Address address) {
    const auto card = cardOf(socket, interfaceIndex);
    if (!card) {
        return false;
    }
    const std::string_view name = card->ifr_name;
    const std::vector<ifreq> entries = addressesOfHost(socket);
    return std::ranges::any_of(entries, [&](const ifreq& entry) {
        const std::string_view label = entry.ifr_name; // "en5", or "en5:1" for an address with a name of its own
        sockaddr_in held{};
        std::memcpy(&held, &entry.ifr_addr, sizeof held);
        return label.substr(0, label.find(':')) == name && held.sin_addr.s_addr == htonl(address.value);
    });
}

int send(const FileDescriptor& socket, std::span<const std::uint8_t> bytes, const Route& route) {
    if (route.source && wouldKeepOthersWaiting(socket, route)) {
        return EAGAIN;
    }
    sockaddr_in destination = socketAddress(route.destination, route.port);
    // The system's structures ask for writable memory that sending never writes to.
    iovec payload{.iov_base = const_cast<std::uint8_t*>(bytes.data()), .iov_len = bytes.size()};
    msghdr message{};
    message.msg_name = &destination;
    message.msg_namelen = sizeof destination;
    message.msg_iov = &payload;
    message.msg_iovlen = 1;
    PacketInfoMessage control;
    if (route.source) {
        control = packetInfoMessage(route.interfaceIndex, *route.source);
        message.msg_control = control.bytes.data();
        message.msg_controllen = control.bytes.size();
    }
    const ssize_t sent = ::sendmsg(socket.number(), &message, 0);
    if (sent >= 0) {
        return static_cast<std::size_t>(sent) == bytes.size() ? 0 : EIO;
    }
    // A source address that is not one of the host's is EINVAL to older kernels, ENETUNREACH to newer ones.
    return route.source && errno == EINVAL ? EADDRNOTAVAIL : errno;
}

} // namespace DHCPCore::Sockets
