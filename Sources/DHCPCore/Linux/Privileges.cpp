#include "DHCPCore/Privileges.hpp"

#include <array>
#include <cerrno>
#include <cstdint>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace DHCPCore::Privileges {

namespace {

using Set = std::uint64_t; // bit n is capability n (capabilities(7))

constexpr Set setOf(unsigned capability) { return Set{1} << capability; }

/// Opening port 67 again when the adapter is back; older kernels want the second one for tying a socket to a card, and
/// all of them for raw echo sockets.
constexpr Set network = setOf(CAP_NET_BIND_SERVICE) | setOf(CAP_NET_RAW);

/// Root may be told to keep leases in anybody's folder, and a lease file keeps its owner and mode.
constexpr Set otherUsersFiles = setOf(CAP_DAC_OVERRIDE) | setOf(CAP_CHOWN) | setOf(CAP_FOWNER);

/// What no program that this process ever becomes or starts may have. Needs a right itself; who lacks it gains nothing
/// by a new program anyway, see `keepOnlyThoseForServing`.
void narrowBoundingSet(Set kept) {
    for (unsigned capability = 0; ::prctl(PR_CAPBSET_READ, capability, 0, 0, 0) >= 0; ++capability) {
        if ((kept & setOf(capability)) == 0) {
            ::prctl(PR_CAPBSET_DROP, capability, 0, 0, 0);
        }
    }
}

/// Keeps at most these of what the thread has, and lets no program that it starts inherit any.
int narrow(Set kept) {
    __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> halves{};
    if (::syscall(SYS_capget, &header, halves.data()) != 0) {
        return errno;
    }
    for (__user_cap_data_struct& half : halves) {
        const auto keptHalf = static_cast<std::uint32_t>(kept);
        half = {.effective = half.effective & keptHalf, .permitted = half.permitted & keptHalf, .inheritable = 0};
        kept >>= 32U;
    }
    return ::syscall(SYS_capset, &header, halves.data()) == 0 ? 0 : errno;
}

} // namespace

int keepOnlyThoseForServing() {
    const Set kept = ::geteuid() == 0 ? network | otherUsersFiles : network;
    narrowBoundingSet(kept);
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) { // no set-user-ID program gives back what is given up here
        return errno;
    }
    return narrow(kept);
}

} // namespace DHCPCore::Privileges
