#include "DHCPCore/Presence.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <net/if_dl.h>
#include <net/route.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/sysctl.h>

namespace DHCPCore {

namespace {

// What `ARPTable::parse` takes for granted.
static_assert(sizeof(rt_msghdr) == 92 && offsetof(rt_msghdr, rtm_msglen) == 0);
static_assert(AF_INET == 2 && offsetof(sockaddr_in, sin_len) == 0 && offsetof(sockaddr_in, sin_family) == 1);
static_assert(offsetof(sockaddr_in, sin_addr) == 4);
static_assert(AF_LINK == 18 && offsetof(sockaddr_dl, sdl_nlen) == 5 && offsetof(sockaddr_dl, sdl_alen) == 6);
static_assert(offsetof(sockaddr_dl, sdl_data) == 8);

} // namespace

ARPTable::Map ARPTable::read() {
    std::array<int, 6> name{CTL_NET, PF_ROUTE, 0, AF_INET, NET_RT_FLAGS, RTF_LLINFO};
    const auto nameLength = static_cast<unsigned>(name.size());
    constexpr int mostTries = 4; // the table may grow between the two questions
    for (int attempt = 0; attempt < mostTries; ++attempt) {
        std::size_t size = 0;
        if (::sysctl(name.data(), nameLength, nullptr, &size, nullptr, 0) != 0 || size == 0) {
            return {};
        }
        Bytes dump(size);
        if (::sysctl(name.data(), nameLength, dump.data(), &size, nullptr, 0) == 0) {
            dump.resize(std::min(size, dump.size()));
            return parse(dump);
        }
        if (errno != ENOMEM) {
            return {};
        }
    }
    return {};
}

} // namespace DHCPCore
