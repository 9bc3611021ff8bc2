#include "DHCPCore/Responder.hpp"

#include "DHCPCore/Allocation.hpp"
#include "DHCPCore/Reply.hpp"

#include <fmt/format.h>

#include <chrono>
#include <string_view>
#include <utility>

namespace DHCPCore {

namespace {

constexpr std::uint8_t bootRequest = 1; // RFC 2131, section 2
constexpr std::uint8_t ethernet = 1;    // RFC 1700, hardware types
constexpr std::uint8_t ethernetAddressLength = 6;

/// One decision in the making.
class Work {
  public:
    Work(const ServerConfig& config, const DHCPPacket& packet, DecisionContext context)
        : config_(config), packet_(packet), context_(std::move(context)) {
        decision_.table = std::move(context_.table);
        decision_.table.pruneQuarantine(context_.now);
    }

    /// Screens the message and answers it. Once only.
    [[nodiscard]] Decision run() {
        screen();
        return std::move(decision_);
    }

  private:
    void screen();
    void dispatch(const MACAddress& mac);
    void discover(const MACAddress& mac);
    void request(const MACAddress& mac);
    void requestAfterReboot(const MACAddress& mac);
    void decline(const MACAddress& mac);
    void release(const MACAddress& mac);
    void inform(const MACAddress& mac);
    void choseAnotherServer(IPv4Address server, const MACAddress& mac);

    void acknowledge(IPv4Address ip, const MACAddress& mac);
    void assign(IPv4Address ip, const MACAddress& mac, Lease::State state, Date until);
    void reclaim(Lease victim);

    [[nodiscard]] Lease recordOf(const MACAddress& mac) const;
    [[nodiscard]] bool isUsable(IPv4Address ip) const;
    [[nodiscard]] bool isFree(IPv4Address ip) const;
    [[nodiscard]] bool clientHolds(IPv4Address ip, const MACAddress& mac) const;
    [[nodiscard]] const Lease* otherHolder(IPv4Address ip, const MACAddress& mac) const;
    [[nodiscard]] bool holderIsOffline(IPv4Address ip) const;

    void reply(Reply answer) { decision_.action.value = DecisionAction::Reply{.reply = std::move(answer)}; }
    void nak(std::string_view reason, const MACAddress& mac) { reply(replyTo(mac).nak(reason)); }
    [[nodiscard]] ReplyBuilder replyTo(const MACAddress& mac) const {
        return {.config = config_, .request = packet_, .mac = mac};
    }

    void note(decltype(ServerEvent::value) event) { decision_.notes.push_back({.value = std::move(event)}); }
    void drop(std::string reason, std::optional<MACAddress> mac) {
        note(ServerEvent::Dropped{.reason = std::move(reason), .mac = mac});
    }
    void info(std::string text) { note(ServerEvent::Info{.text = std::move(text)}); }
    /// Stores a record and reports it.
    void record(Lease lease) {
        table().upsert(lease);
        note(ServerEvent::LeaseChanged{.lease = std::move(lease)});
    }

    [[nodiscard]] LeaseTable& table() { return decision_.table; }
    [[nodiscard]] const LeaseTable& table() const { return decision_.table; }
    [[nodiscard]] Date now() const { return context_.now; }

