#include "DHCPCore/Linux/Netlink.hpp"

#include "DHCPCore/Sockets.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/neighbour.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <type_traits>
#include <utility>

namespace DHCPCore::Netlink {

namespace {

using Span = std::span<const std::uint8_t>;

/// A structure at the front of the bytes; nothing when they are too few.
template <class T>
std::optional<T> structureAt(Span bytes) {
    static_assert(std::is_trivially_copyable_v<T>);
    if (bytes.size() < sizeof(T)) {
        return std::nullopt;
    }
    T value{};
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

/// The bytes behind so many, and behind the padding that follows them.
Span behind(Span bytes, std::size_t length) {
    constexpr std::size_t alignment = 4;
    const std::size_t padded = (length + alignment - 1) / alignment * alignment;
    return bytes.subspan(std::min(padded, bytes.size()));
}

/// Calls the reader with header and content of each message, as far as the bytes go.
void forEachMessage(Span dump, const std::function<void(const nlmsghdr& header, Span content)>& read) {
    while (const auto header = structureAt<nlmsghdr>(dump)) {
        if (header->nlmsg_len < sizeof(nlmsghdr) || header->nlmsg_len > dump.size()) {
            return;
        }
        read(*header, dump.subspan(sizeof(nlmsghdr), header->nlmsg_len - sizeof(nlmsghdr)));
        dump = behind(dump, header->nlmsg_len);
    }
}

/// Calls the reader with type and value of each attribute behind a message's own structure.
void forEachAttribute(Span attributes, const std::function<void(std::uint16_t type, Span value)>& read) {
    while (const auto header = structureAt<rtattr>(attributes)) {
        if (header->rta_len < sizeof(rtattr) || header->rta_len > attributes.size()) {
            return;
        }
        const auto type = static_cast<std::uint16_t>(header->rta_type & NLA_TYPE_MASK);
        read(type, attributes.subspan(sizeof(rtattr), header->rta_len - sizeof(rtattr)));
        attributes = behind(attributes, header->rta_len);
    }
}

/// Calls the reader with the structure and the attributes of each message of one type.
template <class T>
void forEach(Span dump, std::uint16_t wanted, const std::function<void(const T& message, Span attributes)>& read) {
    forEachMessage(dump, [&](const nlmsghdr& header, Span content) {
        const auto message = structureAt<T>(content);
        if (header.nlmsg_type == wanted && message) {
            read(*message, behind(content, sizeof(T)));
        }
    });
}

/// A text that ends with a zero byte, or with the attribute.
std::string textOf(Span value) {
    const auto end = std::ranges::find(value, std::uint8_t{0});
    return {value.begin(), end};
}

std::string kindIn(Span linkInfo) {
    std::string kind;
    forEachAttribute(linkInfo, [&kind](std::uint16_t type, Span value) {
        if (type == IFLA_INFO_KIND) {
            kind = textOf(value);
        }
    });
    return kind;
}

Link linkOf(const ifinfomsg& message, Span attributes) {
    Link link{.index = static_cast<std::uint32_t>(message.ifi_index),
              .hardwareType = message.ifi_type,
              .flags = message.ifi_flags,
              .name = {},
              .kind = {},
              .mac = std::nullopt};
    forEachAttribute(attributes, [&link](std::uint16_t type, Span value) {
        if (type == IFLA_IFNAME) {
            link.name = textOf(value);
        } else if (type == IFLA_ADDRESS) {
            link.mac = MACAddress::fromBytes(value);
        } else if (type == IFLA_LINKINFO) {
            link.kind = kindIn(value);
        }
    });
    return link;
}

std::optional<Address> addressOf(const ifaddrmsg& message, Span attributes) {
    constexpr std::uint32_t forever = 0xFFFFFFFFU;
    std::optional<IPv4Address> own;
    std::optional<IPv4Address> peerOrOwn;
    bool isPermanent = (message.ifa_flags & IFA_F_PERMANENT) != 0;
    forEachAttribute(attributes, [&](std::uint16_t type, Span value) {
        if (type == IFA_LOCAL) {
            own = IPv4Address::fromBytes(value);
        } else if (type == IFA_ADDRESS) {
            peerOrOwn = IPv4Address::fromBytes(value);
        } else if (type == IFA_CACHEINFO) {
            if (const auto times = structureAt<ifa_cacheinfo>(value)) {
                isPermanent = times->ifa_valid == forever;
            }
        }
    });
    const auto address = own ? own : peerOrOwn;
    const auto subnet = address ? Subnet::make(*address, message.ifa_prefixlen) : std::nullopt;
    if (message.ifa_family != AF_INET || !subnet) {
        return std::nullopt;
    }
    return Address{.interfaceIndex = message.ifa_index, .subnet = *subnet, .isPermanent = isPermanent};
}

struct Route {
    std::uint32_t interfaceIndex = 0; ///< 0 when the route leads nowhere.
    std::uint32_t metric = 0;
    std::uint32_t table = 0;
};

Route routeOf(const rtmsg& message, Span attributes) {
    Route route{.table = message.rtm_table};
    forEachAttribute(attributes, [&route](std::uint16_t type, Span value) {
        if (type == RTA_OIF) {
            route.interfaceIndex = structureAt<std::uint32_t>(value).value_or(0);
        } else if (type == RTA_PRIORITY) {
            route.metric = structureAt<std::uint32_t>(value).value_or(0);
        } else if (type == RTA_TABLE) {
            route.table = structureAt<std::uint32_t>(value).value_or(0);
        } else if (type == RTA_MULTIPATH) {
            if (const auto firstHop = structureAt<rtnexthop>(value)) {
                route.interfaceIndex = static_cast<std::uint32_t>(firstHop->rtnh_ifindex);
            }
        }
    });
    return route;
}

std::optional<Neighbour> neighbourOf(const ndmsg& message, Span attributes) {
    // Without ARP there is nothing that the host has seen: loopback and multicast entries have made-up addresses.
    constexpr std::uint16_t unusable = NUD_FAILED | NUD_INCOMPLETE | NUD_NOARP;
    std::optional<IPv4Address> ip;
    std::optional<MACAddress> mac;
    forEachAttribute(attributes, [&](std::uint16_t type, Span value) {
        if (type == NDA_DST) {
            ip = IPv4Address::fromBytes(value);
        } else if (type == NDA_LLADDR) {
            mac = MACAddress::fromBytes(value);
        }
    });
    if (message.ndm_family != AF_INET || (message.ndm_state & unusable) != 0 || !ip || !mac) {
        return std::nullopt;
    }
    return Neighbour{.ip = *ip, .mac = *mac};
}

/// The kernel's own structures, so that nothing is padded that it might take for an attribute.
struct Request {
    nlmsghdr header{};
    union Content {
        ifinfomsg link;
        ifaddrmsg address;
        rtmsg route;
        ndmsg neighbour;
        std::uint8_t family; ///< Each of them begins with it.
    } content{};
};

Request requestFor(Question question) {
    Request request;
    const auto fill = [&request](std::uint16_t type, std::size_t contentSize) {
        request.header.nlmsg_type = type;
        request.header.nlmsg_len = static_cast<std::uint32_t>(sizeof(nlmsghdr) + contentSize);
    };
    switch (question) {
    case Question::links:
        fill(RTM_GETLINK, sizeof(ifinfomsg));
        break;
    case Question::addresses:
        fill(RTM_GETADDR, sizeof(ifaddrmsg));
        break;
    case Question::routes:
        fill(RTM_GETROUTE, sizeof(rtmsg));
        break;
    case Question::neighbours:
        fill(RTM_GETNEIGH, sizeof(ndmsg));
        break;
    }
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.content.family = question == Question::links ? AF_UNSPEC : AF_INET;
    return request;
}

/// How far an answer has come.
struct Progress {
    bool isDone = false;
    bool isRefused = false;
    bool isInconsistent = false; ///< Something changed while the kernel was telling.
};

/// Appends one piece of the kernel's answer.
/// @return false when there is none, or it does not fit.
bool receivePiece(const FileDescriptor& socket, Bytes& dump, Progress& progress) {
    constexpr std::size_t largestPiece = 32768; // the kernel makes no larger ones in a dump
    const std::size_t before = dump.size();
    dump.resize(before + largestPiece);
    sockaddr_nl sender{};
    socklen_t senderLength = sizeof sender;
    const ssize_t count = ::recvfrom(socket.number(), dump.data() + before, largestPiece, MSG_TRUNC,
                                     reinterpret_cast<sockaddr*>(&sender), &senderLength);
    if (count <= 0 || static_cast<std::size_t>(count) > largestPiece || sender.nl_pid != 0) {
        return false;
    }
    dump.resize(before + static_cast<std::size_t>(count));
    forEachMessage(Span(dump).subspan(before), [&progress](const nlmsghdr& header, Span) {
        progress.isDone |= header.nlmsg_type == NLMSG_DONE;
        progress.isRefused |= header.nlmsg_type == NLMSG_ERROR;
        progress.isInconsistent |= (header.nlmsg_flags & NLM_F_DUMP_INTR) != 0;
    });
    return true;
}

std::optional<Bytes> askOnce(Question question, Progress& progress) {
    const FileDescriptor socket = Sockets::open(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE);
    const timeval patience{.tv_sec = 1, .tv_usec = 0}; // the kernel answers at once: this is for a broken one
    ::setsockopt(socket.number(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    const Request request = requestFor(question);
    if (::send(socket.number(), &request, request.header.nlmsg_len, 0) < 0) {
        return std::nullopt;
    }
    Bytes dump;
    while (!progress.isDone && !progress.isRefused) {
        if (!receivePiece(socket, dump, progress)) {
            return std::nullopt;
        }
    }
    return progress.isRefused ? std::nullopt : std::optional(std::move(dump));
}

} // namespace

std::optional<Bytes> ask(Question question) {
    constexpr int attempts = 3; // after that, an answer that something overtook is still the best there is
    std::optional<Bytes> dump;
    Progress progress{.isInconsistent = true};
    for (int attempt = 0; attempt < attempts && progress.isInconsistent; ++attempt) {
        progress = {};
        dump = askOnce(question, progress);
    }
    return dump;
}

FileDescriptor openNotices() {
    FileDescriptor socket = Sockets::open(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE);
    sockaddr_nl groups{};
    groups.nl_family = AF_NETLINK;
    groups.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR;
    if (!socket.isOpen() || Sockets::setNonBlocking(socket) != 0 ||
        ::bind(socket.number(), reinterpret_cast<const sockaddr*>(&groups), sizeof groups) != 0) {
        return {};
    }
    return socket;
}

bool takeNotice(const FileDescriptor& socket) {
    sockaddr_nl sender{};
    socklen_t senderLength = sizeof sender;
    std::uint8_t firstByte = 0; // what changed is asked for anew: the rest is left to be cut off
    if (::recvfrom(socket.number(), &firstByte, sizeof firstByte, 0, reinterpret_cast<sockaddr*>(&sender),
                   &senderLength) < 0) {
        return errno == ENOBUFS;
    }
    return sender.nl_pid == 0; // the kernel's; the groups hold nothing but what was asked for
}

std::vector<Link> parseLinks(Span dump) {
    std::vector<Link> links;
    forEach<ifinfomsg>(dump, RTM_NEWLINK, [&links](const ifinfomsg& message, Span attributes) {
        links.push_back(linkOf(message, attributes));
    });
    std::ranges::stable_sort(links, {}, &Link::index);
    return links;
}

std::vector<Address> parseAddresses(Span dump) {
    std::vector<Address> addresses;
    forEach<ifaddrmsg>(dump, RTM_NEWADDR, [&addresses](const ifaddrmsg& message, Span attributes) {
        if (const auto address = addressOf(message, attributes)) {
            addresses.push_back(*address);
        }
    });
    std::ranges::stable_sort(addresses, {}, &Address::interfaceIndex);
    return addresses;
}

std::optional<std::uint32_t> parseDefaultInterface(Span dump) {
    std::optional<Route> best;
    forEach<rtmsg>(dump, RTM_NEWROUTE, [&best](const rtmsg& message, Span attributes) {
        const Route route = routeOf(message, attributes);
        const bool isDefault = message.rtm_family == AF_INET && message.rtm_dst_len == 0 &&
                               message.rtm_type == RTN_UNICAST && route.table == RT_TABLE_MAIN;
        if (isDefault && route.interfaceIndex != 0 && (!best || route.metric < best->metric)) {
            best = route;
        }
    });
    return best ? std::optional(best->interfaceIndex) : std::nullopt;
}

std::vector<Neighbour> parseNeighbours(Span dump) {
    std::vector<Neighbour> neighbours;
    forEach<ndmsg>(dump, RTM_NEWNEIGH, [&neighbours](const ndmsg& message, Span attributes) {
        if (const auto neighbour = neighbourOf(message, attributes)) {
            neighbours.push_back(*neighbour);
        }
    });
    return neighbours;
}

} // namespace DHCPCore::Netlink
