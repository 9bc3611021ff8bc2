// A run of the real server over loopback, recorded event by event: what a front end folds together must be what the
// server knows.
#include "DHCPCore/EventStream.hpp"
#include "DHCPCore/Server.hpp"
#include "DHCPCore/ServerHost.hpp"
#include "DHCPCore/TarnwickState.hpp"
#include "Support/ChildProcess.hpp"
#include "Support/Printing.hpp"
#include "Support/TemporaryDirectory.hpp"
#include "TarnwickTests/LoopbackClient.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Tarnwick {
namespace {

using namespace DHCPCore;
using TestSupport::patience;

/// An event and the time at which it was taken.
struct Recorded {
    ServerEvent event;
    Date at;
};

std::unordered_map<MACAddress, Lease> byMAC(const std::vector<Lease>& leases) {
    std::unordered_map<MACAddress, Lease> map;
    for (const Lease& lease : leases) {
        map.emplace(lease.mac, lease);
    }
    return map;
}

TarnwickState folded(const std::vector<Recorded>& recording, TarnwickState state = {}) {
    for (const Recorded& recorded : recording) {
        state.apply(recorded.event, recorded.at);
    }
    return state;
}

/// This host, with nobody but the device at the first address to be found by a probe: no probe leaves it.
ServerHost hostWithOneDevice() {
    ServerHost host = ServerHost::system();
    host.probe = [](const std::string&, IPv4Address ip) {
        const bool answers = ip == IPv4Address{192, 168, 0, 100};
        return ProbeResult{.answered = answers, .detail = answers ? "tcp 80 refused" : "no answer"};
    };
    host.readARPTable = [] { return ARPTable::Map{}; };
    return host;
}

/// Serves on loopback with room for four devices. The server's clock shows whole seconds, as the lease file does.
class RecordedRunTest : public testing::Test {
  protected:
    static constexpr IPv4Address serverIP{192, 168, 0, 1};

    void start() {
        server = std::make_shared<DHCPServer>(
            DHCPServer::Options{
                .config = {.serverIP = serverIP,
                           .prefixLength = 24,
                           .rangeStart = IPv4Address{192, 168, 0, 100},
                           .rangeEnd = IPv4Address{192, 168, 0, 103},
                           .leaseSeconds = 3600,
                           .router = {},
                           .dns = {}},
                .mode = {TransportMode::Loopback{.serverPort = client.serverPort(), .clientPort = client.clientPort()}},
                .cardMAC = std::nullopt,
                .leaseFile = file,
                .presenceEnabled = true},
            [] { return std::chrono::floor<std::chrono::seconds>(currentDate()); }, hostWithOneDevice());
        events = server->events();
        server->start();
    }

    /// Records up to the event that is waited for.
    void recordUntil(const std::function<bool(const ServerEvent&)>& isLast) {
        while (auto event = events->next(patience)) {
            recording.push_back({.event = std::move(*event), .at = currentDate()});
            if (isLast(recording.back().event)) {
                return;
            }
        }
        ADD_FAILURE() << "the event did not come";
    }
    template <class Case>
    void recordUntil() {
        recordUntil([](const ServerEvent& event) { return std::holds_alternative<Case>(event.value); });
    }
    /// Records up to the reply of that type.
    void recordUntilSent(DHCPMessageType type) {
        recordUntil([type](const ServerEvent& event) {
            const auto* sent = std::get_if<ServerEvent::Sent>(&event.value);
            return sent != nullptr && sent->summary.type == type;
        });
    }

    [[nodiscard]] DHCPPacket answering(DHCPMessageType type, std::uint8_t device, IPv4Address ip) const {
        return with(with(message(type, device), OptionCode::requestedIP, ip), OptionCode::serverID, serverIP);
    }

    IPv4Address discover(std::uint8_t device) {
        const IPv4Address offered = client.ask(message(DHCPMessageType::discover, device)).yiaddr;
        recordUntilSent(DHCPMessageType::offer);
        return offered;
    }

    IPv4Address bind(std::uint8_t device) {
        const IPv4Address offered = discover(device);
        EXPECT_EQ(client.ask(answering(DHCPMessageType::request, device, offered)).messageType(), DHCPMessageType::ack);
        recordUntilSent(DHCPMessageType::ack);
        return offered;
    }

