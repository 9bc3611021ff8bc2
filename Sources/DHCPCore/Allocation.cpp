#include "DHCPCore/Allocation.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <tuple>
#include <vector>

namespace DHCPCore {

namespace {

/// Whether the first lease that holds the address is another client's.
bool isHeldByAnother(IPv4Address address, const MACAddress& mac, std::span<const Lease> leases, Date now) {
    const auto holds = [&](const Lease& lease) { return lease.ip == address && lease.holdsAddress(now); };
    const auto holder = std::ranges::find_if(leases, holds);
    return holder != leases.end() && holder->mac != mac;
}

/// How an address stands to the client that asks, by the first lease that holds it.
enum class Held : std::uint8_t { byNobody, byClient, byAnother };

/// The addresses of a stretch, in order.
std::vector<Held> holdersIn(AddressRange stretch, const MACAddress& mac, std::span<const Lease> leases, Date now) {
    std::vector<Held> held(std::size_t{stretch.upper.value - stretch.lower.value} + 1, Held::byNobody);
    for (const Lease& lease : leases) {
        if (!stretch.contains(lease.ip) || !lease.holdsAddress(now)) {
            continue;
        }
        Held& place = held[lease.ip.value - stretch.lower.value];
        if (place == Held::byNobody) {
            place = lease.mac == mac ? Held::byClient : Held::byAnother;
        }
    }
    return held;
}

/// Looks at the range in stretches that are longer than the table: each has an address that nobody holds, so that the
/// first one usually has the answer, after one pass over the leases.
std::optional<IPv4Address> lowestFreeAddress(const MACAddress& mac, std::span<const Lease> leases, AddressRange range,
                                             const AddressPredicate& isUsable, Date now) {
    constexpr std::size_t spare = 64;
    for (AddressRange stretch = range; stretch.lower <= range.upper;) {
        const std::size_t rest = range.upper.value - stretch.lower.value;
        const auto length = static_cast<std::uint32_t>(std::min(rest, leases.size() + spare));
        stretch.upper = IPv4Address{stretch.lower.value + length};
        const std::vector<Held> held = holdersIn(stretch, mac, leases, now);
        for (std::uint32_t offset = 0; offset < held.size(); ++offset) {
            const IPv4Address address{stretch.lower.value + offset};
            if (isUsable(address) && held[offset] != Held::byAnother) {
                return address;
            }
        }
        if (stretch.upper == range.upper) { // here, since the number after 255.255.255.255 is 0
            return std::nullopt;
        }
        stretch.lower = IPv4Address{stretch.upper.value + 1};
    }
    return std::nullopt;
}

/// At this point the client's own address is known to be unusable or another's, so that free means held by nobody. What
/// is not usable is little: the table steps over its quarantine by itself.
std::optional<IPv4Address> lowestFreeAddress(const LeaseTable& table, AddressRange range,
                                             const AddressPredicate& isUsable, Date now) {
    auto free = table.lowestFree(range, now);
    while (free && !isUsable(*free)) {
        if (*free == range.upper) { // here, since the number after 255.255.255.255 is 0
            return std::nullopt;
        }
        free = table.lowestFree({.lower = IPv4Address{free->value + 1}, .upper = range.upper}, now);
    }
    return free;
}

/// Whether a lease stands in the client's way, and its address may be taken from its holder, who is gone.
bool isReclaimable(const Lease& lease, const MACAddress& mac, const AddressPredicate& isUsable,
                   const AddressPredicate& holderIsOffline) {
    return lease.mac != mac && isUsable(lease.ip) && holderIsOffline(lease.ip);
}

/// The address of the offline device that was seen longest ago.
std::optional<IPv4Address> reclaimableAddress(const MACAddress& mac, std::span<const Lease> leases,
                                              const AddressPredicate& isUsable, const AddressPredicate& holderIsOffline,
                                              Date now) {
    const Lease* oldest = nullptr;
    for (const Lease& lease : leases) {
        if (!lease.holdsAddress(now) || !isReclaimable(lease, mac, isUsable, holderIsOffline)) {
            continue;
        }
        if (oldest == nullptr || std::tie(lease.lastSeen, lease.ip) < std::tie(oldest->lastSeen, oldest->ip)) {
            oldest = &lease;
        }
    }
    return oldest == nullptr ? std::nullopt : std::optional(oldest->ip);
}

std::optional<IPv4Address> reclaimableAddress(const MACAddress& mac, const LeaseTable& table,
                                              const AddressPredicate& isUsable, const AddressPredicate& holderIsOffline,
                                              Date now) {
    const Lease* const oldest = table.findOldestHolder(
        now, [&](const Lease& lease) { return isReclaimable(lease, mac, isUsable, holderIsOffline); });
    return oldest == nullptr ? std::nullopt : std::optional(oldest->ip);
}

} // namespace

bool isAvailable(IPv4Address address, const MACAddress& mac, const LeaseTable& table, const AddressPredicate& isUsable,
                 Date now) {
    if (!isUsable(address)) {
        return false;
    }
    const Lease* const holder = table.findHolder(address, now);
    return holder == nullptr || holder->mac == mac;
}

bool isAvailable(IPv4Address address, const MACAddress& mac, std::span<const Lease> leases,
                 const AddressPredicate& isUsable, Date now) {
    return isUsable(address) && !isHeldByAnother(address, mac, leases, now);
}

std::optional<IPv4Address> chooseAddress(const MACAddress& mac, std::optional<IPv4Address> requested,
                                         const LeaseTable& table, AddressRange range, const AddressPredicate& isUsable,
                                         const AddressPredicate& holderIsOffline, Date now) {
    const Lease* const previous = table.find(mac);
    if (previous != nullptr && isAvailable(previous->ip, mac, table, isUsable, now)) {
        return previous->ip;
    }
    if (requested && isAvailable(*requested, mac, table, isUsable, now)) {
        return requested;
    }
    if (const auto free = lowestFreeAddress(table, range, isUsable, now)) {
        return free;
    }
    return reclaimableAddress(mac, table, isUsable, holderIsOffline, now);
}

std::optional<IPv4Address> chooseAddress(const MACAddress& mac, std::optional<IPv4Address> requested,
                                         std::span<const Lease> leases, AddressRange range,
                                         const AddressPredicate& isUsable, const AddressPredicate& holderIsOffline,
                                         Date now) {
    const auto previous = std::ranges::find(leases, mac, &Lease::mac);
    if (previous != leases.end() && isAvailable(previous->ip, mac, leases, isUsable, now)) {
        return previous->ip;
    }
    if (requested && isAvailable(*requested, mac, leases, isUsable, now)) {
        return requested;
    }
    if (const auto free = lowestFreeAddress(mac, leases, range, isUsable, now)) {
        return free;
    }
    return reclaimableAddress(mac, leases, isUsable, holderIsOffline, now);
}

} // namespace DHCPCore
