#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/Date.hpp"
#include "DHCPCore/LeaseStore.hpp"

#include <functional>
#include <optional>
#include <span>

namespace DHCPCore {

using AddressPredicate = std::function<bool(IPv4Address)>;

/// Whether the address may be given to that client: usable, and held by nobody else.
[[nodiscard]] bool isAvailable(IPv4Address address, const MACAddress& mac, const LeaseTable& table,
                               const AddressPredicate& isUsable, Date now);
[[nodiscard]] bool isAvailable(IPv4Address address, const MACAddress& mac, std::span<const Lease> leases,
                               const AddressPredicate& isUsable, Date now);

/// The address for a client: its previous one, else the one it requests, else the lowest free one of the range; with
/// none free, the address of the offline device that was seen longest ago (RFC 2131, section 4.3.1).
/// @param isUsable whether an address may be leased at all; no address in the table's quarantine may be.
/// @param holderIsOffline whether the device that holds an address may be considered gone; none may to which the
/// address is only offered.
/// @param table with one record per client.
/// @return nothing when the range is exhausted. An address that another client still holds must be probed or taken over
/// by the caller.
[[nodiscard]] std::optional<IPv4Address> chooseAddress(const MACAddress& mac, std::optional<IPv4Address> requested,
                                                       const LeaseTable& table, AddressRange range,
                                                       const AddressPredicate& isUsable,
                                                       const AddressPredicate& holderIsOffline, Date now);
/// The same for leases that are in no table, where a client may even have several.
[[nodiscard]] std::optional<IPv4Address> chooseAddress(const MACAddress& mac, std::optional<IPv4Address> requested,
                                                       std::span<const Lease> leases, AddressRange range,
                                                       const AddressPredicate& isUsable,
                                                       const AddressPredicate& holderIsOffline, Date now);

} // namespace DHCPCore