    void release(std::uint8_t device, IPv4Address ip) {
        DHCPPacket packet = with(message(DHCPMessageType::release, device), OptionCode::serverID, serverIP);
        packet.ciaddr = ip;
        client.send(packet);
        recordUntil<ServerEvent::LeaseChanged>();
    }

    void stop() {
        server->stop();
        recordUntil<ServerEvent::Stopped>();
        EXPECT_EQ(events->next(), std::nullopt);
    }

    [[nodiscard]] std::unordered_map<MACAddress, Lease> savedLeases() const {
        return byMAC(file.load(currentDate()).table.leases().all());
    }

    TestSupport::TemporaryDirectory directory;
    LeaseFile file{.url = directory / "leases.json"};
    LoopbackClient client;
    std::shared_ptr<DHCPServer> server;
    std::shared_ptr<EventStream<ServerEvent>> events;
    std::vector<Recorded> recording;
};

TEST_F(RecordedRunTest, GivesTheLeasesOfTheFileThePresenceAndTheNotices) {
    TestSupport::writeText(file.url, "not JSON");
    start();
    const IPv4Address first = bind(1);
    release(2, bind(2));
    bind(3);
    server->forgetLease(deviceMAC(3));
    recordUntil<ServerEvent::LeaseRemoved>();
    client.send(answering(DHCPMessageType::decline, 4, bind(4)));
    recordUntil<ServerEvent::LeaseRemoved>();
    const IPv4Address last = bind(5);
    server->refreshPresence();
    recordUntil<ServerEvent::Presence>();
    recordUntil<ServerEvent::Presence>();
    const TarnwickState running = folded(recording);
    const LeaseTable table = server->currentTable();
    stop();
    const TarnwickState state = folded(recording);

    EXPECT_EQ(state.leases.size(), 3U) << "of five devices one was forgotten, and one declined";
    EXPECT_EQ(state.leases, savedLeases());
    EXPECT_EQ(running.leases, byMAC(table.leases().all()));
    EXPECT_EQ(running.presence, (std::unordered_map<IPv4Address, PresenceState>{{first, PresenceState::online},
                                                                                {last, PresenceState::offline}}));
    EXPECT_EQ(running.deviceFound, table.lease(deviceMAC(5)));
    EXPECT_EQ(running.serverInterface, "lo0");
    const auto names = directory.names();
    ASSERT_EQ(names.size(), 2U);
    const Notice setAside = Notice::leaseFileSetAside(names[1]);
    EXPECT_EQ(state.notices, (std::unordered_map<NoticeKind, Notice>{{NoticeKind::leaseFileSetAside, setAside}}));
    EXPECT_TRUE(state.presence.empty());
    EXPECT_EQ(state.serverInterface, std::nullopt);
}

TEST_F(RecordedRunTest, GivesTheLeasesOfTheRunBeforeToo) {
    start();
    bind(1);
    const IPv4Address second = bind(2);
    stop();
    const TarnwickState before = folded(std::exchange(recording, {}));
    start();
    release(2, second);
    discover(3);
    stop();
    TarnwickState loaded;
    loaded.loadLeases(file.load(currentDate()));

    EXPECT_EQ(folded(recording).leases, savedLeases()) << "from nothing: the server tells what it loaded";
    EXPECT_EQ(folded(recording, before).leases, savedLeases()) << "from the run before";
    EXPECT_EQ(loaded.leases, savedLeases());
    EXPECT_EQ(loaded.leases.size(), 3U);
}

TEST_F(RecordedRunTest, KeepsANoticeUntilItIsCleared) {
    file.url = directory / "folder" / "leases.json";
    start();
    TestSupport::writeText(directory / "folder", "not a folder");
    bind(1);
    const TarnwickState failing = folded(recording);
    std::filesystem::remove(directory / "folder");
    bind(2);
    stop();
    const TarnwickState state = folded(recording);

    ASSERT_EQ(failing.notices.size(), 1U);
    ASSERT_TRUE(failing.notices.contains(NoticeKind::leaseSaveFailed));
    EXPECT_EQ(failing.notices.at(NoticeKind::leaseSaveFailed).message,
              "Leases could not be saved: Could not create " + (directory / "folder").string() + ": File exists");
    EXPECT_TRUE(state.notices.empty());
    EXPECT_EQ(state.leases, savedLeases());
}

} // namespace
} // namespace Tarnwick
