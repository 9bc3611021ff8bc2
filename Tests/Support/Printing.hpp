#pragma once

#include "DHCPCore/Date.hpp"
#include "DHCPCore/EnumText.hpp"
#include "DHCPCore/EventLog.hpp"
#include "DHCPCore/Events.hpp"
#include "DHCPCore/LeaseStore.hpp"
#include "DHCPCore/Overloaded.hpp"
#include "DHCPCore/Packet.hpp"
#include "DHCPCore/Reply.hpp"
#include "DHCPCore/Responder.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <chrono>
#include <ostream>
#include <string>
#include <variant>

/// How values appear in a failed test: GoogleTest finds these by the namespace of what it prints.
namespace DHCPCore {

/// Lets GoogleTest show every value that has a printed form by it, so that a failure reads as a sentence.
template <class T>
requires requires(const T& value, std::ostream& out) { out << value.description(); }
void PrintTo(const T& value, std::ostream* out) { *out << value.description(); }

inline void PrintTo(DHCPMessageType type, std::ostream* out) { *out << description(type); }

template <NamedEnum E>
void PrintTo(const E& value, std::ostream* out) {
    *out << rawValue(value);
}

/// To the microsecond, which `iso8601` cuts off.
inline std::string instantText(Date date) {
    return fmt::format("{} +{}us", iso8601(date), (date - std::chrono::floor<std::chrono::seconds>(date)).count());
}

inline void PrintTo(const DHCPOptionField& option, std::ostream* out) {
    *out << fmt::format("{}={:02x}", option.code, fmt::join(option.data, ""));
}

inline void PrintTo(const DHCPPacket& packet, std::ostream* out) {
    *out << fmt::format("op {} htype {} hlen {} hops {} xid {:08x} secs {} flags {:04x} ciaddr {} yiaddr {} siaddr {} "
                        "giaddr {} chaddr {:02x} options",
                        packet.op, packet.htype, packet.hlen, packet.hops, packet.xid, packet.secs, packet.flags,
                        packet.ciaddr.description(), packet.yiaddr.description(), packet.siaddr.description(),
                        packet.giaddr.description(), fmt::join(packet.chaddr, ""));
    for (const DHCPOptionField& option : packet.options) {
        *out << ' ';
        PrintTo(option, out);
    }
}

inline void PrintTo(const PacketSummary& summary, std::ostream* out) {
    *out << (summary.type ? description(*summary.type) : "?") << ' ' << EventLog::describe(summary);
}

inline void PrintTo(const Lease& lease, std::ostream* out) {
    *out << fmt::format("{} {} {} until {} host {} vendor {} cid {} first {} last {}", rawValue(lease.state),
                        lease.ip.description(), lease.mac.description(), instantText(lease.expiresAt),
                        lease.hostname.value_or("-"), lease.vendorClass.value_or("-"), lease.clientID.value_or("-"),
                        instantText(lease.firstSeen), instantText(lease.lastSeen));
}

inline void PrintTo(const Quarantine& quarantine, std::ostream* out) {
    *out << fmt::format("{} declined by {} until {}", quarantine.ip.description(), quarantine.reportedBy.description(),
                        instantText(quarantine.until));
}

inline void PrintTo(const LeaseTable& table, std::ostream* out) {
    *out << "[";
    for (const Lease& lease : table.leases()) {
        *out << "\n    ";
        PrintTo(lease, out);
    }
    for (const Quarantine& quarantine : table.quarantine()) {
        *out << "\n    ";
        PrintTo(quarantine, out);
    }
    *out << "]";
}

inline void PrintTo(const Notice& notice, std::ostream* out) {
    *out << rawValue(notice.kind) << ": " << notice.message;
}

inline void PrintTo(const ServerEvent& event, std::ostream* out) {
    *out << EventLog::kind(event);
    if (const auto* changed = std::get_if<ServerEvent::LeaseChanged>(&event.value)) {
        *out << ": ";
        PrintTo(changed->lease, out);
    } else if (const auto* raised = std::get_if<ServerEvent::NoticeRaised>(&event.value)) {
        *out << ' ';
        PrintTo(raised->notice, out);
    } else if (const auto* cleared = std::get_if<ServerEvent::NoticeCleared>(&event.value)) {
        *out << ": " << rawValue(cleared->kind);
    } else if (const auto parts = EventLog::parts(event)) {
        *out << ": " << parts->label << ' ' << parts->text;
    }
}

namespace EventLog {
inline void PrintTo(const Parts& parts, std::ostream* out) { *out << parts.label << " | " << parts.text; }
} // namespace EventLog

inline void PrintTo(const Reply& reply, std::ostream* out) {
    *out << fmt::format("{} about {} for {} to {} note {}: ", description(reply.type), reply.ip.description(),
                        reply.mac.description(), reply.destination.description(), reply.note.value_or("-"));
    PrintTo(reply.packet, out);
}

inline void PrintTo(const DecisionAction& action, std::ostream* out) {
    std::visit(Overloaded{[out](const DecisionAction::Reply& reply) {
                              *out << "reply ";
                              PrintTo(reply.reply, out);
                          },
                          [out](const DecisionAction::Probe& probe) { *out << "probe " << probe.ip.description(); },
                          [out](const DecisionAction::None&) { *out << "nothing"; }},
               action.value);
}

inline void PrintTo(const Decision& decision, std::ostream* out) {
    *out << "\n  action: ";
    PrintTo(decision.action, out);
    *out << "\n  table" << (decision.tableChanged ? " to be saved: " : ": ");
    PrintTo(decision.table, out);
    *out << "\n  notes:";
    for (const ServerEvent& note : decision.notes) {
        *out << "\n    ";
        PrintTo(note, out);
    }
}

} // namespace DHCPCore
