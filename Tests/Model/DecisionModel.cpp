#include "Model/DecisionModel.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace DHCPCore::Model {

namespace {

// The packet's options, read from its list: the first one of a code counts.

std::optional<Bytes> dataOf(const DHCPPacket& packet, int code) {
    for (const DHCPOptionField& option : packet.options) {
        if (option.code == code) {
            return Bytes(option.data.begin(), option.data.end());
        }
    }
    return std::nullopt;
}

std::optional<IPv4Address> addressIn(const DHCPPacket& packet, int code) {
    const std::optional<Bytes> data = dataOf(packet, code);
    if (!data || data->size() != 4) {
        return std::nullopt;
    }
    return IPv4Address{data->at(0), data->at(1), data->at(2), data->at(3)};
}

std::optional<std::string> textIn(const DHCPPacket& packet, int code) {
    const std::optional<Bytes> data = dataOf(packet, code);
    if (!data) {
        return std::nullopt;
    }
    std::string text;
    for (const std::uint8_t byte : *data) {
        const bool plain = byte >= 32 && byte <= 126;
        const std::string piece = plain ? std::string(1, static_cast<char>(byte)) : fmt::format("\\x{:02x}", byte);
        if (text.size() + piece.size() > 64) {
            break;
        }
        text += piece;
    }
    return text;
}

std::optional<std::string> identifierIn(const DHCPPacket& packet) {
    const std::optional<Bytes> data = dataOf(packet, 61);
    if (!data) {
        return std::nullopt;
    }
    std::string text;
    for (const std::uint8_t byte : *data) {
        text += fmt::format("{}{:02x}", text.empty() ? "" : ":", byte);
    }
    return text;
}

int typeOf(const DHCPPacket& packet) {
    const std::optional<Bytes> data = dataOf(packet, 53);
    return data && data->size() == 1 ? data->at(0) : 0;
}

bool onNetwork(const ServerConfig& config, IPv4Address ip) {
    const int prefix = std::clamp(config.prefixLength, 0, 32);
    return (std::uint64_t{ip.value} >> (32 - prefix)) == (std::uint64_t{config.serverIP.value} >> (32 - prefix));
}

std::uint32_t ones(int count) { return static_cast<std::uint32_t>(0xFFFFFFFF00000000ULL >> count); }

Bytes bytesOf(std::uint32_t value) {
    return {static_cast<std::uint8_t>(value / 0x1000000), static_cast<std::uint8_t>(value / 0x10000 % 256),
            static_cast<std::uint8_t>(value / 0x100 % 256), static_cast<std::uint8_t>(value % 256)};
}

/// One decision on its way.
struct Work {
    const ServerConfig& config;
    const DHCPPacket& packet;
    const Circumstances& given;
    Outcome outcome{};

    void run();
    void discover(const MACAddress& mac);
    void request(const MACAddress& mac);
    void reboot(const MACAddress& mac);
    void choseAnotherServer(IPv4Address server, const MACAddress& mac);
    void decline(const MACAddress& mac);
    void release(const MACAddress& mac);
    void inform(const MACAddress& mac);

    void assign(IPv4Address ip, const MACAddress& mac, Lease::State state, Date until);
    void acknowledge(IPv4Address ip, const MACAddress& mac);
    void reply(int type, IPv4Address yiaddr, const MACAddress& mac, bool includeLease);
    void nak(const std::string& reason, const MACAddress& mac);
    [[nodiscard]] DHCPPacket baseReply(int type, IPv4Address yiaddr) const;

    [[nodiscard]] Table& table() { return outcome.table; }
    [[nodiscard]] bool inPool(IPv4Address ip) const {
        return config.rangeStart.value <= ip.value && ip.value <= config.rangeEnd.value && ip != config.serverIP;
    }
    [[nodiscard]] bool isUsable(IPv4Address ip) const {
        return inPool(ip) && !outcome.table.isQuarantined(ip, given.now);
    }
    [[nodiscard]] bool isFree(IPv4Address ip) const {
        return isUsable(ip) && !holder(outcome.table.leases, ip, given.now);
    }
    /// Whether the client's own record has that address and holds it.
    [[nodiscard]] bool hasItself(const MACAddress& mac, IPv4Address ip) const {
        const std::optional<Lease> own = outcome.table.lease(mac);
        return own && own->ip == ip && holdsAddress(*own, given.now);
    }
    [[nodiscard]] std::optional<Lease> otherHolder(IPv4Address ip, const MACAddress& mac) const {
        const std::optional<Lease> found = holder(outcome.table.leases, ip, given.now);
        return found && found->mac != mac ? found : std::nullopt;
    }
    [[nodiscard]] bool holderIsOffline(IPv4Address ip) const;

