#include "DHCPCore/Responder.hpp"
#include "Support/Builders.hpp"
#include "Support/Deciding.hpp"
#include "Support/Printing.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace DHCPCore {
namespace {

using namespace std::chrono_literals;
using namespace TestSupport::Literals;
using TestSupport::changed;
using TestSupport::client;
using TestSupport::first;
using TestSupport::info;
using TestSupport::mac;
using TestSupport::newLease;
using TestSupport::newlyBound;
using TestSupport::newlyOffered;
using TestSupport::nothing;
using TestSupport::now;
using TestSupport::otherServer;
using TestSupport::request;
using TestSupport::second;
using TestSupport::server;
using TestSupport::Situation;
using TestSupport::smallConfig;
using TestSupport::tableOf;
using TestSupport::third;
using TestSupport::with;

DecisionAction ackOf(IPv4Address ip, const DHCPPacket& packet) {
    return {DecisionAction::Reply{ReplyBuilder{smallConfig(), packet, client}.ack(ip)}};
}

DecisionAction nakOf(std::string_view reason, const DHCPPacket& packet) {
    return {DecisionAction::Reply{ReplyBuilder{smallConfig(), packet, client}.nak(reason)}};
}

/// A NAK changes nothing and is its own note.
Decision refusal(LeaseTable table, std::string_view reason, const DHCPPacket& packet) {
    return {.action = nakOf(reason, packet), .table = std::move(table), .tableChanged = false, .notes = {}};
}

/// The client gets the address as the next record of the table.
Decision acknowledgement(IPv4Address ip, const DHCPPacket& packet) {
    const Lease bound = newlyBound(client, ip, now + 1h);
    return {.action = ackOf(ip, packet), .table = tableOf({bound}), .tableChanged = true, .notes = {changed(bound)}};
}

TEST(ResponderSelectingTest, AcknowledgesTheClientsOwnOffer) {
    const auto packet = request(client).selecting(server).requesting(first);
    EXPECT_EQ(with(tableOf({newlyOffered(client, first, now + 1us)})).decide(packet), acknowledgement(first, packet));
}

TEST(ResponderSelectingTest, AcknowledgesAFreeAddress) {
    for (const IPv4Address ip : {first, third}) {
        const auto packet = request(client).selecting(server).requesting(ip);
        EXPECT_EQ(Situation{}.decide(packet), acknowledgement(ip, packet));
    }
}

TEST(ResponderSelectingTest, AcknowledgesTheOwnAddressOutsideThePoolWhileItIsHeld) {
    const IPv4Address outside = "10.0.0.99"_ip;
    const auto packet = request(client).selecting(server).requesting(outside);
    Situation situation = with(tableOf({newlyOffered(client, outside, now + 1us)}));
    EXPECT_EQ(situation.decide(packet), acknowledgement(outside, packet));
    situation.table = tableOf({newlyOffered(client, outside, now)});
    EXPECT_EQ(situation.decide(packet), refusal(situation.table, "requested address is not available", packet));
}

TEST(ResponderSelectingTest, TakesCiaddrWhereOption50IsMissingOrMalformed) {
    const auto packet = request(client).selecting(server).from(second);
    EXPECT_EQ(Situation{}.decide(packet), acknowledgement(second, packet));
    const auto malformed = packet.with(OptionCode::requestedIP, Bytes{10, 0, 0});
    EXPECT_EQ(Situation{}.decide(malformed), acknowledgement(second, malformed));
}

TEST(ResponderSelectingTest, PrefersOption50ToCiaddr) {
    const auto packet = request(client).selecting(server).requesting(first).from(second);
    EXPECT_EQ(Situation{}.decide(packet), acknowledgement(first, packet));
}

TEST(ResponderSelectingTest, RefusesARequestForNoAddress) {
    const auto packet = request(client).selecting(server);
    EXPECT_EQ(Situation{}.decide(packet), refusal({}, "no requested address", packet));
    const auto zero = packet.requesting(IPv4Address::zero).from(first);
    EXPECT_EQ(Situation{}.decide(zero), refusal({}, "no requested address", zero));
}

TEST(ResponderSelectingTest, RefusesAnAddressThatIsNotFree) {
    LeaseTable table = tableOf({newlyBound(mac(2), first, now + 1us)});
    table.addQuarantine(second, now + 1us, mac(9));
    for (const IPv4Address ip : {first, second, server, "10.0.0.9"_ip, "10.0.0.13"_ip, "192.168.7.7"_ip}) {
        const auto packet = request(client).selecting(server).requesting(ip);
        EXPECT_EQ(with(table).decide(packet), refusal(table, "requested address is not available", packet));
    }
}

TEST(ResponderSelectingTest, RefusesTheServersOwnAddressInsideThePool) {
    Situation situation;
    situation.config.rangeStart = server;
    const auto packet = request(client).selecting(server).requesting(server);
    EXPECT_EQ(situation.decide(packet), refusal({}, "requested address is not available", packet));
}

TEST(ResponderSelectingTest, TakesAnAddressWhoseHoldHasExpired) {
    const auto packet = request(client).selecting(server).requesting(first);
    const Lease expired = newlyBound(mac(2), first, now);
    const Lease bound = newlyBound(client, first, now + 1h);
    const Decision expected{.action = ackOf(first, packet),
                            .table = tableOf({expired, bound}),
                            .tableChanged = true,
                            .notes = {changed(bound)}};
    EXPECT_EQ(with(tableOf({expired})).decide(packet), expected);
}

TEST(ResponderSelectingTest, BindsForTheConfiguredLeaseTime) {
    Situation situation;
    situation.config.leaseSeconds = 4294967295;
    const Decision decision = situation.decide(request(client).selecting(server).requesting(first));
    EXPECT_EQ(decision.table, tableOf({newlyBound(client, first, now + 4294967295s)}));
}

TEST(ResponderSelectingTest, KeepsWhatTheRequestDoesNotRepeat) {
    Lease offered = newlyOffered(client, first, now + 60s, now - 1s);
    offered.hostname = "pdu";
    offered.vendorClass = "Acme";
    offered.clientID = "01:02";
    const auto packet = request(client).selecting(server).requesting(first).ofVendor("Acme 2");

    Lease bound = offered;
    bound.state = Lease::State::bound;
    bound.expiresAt = now + 1h;
    bound.lastSeen = now;
    bound.vendorClass = "Acme 2";
    EXPECT_EQ(with(tableOf({offered})).decide(packet).table, tableOf({bound}));
}

TEST(ResponderRenewingTest, AcknowledgesTheOwnAddress) {
    const auto packet = request(client).from(first);
    EXPECT_EQ(with(tableOf({newlyBound(client, first, now + 1us)})).decide(packet), acknowledgement(first, packet));
}

TEST(ResponderRenewingTest, AcknowledgesAFreeAddressThatTheServerForgot) {
    const auto packet = request(client).from(third);
    EXPECT_EQ(Situation{}.decide(packet), acknowledgement(third, packet));
}

TEST(ResponderRenewingTest, RefusesAnAddressThatIsNotFree) {
    LeaseTable table = tableOf({newlyBound(mac(2), first, now + 1us)});
    table.addQuarantine(second, now + 1us, mac(9));
    for (const IPv4Address ip : {first, second, server, "10.0.0.9"_ip, "10.0.0.13"_ip, "192.168.7.7"_ip}) {
        const auto packet = request(client).from(ip);
        EXPECT_EQ(with(table).decide(packet), refusal(table, "address is not available for renewal", packet));
    }
}

TEST(ResponderRenewingTest, RefusesTheOwnReclaimedAddressThatAnotherDeviceHolds) {
    const LeaseTable table =
        tableOf({newLease(Lease::State::reclaimed, client, first, now + 1h), newlyBound(mac(2), first, now + 1h)});
    const auto packet = request(client).from(first);
    EXPECT_EQ(with(table).decide(packet), refusal(table, "address is not available for renewal", packet));
}

TEST(ResponderRenewingTest, TreatsAMalformedServerIdentifierAsAbsent) {
    const auto packet = request(client).from(first).with(OptionCode::serverID, Bytes{10, 0, 0, 2, 0});
    EXPECT_EQ(Situation{}.decide(packet), acknowledgement(first, packet));
}

TEST(ResponderRebootTest, AcknowledgesAFreeAddressWhateverTheOwnRecordSays) {
    for (const IPv4Address ip : {first, third}) {
        const auto packet = request(client).requesting(ip);
        EXPECT_EQ(with(tableOf({newlyBound(client, second, now + 1h)})).decide(packet), acknowledgement(ip, packet));
    }
}

TEST(ResponderRebootTest, AcknowledgesTheOwnAddress) {
    const auto packet = request(client).requesting(first);
    EXPECT_EQ(with(tableOf({newlyBound(client, first, now + 1us)})).decide(packet), acknowledgement(first, packet));
}

TEST(ResponderRebootTest, RefusesARequestForNoAddress) {
    const auto packet = request(client);
    EXPECT_EQ(Situation{}.decide(packet), refusal({}, "no requested address", packet));
    const auto malformed = request(client).with(OptionCode::requestedIP, Bytes{10, 0, 0, 10, 0});
    EXPECT_EQ(Situation{}.decide(malformed), refusal({}, "no requested address", malformed));
}

TEST(ResponderRebootTest, RefusesAnAddressOfAnotherNetwork) {
    for (const IPv4Address ip : {IPv4Address::zero, "9.255.255.255"_ip, "10.0.1.0"_ip}) {
        const auto packet = request(client).requesting(ip);
        EXPECT_EQ(Situation{}.decide(packet), refusal({}, "requested address is not on this network", packet));
    }
}

TEST(ResponderRebootTest, RefusesAnAddressOutsideThePool) {
    for (const IPv4Address ip : {"10.0.0.0"_ip, "10.0.0.9"_ip, "10.0.0.13"_ip, "10.0.0.255"_ip, server}) {
        const auto packet = request(client).requesting(ip);
        EXPECT_EQ(Situation{}.decide(packet), refusal({}, "requested address is outside the range", packet));
    }
}

TEST(ResponderRebootTest, RefusesTheServersOwnAddressInsideThePoolWithTheSameText) {
    Situation situation;
    situation.config.rangeStart = server;
    const auto packet = request(client).requesting(server);
    EXPECT_EQ(situation.decide(packet), refusal({}, "requested address is outside the range", packet));
}

TEST(ResponderRebootTest, RefusesADeclinedAddressEvenOneThatAnotherDeviceHolds) {
    LeaseTable table = tableOf({newlyBound(mac(2), first, now + 1h)});
    table.addQuarantine(first, now + 1us, mac(9));
    const auto packet = request(client).requesting(first);
    EXPECT_EQ(with(table).decide(packet), refusal(table, "requested address was declined recently", packet));
}

TEST(ResponderRebootTest, RefusesAnAddressThatAnotherDeviceHolds) {
    for (const Lease::State state : {Lease::State::offered, Lease::State::bound}) {
        const LeaseTable table = tableOf({newLease(state, mac(2), first, now + 1us)});
        const auto packet = request(client).requesting(first);
        EXPECT_EQ(with(table).decide(packet), refusal(table, "address in use by another device", packet));
    }
}

Decision otherServerChosen(LeaseTable table, std::vector<ServerEvent> notes) {
    notes.push_back(info("client 02:00:00:00:00:01 chose another server (10.0.0.2)"));
    notes.push_back({ServerEvent::NoticeRaised{
        {.kind = NoticeKind::otherServer,
         .message = "Another DHCP server is on this cable (10.0.0.2). The device chose it instead of Tarnwick."}}});
    return {.action = nothing(), .table = std::move(table), .tableChanged = false, .notes = std::move(notes)};
}

TEST(ResponderOtherServerTest, ReleasesTheOutstandingOfferWithoutSaving) {
    const Lease offered = newlyOffered(client, first, now + 30s, now - 30s);
    Lease released = offered;
    released.state = Lease::State::released;
    released.expiresAt = now;
    EXPECT_EQ(with(tableOf({offered})).decide(request(client).selecting(otherServer).requesting(first)),
              otherServerChosen(tableOf({released}), {changed(released)}));
}

TEST(ResponderOtherServerTest, LeavesABindingAlone) {
    const LeaseTable table = tableOf({newlyBound(client, first, now + 1h)});
    EXPECT_EQ(with(table).decide(request(client).selecting(otherServer).requesting(first)),
              otherServerChosen(table, {}));
}

TEST(ResponderOtherServerTest, TellsOfAClientItDoesNotKnow) {
    EXPECT_EQ(Situation{}.decide(request(client).selecting(otherServer).from(first)), otherServerChosen({}, {}));
}

} // namespace
} // namespace DHCPCore
