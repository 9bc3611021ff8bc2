#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/Date.hpp"
#include "DHCPCore/Events.hpp"
#include "DHCPCore/LeaseFile.hpp"
#include "DHCPCore/LeaseStore.hpp"
#include "DHCPCore/PresenceState.hpp"

#include <optional>
#include <set>
#include <string>
#include <unordered_map>

namespace DHCPCore {

/// What a front end shows of a server, rebuilt from the server's events. Leases outlive a run; the rest belongs to one.
struct TarnwickState {
    /// The notices that describe a running server: they go when it stops, the others stay.
    static const std::set<NoticeKind> runScoped;

    std::unordered_map<MACAddress, Lease> leases;            ///< The last known record of every client.
    std::unordered_map<IPv4Address, PresenceState> presence; ///< As last reported.
    std::unordered_map<NoticeKind, Notice> notices;          ///< Those now raised.
    std::optional<Lease> deviceFound;                        ///< Of the device that got an ACK last; follows its lease.
    std::optional<Date> lastPacketAt;                        ///< When a DHCP message was last received.
    std::optional<std::string> serverInterface;              ///< The card being served.

    /// Folds one event in, which happened at that time.
    void apply(const ServerEvent& event, Date at);

    /// Replaces the notice of the same kind.
    void raise(Notice notice);
    /// Removes the notice of that kind.
    void dismiss(NoticeKind kind);

    /// Forgets everything but the leases.
    void runStarted(std::string interface);

    /// Replaces the leases by the loaded ones; of two of one client the last seen counts, of equal ones the first. A
    /// lease file that was set aside raises its notice.
    void loadLeases(const LeaseFile::LoadResult& result);

    bool operator==(const TarnwickState&) const = default;
};

} // namespace DHCPCore
