#include "DHCPCore/TarnwickState.hpp"
#include "Support/LeaseBuilders.hpp"
#include "Support/Printing.hpp"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace DHCPCore {
namespace {

using namespace std::chrono_literals;
using TestSupport::boundLease;
using TestSupport::ip;
using TestSupport::leaseSeen;
using TestSupport::leaseUntil;
using TestSupport::mac;
using TestSupport::now;

const Lease first = boundLease(mac(1), ip(10));
const Lease second = boundLease(mac(2), ip(11));

ServerEvent changed(const Lease& lease) { return {ServerEvent::LeaseChanged{lease}}; }
ServerEvent removed(const MACAddress& client) { return {ServerEvent::LeaseRemoved{client}}; }
ServerEvent stopped() { return {ServerEvent::Stopped{}}; }

ServerEvent sent(DHCPMessageType type, IPv4Address address, const MACAddress& client) {
    return {ServerEvent::Sent{{.type = type,
                               .ip = address,
                               .mac = client,
                               .destination = {ReplyDestination::Broadcast{}},
                               .interface = "en7",
                               .note = std::nullopt}}};
}

ServerEvent presence(IPv4Address address, PresenceState state) {
    return {ServerEvent::Presence{.ip = address, .mac = mac(1), .state = state, .detail = "no answer"}};
}

Notice notice(NoticeKind kind, std::string message = "Something is wrong.") {
    return {.kind = kind, .message = std::move(message)};
}

TarnwickState fold(TarnwickState state, const std::vector<ServerEvent>& events) {
    for (const ServerEvent& event : events) {
        state.apply(event, now);
    }
    return state;
}

/// With a value in every field; the first lease is that of the device found.
TarnwickState full() {
    TarnwickState state = fold({}, {{ServerEvent::Started{.interface = "en7", .config = {}}},
                                    changed(first),
                                    changed(second),
                                    sent(DHCPMessageType::ack, first.ip, first.mac),
                                    presence(first.ip, PresenceState::online),
                                    {ServerEvent::Received{}}});
    for (const NoticeKind kind : allCases<NoticeKind>()) {
        state.raise(notice(kind));
    }
    return state;
}

TEST(TarnwickStateTest, BeginsEmpty) {
    const TarnwickState state;
    EXPECT_TRUE(state.leases.empty());
    EXPECT_TRUE(state.presence.empty());
    EXPECT_TRUE(state.notices.empty());
    EXPECT_EQ(state.deviceFound, std::nullopt);
    EXPECT_EQ(state.lastPacketAt, std::nullopt);
    EXPECT_EQ(state.serverInterface, std::nullopt);
}

TEST(TarnwickStateTest, KnowsWhichNoticesDescribeARun) {
    EXPECT_EQ(TarnwickState::runScoped,
              (std::set{NoticeKind::linkDown, NoticeKind::adapterUnplugged, NoticeKind::localNetworkDenied}));
}

TEST(TarnwickStateTest, KeepsTheInterfaceOfAStartAlone) {
    TarnwickState expected;
    expected.serverInterface = "en7";
    EXPECT_EQ(fold({}, {{ServerEvent::Started{.interface = "en7", .config = {}}}}), expected);
    TarnwickState other = full();
    other.serverInterface = "en8";
    EXPECT_EQ(fold(full(), {{ServerEvent::Started{.interface = "en8", .config = {}}}}), other);
}

TEST(TarnwickStateTest, KeepsTheTimeOfAReceivedPacketAlone) {
    TarnwickState state = full();
    TarnwickState expected = full();
    expected.lastPacketAt = now + 5s;
    state.apply({ServerEvent::Received{}}, now + 5s);
    EXPECT_EQ(state, expected);
    state.apply({ServerEvent::Dropped{.reason = "relayed", .mac = mac(1)}}, now + 6s);
    EXPECT_EQ(state, expected) << "whatever becomes of the packet";
}

TEST(TarnwickStateTest, FindsTheDeviceThatGotAnACK) {
    TarnwickState expected = fold({}, {changed(first), changed(second)});
    expected.deviceFound = first;
    TarnwickState state = fold({}, {changed(first), changed(second), sent(DHCPMessageType::ack, first.ip, first.mac)});
    EXPECT_EQ(state, expected);
    expected.deviceFound = second;
    state.apply(sent(DHCPMessageType::ack, second.ip, second.mac), now);
    EXPECT_EQ(state, expected);
}

TEST(TarnwickStateTest, FindsNoDeviceByAnACKOfAnotherAddressOrOfAStranger) {
    const TarnwickState state = fold({}, {changed(first)});
    EXPECT_EQ(fold(state, {sent(DHCPMessageType::ack, ip(12), first.mac)}), state);
    EXPECT_EQ(fold(state, {sent(DHCPMessageType::ack, first.ip, mac(9))}), state);
}

TEST(TarnwickStateTest, FindsNoDeviceByAnyOtherReply) {
    const TarnwickState state = fold({}, {changed(first)});
    EXPECT_EQ(fold(state, {sent(DHCPMessageType::offer, first.ip, first.mac)}), state);
    EXPECT_EQ(fold(state, {sent(DHCPMessageType::nak, first.ip, first.mac)}), state);
}

TEST(TarnwickStateTest, TakesALeaseInOrReplacesIt) {
    TarnwickState expected;
    expected.leases = {{first.mac, first}};
    TarnwickState state = fold({}, {changed(first)});
    EXPECT_EQ(state, expected);
    const Lease renewed = leaseUntil(now + 2h, first.mac, ip(12));
    expected.leases = {{first.mac, renewed}, {second.mac, second}};
    EXPECT_EQ(fold(state, {changed(renewed), changed(second)}), expected);
}

TEST(TarnwickStateTest, KeepsTheDeviceFoundCurrentWhileItsLeaseChanges) {
    const Lease renewed = leaseUntil(now + 2h, first.mac, first.ip);
    TarnwickState expected = full();
    expected.leases.insert_or_assign(first.mac, renewed);
    expected.deviceFound = renewed;
    EXPECT_EQ(fold(full(), {changed(renewed)}), expected);
}

TEST(TarnwickStateTest, LeavesTheDeviceFoundAloneWhenAnotherLeaseChanges) {
    const Lease renewed = leaseUntil(now + 2h, second.mac, second.ip);
    TarnwickState expected = full();
    expected.leases.insert_or_assign(second.mac, renewed);
    EXPECT_EQ(fold(full(), {changed(renewed)}), expected);
}

TEST(TarnwickStateTest, ForgetsTheDeviceFoundWithItsLease) {
    TarnwickState expected = full();
    expected.leases.erase(first.mac);
    expected.deviceFound = std::nullopt;
    EXPECT_EQ(fold(full(), {removed(first.mac)}), expected);
}

TEST(TarnwickStateTest, ForgetsOnlyTheLeaseOfAnotherClient) {
    TarnwickState expected = full();
    expected.leases.erase(second.mac);
    EXPECT_EQ(fold(full(), {removed(second.mac)}), expected);
    EXPECT_EQ(fold(full(), {removed(mac(9))}), full()) << "a client without a lease";
}

TEST(TarnwickStateTest, KeepsTheLastPresenceOfEachAddress) {
    TarnwickState expected;
    expected.presence = {{first.ip, PresenceState::offline}, {second.ip, PresenceState::conflict}};
    EXPECT_EQ(fold({}, {presence(first.ip, PresenceState::online), presence(second.ip, PresenceState::conflict),
                        presence(first.ip, PresenceState::offline)}),
              expected);
}

TEST(TarnwickStateTest, KeepsTheNoticesThatAreRaised) {
    const Notice again = notice(NoticeKind::otherServer, "Another server answers.");
    TarnwickState expected;
    expected.notices = {{NoticeKind::otherServer, again}};
    const TarnwickState state =
        fold({}, {{ServerEvent::NoticeRaised{notice(NoticeKind::otherServer)}}, {ServerEvent::NoticeRaised{again}}});
    EXPECT_EQ(state, expected) << "one of a kind";
    EXPECT_EQ(fold(state, {{ServerEvent::NoticeCleared{NoticeKind::otherServer}}}), TarnwickState{});
    EXPECT_EQ(fold(state, {{ServerEvent::NoticeCleared{NoticeKind::portInUse}}}), expected);
}

TEST(TarnwickStateTest, IgnoresWhatIsDroppedTheLinkAndTexts) {
    EXPECT_EQ(fold(full(), {{ServerEvent::Dropped{.reason = "relayed", .mac = first.mac}}}), full());
    EXPECT_EQ(fold(full(), {{ServerEvent::Link{.up = false, .media = std::nullopt}}}), full());
    EXPECT_EQ(fold(full(), {{ServerEvent::Info{"text"}}}), full());
}

TEST(TarnwickStateTest, DropsWhatBelongsToARunWhenItStops) {
    TarnwickState expected = full();
    expected.presence = {};
    expected.serverInterface = std::nullopt;
    expected.notices = {{NoticeKind::otherServer, notice(NoticeKind::otherServer)},
                        {NoticeKind::portInUse, notice(NoticeKind::portInUse)},
                        {NoticeKind::leaseSaveFailed, notice(NoticeKind::leaseSaveFailed)},
                        {NoticeKind::leaseFileSetAside, notice(NoticeKind::leaseFileSetAside)}};
    EXPECT_EQ(fold(full(), {stopped()}), expected);
    EXPECT_EQ(fold(full(), {stopped(), stopped()}), expected);
}

TEST(TarnwickStateTest, ForgetsAllButTheLeasesWhenARunStarts) {
    TarnwickState expected;
    expected.leases = {{first.mac, first}, {second.mac, second}};
    expected.serverInterface = "en8";
    TarnwickState state = full();
    state.runStarted("en8");
    EXPECT_EQ(state, expected);
}

TEST(TarnwickStateTest, DismissesANoticeOfThatKindAlone) {
    TarnwickState expected = full();
    expected.notices.erase(NoticeKind::linkDown);
    TarnwickState state = full();
    state.dismiss(NoticeKind::linkDown);
    EXPECT_EQ(state, expected);
    state.dismiss(NoticeKind::linkDown);
    EXPECT_EQ(state, expected);
}

TEST(TarnwickStateTest, ReplacesANoticeOfTheSameKind) {
    TarnwickState state;
    state.raise(notice(NoticeKind::portInUse, "old"));
    state.raise(notice(NoticeKind::portInUse, "new"));
    TarnwickState expected;
    expected.notices = {{NoticeKind::portInUse, notice(NoticeKind::portInUse, "new")}};
    EXPECT_EQ(state, expected);
}

TEST(TarnwickStateTest, ReplacesTheLeasesByTheLoadedOnes) {
    TarnwickState expected = full();
    const Lease third = boundLease(mac(3), ip(12));
    expected.leases = {{third.mac, third}};
    TarnwickState state = full();
    state.loadLeases({.table = LeaseTable({third}, {}), .setAsideURL = std::nullopt});
    EXPECT_EQ(state, expected) << "the notice of an earlier loading stays too";
}

TEST(TarnwickStateTest, KeepsTheLaterSeenOfTwoLoadedRecordsOfOneClient) {
    const Lease older = leaseSeen(now + 30min, mac(1), ip(10));
    const Lease newer = leaseSeen(now + 90min, mac(1), ip(11));
    for (const auto& leases : {std::vector{older, newer}, std::vector{newer, older}}) {
        TarnwickState state;
        state.loadLeases({.table = LeaseTable(leases, {}), .setAsideURL = std::nullopt});
        TarnwickState expected;
        expected.leases = {{mac(1), newer}};
        EXPECT_EQ(state, expected);
    }
}

TEST(TarnwickStateTest, KeepsTheFirstOfTwoLoadedRecordsSeenAtTheSameTime) {
    const Lease one = boundLease(mac(1), ip(10));
    const Lease other = boundLease(mac(1), ip(11));
    TarnwickState state;
    state.loadLeases({.table = LeaseTable({one, other}, {}), .setAsideURL = std::nullopt});
    TarnwickState expected;
    expected.leases = {{mac(1), one}};
    EXPECT_EQ(state, expected);
}

TEST(TarnwickStateTest, TellsThatTheLeaseFileWasSetAside) {
    TarnwickState state = full();
    state.loadLeases({.table = {}, .setAsideURL = "/data/Tarnwick/leases.json.corrupt-20250314-093005"});
    TarnwickState expected = full();
    expected.leases = {};
    expected.notices.insert_or_assign(
        NoticeKind::leaseFileSetAside,
        Notice{.kind = NoticeKind::leaseFileSetAside,
               .message = "The lease file could not be read and was moved to leases.json.corrupt-20250314-093005. "
                          "Starting with no leases."});
    EXPECT_EQ(state, expected);
}

} // namespace
} // namespace DHCPCore
