#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/Config.hpp"
#include "DHCPCore/Date.hpp"
#include "DHCPCore/Events.hpp"
#include "DHCPCore/LeaseStore.hpp"
#include "DHCPCore/Packet.hpp"
#include "DHCPCore/Responder.hpp"
#include "Support/Builders.hpp"

#include <optional>
#include <string>
#include <utility>

/// What the tests of decisions share.
namespace DHCPCore::TestSupport {

inline constexpr IPv4Address server = ip(1);
inline constexpr IPv4Address otherServer = ip(2);
inline constexpr IPv4Address first = ip(10);
inline constexpr IPv4Address second = ip(11);
inline constexpr IPv4Address third = ip(12);
inline constexpr MACAddress client = mac(1);

/// What a decision rests on, so that a test names only what matters to it.
struct Situation {
    LeaseTable table;
    PresenceMap presence;
    ProbeAnswers probes;
    Date now = TestSupport::now;
    ServerConfig config = smallConfig();

    [[nodiscard]] Decision decide(const DHCPPacket& packet) const {
        return Responder{config}.decide(packet, {.table = table, .presence = presence, .probes = probes, .now = now});
    }
};

inline Situation with(LeaseTable table) {
    Situation situation;
    situation.table = std::move(table);
    return situation;
}

inline DecisionAction offerOf(IPv4Address ip, const DHCPPacket& packet) {
    return {DecisionAction::Reply{ReplyBuilder{smallConfig(), packet, client}.offer(ip)}};
}
inline DecisionAction nothing() { return {DecisionAction::None{}}; }

inline ServerEvent changed(const Lease& lease) { return {ServerEvent::LeaseChanged{lease}}; }
inline ServerEvent info(std::string text) { return {ServerEvent::Info{std::move(text)}}; }
inline ServerEvent dropped(std::string reason, std::optional<MACAddress> mac = client) {
    return {ServerEvent::Dropped{.reason = std::move(reason), .mac = mac}};
}

/// Nothing is sent, nothing changes, one note says why.
inline Decision silence(LeaseTable table, ServerEvent note) {
    return {.action = nothing(), .table = std::move(table), .tableChanged = false, .notes = {std::move(note)}};
}

} // namespace DHCPCore::TestSupport
