// The server's watch over its card and its devices: link, adapter, presence.
#include "DHCPCore/Server.hpp"

#include <fmt/format.h>

#include <exception>
#include <utility>

namespace DHCPCore {

void DHCPServer::watch() {
    if (!running_) {
        return;
    }
    tellOfUnreported();
    if (!isOpen_) {
        waitForAdapter();
        return;
    }
    const std::uint32_t index = host_.indexOfInterface(interfaceName_);
    if (index != 0 && index == transport_->interfaceIndex()) {
        watchOpenCard();
        return;
    }
    closeTransport();
    linkUp_ = false;
    markAllOffline("adapter unplugged");
    raise(NoticeKind::adapterUnplugged, "The adapter was unplugged. Waiting for it to come back…");
}

void DHCPServer::watchOpenCard() {
    const Interfaces::MediaStatus status = host_.mediaStatus(interfaceName_);
    if (status.linkUp == linkUp_) {
        return;
    }
    linkUp_ = status.linkUp;
    emit({ServerEvent::Link{.up = status.linkUp, .media = status.description}});
    if (linkUp_) {
        clear(NoticeKind::linkDown);
        runPresenceCycle();
    } else {
        raiseLinkDown();
        markAllOffline("link down");
    }
}

void DHCPServer::waitForAdapter() {
    std::optional<std::string> name;
    if (options_.cardMAC) {
        name = host_.bsdNameForMAC(*options_.cardMAC);
    }
    if (!name) {
        if (host_.indexOfInterface(interfaceName_) == 0) {
            return;
        }
        name = interfaceName_;
    }
    interfaceName_ = *name;
    try {
        openTransport();
    } catch (const std::exception& error) {
        inform(fmt::format("could not reopen {}: {}", interfaceName_, error.what()));
        return;
    }
    clear(NoticeKind::adapterUnplugged);
    inform(interfaceName_ + " is back");
    const Interfaces::MediaStatus status = host_.mediaStatus(interfaceName_);
    linkUp_ = status.linkUp;
    emit({ServerEvent::Link{.up = status.linkUp, .media = status.description}});
    if (linkUp_) {
        clear(NoticeKind::linkDown);
    } else {
        raiseLinkDown();
    }
}

void DHCPServer::raiseLinkDown() {
    raise(NoticeKind::linkDown,
          fmt::format("Link down. No device is connected to {}. Serving resumes on its own when the link returns.",
                      interfaceName_));
}

void DHCPServer::markAllOffline(const std::string& reason) {
    devicesDue_.clear();
    for (const Lease& lease : table_.leases()) {
        if (lease.state != Lease::State::bound) {
            continue;
        }
        const auto [entry, isNew] = presence_.try_emplace(lease.ip, PresenceState::offline);
        if (!isNew && entry->second == PresenceState::offline) {
            continue;
        }
        entry->second = PresenceState::offline;
        emit({ServerEvent::Presence{
            .ip = lease.ip, .mac = lease.mac, .state = PresenceState::offline, .detail = reason}});
    }
}

void DHCPServer::runPresenceCycle() {
    if (!running_ || !options_.presenceEnabled || !linkUp_ || !devicesDue_.empty()) { // slow cycles do not pile up
        return;
    }
    const Date now = clock_();
    for (const Lease& lease : table_.leases()) {
        if (lease.state == Lease::State::bound && !lease.isExpired(now)) {
            devicesDue_.push_back(lease.mac);
        }
    }
    probeDevicesDue();
}

/// Has so many of the cycle's devices probed at a time that there is always a thread for a probe that a device waits
/// for.
void DHCPServer::probeDevicesDue() {
    constexpr std::size_t most = ConcurrentQueue::maximumThreads * 3 / 4;
    const Date now = clock_();
    while (deviceProbesOut_ < most && !devicesDue_.empty()) {
        const MACAddress mac = devicesDue_.front();
        devicesDue_.pop_front();
        const auto lease = table_.lease(mac); // its turn may have come long after the cycle's begin
        if (!lease || lease->state != Lease::State::bound || lease->isExpired(now) ||
            investigations_.contains(lease->ip)) {
            continue;
        }
        ++deviceProbesOut_;
        investigate(lease->ip, true, [this, ip = lease->ip, mac](const Finding& finding) {
            --deviceProbesOut_;
            classifyPresence(ip, mac, finding);
            probeDevicesDue();
        });
    }
}

/// Has the address probed once, for everybody who asks meanwhile.
void DHCPServer::investigate(IPv4Address ip, bool withARP, FindingHandler handler) {
    auto& handlers = investigations_[ip];
    handlers.push_back(std::move(handler));
    if (handlers.size() > 1) {
        return;
    }
    probeQueue_.async([ip, withARP, name = interfaceName_, probe = host_.probe, readARPTable = host_.readARPTable,
                       remote = queue_.remote(), weak = weak_from_this()] {
        Finding finding{.probe = probe(name, ip), .arpMAC = std::nullopt};
        if (withARP && finding.probe.answered) { // else nobody asks who it was
            const ARPTable::Map table = readARPTable();
            if (const auto entry = table.find(ip); entry != table.end()) {
                finding.arpMAC = entry->second;
            }
        }
        remote([weak, ip, finding = std::move(finding)] {
            if (const auto server = weak.lock()) {
                server->conclude(ip, finding);
            }
        });
    });
}

void DHCPServer::conclude(IPv4Address ip, const Finding& finding) {
    const auto done = investigations_.extract(ip);
    if (!running_) {
        return;
    }
    for (const FindingHandler& handler : done.mapped()) {
        handler(finding);
    }
}

void DHCPServer::classifyPresence(IPv4Address ip, const MACAddress& mac, const Finding& finding) {
    const PresenceState state = PresenceClassifier::classify(finding.probe, finding.arpMAC, mac, linkUp_);
    const auto known = presence_.find(ip);
    if (known != presence_.end() && known->second == state) {
        return;
    }
    presence_[ip] = state;
    emit({ServerEvent::Presence{.ip = ip, .mac = mac, .state = state, .detail = finding.probe.detail}});
}

} // namespace DHCPCore
