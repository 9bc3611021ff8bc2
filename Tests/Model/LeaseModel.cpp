#include "Model/LeaseModel.hpp"

#include <cstdint>
#include <string>

namespace DHCPCore::Model {

namespace {

int displayRank(std::optional<PresenceState> presence) {
    if (presence == PresenceState::online) {
        return 0;
    }
    if (presence == PresenceState::conflict) {
        return 1;
    }
    if (presence == PresenceState::unknown) {
        return 2;
    }
    if (presence == PresenceState::offline) {
        return 3;
    }
    return 4;
}

bool comesBefore(const Lease& one, const Lease& other) {
    if (one.ip.value != other.ip.value) {
        return one.ip.value < other.ip.value;
    }
    return one.mac.description() < other.mac.description();
}

/// Sorts by insertion: each lease goes behind the last one that it does not have to precede.
std::vector<Lease> sorted(const std::vector<Lease>& leases,
                          const std::function<bool(const Lease&, const Lease&)>& precedes) {
    std::vector<Lease> result;
    for (const Lease& lease : leases) {
        auto place = result.end();
        while (place != result.begin() && precedes(lease, *(place - 1))) {
            --place;
        }
        result.insert(place, lease);
    }
    return result;
}

bool heldByAnother(const std::vector<Lease>& leases, IPv4Address ip, const MACAddress& mac, Date now) {
    const std::optional<Lease> found = holder(leases, ip, now);
    return found && found->mac != mac;
}

/// Whether another client's lease may be taken over, the predicates aside.
bool isInTheWay(const Lease& lease, const MACAddress& mac, Date now) {
    return lease.mac != mac && (lease.state == Lease::State::offered || lease.state == Lease::State::bound) &&
           now < lease.expiresAt;
}

std::optional<IPv4Address> toReclaim(const MACAddress& mac, const std::vector<Lease>& leases,
                                     const AddressPredicate& isUsable, const AddressPredicate& holderIsOffline,
                                     Date now) {
    std::optional<Lease> best;
    for (const Lease& lease : leases) {
        if (!isInTheWay(lease, mac, now) || !isUsable(lease.ip) || !holderIsOffline(lease.ip)) {
            continue;
        }
        const bool older = best && lease.lastSeen < best->lastSeen;
        const bool sameAgeAndLower = best && lease.lastSeen == best->lastSeen && lease.ip.value < best->ip.value;
        if (!best || older || sameAgeAndLower) {
            best = lease;
        }
    }
    return best ? std::optional{best->ip} : std::nullopt;
}

} // namespace

bool holdsAddress(const Lease& lease, Date now) {
    return (lease.state == Lease::State::offered || lease.state == Lease::State::bound) && now < lease.expiresAt;
}

std::optional<Lease> holder(const std::vector<Lease>& leases, IPv4Address ip, Date now) {
    for (const Lease& lease : leases) {
        if (lease.ip == ip && holdsAddress(lease, now)) {
            return lease;
        }
    }
    return std::nullopt;
}

std::optional<Lease> Table::lease(const MACAddress& mac) const {
    for (const Lease& lease : leases) {
        if (lease.mac == mac) {
            return lease;
        }
    }
    return std::nullopt;
}

bool Table::isQuarantined(IPv4Address ip, Date now) const {
    for (const Quarantine& record : quarantine) {
        if (record.ip == ip && now < record.until) {
            return true;
        }
    }
    return false;
}

void Table::upsert(const Lease& lease) {
    for (Lease& record : leases) {
        if (record.mac == lease.mac) {
            record = lease;
            return;
        }
    }
    leases.push_back(lease);
}

std::optional<Lease> Table::remove(const MACAddress& mac) {
    for (auto record = leases.begin(); record != leases.end(); ++record) {
        if (record->mac == mac) {
            const Lease removed = *record;
            leases.erase(record);
            return removed;
        }
    }
    return std::nullopt;
}

void Table::addQuarantine(IPv4Address ip, Date until, const MACAddress& reportedBy) {
    std::vector<Quarantine> kept;
    for (const Quarantine& record : quarantine) {
        if (record.ip != ip) {
            kept.push_back(record);
        }
    }
    kept.push_back({.ip = ip, .until = until, .reportedBy = reportedBy});
    quarantine = kept;
}

void Table::pruneQuarantine(Date now) {
    std::vector<Quarantine> kept;
    for (const Quarantine& record : quarantine) {
        if (now < record.until) {
            kept.push_back(record);
        }
    }
    quarantine = kept;
}

std::size_t Table::clearInactive(Date now) {
    const std::size_t before = leases.size();
    std::vector<Lease> kept;
    for (const Lease& lease : leases) {
        if (holdsAddress(lease, now)) {
            kept.push_back(lease);
        }
    }
    leases = kept;
    return before - kept.size();
}

std::vector<Lease> Table::dropOutside(AddressRange range) {
    std::vector<Lease> kept;
    std::vector<Lease> dropped;
    for (const Lease& lease : leases) {
        const bool inside = range.lower.value <= lease.ip.value && lease.ip.value <= range.upper.value;
        (inside ? kept : dropped).push_back(lease);
    }
    leases = kept;
    return dropped;
}

std::vector<Lease> Table::sortedByIP() const { return sorted(leases, comesBefore); }

std::vector<Lease>
Table::sortedForDisplay(const std::function<std::optional<PresenceState>(const Lease&)>& presence) const {
    return sorted(leases, [&presence](const Lease& one, const Lease& other) {
        const int rank = displayRank(presence(one));
        const int otherRank = displayRank(presence(other));
        return rank != otherRank ? rank < otherRank : comesBefore(one, other);
    });
}

bool agree(const Table& model, const LeaseTable& table) {
    return model.leases == table.leases() && model.quarantine == table.quarantine();
}

bool isAvailable(IPv4Address address, const MACAddress& mac, const std::vector<Lease>& leases,
                 const AddressPredicate& isUsable, Date now) {
    return isUsable(address) && !heldByAnother(leases, address, mac, now);
}

std::optional<IPv4Address> chooseAddress(const MACAddress& mac, std::optional<IPv4Address> requested,
                                         const std::vector<Lease>& leases, AddressRange range,
                                         const AddressPredicate& isUsable, const AddressPredicate& holderIsOffline,
                                         Date now) {
    const auto mayHave = [&](IPv4Address ip) { return isUsable(ip) && !heldByAnother(leases, ip, mac, now); };

    for (const Lease& lease : leases) {
        if (lease.mac == mac) {
            if (mayHave(lease.ip)) {
                return lease.ip;
            }
            break; // a second record of the same client is never looked at
        }
    }
    if (requested && mayHave(*requested)) {
        return requested;
    }
    for (std::uint64_t value = range.lower.value; value <= range.upper.value; ++value) {
        const IPv4Address ip{static_cast<std::uint32_t>(value)};
        if (mayHave(ip)) {
            return ip;
        }
    }
    return toReclaim(mac, leases, isUsable, holderIsOffline, now);
}

} // namespace DHCPCore::Model
