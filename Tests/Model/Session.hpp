#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/Config.hpp"
#include "DHCPCore/Date.hpp"
#include "DHCPCore/Packet.hpp"
#include "DHCPCore/PresenceState.hpp"
#include "DHCPCore/Responder.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace DHCPCore::Model {

/// One thing that happens to a server.
struct Step {
    struct Message {
        DHCPPacket packet;
        unsigned answers; ///< Bit n: whether the address of the n-th probe for this message answers.
    };
    struct Wait {
        std::chrono::microseconds time; ///< Negative when somebody sets the clock back.
    };
    struct Sight {
        IPv4Address ip;
        std::optional<PresenceState> presence; ///< Nothing: no longer known.
    };
    struct Forget {
        MACAddress mac;
    };
    struct ClearInactive {};
    /// The table is made anew from its records, with what lies outside the pool dropped.
    struct Restart {};

    std::variant<Message, Wait, Sight, Forget, ClearInactive, Restart> value;
};

struct Session {
    ServerConfig config;
    Date start;
    std::vector<Step> steps;
};

/// The real rules, or a broken form of them.
using Decider = std::function<Decision(const ServerConfig&, const DHCPPacket&, DecisionContext)>;

/// A session in which clients mostly behave, and everything that a packet can say happens now and then. What comes next
/// is chosen by the state of the model, so that addresses are in use and times hit their borders.
[[nodiscard]] Session randomSession(std::uint64_t seed, std::size_t length);

struct Difference {
    std::size_t step; ///< The index of the step that shows it.
    std::string text;
};

/// Plays a session to the model and to the real thing. @return the first difference.
[[nodiscard]] std::optional<Difference> firstDifference(const Session& session, const Decider& decider);

/// Leaves out of a session that shows a difference whatever is not needed for one.
[[nodiscard]] Session shrink(Session session, const Decider& decider);

[[nodiscard]] std::string describe(const Session& session);

} // namespace DHCPCore::Model
