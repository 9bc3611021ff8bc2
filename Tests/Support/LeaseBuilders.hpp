#pragma once

#include "DHCPCore/LeaseStore.hpp"

#include <chrono>
#include <cstdint>

/// Short ways to the values of lease tests.
namespace DHCPCore::TestSupport {

/// 2025-03-14T09:30:05Z, the present of the tests.
inline constexpr Date now = std::chrono::sys_days{std::chrono::year{2025} / 3 / 14} + std::chrono::hours{9} +
                            std::chrono::minutes{30} + std::chrono::seconds{5};

[[nodiscard]] constexpr IPv4Address ip(std::uint8_t last) { return {10, 0, 0, last}; }
[[nodiscard]] constexpr MACAddress mac(std::uint8_t last) { return {.bytes = {0x02, 0, 0, 0, 0, last}}; }

/// Bound for another hour, first seen an hour ago and last seen a minute ago.
[[nodiscard]] inline Lease boundLease(MACAddress client, IPv4Address address) {
    return {.mac = client,
            .ip = address,
            .state = Lease::State::bound,
            .expiresAt = now + std::chrono::hours{1},
            .hostname = std::nullopt,
            .vendorClass = std::nullopt,
            .clientID = std::nullopt,
            .firstSeen = now - std::chrono::hours{1},
            .lastSeen = now - std::chrono::minutes{1}};
}

[[nodiscard]] inline Lease leaseIn(Lease::State state, MACAddress client, IPv4Address address) {
    Lease lease = boundLease(client, address);
    lease.state = state;
    return lease;
}

[[nodiscard]] inline Lease leaseUntil(Date expiresAt, MACAddress client, IPv4Address address) {
    Lease lease = boundLease(client, address);
    lease.expiresAt = expiresAt;
    return lease;
}

[[nodiscard]] inline Lease leaseSeen(Date lastSeen, MACAddress client, IPv4Address address) {
    Lease lease = boundLease(client, address);
    lease.lastSeen = lastSeen;
    return lease;
}

} // namespace DHCPCore::TestSupport
