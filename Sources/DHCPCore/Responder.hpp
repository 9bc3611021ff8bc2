#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/Config.hpp"
#include "DHCPCore/Date.hpp"
#include "DHCPCore/Events.hpp"
#include "DHCPCore/LeaseStore.hpp"
#include "DHCPCore/Packet.hpp"
#include "DHCPCore/PresenceState.hpp"
#include "DHCPCore/Reply.hpp"

#include <unordered_map>
#include <variant>
#include <vector>

namespace DHCPCore {

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
    static constexpr auto apcCookie = ReplyBuilder::apcCookie;

    ServerConfig config;

    [[nodiscard]] Decision decide(const DHCPPacket& packet, DecisionContext context) const;
};

} // namespace DHCPCore
