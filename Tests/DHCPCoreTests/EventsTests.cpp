#include "DHCPCore/Events.hpp"
#include "Support/Builders.hpp"
#include "Support/Printing.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace DHCPCore {
namespace {

using namespace TestSupport::Literals;
using TestSupport::discover;
using TestSupport::mac;
using TestSupport::request;

TEST(PacketSummaryTest, CopiesWhatThePacketSays) {
    const auto packet = request(mac(1))
                            .requesting("10.0.0.10"_ip)
                            .selecting("10.0.0.1"_ip)
                            .named("pdu")
                            .ofVendor("APC 7900")
                            .with(OptionCode::clientID, std::array<std::uint8_t, 3>{0x01, 0xAB, 0x0C})
                            .from("10.0.0.11"_ip);

    const PacketSummary summary(packet, "en5");

    PacketSummary expected;
    expected.type = DHCPMessageType::request;
    expected.mac = mac(1);
    expected.xid = 0x1234ABCD;
    expected.hostname = "pdu";
    expected.vendorClass = "APC 7900";
    expected.clientID = "01:ab:0c";
    expected.requestedIP = "10.0.0.10"_ip;
    expected.serverID = "10.0.0.1"_ip;
    expected.ciaddr = "10.0.0.11"_ip;
    expected.interface = "en5";
    EXPECT_EQ(summary, expected);
}

TEST(PacketSummaryTest, LeavesEveryOptionalFieldAbsentForAPacketWithoutOptions) {
    DHCPPacket packet;
    packet.hlen = 16;
    packet.xid = 7;

    const PacketSummary summary(packet, std::nullopt);

    PacketSummary expected;
    expected.xid = 7;
    EXPECT_EQ(summary, expected);
}

TEST(PacketSummaryTest, HasNoTypeWhenOption53HasTwoBytes) {
    const auto packet = discover(mac(1)).with(OptionCode::messageType, std::array<std::uint8_t, 2>{1, 1});
    EXPECT_EQ(PacketSummary(packet, std::nullopt).type, std::nullopt);
}

TEST(PacketSummaryTest, CutsPrintableTextsAtTheirLimit) {
    const auto packet = discover(mac(1)).named(std::string(65, 'h')).ofVendor(std::string(65, 'v'));
    const PacketSummary summary(packet, std::nullopt);
    EXPECT_EQ(summary.hostname, std::string(64, 'h'));
    EXPECT_EQ(summary.vendorClass, std::string(64, 'v'));
}

TEST(ReplyDestinationTest, DescribesAddressAndClientPort) {
    EXPECT_EQ(ReplyDestination{ReplyDestination::Unicast{"10.0.0.5"_ip}}.description(), "10.0.0.5:68");
    EXPECT_EQ(ReplyDestination{ReplyDestination::Broadcast{}}.description(), "255.255.255.255:68");
}

TEST(ReplyDestinationTest, TellsUnicastToTheBroadcastAddressFromBroadcast) {
    EXPECT_NE(ReplyDestination{ReplyDestination::Unicast{IPv4Address::broadcast}},
              ReplyDestination{ReplyDestination::Broadcast{}});
}

TEST(PresenceStateTest, HasItsCaseNameAsRawValue) {
    const auto cases = allCases<PresenceState>();
    std::vector<std::string_view> names;
    names.reserve(cases.size());
    for (const PresenceState state : cases) {
        names.push_back(rawValue(state));
        EXPECT_EQ(fromRawValue<PresenceState>(rawValue(state)), state);
    }
    EXPECT_EQ(names, (std::vector<std::string_view>{"unknown", "online", "offline", "conflict"}));
    EXPECT_EQ(fromRawValue<PresenceState>("Online"), std::nullopt);
}

TEST(PresenceStateTest, TravelsAsItsRawValue) {
    EXPECT_EQ(nlohmann::json(PresenceState::conflict), nlohmann::json("conflict"));
    EXPECT_EQ(nlohmann::json("offline").get<PresenceState>(), PresenceState::offline);
    try {
        static_cast<void>(nlohmann::json("away").get<PresenceState>());
        FAIL() << "an unknown state was read";
    } catch (const DecodingError& error) {
        EXPECT_EQ(error.description(), "Not a presence state: away");
    }
}

struct NoticeKindFacts {
    NoticeKind kind;
    std::string_view name;
    bool critical;
};

constexpr std::array noticeKinds{
    NoticeKindFacts{NoticeKind::localNetworkDenied, "localNetworkDenied", true},
    NoticeKindFacts{NoticeKind::otherServer, "otherServer", true},
    NoticeKindFacts{NoticeKind::portInUse, "portInUse", true},
    NoticeKindFacts{NoticeKind::leaseSaveFailed, "leaseSaveFailed", true},
    NoticeKindFacts{NoticeKind::linkDown, "linkDown", false},
    NoticeKindFacts{NoticeKind::adapterUnplugged, "adapterUnplugged", false},
    NoticeKindFacts{NoticeKind::leaseFileSetAside, "leaseFileSetAside", false},
};

TEST(NoticeKindTest, ListsItsCasesInTheirOrder) {
    std::vector<NoticeKind> expected;
    expected.reserve(noticeKinds.size());
    for (const auto& facts : noticeKinds) {
        expected.push_back(facts.kind);
    }
    const auto cases = allCases<NoticeKind>();
    EXPECT_EQ(std::vector<NoticeKind>(cases.begin(), cases.end()), expected);
}

TEST(NoticeKindTest, HasItsCaseNameAsRawValue) {
    for (const auto& facts : noticeKinds) {
        EXPECT_EQ(rawValue(facts.kind), facts.name);
        EXPECT_EQ(fromRawValue<NoticeKind>(facts.name), facts.kind);
    }
    for (const std::string_view text : {"", "linkdown", "linkDown ", "linkUp"}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(fromRawValue<NoticeKind>(text), std::nullopt);
    }
}

TEST(NoticeKindTest, IsCriticalForTheFirstFour) {
    for (const auto& facts : noticeKinds) {
        SCOPED_TRACE(facts.name);
        EXPECT_EQ(isCritical(facts.kind), facts.critical);
        EXPECT_EQ((Notice{.kind = facts.kind, .message = ""}.isCritical()), facts.critical);
    }
}

TEST(NoticeKindTest, TravelsAsItsRawValue) {
    EXPECT_EQ(nlohmann::json(NoticeKind::linkDown), nlohmann::json("linkDown"));
    EXPECT_EQ(nlohmann::json("portInUse").get<NoticeKind>(), NoticeKind::portInUse);
    try {
        static_cast<void>(nlohmann::json("linkUp").get<NoticeKind>());
        FAIL() << "an unknown kind was read";
    } catch (const DecodingError& error) {
        EXPECT_EQ(error.description(), "Not a notice kind: linkUp");
    }
}

TEST(NoticeKindTest, CanBeAKey) {
    const std::unordered_map<NoticeKind, int> map{{NoticeKind::linkDown, 1}};
    EXPECT_EQ(map.at(NoticeKind::linkDown), 1);
}

TEST(NoticeTest, IsIdentifiedByItsKind) {
    EXPECT_EQ((Notice{.kind = NoticeKind::portInUse, .message = "taken"}.id()), NoticeKind::portInUse);
}

TEST(NoticeTest, NamesTheSetAsideLeaseFileWithoutItsDirectory) {
    const Notice expected{.kind = NoticeKind::leaseFileSetAside,
                          .message = "The lease file could not be read and was moved to "
                                     "leases.json.corrupt-20250101-120000. Starting with no leases."};
    EXPECT_EQ(Notice::leaseFileSetAside("/home/lab/Tarnwick/leases.json.corrupt-20250101-120000"), expected);
}

TEST(ServerEventTest, ComparesCaseAndPayload) {
    const ServerEvent removed{ServerEvent::LeaseRemoved{.mac = mac(1)}};
    EXPECT_EQ(removed, (ServerEvent{ServerEvent::LeaseRemoved{.mac = mac(1)}}));
    EXPECT_NE(removed, (ServerEvent{ServerEvent::LeaseRemoved{.mac = mac(2)}}));
    EXPECT_NE(removed, (ServerEvent{ServerEvent::Stopped{}}));
}

} // namespace
} // namespace DHCPCore
