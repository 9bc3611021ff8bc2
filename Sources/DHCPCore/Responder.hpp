#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/Config.hpp"
#include "DHCPCore/Date.hpp"
#include "DHCPCore/Events.hpp"
#include "DHCPCore/LeaseStore.hpp"
#include "DHCPCore/Packet.hpp"
#include "DHCPCore/PresenceState.hpp"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <variant>
#include <vector>

namespace DHCPCore {

/// A complete answer, ready to serialise and send.
struct Reply {
    DHCPPacket packet;
    ReplyDestination destination;
    DHCPMessageType type = DHCPMessageType::offer; ///< OFFER, ACK or NAK.
    IPv4Address ip;                                ///< The address that the reply is about.
    MACAddress mac;                                ///< The client.
    std::optional<std::string> note;               ///< A short explanation for the event stream.

    bool operator==(const Reply&) const = default;
};

/// The last known presence per address.
using PresenceMap = std::unordered_map<IPv4Address, PresenceState>;
/// The probes made while deciding one packet: whether the address answered.
using ProbeAnswers = std::unordered_map<IPv4Address, bool>;

/// What a decision rests on beside the packet. The table is moved in and comes back in the decision.
struct DecisionContext {
    LeaseTable table;
    const PresenceMap& presence; ///< Only read, and only during `decide`.
    ProbeAnswers probes;         ///< Empty on the first call for a packet.
    Date now;

    /// Whether as many addresses were probed for this packet as may be.
    [[nodiscard]] bool probeBudgetExhausted() const { return probes.size() >= Timing::maxProbesPerPacket; }
};

struct DecisionAction {
    /// Send this.
    struct Reply {
        DHCPCore::Reply reply;
        bool operator==(const Reply&) const = default;
    };
    /// Probe this address, then decide the same packet again with the answer among `probes`.
    struct Probe {
        IPv4Address ip;
        bool operator==(const Probe&) const = default;
    };
    /// Send nothing.
    struct None {
        bool operator==(const None&) const = default;
    };
    std::variant<Reply, Probe, None> value = None{};

    bool operator==(const DecisionAction&) const = default;
};

/// Everything that one packet leads to.
struct Decision {
    DecisionAction action;
    LeaseTable table;               ///< To be adopted in any case.
    bool tableChanged = false;      ///< To be saved.
    std::vector<ServerEvent> notes; ///< To be reported, in this order.

    bool operator==(const Decision&) const = default;
};

/// Decides what to answer to a client's message (RFC 2131, section 4.3). Pure: no clock, no file, no socket.
struct Responder {
    /// Vendor-specific sub-option 1 with the text "1APC": without it, APC devices refuse an offer.
    static constexpr std::array<std::uint8_t, 6> apcCookie{0x01, 0x04, 0x31, 0x41, 0x50, 0x43};

    ServerConfig config;

    [[nodiscard]] Decision decide(const DHCPPacket& packet, DecisionContext context) const;
};

} // namespace DHCPCore
