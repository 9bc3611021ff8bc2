#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/PresenceState.hpp"

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace DHCPCore {

struct ProbeResult {
    bool answered = false; ///< Something at the address replied.
    std::string detail;    ///< What replied, as "icmp 0.4 ms" or "tcp 80 refused"; "no answer".

    bool operator==(const ProbeResult&) const = default;
};

/// Asks whether anything is at an address: an ICMP echo raced against TCP connects. Blocking; no shared state.
struct Prober {
    std::string interfaceName; ///< The card to probe through; an unknown one is not tied to.
    std::vector<std::uint16_t> tcpPorts;

    /// Waits for the first answer, at most about the timeout.
    [[nodiscard]] ProbeResult probe(IPv4Address ip, std::chrono::duration<double> timeout) const;

    /// An ICMP echo request with its checksum (RFC 792; RFC 1071).
    [[nodiscard]] static Bytes echoRequest(std::uint16_t identifier, std::uint16_t sequence);

    /// Whether a datagram, with or without its IPv4 header, is an echo reply. Where the request is given, the reply
    /// must carry its identifier and sequence.
    [[nodiscard]] static bool isEchoReply(std::span<const std::uint8_t> datagram,
                                          std::span<const std::uint8_t> request = {});

    bool operator==(const Prober&) const = default;
};

/// The host's record of which MAC it sees at which address.
namespace ARPTable {

using Map = std::unordered_map<IPv4Address, MACAddress>;

/// The table now; empty on any failure. (Linux/, Darwin/)
[[nodiscard]] Map read();

/// The table from a dump of BSD's routing table; of two entries for one address the later one counts. Any bytes are
/// welcome. Pure.
[[nodiscard]] Map parse(std::span<const std::uint8_t> dump);

} // namespace ARPTable

namespace PresenceClassifier {

/// What a probe and the ARP table say about a leased device. Pure.
[[nodiscard]] PresenceState classify(const std::optional<ProbeResult>& probe, const std::optional<MACAddress>& arpMAC,
                                     const MACAddress& leaseMAC, bool linkUp);

} // namespace PresenceClassifier
} // namespace DHCPCore
