#include "DHCPCore/HoldersByAge.hpp"

#include "DHCPCore/LeaseStore.hpp"

#include <limits>

namespace DHCPCore {

void HoldersByAge::add(const Lease& lease, std::size_t position) {
    ends_.emplace(lease.expiresAt, position);
    if (lease.expiresAt > reached_) {
        ages_.insert(ageOf(lease, position));
    }
}

void HoldersByAge::remove(const Lease& lease, std::size_t position) {
    ends_.erase({lease.expiresAt, position});
    ages_.erase(ageOf(lease, position));
}

const Lease* HoldersByAge::oldest(std::span<const Lease> leases, Date now, const Predicate& predicate) {
    moveTo(leases, now);
    for (const Age& age : ages_) {
        const Lease& lease = leases[std::get<std::size_t>(age)];
        if (predicate(lease)) {
            return &lease;
        }
    }
    return nullptr;
}

HoldersByAge::Age HoldersByAge::ageOf(const Lease& lease, std::size_t position) {
    return {lease.lastSeen, lease.ip, position};
}

/// Leaves out what has ended by then; takes in again what has not, where time went back.
void HoldersByAge::moveTo(std::span<const Lease> leases, Date now) {
    const auto firstAfter = [this](Date instant) {
        return ends_.upper_bound({instant, std::numeric_limits<std::size_t>::max()});
    };
    for (auto end = firstAfter(reached_); end != ends_.end() && end->first <= now; ++end) {
        ages_.erase(ageOf(leases[end->second], end->second));
    }
    for (auto end = firstAfter(now); end != ends_.end() && end->first <= reached_; ++end) {
        ages_.insert(ageOf(leases[end->second], end->second));
    }
    reached_ = now;
}

} // namespace DHCPCore
