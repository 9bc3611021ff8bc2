#include "DHCPCore/TarnwickState.hpp"

#include "DHCPCore/Overloaded.hpp"

#include <utility>
#include <variant>

namespace DHCPCore {

namespace {

bool isAbout(const std::optional<Lease>& lease, const MACAddress& mac) { return lease && lease->mac == mac; }

void applyReply(TarnwickState& state, const SentSummary& summary) {
    if (summary.type != DHCPMessageType::ack) {
        return;
    }
    const auto lease = state.leases.find(summary.mac);
    if (lease != state.leases.end() && lease->second.ip == summary.ip) {
        state.deviceFound = lease->second;
    }
}

void applyLease(TarnwickState& state, const Lease& lease) {
    state.leases.insert_or_assign(lease.mac, lease);
    if (isAbout(state.deviceFound, lease.mac)) {
        state.deviceFound = lease;
    }
}

void applyRemoval(TarnwickState& state, const MACAddress& mac) {
    state.leases.erase(mac);
    if (isAbout(state.deviceFound, mac)) {
        state.deviceFound.reset();
    }
}

void applyStop(TarnwickState& state) {
    for (const NoticeKind kind : TarnwickState::runScoped) {
        state.dismiss(kind);
    }
    state.presence.clear();
    state.serverInterface.reset();
}

} // namespace

const std::set<NoticeKind> TarnwickState::runScoped{NoticeKind::linkDown, NoticeKind::adapterUnplugged,
                                                    NoticeKind::localNetworkDenied};

void TarnwickState::apply(const ServerEvent& event, Date at) {
    std::visit(Overloaded{
                   [this](const ServerEvent::Started& started) { serverInterface = started.interface; },
                   [this, at](const ServerEvent::Received&) { lastPacketAt = at; },
                   [this](const ServerEvent::Sent& sent) { applyReply(*this, sent.summary); },
                   [](const ServerEvent::Dropped&) {},
                   [this](const ServerEvent::LeaseChanged& changed) { applyLease(*this, changed.lease); },
                   [this](const ServerEvent::LeaseRemoved& removed) { applyRemoval(*this, removed.mac); },
                   [this](const ServerEvent::Presence& seen) { presence.insert_or_assign(seen.ip, seen.state); },
                   [](const ServerEvent::Link&) {}, // what a user should see of it comes as a notice
                   [this](const ServerEvent::NoticeRaised& raised) { raise(raised.notice); },
                   [this](const ServerEvent::NoticeCleared& cleared) { dismiss(cleared.kind); },
                   [](const ServerEvent::Info&) {},
                   [this](const ServerEvent::Stopped&) { applyStop(*this); },
               },
               event.value);
}

void TarnwickState::raise(Notice notice) {
    const NoticeKind kind = notice.kind;
    notices.insert_or_assign(kind, std::move(notice));
}

void TarnwickState::dismiss(NoticeKind kind) { notices.erase(kind); }

void TarnwickState::runStarted(std::string interface) {
    presence.clear();
    notices.clear();
    deviceFound.reset();
    lastPacketAt.reset();
    serverInterface = std::move(interface);
}

void TarnwickState::loadLeases(const LeaseFile::LoadResult& result) {
    leases.clear();
    for (const Lease& lease : LeaseFile::oneRecordPerMAC(result.table.leases().all())) {
        leases.insert_or_assign(lease.mac, lease);
    }
    if (result.setAsideURL) {
        raise(Notice::leaseFileSetAside(*result.setAsideURL));
    }
}

} // namespace DHCPCore
