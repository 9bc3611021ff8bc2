#include "networksetup/CardAddresses.hpp"

#include "DHCPCore/Error.hpp"
#include "DHCPCore/FileDescriptor.hpp"
#include "DHCPCore/Linux/Netlink.hpp"
#include "DHCPCore/Sockets.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <vector>

namespace NetworkSetup::CardAddresses {

using DHCPCore::Bytes;
using DHCPCore::IPv4Address;
using DHCPCore::Subnet;
using DHCPCore::Netlink::Address;

namespace {

[[noreturn]] void fail(int number) { throw DHCPCore::Error(DHCPCore::systemText(number)); }

std::uint32_t indexOf(const std::string& card) {
    const unsigned index = ::if_nametoindex(card.c_str());
    if (index == 0) {
        fail(errno);
    }
    return index;
}

std::vector<Address> addressesOf(std::uint32_t index) {
    const auto dump = DHCPCore::Netlink::ask(DHCPCore::Netlink::Question::addresses);
    if (!dump) {
        fail(EIO);
    }
    std::vector<Address> addresses = DHCPCore::Netlink::parseAddresses(*dump);
    std::erase_if(addresses, [index](const Address& address) { return address.interfaceIndex != index; });
    return addresses;
}

template <class Record>
void append(Bytes& bytes, const Record& record) {
    static_assert(sizeof(Record) % NLMSG_ALIGNTO == 0);
    const std::size_t offset = bytes.size();
    bytes.resize(offset + sizeof record);
    std::memcpy(bytes.data() + offset, &record, sizeof record);
}

void appendAddress(Bytes& bytes, std::uint16_t type, IPv4Address address) {
    append(bytes, rtattr{.rta_len = RTA_LENGTH(sizeof(std::uint32_t)), .rta_type = type});
    append(bytes, address.bytes());
}

/// What the kernel answers to one request for a change: 0, or the error number of its refusal.
int answerTo(const DHCPCore::FileDescriptor& socket) {
    struct Answer {
        nlmsghdr header;
        nlmsgerr error;
    } answer{}; // the rest of a refusal repeats the request, and is cut off
    ssize_t count = -1;
    do {
        count = ::recv(socket.number(), &answer, sizeof answer, 0);
    } while (count == -1 && errno == EINTR);
    if (count == -1) {
        return errno;
    }
    const bool isAnswer = static_cast<std::size_t>(count) == sizeof answer && answer.header.nlmsg_type == NLMSG_ERROR;
    return isAnswer ? -answer.error.error : EIO;
}

/// Asks the kernel for a change. @return 0, or the error number of its refusal.
int change(std::uint16_t type, int flags, const Bytes& content) {
    const auto socket = DHCPCore::Sockets::open(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE);
    if (!socket.isOpen()) {
        return errno;
    }
    nlmsghdr header{};
    header.nlmsg_len = static_cast<std::uint32_t>(sizeof header + content.size());
    header.nlmsg_type = type;
    header.nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | NLM_F_ACK | flags);
    Bytes request;
    append(request, header);
    request.insert(request.end(), content.begin(), content.end());
    if (::send(socket.number(), request.data(), request.size(), 0) != static_cast<ssize_t>(request.size())) {
        return errno;
    }
    return answerTo(socket);
}

Bytes addressMessage(std::uint32_t index, const Subnet& address) {
    Bytes content;
    append(content, ifaddrmsg{.ifa_family = AF_INET,
                              .ifa_prefixlen = static_cast<std::uint8_t>(address.prefixLength),
                              .ifa_flags = 0,
                              .ifa_scope = RT_SCOPE_UNIVERSE,
                              .ifa_index = index});
    appendAddress(content, IFA_LOCAL, address.address);
    return content;
}

void removeAddress(const Address& address) {
    const int refusal = change(RTM_DELADDR, 0, addressMessage(address.interfaceIndex, address.subnet));
    // With an address the kernel may take its secondary ones away: then this one is gone, as it should be.
    if (refusal != 0 && refusal != EADDRNOTAVAIL) {
        fail(refusal);
    }
}

void switchOn(std::uint32_t index) {
    ifinfomsg message{};
    message.ifi_index = static_cast<int>(index);
    message.ifi_flags = IFF_UP;
    message.ifi_change = IFF_UP;
    Bytes content;
    append(content, message);
    if (const int refusal = change(RTM_NEWLINK, 0, content); refusal != 0) {
        fail(refusal);
    }
}

} // namespace

bool has(const std::string& card, const Subnet& address) {
    return std::ranges::count(addressesOf(indexOf(card)), address, &Address::subnet) > 0;
}

void set(const std::string& card, const Subnet& address) {
    const std::uint32_t index = indexOf(card);
    for (const Address& present : addressesOf(index)) {
        if (present.subnet != address) {
            removeAddress(present);
        }
    }
    // Also where it stands: it may have had a lifetime, or have gone as the secondary one of an address just removed.
    Bytes content = addressMessage(index, address);
    appendAddress(content, IFA_ADDRESS, address.address);
    appendAddress(content, IFA_BROADCAST, address.broadcast());
    if (const int refusal = change(RTM_NEWADDR, NLM_F_CREATE | NLM_F_REPLACE, content); refusal != 0) {
        fail(refusal);
    }
    switchOn(index);
}

void remove(const std::string& card, bool all) {
    for (const Address& present : addressesOf(indexOf(card))) {
        if (all || present.isPermanent) {
            removeAddress(present);
        }
    }
}

} // namespace NetworkSetup::CardAddresses