    void info(std::string text) { outcome.notes.push_back({ServerEvent::Info{std::move(text)}}); }
    void changed(const Lease& lease) { outcome.notes.push_back({ServerEvent::LeaseChanged{lease}}); }
    void dropped(std::string reason, std::optional<MACAddress> mac) {
        outcome.notes.push_back({ServerEvent::Dropped{.reason = std::move(reason), .mac = mac}});
    }
};

void Work::run() {
    if (packet.op != 1) {
        dropped(fmt::format("not a client request (op {})", packet.op), std::nullopt);
        return;
    }
    if (packet.htype != 1 || packet.hlen != 6) {
        dropped(fmt::format("not Ethernet (htype {}, hlen {})", packet.htype, packet.hlen), std::nullopt);
        return;
    }
    MACAddress mac;
    for (std::size_t index = 0; index < 6; ++index) {
        mac.bytes.at(index) = packet.chaddr.at(index);
    }
    if (packet.giaddr.value != 0) {
        dropped("relayed request (not served)", mac);
        return;
    }
    switch (typeOf(packet)) {
    case 1:
        return discover(mac);
    case 2:
        return dropped("OFFER is a server message", mac);
    case 3:
        return request(mac);
    case 4:
        return decline(mac);
    case 5:
        return dropped("ACK is a server message", mac);
    case 6:
        return dropped("NAK is a server message", mac);
    case 7:
        return release(mac);
    case 8:
        return inform(mac);
    default:
        return dropped("BOOTP request (not served)", mac);
    }
}

bool Work::holderIsOffline(IPv4Address ip) const {
    const std::optional<Lease> found = holder(outcome.table.leases, ip, given.now);
    if (found && found->state == Lease::State::offered) {
        return false;
    }
    if (!given.probes.empty()) {
        if (given.probes.contains(ip)) {
            return !given.probes.at(ip);
        }
        if (given.probes.size() > 4) {
            return false;
        }
    }
    if (!given.presence.contains(ip)) {
        return true;
    }
    const PresenceState presence = given.presence.at(ip);
    return presence == PresenceState::unknown || presence == PresenceState::offline;
}

void Work::discover(const MACAddress& mac) {
    const AddressRange range{.lower = std::min(config.rangeStart, config.rangeEnd),
                             .upper = std::max(config.rangeStart, config.rangeEnd)};
    const std::optional<IPv4Address> ip = chooseAddress(
        mac, addressIn(packet, 50), table().leases, range, [this](IPv4Address other) { return isUsable(other); },
        [this](IPv4Address other) { return holderIsOffline(other); }, given.now);
    if (!ip) {
        dropped("address pool exhausted", mac);
        return;
    }
    if (otherHolder(*ip, mac) && !given.probes.contains(*ip)) {
        outcome.action = {DecisionAction::Probe{*ip}};
        return;
    }
    if (hasItself(mac, *ip) && table().lease(mac)->state == Lease::State::bound) {
        Lease own = *table().lease(mac);
        own.lastSeen = given.now;
        table().upsert(own);
    } else {
        assign(*ip, mac, Lease::State::offered, given.now + std::chrono::seconds{60});
    }
    reply(2, *ip, mac, true);
}

void Work::assign(IPv4Address ip, const MACAddress& mac, Lease::State state, Date until) {
    if (std::optional<Lease> victim = otherHolder(ip, mac)) {
        victim->state = Lease::State::reclaimed;
        table().upsert(*victim);
        changed(*victim);
        info("range full: reclaimed " + ip.description() + " from " + victim->mac.description() +
             " (offline, lease not expired)");
        outcome.tableChanged = true;
    }
    Lease record{.mac = mac,
                 .ip = ip,
                 .state = state,
                 .expiresAt = until,
                 .hostname = std::nullopt,
                 .vendorClass = std::nullopt,
                 .clientID = std::nullopt,
                 .firstSeen = given.now,
                 .lastSeen = given.now};
    if (const std::optional<Lease> own = table().lease(mac)) {
        record.hostname = own->hostname;
        record.vendorClass = own->vendorClass;
        record.clientID = own->clientID;
        record.firstSeen = own->firstSeen;
    }
    if (const auto hostname = textIn(packet, 12)) {
        record.hostname = hostname;
    }
    if (const auto vendorClass = textIn(packet, 60)) {
        record.vendorClass = vendorClass;
    }
    if (const auto clientID = identifierIn(packet)) {
        record.clientID = clientID;
    }
    table().upsert(record);
    changed(record);
    if (state != Lease::State::offered) {
        outcome.tableChanged = true;
    }
}

void Work::acknowledge(IPv4Address ip, const MACAddress& mac) {
    assign(ip, mac, Lease::State::bound, given.now + std::chrono::seconds{config.leaseSeconds});
    reply(5, ip, mac, true);
}

void Work::request(const MACAddress& mac) {
    const std::optional<IPv4Address> server = addressIn(packet, 54);
    if (server && *server != config.serverIP) {
        choseAnotherServer(*server, mac);
    } else if (server) {
        const IPv4Address ip = addressIn(packet, 50).value_or(packet.ciaddr);
        if (ip.value == 0) {
            nak("no requested address", mac);
        } else if (hasItself(mac, ip) || isFree(ip)) {
            acknowledge(ip, mac);
        } else {
            nak("requested address is not available", mac);
        }
    } else if (packet.ciaddr.value != 0) {
        if (hasItself(mac, packet.ciaddr) || isFree(packet.ciaddr)) {
            acknowledge(packet.ciaddr, mac);
        } else {
            nak("address is not available for renewal", mac);
        }
    } else {
        reboot(mac);
    }
}

void Work::reboot(const MACAddress& mac) {
    const std::optional<IPv4Address> ip = addressIn(packet, 50);
    if (!ip) {
        nak("no requested address", mac);
    } else if (!onNetwork(config, *ip)) {
        nak("requested address is not on this network", mac);
    } else if (!inPool(*ip)) {
        nak("requested address is outside the range", mac);
    } else if (table().isQuarantined(*ip, given.now)) {
        nak("requested address was declined recently", mac);
    } else if (otherHolder(*ip, mac)) {
        nak("address in use by another device", mac);
    } else {
        acknowledge(*ip, mac);
    }
}

void Work::choseAnotherServer(IPv4Address server, const MACAddress& mac) {
    std::optional<Lease> own = table().lease(mac);
    if (own && own->state == Lease::State::offered) {
        own->state = Lease::State::released;
        own->expiresAt = given.now;
        table().upsert(*own);
        changed(*own);
    }
    info("client " + mac.description() + " chose another server (" + server.description() + ")");
    outcome.notes.push_back(
        {ServerEvent::NoticeRaised{{.kind = NoticeKind::otherServer,
                                    .message = "Another DHCP server is on this cable (" + server.description() +
                                               "). The device chose it instead of Tarnwick."}}});
}

void Work::decline(const MACAddress& mac) {
    const std::optional<IPv4Address> ip = addressIn(packet, 50);
    if (!ip) {
        dropped("DECLINE without a requested address", mac);
        return;
    }
    table().addQuarantine(*ip, given.now + std::chrono::seconds{600}, mac);
    const std::optional<Lease> own = table().lease(mac);
    if (own && own->ip == *ip) {
        table().remove(mac);
        outcome.notes.push_back({ServerEvent::LeaseRemoved{mac}});
    }
    info("conflict: " + mac.description() + " reports " + ip->description() +
         " is already in use; quarantined for 10 m");
    outcome.tableChanged = true;
}

void Work::release(const MACAddress& mac) {
    if (addressIn(packet, 54) != config.serverIP) {
        info("RELEASE from " + mac.description() + " for another server ignored");
        return;
    }
    std::optional<Lease> own = table().lease(mac);
    if (!own || own->ip != packet.ciaddr) {
        info("RELEASE from " + mac.description() + " for an unknown lease ignored");
        return;
    }
    own->state = Lease::State::released;
    own->expiresAt = given.now;
    own->lastSeen = given.now;
    table().upsert(*own);
    changed(*own);
    outcome.tableChanged = true;
}

void Work::inform(const MACAddress& mac) {
    const std::string ciaddr = packet.ciaddr.description();
    if (!onNetwork(config, packet.ciaddr)) {
        dropped("INFORM from " + ciaddr + ", which is not on this network", mac);
        return;
    }
    info("static-IP device " + ciaddr + " (" + mac.description() + ") asked for options");
    reply(5, IPv4Address{0}, mac, false);
}

DHCPPacket Work::baseReply(int type, IPv4Address yiaddr) const {
    DHCPPacket answer;
    answer.op = 2;
    answer.htype = packet.htype;
    answer.hlen = packet.hlen;
    answer.hops = 0;
    answer.xid = packet.xid;
    answer.secs = 0;
    answer.flags = packet.flags;
    answer.ciaddr = type == 5 ? packet.ciaddr : IPv4Address{0};
    answer.yiaddr = yiaddr;
    answer.siaddr = IPv4Address{0};
    answer.giaddr = packet.giaddr;
    answer.chaddr = packet.chaddr;
    answer.options = {{.code = 53, .data = {static_cast<std::uint8_t>(type)}},
                      {.code = 54, .data = bytesOf(config.serverIP.value)}};
    return answer;
}

void Work::reply(int type, IPv4Address yiaddr, const MACAddress& mac, bool includeLease) {
    const auto seconds = std::uint64_t{config.leaseSeconds};
    const std::uint32_t mask = ones(std::clamp(config.prefixLength, 0, 32));
    DHCPPacket answer = baseReply(type, yiaddr);
    if (includeLease) {
        answer.options.push_back({.code = 51, .data = bytesOf(config.leaseSeconds)});
        answer.options.push_back({.code = 58, .data = bytesOf(static_cast<std::uint32_t>(seconds / 2))});
        answer.options.push_back({.code = 59, .data = bytesOf(static_cast<std::uint32_t>(seconds * 7 / 8))});
    }
    answer.options.push_back({.code = 1, .data = bytesOf(mask)});
    answer.options.push_back({.code = 28, .data = bytesOf(config.serverIP.value | ~mask)});
    if (config.router) {
        answer.options.push_back({.code = 3, .data = bytesOf(config.router->value)});
    }
    if (!config.dns.empty()) {
        Bytes servers;
        for (const IPv4Address server : config.dns) {
            for (const std::uint8_t byte : bytesOf(server.value)) {
                servers.push_back(byte);
            }
        }
        answer.options.push_back({.code = 6, .data = servers});
    }

    std::string note;
    if (type == 5 && includeLease) {
        note = "lease " + formatDuration(config.leaseSeconds);
    }
    const std::string vendorClass = textIn(packet, 60).value_or("");
    if (vendorClass.substr(0, 3) == "APC") {
        answer.options.push_back({.code = 43, .data = {0x01, 0x04, 0x31, 0x41, 0x50, 0x43}});
        note += note.empty() ? "+APC cookie" : ", +APC cookie";
    }

    Reply result;
    result.packet = answer;
    result.destination = packet.ciaddr.value != 0 ? ReplyDestination{ReplyDestination::Unicast{packet.ciaddr}}
                                                  : ReplyDestination{ReplyDestination::Broadcast{}};
    result.type = type == 2 ? DHCPMessageType::offer : DHCPMessageType::ack;
    result.ip = includeLease ? yiaddr : packet.ciaddr;
    result.mac = mac;
    result.note = note.empty() ? std::nullopt : std::optional{note};
    outcome.action = {DecisionAction::Reply{result}};
}

void Work::nak(const std::string& reason, const MACAddress& mac) {
    Reply result;
    result.packet = baseReply(6, IPv4Address{0});
    result.packet.options.push_back({.code = 56, .data = Bytes(reason.begin(), reason.end())});
    result.destination = {ReplyDestination::Broadcast{}};
    result.type = DHCPMessageType::nak;
    result.ip = addressIn(packet, 50).value_or(packet.ciaddr);
    result.mac = mac;
    result.note = reason;
    outcome.action = {DecisionAction::Reply{result}};
}

} // namespace

Outcome decide(const ServerConfig& config, const DHCPPacket& packet, const Circumstances& circumstances) {
    Work work{.config = config, .packet = packet, .given = circumstances};
    work.outcome.table = circumstances.table;
    work.table().pruneQuarantine(circumstances.now);
    work.run();
    return work.outcome;
}

bool agree(const Outcome& outcome, const Decision& decision) {
    return outcome.action == decision.action && outcome.tableChanged == decision.tableChanged &&
           outcome.notes == decision.notes && agree(outcome.table, decision.table);
}

} // namespace DHCPCore::Model
