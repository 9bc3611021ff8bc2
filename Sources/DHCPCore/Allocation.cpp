#include "DHCPCore/Allocation.hpp"

#include <algorithm>
#include <tuple>
#include <unordered_map>

namespace DHCPCore {

namespace {

/// Whether the first lease that holds the address is another client's.
bool isHeldByAnother(IPv4Address address, const MACAddress& mac, std::span<const Lease> leases, Date now) {
    const auto holds = [&](const Lease& lease) { return lease.ip == address && lease.holdsAddress(now); };
    const auto holder = std::ranges::find_if(leases, holds);
    return holder != leases.end() && holder->mac != mac;
}

/// The first lease that holds each address.
std::unordered_map<IPv4Address, const Lease*> holders(std::span<const Lease> leases, Date now) {
    std::unordered_map<IPv4Address, const Lease*> found;
    found.reserve(leases.size());
    for (const Lease& lease : leases) {
        if (lease.holdsAddress(now)) {
            found.try_emplace(lease.ip, &lease);
        }
    }
    return found;
}

std::optional<IPv4Address> lowestFreeAddress(const MACAddress& mac, std::span<const Lease> leases, AddressRange range,
                                             const AddressPredicate& isUsable, Date now) {
    if (range.upper < range.lower) {
        return std::nullopt;
    }
    const auto held = holders(leases, now);
    const auto isFree = [&](IPv4Address address) {
        const auto holder = held.find(address);
        return holder == held.end() || holder->second->mac == mac;
    };
    for (IPv4Address address = range.lower;; ++address.value) {
        if (isUsable(address) && isFree(address)) {
            return address;
        }
        if (address == range.upper) { // here and not in the loop's head: the number after 255.255.255.255 is 0
            return std::nullopt;
        }
    }
}

/// The address of the offline device that was seen longest ago.
std::optional<IPv4Address> reclaimableAddress(const MACAddress& mac, std::span<const Lease> leases,
                                              const AddressPredicate& isUsable, const AddressPredicate& holderIsOffline,
                                              Date now) {
    const Lease* oldest = nullptr;
    for (const Lease& lease : leases) {
        if (lease.mac == mac || !lease.holdsAddress(now) || !isUsable(lease.ip) || !holderIsOffline(lease.ip)) {
            continue;
        }
        if (oldest == nullptr || std::tie(lease.lastSeen, lease.ip) < std::tie(oldest->lastSeen, oldest->ip)) {
            oldest = &lease;
        }
    }
    return oldest == nullptr ? std::nullopt : std::optional(oldest->ip);
}

} // namespace

bool isAvailable(IPv4Address address, const MACAddress& mac, std::span<const Lease> leases,
                 const AddressPredicate& isUsable, Date now) {
    return isUsable(address) && !isHeldByAnother(address, mac, leases, now);
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
