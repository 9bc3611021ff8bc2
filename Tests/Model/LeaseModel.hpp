#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/Allocation.hpp"
#include "DHCPCore/Date.hpp"
#include "DHCPCore/LeaseStore.hpp"
#include "DHCPCore/PresenceState.hpp"

#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

/// The rules once more, as plainly as they can be written: two arrays and walks over them, no index, no short cut. The
/// tests hold the real thing to it, so it shares no logic with it; only the records are the same.
namespace DHCPCore::Model {

[[nodiscard]] bool holdsAddress(const Lease& lease, Date now);

/// The first of the leases that has the address and holds it at that instant.
[[nodiscard]] std::optional<Lease> holder(const std::vector<Lease>& leases, IPv4Address ip, Date now);

/// What `LeaseTable` does.
struct Table {
    std::vector<Lease> leases;
    std::vector<Quarantine> quarantine;

    [[nodiscard]] std::optional<Lease> lease(const MACAddress& mac) const;
    [[nodiscard]] bool isQuarantined(IPv4Address ip, Date now) const;

    void upsert(const Lease& lease);
    std::optional<Lease> remove(const MACAddress& mac);
    void addQuarantine(IPv4Address ip, Date until, const MACAddress& reportedBy);
    void pruneQuarantine(Date now);
    std::size_t clearInactive(Date now);
    std::vector<Lease> dropOutside(AddressRange range);

    [[nodiscard]] std::vector<Lease> sortedByIP() const;
    [[nodiscard]] std::vector<Lease>
    sortedForDisplay(const std::function<std::optional<PresenceState>(const Lease&)>& presence) const;

    bool operator==(const Table&) const = default;
};

/// The same records, in the same order.
[[nodiscard]] bool agree(const Table& model, const LeaseTable& table);

/// What the free functions of the same names do.
[[nodiscard]] bool isAvailable(IPv4Address address, const MACAddress& mac, const std::vector<Lease>& leases,
                               const AddressPredicate& isUsable, Date now);
[[nodiscard]] std::optional<IPv4Address> chooseAddress(const MACAddress& mac, std::optional<IPv4Address> requested,
                                                       const std::vector<Lease>& leases, AddressRange range,
                                                       const AddressPredicate& isUsable,
                                                       const AddressPredicate& holderIsOffline, Date now);

} // namespace DHCPCore::Model
