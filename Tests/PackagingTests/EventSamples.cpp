// Prints one JSON line for every kind of event and every set of keys, and saves a lease file with records of every
// kind: what the tests of the formats hold to the schemas. Argument: where the lease file goes.
#include "DHCPCore/EnumText.hpp"
#include "DHCPCore/EventLog.hpp"
#include "DHCPCore/Events.hpp"
#include "DHCPCore/LeaseFile.hpp"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

namespace {

using namespace DHCPCore;

constexpr Date now = std::chrono::sys_days{std::chrono::year{2025} / 3 / 14} + std::chrono::hours{9};
constexpr MACAddress mac{.bytes = {0x02, 0x00, 0x5E, 0x10, 0x00, 0x01}};
constexpr IPv4Address server{192, 168, 0, 1};
constexpr IPv4Address device{192, 168, 0, 100};

template <class Enum>
std::vector<Enum> allValues() {
    std::vector<Enum> values;
    for (std::size_t index = 0; index < EnumText<Enum>::names.size(); ++index) {
        values.push_back(static_cast<Enum>(index));
    }
    return values;
}

std::vector<DHCPMessageType> allMessageTypes() {
    std::vector<DHCPMessageType> types;
    for (int number = 1; number <= 8; ++number) {
        types.push_back(static_cast<DHCPMessageType>(number));
    }
    return types;
}

Lease lease(Lease::State state, bool named) {
    Lease result{.mac = mac,
                 .ip = device,
                 .state = state,
                 .expiresAt = now + std::chrono::hours{24},
                 .hostname = std::nullopt,
                 .vendorClass = std::nullopt,
                 .clientID = std::nullopt,
                 .firstSeen = now,
                 .lastSeen = now};
    result.mac.bytes.back() = static_cast<std::uint8_t>(2 * static_cast<int>(state) + (named ? 1 : 0));
    if (named) {
        result.hostname = "a \"quoted\" \\ name\n";
        result.vendorClass = "example/1";
        result.clientID = "01:02:00:5e:10:00:01";
    }
    return result;
}

PacketSummary fullSummary(DHCPMessageType type) {
    PacketSummary summary;
    summary.type = type;
    summary.mac = mac;
    summary.xid = 0xFFFFFFFF;
    summary.hostname = std::string(64, 'h');
    summary.vendorClass = "slash/back\\";
    summary.clientID = "01";
    summary.requestedIP = device;
    summary.serverID = server;
    summary.ciaddr = device;
    summary.interface = "eth0";
    return summary;
}

void addPackets(std::vector<ServerEvent>& events) {
    events.push_back({ServerEvent::Received{PacketSummary{}}});
    for (const DHCPMessageType type : allMessageTypes()) {
        events.push_back({ServerEvent::Received{fullSummary(type)}});
    }
    const ReplyDestination unicast{ReplyDestination::Unicast{device}};
    const ReplyDestination broadcast{ReplyDestination::Broadcast{}};
    for (const DHCPMessageType type : {DHCPMessageType::offer, DHCPMessageType::ack, DHCPMessageType::nak}) {
        events.push_back({ServerEvent::Sent{{type, device, mac, unicast, "eth0", std::nullopt}}});
        events.push_back({ServerEvent::Sent{{type, device, mac, broadcast, "eth0", "lease 24 h"}}});
    }
    events.push_back({ServerEvent::Dropped{.reason = "malformed (bad magic cookie)", .mac = std::nullopt}});
    events.push_back({ServerEvent::Dropped{.reason = "address pool exhausted", .mac = mac}});
}

void addStates(std::vector<ServerEvent>& events) {
    for (const auto state : allValues<Lease::State>()) {
        events.push_back({ServerEvent::LeaseChanged{lease(state, false)}});
        events.push_back({ServerEvent::LeaseChanged{lease(state, true)}});
    }
    events.push_back({ServerEvent::LeaseRemoved{mac}});
    for (const auto state : allValues<PresenceState>()) {
        events.push_back({ServerEvent::Presence{.ip = device, .mac = mac, .state = state, .detail = "icmp 0.4 ms"}});
    }
    events.push_back({ServerEvent::Link{.up = true, .media = "1000baseT full-duplex"}});
    events.push_back({ServerEvent::Link{.up = true, .media = std::nullopt}});
    events.push_back({ServerEvent::Link{.up = false, .media = std::nullopt}});
    for (const auto kind : allValues<NoticeKind>()) {
        events.push_back({ServerEvent::NoticeRaised{{.kind = kind, .message = "A sentence."}}});
        events.push_back({ServerEvent::NoticeCleared{kind}});
    }
}

std::vector<ServerEvent> allEvents() {
    const ServerConfig config{.serverIP = server,
                              .prefixLength = 24,
                              .rangeStart = device,
                              .rangeEnd = {192, 168, 0, 200},
                              .leaseSeconds = 86400,
                              .router = std::nullopt,
                              .dns = {}};
    std::vector<ServerEvent> events{{ServerEvent::Started{.interface = "eth0", .config = config}}};
    addPackets(events);
    addStates(events);
    events.push_back({ServerEvent::Info{"control \x1b and \xff no UTF-8"}});
    events.push_back({ServerEvent::Stopped{}});
    return events;
}

LeaseTable everyRecord() {
    std::vector<Lease> leases;
    for (const auto state : allValues<Lease::State>()) {
        leases.push_back(lease(state, false));
        leases.push_back(lease(state, true));
    }
    return {std::move(leases), {{.ip = device, .until = now, .reportedBy = mac}}};
}

} // namespace

int main(int argumentCount, char** arguments) {
    if (argumentCount != 2) {
        return 2;
    }
    try {
        for (const ServerEvent& event : allEvents()) {
            if (const auto text = EventLog::json(event, now)) {
                std::puts(text->c_str());
            }
        }
        LeaseFile{.url = arguments[1]}.save(everyRecord());
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        std::fputs(error.what(), stderr);
        return EXIT_FAILURE;
    }
}
