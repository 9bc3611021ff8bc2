#include "DHCPCore/Responder.hpp"
#include "Support/Builders.hpp"
#include "Support/Deciding.hpp"
#include "Support/Printing.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <utility>

namespace DHCPCore {
namespace {

using namespace std::chrono_literals;
using namespace TestSupport::Literals;
using TestSupport::changed;
using TestSupport::client;
using TestSupport::ClientMessage;
using TestSupport::decline;
using TestSupport::discover;
using TestSupport::dropped;
using TestSupport::first;
using TestSupport::info;
using TestSupport::inform;
using TestSupport::mac;
using TestSupport::newlyBound;
using TestSupport::nothing;
using TestSupport::now;
using TestSupport::offerOf;
using TestSupport::otherServer;
using TestSupport::release;
using TestSupport::request;
using TestSupport::second;
using TestSupport::server;
using TestSupport::silence;
using TestSupport::Situation;
using TestSupport::smallConfig;
using TestSupport::tableOf;
using TestSupport::with;

TEST(ResponderScreeningTest, DropsWhatIsNoClientRequestBeforeLookingFurther) {
    for (const std::uint8_t op : std::initializer_list<std::uint8_t>{0, 2, 255}) {
        auto packet = discover(client).relayedBy("10.0.0.99"_ip);
        packet.op = op;
        packet.hlen = 16;
        EXPECT_EQ(Situation{}.decide(packet),
                  silence({}, dropped("not a client request (op " + std::to_string(op) + ")", std::nullopt)));
    }
}

TEST(ResponderScreeningTest, DropsWhatIsNotEthernet) {
    auto packet = discover(client).relayedBy("10.0.0.99"_ip);
    packet.hlen = 16;
    EXPECT_EQ(Situation{}.decide(packet), silence({}, dropped("not Ethernet (htype 1, hlen 16)", std::nullopt)));
    packet.htype = 6;
    packet.hlen = 6;
    EXPECT_EQ(Situation{}.decide(packet), silence({}, dropped("not Ethernet (htype 6, hlen 6)", std::nullopt)));
}

TEST(ResponderScreeningTest, DropsRelayedRequests) {
    EXPECT_EQ(Situation{}.decide(discover(client).relayedBy("10.0.0.99"_ip)),
              silence({}, dropped("relayed request (not served)")));
}

TEST(ResponderScreeningTest, DropsServerMessages) {
    EXPECT_EQ(Situation{}.decide(ClientMessage(client, DHCPMessageType::offer)),
              silence({}, dropped("OFFER is a server message")));
    EXPECT_EQ(Situation{}.decide(ClientMessage(client, DHCPMessageType::ack)),
              silence({}, dropped("ACK is a server message")));
    EXPECT_EQ(Situation{}.decide(ClientMessage(client, DHCPMessageType::nak)),
              silence({}, dropped("NAK is a server message")));
}

TEST(ResponderScreeningTest, DropsMessagesWithoutAKnownType) {
    const Decision expected = silence({}, dropped("BOOTP request (not served)"));
    EXPECT_EQ(Situation{}.decide(discover(client).without(OptionCode::messageType)), expected);
    EXPECT_EQ(Situation{}.decide(discover(client).with(OptionCode::messageType, Bytes{1, 1})), expected);
    EXPECT_EQ(Situation{}.decide(discover(client).with(OptionCode::messageType, Bytes{0})), expected);
    EXPECT_EQ(Situation{}.decide(discover(client).with(OptionCode::messageType, Bytes{9})), expected);
}

TEST(ResponderTest, PrunesTheQuarantineWithoutAskingToSaveIt) {
    auto packet = discover(client);
    packet.op = 2;
    LeaseTable table;
    table.addQuarantine(first, now, mac(9));
    table.addQuarantine(second, now + 1us, mac(9));
    LeaseTable pruned;
    pruned.addQuarantine(second, now + 1us, mac(9));

    EXPECT_EQ(with(table).decide(packet), silence(pruned, dropped("not a client request (op 2)", std::nullopt)));
}

TEST(ResponderTest, TreatsAnAddressAsDeclinedUntilItsTimeIsUp) {
    LeaseTable table;
    table.addQuarantine(first, now + 600s, mac(9));
    Situation situation = with(table);
    const auto packet = discover(client);

    situation.now = now + 600s - 1us;
    EXPECT_EQ(situation.decide(packet).action, offerOf(second, packet));
    situation.now = now + 600s;
    EXPECT_EQ(situation.decide(packet).action, offerOf(first, packet));
}

TEST(ResponderTest, HandsTheTableBackWithoutCopyingIt) {
    LeaseTable table = tableOf({newlyBound(client, first, now + 1h)});
    const Lease* const records = &*table.leases().begin();
    const PresenceMap presence;

    const Decision decision =
        Responder{smallConfig()}.decide(request(client).from(first), {std::move(table), presence, {}, now});

    EXPECT_EQ(&*decision.table.leases().begin(), records);
}

TEST(DecisionContextTest, HasABudgetOfFiveProbes) {
    const PresenceMap presence;
    DecisionContext context{.table = {}, .presence = presence, .probes = {}, .now = now};
    for (std::uint8_t number = 1; number <= 5; ++number) {
        EXPECT_FALSE(context.probeBudgetExhausted());
        context.probes[IPv4Address(10, 0, 0, number)] = true;
    }
    EXPECT_TRUE(context.probeBudgetExhausted());
}

ServerEvent conflict(IPv4Address ip) {
    return info("conflict: 02:00:00:00:00:01 reports " + ip.description() + " is already in use; quarantined for 10 m");
}

TEST(ResponderDeclineTest, RemovesTheLeaseAndQuarantinesItsAddress) {
    const Decision expected{.action = nothing(),
                            .table = {{}, {{.ip = first, .until = now + 600s, .reportedBy = client}}},
                            .tableChanged = true,
                            .notes = {{ServerEvent::LeaseRemoved{client}}, conflict(first)}};
    EXPECT_EQ(with(tableOf({newlyBound(client, first, now + 1h)}))
                  .decide(decline(client).selecting(server).requesting(first)),
              expected);
}

TEST(ResponderDeclineTest, QuarantinesAnAddressThatTheClientDoesNotHold) {
    const Lease own = newlyBound(client, first, now + 1h);
    const Lease other = newlyBound(mac(2), second, now + 1h);
    for (const IPv4Address ip : {second, "192.168.7.7"_ip}) {
        const Decision expected{.action = nothing(),
                                .table = {{own, other}, {{.ip = ip, .until = now + 600s, .reportedBy = client}}},
                                .tableChanged = true,
                                .notes = {conflict(ip)}};
        EXPECT_EQ(with(tableOf({own, other})).decide(decline(client).selecting(otherServer).requesting(ip)), expected);
    }
}

TEST(ResponderDeclineTest, RestartsTheQuarantineOfAnAddressDeclinedBefore) {
    LeaseTable table;
    table.addQuarantine(first, now + 1s, mac(9));
    EXPECT_EQ(with(table).decide(decline(client).requesting(first)).table,
              (LeaseTable{{}, {{.ip = first, .until = now + 600s, .reportedBy = client}}}));
}

TEST(ResponderDeclineTest, DropsADeclineWithoutAnAddress) {
    const LeaseTable table = tableOf({newlyBound(client, first, now + 1h)});
    const auto expected = silence(table, dropped("DECLINE without a requested address"));
    EXPECT_EQ(with(table).decide(decline(client).from(first)), expected);
    EXPECT_EQ(with(table).decide(decline(client).with(OptionCode::requestedIP, Bytes{10, 0, 0})), expected);
}

TEST(ResponderReleaseTest, ReleasesTheLease) {
    for (const Date expiry : {now + 1h, now - 1h}) {
        const Lease bound = newlyBound(client, first, expiry, now - 2h);
        Lease released = bound;
        released.state = Lease::State::released;
        released.expiresAt = now;
        released.lastSeen = now;
        const Decision expected{
            .action = nothing(), .table = tableOf({released}), .tableChanged = true, .notes = {changed(released)}};
        EXPECT_EQ(with(tableOf({bound})).decide(release(client).selecting(server).from(first)), expected);
    }
}

TEST(ResponderReleaseTest, IgnoresAnUnknownLease) {
    const auto expected = info("RELEASE from 02:00:00:00:00:01 for an unknown lease ignored");
    const LeaseTable table = tableOf({newlyBound(client, first, now + 1h)});
    EXPECT_EQ(with(table).decide(release(client).selecting(server).from(second)), silence(table, expected));
    EXPECT_EQ(with(table).decide(release(client).selecting(server).requesting(first)), silence(table, expected));
    EXPECT_EQ(Situation{}.decide(release(client).selecting(server).from(first)), silence({}, expected));
}

TEST(ResponderReleaseTest, IgnoresAReleaseForAnotherServer) {
    const LeaseTable table = tableOf({newlyBound(client, first, now + 1h)});
    const auto expected = silence(table, info("RELEASE from 02:00:00:00:00:01 for another server ignored"));
    EXPECT_EQ(with(table).decide(release(client).from(first)), expected);
    EXPECT_EQ(with(table).decide(release(client).selecting(otherServer).from(first)), expected);
    EXPECT_EQ(with(table).decide(release(client).from(first).with(OptionCode::serverID, Bytes{10, 0, 0})), expected);
}

TEST(ResponderInformTest, AnswersADeviceOfThisNetworkAndLeavesTheTableAlone) {
    const LeaseTable table = tableOf({newlyBound(mac(2), first, now + 1h)});
    const auto packet = inform(client).from("10.0.0.77"_ip);
    const Decision expected{
        .action = {DecisionAction::Reply{ReplyBuilder{smallConfig(), packet, client}.optionsOnly()}},
        .table = table,
        .tableChanged = false,
        .notes = {info("static-IP device 10.0.0.77 (02:00:00:00:00:01) asked for options")}};
    EXPECT_EQ(with(table).decide(packet), expected);
}

TEST(ResponderInformTest, DropsADeviceOfAnotherNetwork) {
    EXPECT_EQ(Situation{}.decide(inform(client).from("10.0.1.0"_ip)),
              silence({}, dropped("INFORM from 10.0.1.0, which is not on this network")));
    EXPECT_EQ(Situation{}.decide(inform(client)),
              silence({}, dropped("INFORM from 0.0.0.0, which is not on this network")));
}

} // namespace
} // namespace DHCPCore