    const ServerConfig& config_;
    const DHCPPacket& packet_;
    DecisionContext context_; ///< Its table has moved into the decision.
    Decision decision_;
};

void Work::screen() {
    if (packet_.op != bootRequest) {
        drop(fmt::format("not a client request (op {})", packet_.op), std::nullopt);
        return;
    }
    const auto mac = packet_.mac();
    if (packet_.htype != ethernet || packet_.hlen != ethernetAddressLength || !mac) {
        drop(fmt::format("not Ethernet (htype {}, hlen {})", packet_.htype, packet_.hlen), std::nullopt);
        return;
    }
    if (packet_.giaddr != IPv4Address::zero) {
        drop("relayed request (not served)", mac);
        return;
    }
    dispatch(*mac);
}

void Work::dispatch(const MACAddress& mac) {
    const auto type = packet_.messageType();
    if (!type) {
        drop("BOOTP request (not served)", mac);
        return;
    }
    switch (*type) {
    case DHCPMessageType::discover:
        return discover(mac);
    case DHCPMessageType::request:
        return request(mac);
    case DHCPMessageType::decline:
        return decline(mac);
    case DHCPMessageType::release:
        return release(mac);
    case DHCPMessageType::inform:
        return inform(mac);
    case DHCPMessageType::offer:
    case DHCPMessageType::ack:
    case DHCPMessageType::nak:
        return drop(fmt::format("{} is a server message", description(*type)), mac);
    }
}

void Work::discover(const MACAddress& mac) {
    const auto ip = chooseAddress(
        mac, packet_.requestedIP(), table(), config_.range(), [this](IPv4Address address) { return isUsable(address); },
        [this](IPv4Address address) { return holderIsOffline(address); }, now());
    if (!ip) {
        drop("address pool exhausted", mac);
        return;
    }
    if (otherHolder(*ip, mac) != nullptr && !context_.probes.contains(*ip)) {
        decision_.action.value = DecisionAction::Probe{.ip = *ip};
        return;
    }
    const Lease* const lease = table().find(mac);
    if (lease != nullptr && lease->state == Lease::State::bound && lease->ip == *ip && lease->holdsAddress(now())) {
        // A binding outlives a device that starts anew: an offer would cut it to the time of the offer.
        table().setLastSeen(mac, now());
    } else {
        assign(*ip, mac, Lease::State::offered, now() + Timing::offerHold);
    }
    reply(replyTo(mac).offer(*ip));
}

/// RFC 2131, section 4.3.2: the server identifier and `ciaddr` tell the client's state.
void Work::request(const MACAddress& mac) {
    const auto server = packet_.serverID();
    if (server && *server != config_.serverIP) {
        choseAnotherServer(*server, mac);
        return;
    }
    if (server) { // SELECTING
        const IPv4Address ip = packet_.requestedIP().value_or(packet_.ciaddr);
        if (ip == IPv4Address::zero) {
            nak("no requested address", mac);
        } else if (clientHolds(ip, mac) || isFree(ip)) {
            acknowledge(ip, mac);
        } else {
            nak("requested address is not available", mac);
        }
        return;
    }
    if (packet_.ciaddr == IPv4Address::zero) {
        requestAfterReboot(mac);
        return;
    }
    if (clientHolds(packet_.ciaddr, mac) || isFree(packet_.ciaddr)) { // RENEWING or REBINDING
        acknowledge(packet_.ciaddr, mac);
    } else {
        nak("address is not available for renewal", mac);
    }
}

/// INIT-REBOOT. The client's own record is not asked: it may take any free address of the pool.
void Work::requestAfterReboot(const MACAddress& mac) {
    const auto ip = packet_.requestedIP();
    if (!ip) {
        nak("no requested address", mac);
    } else if (!config_.subnet().contains(*ip)) {
        nak("requested address is not on this network", mac);
    } else if (!config_.inRange(*ip) || *ip == config_.serverIP) {
        nak("requested address is outside the range", mac);
    } else if (table().isQuarantined(*ip, now())) {
        nak("requested address was declined recently", mac);
    } else if (otherHolder(*ip, mac) != nullptr) {
        nak("address in use by another device", mac);
    } else {
        acknowledge(*ip, mac);
    }
}

void Work::decline(const MACAddress& mac) {
    const auto ip = packet_.requestedIP();
    if (!ip) {
        drop("DECLINE without a requested address", mac);
        return;
    }
    table().addQuarantine(*ip, now() + Timing::quarantine, mac);
    if (const auto lease = table().lease(mac); lease && lease->ip == *ip) {
        table().remove(mac);
        note(ServerEvent::LeaseRemoved{.mac = mac});
    }
    info(fmt::format("conflict: {} reports {} is already in use; quarantined for {}", mac.description(),
                     ip->description(), formatDuration(static_cast<std::uint32_t>(Timing::quarantine.count()))));
    decision_.tableChanged = true;
}

void Work::release(const MACAddress& mac) {
    if (packet_.serverID() != config_.serverIP) {
        info(fmt::format("RELEASE from {} for another server ignored", mac.description()));
        return;
    }
    auto lease = table().lease(mac);
    if (!lease || lease->ip != packet_.ciaddr) {
        info(fmt::format("RELEASE from {} for an unknown lease ignored", mac.description()));
        return;
    }
    lease->state = Lease::State::released;
    lease->expiresAt = now();
    lease->lastSeen = now();
    record(*std::move(lease));
    decision_.tableChanged = true;
}

void Work::inform(const MACAddress& mac) {
    const std::string ip = packet_.ciaddr.description();
    if (!config_.subnet().contains(packet_.ciaddr)) {
        drop(fmt::format("INFORM from {}, which is not on this network", ip), mac);
        return;
    }
    info(fmt::format("static-IP device {} ({}) asked for options", ip, mac.description()));
    reply(replyTo(mac).optionsOnly());
}

void Work::choseAnotherServer(IPv4Address server, const MACAddress& mac) {
    if (auto lease = table().lease(mac); lease && lease->state == Lease::State::offered) {
        lease->state = Lease::State::released;
        lease->expiresAt = now();
        record(*std::move(lease)); // not worth saving: the offer was never saved either
    }
    info(fmt::format("client {} chose another server ({})", mac.description(), server.description()));
    note(ServerEvent::NoticeRaised{
        .notice = {.kind = NoticeKind::otherServer,
                   .message = fmt::format("Another DHCP server is on this cable ({}). The device chose it instead of "
                                          "Tarnwick.",
                                          server.description())}});
}

void Work::acknowledge(IPv4Address ip, const MACAddress& mac) {
    assign(ip, mac, Lease::State::bound, now() + std::chrono::seconds{config_.leaseSeconds});
    reply(replyTo(mac).ack(ip));
}

void Work::assign(IPv4Address ip, const MACAddress& mac, Lease::State state, Date until) {
    if (const Lease* const victim = otherHolder(ip, mac)) {
        reclaim(*victim);
    }
    Lease lease = recordOf(mac);
    lease.ip = ip;
    lease.state = state;
    lease.expiresAt = until;
    lease.lastSeen = now();
    const auto adopt = [](std::optional<std::string>& known, std::optional<std::string> sent) {
        if (sent) {
            known = std::move(sent);
        }
    };
    adopt(lease.hostname, packet_.hostname());
    adopt(lease.vendorClass, packet_.vendorClass());
    adopt(lease.clientID, packet_.clientID());
    record(std::move(lease));
    if (state != Lease::State::offered) { // an offer is soon over: it lives in memory only
        decision_.tableChanged = true;
    }
}

/// Takes the address from the device that holds it but is gone; the record keeps its expiry.
void Work::reclaim(Lease victim) {
    victim.state = Lease::State::reclaimed;
    record(victim);
    info(fmt::format("range full: reclaimed {} from {} (offline, lease not expired)", victim.ip.description(),
                     victim.mac.description()));
    decision_.tableChanged = true;
}

/// The client's record, or a fresh one.
Lease Work::recordOf(const MACAddress& mac) const {
    if (const Lease* const known = table().find(mac)) {
        return *known;
    }
    Lease fresh;
    fresh.mac = mac;
    fresh.firstSeen = now();
    fresh.lastSeen = now();
    return fresh;
}

bool Work::isUsable(IPv4Address ip) const {
    return config_.inRange(ip) && ip != config_.serverIP && !table().isQuarantined(ip, now());
}

bool Work::isFree(IPv4Address ip) const { return isUsable(ip) && table().findHolder(ip, now()) == nullptr; }

bool Work::clientHolds(IPv4Address ip, const MACAddress& mac) const {
    const Lease* const lease = table().find(mac);
    return lease != nullptr && lease->ip == ip && lease->holdsAddress(now());
}

const Lease* Work::otherHolder(IPv4Address ip, const MACAddress& mac) const {
    const Lease* const holder = table().findHolder(ip, now());
    return holder != nullptr && holder->mac != mac ? holder : nullptr;
}

bool Work::holderIsOffline(IPv4Address ip) const {
    const Lease* const holder = table().findHolder(ip, now());
    if (holder != nullptr && holder->state == Lease::State::offered) {
        return false;
    }
    if (const auto probe = context_.probes.find(ip); probe != context_.probes.end()) {
        return !probe->second;
    }
    if (context_.probeBudgetExhausted()) {
        return false;
    }
    const auto known = context_.presence.find(ip);
    if (known == context_.presence.end()) {
        return true;
    }
    return known->second == PresenceState::unknown || known->second == PresenceState::offline;
}

} // namespace

Decision Responder::decide(const DHCPPacket& packet, DecisionContext context) const {
    return Work{config, packet, std::move(context)}.run();
}

} // namespace DHCPCore
