#pragma once

#include "DHCPCore/Config.hpp"
#include "DHCPCore/LeaseStore.hpp"
#include "DHCPCore/Packet.hpp"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

/// What every benchmark serves: one /8 with a pool of 65,000 addresses, filled from its lower end.
namespace DHCPCore::Workload {

inline constexpr Date now{std::chrono::seconds{1'700'000'000}};

inline ServerConfig config() {
    return {.serverIP = IPv4Address{10, 0, 0, 1},
            .prefixLength = 8,
            .rangeStart = IPv4Address{10, 1, 0, 0},
            .rangeEnd = IPv4Address{IPv4Address{10, 1, 0, 0}.value + 64'999},
            .leaseSeconds = 86400,
            .router = IPv4Address{10, 0, 0, 1},
            .dns = {IPv4Address{10, 0, 0, 1}}};
}

/// The hardware address of client `number`.
inline MACAddress mac(std::uint32_t number) {
    const auto bytes = bigEndianBytes(number);
    return {{0x02, 0x00, bytes[0], bytes[1], bytes[2], bytes[3]}};
}

/// The address of client `number` in a table of `table`.
inline IPv4Address address(std::uint32_t number) { return IPv4Address{config().rangeStart.value + number}; }

/// Bound leases of the clients 0 to `count` - 1.
inline LeaseTable table(std::uint32_t count) {
    std::vector<Lease> leases;
    leases.reserve(count);
    for (std::uint32_t number = 0; number < count; ++number) {
        leases.push_back({.mac = mac(number),
                          .ip = address(number),
                          .state = Lease::State::bound,
                          .expiresAt = now + std::chrono::hours{24},
                          .hostname = "device-under-test",
                          .vendorClass = "example 1.0",
                          .clientID = "01:02:00:00:00:00:01",
                          .firstSeen = now,
                          .lastSeen = now});
    }
    return {std::move(leases), {}};
}

/// A message as a usual client sends it.
inline DHCPPacket message(DHCPMessageType type, std::uint32_t client) {
    DHCPPacket packet;
    packet.xid = client;
    const MACAddress address = mac(client);
    std::copy(address.bytes.begin(), address.bytes.end(), packet.chaddr.begin());
    const auto text = [](std::string_view value) { return Bytes(value.begin(), value.end()); };
    packet.setOption(OptionCode::messageType, Bytes{static_cast<std::uint8_t>(type)});
    packet.setOption(OptionCode::clientID, Bytes{1, 2, 0, 0, 0, 0, 1});
    packet.setOption(OptionCode::hostname, text("device-under-test"));
    packet.setOption(OptionCode::vendorClass, text("example 1.0"));
    packet.setOption(OptionCode::parameterList, Bytes{1, 3, 6, 15, 26, 28, 42, 51, 54, 58, 59});
    return packet;
}

} // namespace DHCPCore::Workload
