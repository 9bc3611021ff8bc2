#include "DHCPCore/Responder.hpp"
#include "Support/Builders.hpp"
#include "Support/Deciding.hpp"
#include "Support/Printing.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <utility>
#include <variant>

namespace DHCPCore {
namespace {

using namespace std::chrono_literals;
using namespace TestSupport::Literals;
using TestSupport::changed;
using TestSupport::client;
using TestSupport::discover;
using TestSupport::dropped;
using TestSupport::first;
using TestSupport::info;
using TestSupport::mac;
using TestSupport::newLease;
using TestSupport::newlyBound;
using TestSupport::newlyOffered;
using TestSupport::now;
using TestSupport::offerOf;
using TestSupport::second;
using TestSupport::server;
using TestSupport::silence;
using TestSupport::Situation;
using TestSupport::tableOf;
using TestSupport::third;
using TestSupport::with;

/// Every address of the pool is bound for another hour; device 12 was seen longest ago, then 10, then 11.
LeaseTable fullTable() {
    return tableOf({newlyBound(mac(10), first, now + 1h, now - 20s), //
                    newlyBound(mac(11), second, now + 1h, now - 10s), newlyBound(mac(12), third, now + 1h, now - 30s)});
}

std::string reclaimText(IPv4Address ip, const MACAddress& mac) {
    return "range full: reclaimed " + ip.description() + " from " + mac.description() + " (offline, lease not expired)";
}

TEST(ResponderDiscoverTest, OffersTheLowestFreeAddressForAMinute) {
    const auto packet = discover(client);
    const Lease offered = newlyOffered(client, first, now + 60s);
    const Decision expected{.action = offerOf(first, packet),
                            .table = tableOf({offered}),
                            .tableChanged = false,
                            .notes = {changed(offered)}};
    EXPECT_EQ(Situation{}.decide(packet), expected);
}

TEST(ResponderDiscoverTest, OffersTheRequestedAddress) {
    const auto packet = discover(client).requesting(third);
    EXPECT_EQ(Situation{}.decide(packet).action, offerOf(third, packet));
}

TEST(ResponderDiscoverTest, OffersAnotherAddressThanOneOutsideThePool) {
    for (const IPv4Address outside : {"10.0.0.9"_ip, "10.0.0.13"_ip, server}) {
        const auto packet = discover(client).requesting(outside);
        EXPECT_EQ(Situation{}.decide(packet).action, offerOf(first, packet));
    }
}

TEST(ResponderDiscoverTest, NeverOffersTheServersOwnAddress) {
    Situation situation;
    situation.config.rangeStart = server;
    situation.config.rangeEnd = server;
    EXPECT_EQ(situation.decide(discover(client).requesting(server)), silence({}, dropped("address pool exhausted")));
}

TEST(ResponderDiscoverTest, OffersThePreviousAddressAgainAndKeepsTheRecordsStory) {
    Lease former = newLease(Lease::State::released, client, second, now - 1h, now - 2h);
    former.hostname = "pdu";
    former.vendorClass = "APC";
    former.clientID = "01:02";
    const auto packet = discover(client).requesting(third).named("pdu-2");

    Lease offered = former;
    offered.state = Lease::State::offered;
    offered.expiresAt = now + 60s;
    offered.lastSeen = now;
    offered.hostname = "pdu-2";
    const Decision expected{.action = offerOf(second, packet),
                            .table = tableOf({offered}),
                            .tableChanged = false,
                            .notes = {changed(offered)}};
    EXPECT_EQ(with(tableOf({former})).decide(packet), expected);
}

TEST(ResponderDiscoverTest, RemembersWhatTheClientSaysOfItself) {
    const auto packet = discover(client).named("pdu").ofVendor("Acme").with(OptionCode::clientID, Bytes{0x01, 0xAB});
    Lease offered = newlyOffered(client, first, now + 60s);
    offered.hostname = "pdu";
    offered.vendorClass = "Acme";
    offered.clientID = "01:ab";
    EXPECT_EQ(Situation{}.decide(packet).table, tableOf({offered}));
}

TEST(ResponderDiscoverTest, LeavesTheBindingOfAClientThatStartsAnew) {
    Lease bound = newlyBound(client, second, now + 1us, now - 1h);
    const auto packet = discover(client).named("pdu");
    Lease seen = bound;
    seen.lastSeen = now;
    const Decision expected{
        .action = offerOf(second, packet), .table = tableOf({seen}), .tableChanged = false, .notes = {}};
    EXPECT_EQ(with(tableOf({bound})).decide(packet), expected);
}

TEST(ResponderDiscoverTest, OffersAnewOnceTheBindingHasExpired) {
    const Lease bound = newlyBound(client, second, now, now - 1h);
    const auto packet = discover(client);
    Lease offered = bound;
    offered.state = Lease::State::offered;
    offered.expiresAt = now + 60s;
    offered.lastSeen = now;
    const Decision expected{.action = offerOf(second, packet),
                            .table = tableOf({offered}),
                            .tableChanged = false,
                            .notes = {changed(offered)}};
    EXPECT_EQ(with(tableOf({bound})).decide(packet), expected);
}

TEST(ResponderDiscoverTest, ExtendsAnOutstandingOffer) {
    const auto packet = discover(client);
    const Lease offered = newlyOffered(client, first, now + 60s, now - 30s);
    Lease extended = offered;
    extended.lastSeen = now;
    const Decision expected{.action = offerOf(first, packet),
                            .table = tableOf({extended}),
                            .tableChanged = false,
                            .notes = {changed(extended)}};
    EXPECT_EQ(with(tableOf({newlyOffered(client, first, now + 30s, now - 30s)})).decide(packet), expected);
}

TEST(ResponderDiscoverTest, GivesNothingFromAReversedPool) {
    Situation situation;
    std::swap(situation.config.rangeStart, situation.config.rangeEnd);
    EXPECT_EQ(situation.decide(discover(client)), silence({}, dropped("address pool exhausted")));
}

TEST(ResponderFullPoolTest, DropsWhenEveryHolderIsOnlineOrInConflict) {
    Situation situation = with(fullTable());
    situation.presence = {
        {first, PresenceState::online}, {second, PresenceState::conflict}, {third, PresenceState::online}};
    EXPECT_EQ(situation.decide(discover(client)), silence(fullTable(), dropped("address pool exhausted")));
}

TEST(ResponderFullPoolTest, ProbesTheHolderThatIsOfflineUnknownOrNeverProbed) {
    const Decision expected{
        .action = {DecisionAction::Probe{third}}, .table = fullTable(), .tableChanged = false, .notes = {}};
    Situation situation = with(fullTable());
    situation.presence = {{first, PresenceState::online}, {second, PresenceState::online}};
    EXPECT_EQ(situation.decide(discover(client)), expected);
    for (const PresenceState state : {PresenceState::offline, PresenceState::unknown}) {
        situation.presence[third] = state;
        EXPECT_EQ(situation.decide(discover(client)), expected);
    }
}

TEST(ResponderFullPoolTest, ReclaimsTheAddressThatDidNotAnswer) {
    Situation situation = with(fullTable());
    situation.probes = {{third, false}};
    const auto packet = discover(client);

    Lease reclaimed = fullTable().leases().all().at(2);
    reclaimed.state = Lease::State::reclaimed;
    const Lease offered = newlyOffered(client, third, now + 60s);
    LeaseTable table = fullTable();
    table.upsert(reclaimed);
    table.upsert(offered);
    const Decision expected{.action = offerOf(third, packet),
                            .table = table,
                            .tableChanged = true,
                            .notes = {changed(reclaimed), info(reclaimText(third, mac(12))), changed(offered)}};
    EXPECT_EQ(situation.decide(packet), expected);
}

TEST(ResponderFullPoolTest, BelievesTheProbeRatherThanThePresence) {
    Situation situation = with(fullTable());
    situation.presence = {
        {first, PresenceState::online}, {second, PresenceState::online}, {third, PresenceState::online}};
    situation.probes = {{third, false}};
    const auto packet = discover(client);
    EXPECT_EQ(situation.decide(packet).action, offerOf(third, packet));
}

TEST(ResponderFullPoolTest, ProbesTheNextOldestWhenTheHolderAnswers) {
    Situation situation = with(fullTable());
    situation.probes = {{third, true}};
    EXPECT_EQ(situation.decide(discover(client)).action, (DecisionAction{DecisionAction::Probe{first}}));
    situation.probes[first] = true;
    EXPECT_EQ(situation.decide(discover(client)).action, (DecisionAction{DecisionAction::Probe{second}}));
    situation.probes[second] = true;
    EXPECT_EQ(situation.decide(discover(client)), silence(fullTable(), dropped("address pool exhausted")));
}

TEST(ResponderFullPoolTest, GivesUpAfterFiveProbes) {
    Situation situation;
    situation.config.rangeEnd = "10.0.0.15"_ip;
    for (std::uint8_t number = 10; number <= 15; ++number) {
        situation.table.upsert(newlyBound(mac(number), IPv4Address(10, 0, 0, number), now + 1h));
    }
    for (std::uint8_t number = 10; number <= 14; ++number) {
        const IPv4Address next(10, 0, 0, number);
        EXPECT_EQ(situation.decide(discover(client)).action, (DecisionAction{DecisionAction::Probe{next}}));
        situation.probes[next] = true;
    }
    EXPECT_EQ(situation.decide(discover(client)), silence(situation.table, dropped("address pool exhausted")));
}

TEST(ResponderFullPoolTest, StillUsesTheFifthAnswer) {
    Situation situation;
    situation.config.rangeEnd = "10.0.0.15"_ip;
    for (std::uint8_t number = 10; number <= 15; ++number) {
        situation.table.upsert(newlyBound(mac(number), IPv4Address(10, 0, 0, number), now + 1h));
    }
    for (std::uint8_t number = 10; number <= 14; ++number) {
        situation.probes[IPv4Address(10, 0, 0, number)] = number != 14;
    }
    const auto packet = discover(client);
    Decision decision = situation.decide(packet);
    ASSERT_TRUE(std::holds_alternative<DecisionAction::Reply>(decision.action.value));
    EXPECT_EQ(std::get<DecisionAction::Reply>(decision.action.value).reply.ip, "10.0.0.14"_ip);
}

TEST(ResponderFullPoolTest, NeverTakesAnOutstandingOfferAway) {
    Situation situation =
        with(tableOf({newlyOffered(mac(10), first, now + 1us), newlyOffered(mac(11), second, now + 1us),
                      newlyOffered(mac(12), third, now + 1us)}));
    situation.probes = {{first, false}};
    EXPECT_EQ(situation.decide(discover(client)), silence(situation.table, dropped("address pool exhausted")));
}

TEST(ResponderFullPoolTest, TakesAnExpiredOfferWithoutAProbe) {
    LeaseTable table = fullTable();
    table.upsert(newlyOffered(mac(11), second, now));
    const auto packet = discover(client);
    const Decision decision = with(table).decide(packet);
    const Lease offered = newlyOffered(client, second, now + 60s);
    table.upsert(offered);
    const Decision expected{
        .action = offerOf(second, packet), .table = table, .tableChanged = false, .notes = {changed(offered)}};
    EXPECT_EQ(decision, expected);
}

} // namespace
} // namespace DHCPCore
