#include "Support/ServerHarness.hpp"

#include <chrono>
#include <filesystem>
#include <utility>

namespace DHCPCore::TestSupport {

namespace {

constexpr auto media = "1000baseT full-duplex";

} // namespace

ServerHarness::ServerHarness()
    : options{.config = smallConfig(),
              .mode = {TransportMode::Interface{"en7"}},
              .cardMAC = std::nullopt,
              .leaseFile = {.url = directory / "leases.json"},
              .presenceEnabled = false} {
    host->setNow(now);
    host->plugIn("en7", cardIndex);
    host->setAddresses({{.name = "en7", .subnet = {.address = serverIP, .prefixLength = 24}}});
    setLink(true);
}

void ServerHarness::make() {
    server = std::make_shared<DHCPServer>(
        options, [source = host] { return source->now(); }, host->host());
    events = server->events();
}

std::vector<ServerEvent> ServerHarness::start() {
    if (!server) {
        make();
    }
    server->start();
    return settled();
}

std::vector<ServerEvent> ServerHarness::take(std::size_t count) {
    std::vector<ServerEvent> taken;
    while (taken.size() < count) {
        auto event = events->next(patience);
        if (!event) {
            ADD_FAILURE() << "only " << taken.size() << " of " << count << " events came";
            break;
        }
        taken.push_back(std::move(*event));
    }
    return taken;
}

std::vector<ServerEvent> ServerHarness::settled() {
    if (server) {
        std::ignore = server->currentTable();
    }
    std::vector<ServerEvent> taken;
    while (auto event = events->next(std::chrono::seconds{0})) {
        taken.push_back(std::move(*event));
    }
    return taken;
}

void ServerHarness::arrive(const DHCPPacket& packet) { host->arrive({datagram(packet)}); }

std::vector<ServerEvent> ServerHarness::eventsOf(const DHCPPacket& packet, std::size_t count) {
    arrive(packet);
    auto taken = take(count);
    EXPECT_EQ(settled(), std::vector<ServerEvent>{});
    return taken;
}

Datagram ServerHarness::datagram(const DHCPPacket& packet, std::optional<std::uint32_t> index) {
    return {.bytes = packet.serialize(0), .interfaceIndex = index, .source = IPv4Address::zero, .sourcePort = 68};
}

void ServerHarness::blockSaving() {
    options.leaseFile.url = directory / "folder" / "leases.json";
    writeText(directory / "folder", "not a folder");
}

void ServerHarness::unblockSaving() { std::filesystem::remove(directory / "folder"); }

std::string ServerHarness::savingError() const {
    try {
        options.leaseFile.save({});
    } catch (const Error& error) {
        return error.description();
    }
    return "none";
}

void ServerHarness::setLink(bool up) {
    host->setMedia({.linkUp = up, .description = up ? std::optional<std::string>(media) : std::nullopt});
}

ServerEvent ServerHarness::started() const {
    return {ServerEvent::Started{.interface = options.mode.interfaceName(), .config = options.config}};
}

ServerEvent ServerHarness::received(const DHCPPacket& packet, std::string interface) {
    return {ServerEvent::Received{PacketSummary(packet, std::move(interface))}};
}

ServerEvent ServerHarness::sent(DHCPMessageType type, IPv4Address ip, const MACAddress& mac,
                                std::optional<std::string> note, std::string interface) {
    return {ServerEvent::Sent{{.type = type,
                               .ip = ip,
                               .mac = mac,
                               .destination = {ReplyDestination::Broadcast{}},
                               .interface = std::move(interface),
                               .note = std::move(note)}}};
}

ServerEvent ServerHarness::granted(IPv4Address ip, const MACAddress& mac) {
    return sent(DHCPMessageType::ack, ip, mac, "lease 1 h");
}

ServerEvent ServerHarness::dropped(std::string reason) {
    return {ServerEvent::Dropped{.reason = std::move(reason), .mac = std::nullopt}};
}

ServerEvent ServerHarness::changed(const Lease& lease) { return {ServerEvent::LeaseChanged{lease}}; }

ServerEvent ServerHarness::removed(const MACAddress& mac) { return {ServerEvent::LeaseRemoved{mac}}; }

ServerEvent ServerHarness::presence(const Lease& lease, PresenceState state, std::string detail) {
    return {ServerEvent::Presence{.ip = lease.ip, .mac = lease.mac, .state = state, .detail = std::move(detail)}};
}

ServerEvent ServerHarness::link(bool up) {
    return {ServerEvent::Link{.up = up, .media = up ? std::optional<std::string>(media) : std::nullopt}};
}

ServerEvent ServerHarness::raised(NoticeKind kind, std::string message) {
    return {ServerEvent::NoticeRaised{{.kind = kind, .message = std::move(message)}}};
}

ServerEvent ServerHarness::cleared(NoticeKind kind) { return {ServerEvent::NoticeCleared{kind}}; }

ServerEvent ServerHarness::info(std::string text) { return {ServerEvent::Info{std::move(text)}}; }

ServerEvent ServerHarness::stopped() { return {ServerEvent::Stopped{}}; }

ServerEvent ServerHarness::linkDownRaised(const std::string& interface) {
    return raised(NoticeKind::linkDown, "Link down. No device is connected to " + interface +
                                            ". Serving resumes on its own when the link returns.");
}

} // namespace DHCPCore::TestSupport
