#include "DHCPCore/Interfaces.hpp"

#include <algorithm>
#include <cstring>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <netinet/in.h>
#include <span>
#include <sys/socket.h>
#include <utility>

namespace DHCPCore::Interfaces {

namespace {

struct FreeAddresses {
    void operator()(ifaddrs* list) const { ::freeifaddrs(list); }
};

/// A socket address as bytes, as many as its length field tells; none without one.
std::span<const std::uint8_t> bytesOf(const sockaddr* address) {
    if (address == nullptr) {
        return {};
    }
    return {reinterpret_cast<const std::uint8_t*>(address), address->sa_len};
}

/// Nothing unless it is an IPv4 address with a mask that is one.
std::optional<InterfaceAddress> interfaceAddress(const ifaddrs& entry) {
    if (entry.ifa_addr == nullptr || entry.ifa_addr->sa_family != AF_INET) {
        return std::nullopt;
    }
    sockaddr_in own{};
    std::memcpy(&own, entry.ifa_addr, std::min<std::size_t>(sizeof own, entry.ifa_addr->sa_len));
    const auto prefixLength = Subnet::prefixLengthOfMask(maskOfSocketAddress(bytesOf(entry.ifa_netmask)));
    if (!prefixLength) {
        return std::nullopt;
    }
    return InterfaceAddress{
        .name = entry.ifa_name,
        .subnet = {.address = IPv4Address{ntohl(own.sin_addr.s_addr)}, .prefixLength = *prefixLength},
        .isPointToPoint = (entry.ifa_flags & IFF_POINTOPOINT) != 0};
}

} // namespace

std::vector<InterfaceAddress> interfaceAddresses() {
    ifaddrs* first = nullptr;
    if (::getifaddrs(&first) != 0) {
        return {};
    }
    const std::unique_ptr<ifaddrs, FreeAddresses> list(first);
    std::vector<InterfaceAddress> result;
    for (const ifaddrs* entry = list.get(); entry != nullptr; entry = entry->ifa_next) {
        if (auto address = interfaceAddress(*entry)) {
            result.push_back(std::move(*address));
        }
    }
    return result;
}

} // namespace DHCPCore::Interfaces
