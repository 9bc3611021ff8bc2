#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/Config.hpp"
#include "DHCPCore/Date.hpp"
#include "DHCPCore/LeaseStore.hpp"
#include "DHCPCore/Packet.hpp"
#include "Support/LeaseBuilders.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

/// Short ways to messages, leases and a configuration.
namespace DHCPCore::TestSupport {

inline namespace Literals {
inline IPv4Address operator""_ip(const char* text, std::size_t length) {
    return IPv4Address::parse({text, length}).value();
}
} // namespace Literals

/// A message of a client, completed step by step: `discover(mac(1)).requesting("10.0.0.10"_ip)`.
struct ClientMessage : DHCPPacket {
    ClientMessage(const MACAddress& mac, DHCPMessageType type) {
        xid = 0x1234ABCD;
        flags = 0x8000;
        std::ranges::copy(mac.bytes, chaddr.begin());
        setOption(OptionCode::messageType, std::array{static_cast<std::uint8_t>(type)});
    }

    [[nodiscard]] ClientMessage with(std::uint8_t code, std::span<const std::uint8_t> data) const {
        ClientMessage message = *this;
        message.setOption(code, data);
        return message;
    }
    [[nodiscard]] ClientMessage with(std::uint8_t code, std::string_view text) const {
        return with(code, Bytes{text.begin(), text.end()});
    }
    [[nodiscard]] ClientMessage without(std::uint8_t code) const {
        ClientMessage message = *this;
        std::erase_if(message.options, [code](const DHCPOptionField& option) { return option.code == code; });
        return message;
    }

    /// Option 50.
    [[nodiscard]] ClientMessage requesting(IPv4Address ip) const { return with(OptionCode::requestedIP, ip.bytes()); }
    /// Option 54: the server whose offer the client takes, or whom it addresses.
    [[nodiscard]] ClientMessage selecting(IPv4Address server) const {
        return with(OptionCode::serverID, server.bytes());
    }
    /// Option 12.
    [[nodiscard]] ClientMessage named(std::string_view hostname) const { return with(OptionCode::hostname, hostname); }
    /// Option 60.
    [[nodiscard]] ClientMessage ofVendor(std::string_view vendor) const {
        return with(OptionCode::vendorClass, vendor);
    }
    /// `ciaddr`: the client has this address already.
    [[nodiscard]] ClientMessage from(IPv4Address ip) const {
        ClientMessage message = *this;
        message.ciaddr = ip;
        return message;
    }
    /// `giaddr`.
    [[nodiscard]] ClientMessage relayedBy(IPv4Address relay) const {
        ClientMessage message = *this;
        message.giaddr = relay;
        return message;
    }
};

inline ClientMessage discover(const MACAddress& mac) { return {mac, DHCPMessageType::discover}; }
inline ClientMessage request(const MACAddress& mac) { return {mac, DHCPMessageType::request}; }
inline ClientMessage decline(const MACAddress& mac) { return {mac, DHCPMessageType::decline}; }
inline ClientMessage release(const MACAddress& mac) { return {mac, DHCPMessageType::release}; }
inline ClientMessage inform(const MACAddress& mac) { return {mac, DHCPMessageType::inform}; }

/// A record without texts, first and last seen at the same instant.
inline Lease newLease(Lease::State state, const MACAddress& mac, IPv4Address ip, Date expiresAt, Date seen = now) {
    Lease lease = leaseIn(state, mac, ip);
    lease.expiresAt = expiresAt;
    lease.firstSeen = seen;
    lease.lastSeen = seen;
    return lease;
}
inline Lease newlyBound(const MACAddress& mac, IPv4Address ip, Date expiresAt, Date seen = now) {
    return newLease(Lease::State::bound, mac, ip, expiresAt, seen);
}
inline Lease newlyOffered(const MACAddress& mac, IPv4Address ip, Date expiresAt, Date seen = now) {
    return newLease(Lease::State::offered, mac, ip, expiresAt, seen);
}

inline LeaseTable tableOf(std::vector<Lease> leases) { return {std::move(leases), {}}; }

/// 10.0.0.1/24 with the pool 10.0.0.10 to 10.0.0.12, leased for an hour; neither router nor DNS.
inline ServerConfig smallConfig() {
    return {.serverIP = "10.0.0.1"_ip,
            .prefixLength = 24,
            .rangeStart = "10.0.0.10"_ip,
            .rangeEnd = "10.0.0.12"_ip,
            .leaseSeconds = 3600,
            .router = {},
            .dns = {}};
}

} // namespace DHCPCore::TestSupport
