#include "DHCPCore/Reply.hpp"
#include "DHCPCore/Responder.hpp"
#include "Support/Builders.hpp"
#include "Support/Printing.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <variant>
#include <vector>

namespace DHCPCore {
namespace {

using namespace TestSupport::Literals;
using TestSupport::discover;
using TestSupport::inform;
using TestSupport::mac;
using TestSupport::now;
using TestSupport::request;
using TestSupport::smallConfig;

constexpr IPv4Address server(10, 0, 0, 1);
constexpr IPv4Address leased(10, 0, 0, 10);
constexpr MACAddress client = mac(1);

/// The reply that an empty server gives.
Reply replyTo(const DHCPPacket& packet, const ServerConfig& config = smallConfig(), LeaseTable table = {}) {
    const PresenceMap presence;
    Decision decision =
        Responder{config}.decide(packet, {.table = std::move(table), .presence = presence, .probes = {}, .now = now});
    return std::get<DecisionAction::Reply>(std::move(decision.action.value)).reply;
}

/// A reply packet to a message of the builders, with its options in wire order.
DHCPPacket answer(IPv4Address ciaddr, IPv4Address yiaddr, std::vector<DHCPOptionField> options) {
    DHCPPacket packet;
    packet.op = 2;
    packet.xid = 0x1234ABCD;
    packet.flags = 0x8000;
    packet.ciaddr = ciaddr;
    packet.yiaddr = yiaddr;
    packet.chaddr = {0x02, 0, 0, 0, 0, 1};
    packet.options = std::move(options);
    return packet;
}

ServerConfig fullConfig() {
    ServerConfig config = smallConfig();
    config.router = "10.0.0.254"_ip;
    config.dns = {"10.0.0.53"_ip, "1.1.1.1"_ip, "8.8.8.8"_ip};
    return config;
}

const ReplyDestination broadcast{ReplyDestination::Broadcast{}};

std::vector<std::uint8_t> codes(const DHCPPacket& packet) {
    std::vector<std::uint8_t> result;
    for (const DHCPOptionField& option : packet.options) {
        result.push_back(option.code);
    }
    return result;
}

std::uint32_t number(const DHCPPacket& packet, std::uint8_t code) {
    return IPv4Address::fromBytes(packet.option(code).value()).value().value;
}

TEST(ReplyTest, OffersTheLeaseByBroadcast) {
    const Reply expected{.packet = answer(IPv4Address::zero, leased,
                                          {{53, {2}},
                                           {54, {10, 0, 0, 1}},
                                           {51, {0, 0, 0x0E, 0x10}},
                                           {58, {0, 0, 0x07, 0x08}},
                                           {59, {0, 0, 0x0C, 0x4E}},
                                           {1, {255, 255, 255, 0}},
                                           {28, {10, 0, 0, 255}}}),
                         .destination = broadcast,
                         .type = DHCPMessageType::offer,
                         .ip = leased,
                         .mac = client,
                         .note = std::nullopt};
    EXPECT_EQ(replyTo(discover(client)), expected);
}

TEST(ReplyTest, OffersRouterServersAndCookieInTheirOrder) {
    const Reply expected{.packet = answer(IPv4Address::zero, leased,
                                          {{53, {2}},
                                           {54, {10, 0, 0, 1}},
                                           {51, {0, 0, 0x0E, 0x10}},
                                           {58, {0, 0, 0x07, 0x08}},
                                           {59, {0, 0, 0x0C, 0x4E}},
                                           {1, {255, 255, 255, 0}},
                                           {28, {10, 0, 0, 255}},
                                           {3, {10, 0, 0, 254}},
                                           {6, {10, 0, 0, 53, 1, 1, 1, 1, 8, 8, 8, 8}},
                                           {43, {0x01, 0x04, '1', 'A', 'P', 'C'}}}),
                         .destination = broadcast,
                         .type = DHCPMessageType::offer,
                         .ip = leased,
                         .mac = client,
                         .note = "+APC cookie"};
    EXPECT_EQ(replyTo(discover(client).ofVendor("APC"), fullConfig()), expected);
}

TEST(ReplyTest, AcknowledgesARenewalToTheClientsAddress) {
    const Reply expected{.packet = answer(leased, leased,
                                          {{53, {5}},
                                           {54, {10, 0, 0, 1}},
                                           {51, {0, 0, 0x0E, 0x10}},
                                           {58, {0, 0, 0x07, 0x08}},
                                           {59, {0, 0, 0x0C, 0x4E}},
                                           {1, {255, 255, 255, 0}},
                                           {28, {10, 0, 0, 255}}}),
                         .destination = {ReplyDestination::Unicast{leased}},
                         .type = DHCPMessageType::ack,
                         .ip = leased,
                         .mac = client,
                         .note = "lease 1 h"};
    EXPECT_EQ(replyTo(request(client).from(leased)), expected);
}

TEST(ReplyTest, AcknowledgesANewClientByBroadcastWithAllOptions) {
    const Reply reply =
        replyTo(request(client).selecting(server).requesting(leased).ofVendor("APC 7900"), fullConfig());
    EXPECT_EQ(codes(reply.packet), (std::vector<std::uint8_t>{53, 54, 51, 58, 59, 1, 28, 3, 6, 43}));
    EXPECT_EQ(reply.packet.ciaddr, IPv4Address::zero);
    EXPECT_EQ(reply.destination, broadcast);
    EXPECT_EQ(reply.note, "lease 1 h, +APC cookie");
}

TEST(ReplyTest, SendsTheCookieToVendorsThatBeginWithAPC) {
    for (const std::string vendor : {"APC", "APC 1.2", "APCX"}) {
        SCOPED_TRACE(vendor);
        const Reply reply = replyTo(request(client).from(leased).ofVendor(vendor));
        ASSERT_TRUE(reply.packet.option(OptionCode::vendorSpecific));
        const auto data = *reply.packet.option(OptionCode::vendorSpecific);
        EXPECT_EQ(Bytes(data.begin(), data.end()), (Bytes{0x01, 0x04, 0x31, 0x41, 0x50, 0x43}));
        EXPECT_EQ(reply.note, "lease 1 h, +APC cookie");
    }
    for (const std::string vendor : {"", "apc", "AP", " APC", "xAPC"}) {
        SCOPED_TRACE(vendor);
        const Reply reply = replyTo(request(client).from(leased).ofVendor(vendor));
        EXPECT_FALSE(reply.packet.option(OptionCode::vendorSpecific));
        EXPECT_EQ(reply.note, "lease 1 h");
    }
}

TEST(ReplyTest, AnswersInformWithOptionsButNoLease) {
    const IPv4Address fixed = "10.0.0.77"_ip;
    const Reply expected{.packet = answer(fixed, IPv4Address::zero,
                                          {{53, {5}},
                                           {54, {10, 0, 0, 1}},
                                           {1, {255, 255, 255, 0}},
                                           {28, {10, 0, 0, 255}},
                                           {3, {10, 0, 0, 254}},
                                           {6, {10, 0, 0, 53, 1, 1, 1, 1, 8, 8, 8, 8}}}),
                         .destination = {ReplyDestination::Unicast{fixed}},
                         .type = DHCPMessageType::ack,
                         .ip = fixed,
                         .mac = client,
                         .note = std::nullopt};
    EXPECT_EQ(replyTo(inform(client).from(fixed), fullConfig()), expected);
}

TEST(ReplyTest, AnswersInformOfAnAPCDeviceWithTheCookie) {
    const Reply reply = replyTo(inform(client).from("10.0.0.77"_ip).ofVendor("APC"));
    EXPECT_EQ(codes(reply.packet), (std::vector<std::uint8_t>{53, 54, 1, 28, 43}));
    EXPECT_EQ(reply.note, "+APC cookie");
}

TEST(ReplyTest, BroadcastsANakEvenToAClientWithAnAddress) {
    const std::string reason = "address is not available for renewal";
    const IPv4Address outside = "192.168.7.7"_ip;
    const Reply expected{.packet = answer(IPv4Address::zero, IPv4Address::zero,
                                          {{53, {6}}, {54, {10, 0, 0, 1}}, {56, Bytes(reason.begin(), reason.end())}}),
                         .destination = broadcast,
                         .type = DHCPMessageType::nak,
                         .ip = outside,
                         .mac = client,
                         .note = reason};
    EXPECT_EQ(replyTo(request(client).from(outside).ofVendor("APC"), fullConfig()), expected);
}

TEST(ReplyTest, TellsOfANakAboutTheRequestedAddressFirst) {
    const auto packet = request(client).selecting(server).requesting("10.0.0.99"_ip).from("10.0.0.98"_ip);
    EXPECT_EQ(replyTo(packet).ip, "10.0.0.99"_ip);
    EXPECT_EQ(replyTo(packet.with(OptionCode::requestedIP, Bytes{10, 0, 0})).ip, "10.0.0.98"_ip);
}

TEST(ReplyTest, CutsANakToTheBytesOfAnOption) {
    const auto packet = request(client);
    const ServerConfig config = smallConfig();
    const ReplyBuilder builder{.config = config, .request = packet, .mac = client};

    const Reply whole = builder.nak(std::string(255, 'x'));
    EXPECT_EQ(whole.packet.option(OptionCode::message)->size(), 255U);
    const Reply cut = builder.nak(std::string(254, 'x') + "…");
    const auto data = cut.packet.option(OptionCode::message).value();
    EXPECT_EQ(std::string(data.begin(), data.end()), std::string(254, 'x') + '\xe2');
    EXPECT_EQ(cut.note, std::string(254, 'x') + "…");
}

TEST(ReplyTest, EchoesWhatIdentifiesTheExchange) {
    for (const std::uint16_t flags : std::initializer_list<std::uint16_t>{0x0000, 0x8000, 0x7FFF}) {
        for (auto packet : {discover(client), request(client).from(leased), request(client)}) {
            packet.xid = 0xFEDCBA98;
            packet.flags = flags;
            packet.secs = 9;
            packet.hops = 3;
            packet.chaddr.back() = 0xEE; // what stands behind the address comes back as well
            const DHCPPacket reply = replyTo(packet).packet;
            EXPECT_EQ(reply.op, 2);
            EXPECT_EQ(reply.htype, 1);
            EXPECT_EQ(reply.hlen, 6);
            EXPECT_EQ(reply.hops, 0);
            EXPECT_EQ(reply.xid, 0xFEDCBA98U);
            EXPECT_EQ(reply.secs, 0);
            EXPECT_EQ(reply.flags, flags);
            EXPECT_EQ(reply.siaddr, IPv4Address::zero);
            EXPECT_EQ(reply.giaddr, IPv4Address::zero);
            EXPECT_EQ(reply.chaddr, packet.chaddr);
        }
    }
}

TEST(ReplyTest, SendsAnOfferToTheAddressThatTheClientHas) {
    const Reply reply = replyTo(discover(client).from("10.0.0.77"_ip));
    EXPECT_EQ(reply.destination, (ReplyDestination{ReplyDestination::Unicast{"10.0.0.77"_ip}}));
    EXPECT_EQ(reply.packet.ciaddr, IPv4Address::zero);
}

TEST(ReplyTest, CarriesTheSameOptionsWhateverTheClientAsksFor) {
    const auto packet = discover(client).with(OptionCode::parameterList, Bytes{OptionCode::router, 15});
    EXPECT_EQ(replyTo(packet), replyTo(discover(client)));
}

TEST(ReplyTest, ComputesTheTimesOfTheLease) {
    struct Times {
        std::uint32_t lease, renewal, rebinding;
    };
    for (const auto& [lease, renewal, rebinding] :
         {Times{1, 0, 0}, Times{60, 30, 52}, Times{3600, 1800, 3150}, Times{86400, 43200, 75600},
          Times{4294967295, 2147483647, 3758096383}}) {
        SCOPED_TRACE(lease);
        ServerConfig config = smallConfig();
        config.leaseSeconds = lease;
        const DHCPPacket packet = replyTo(discover(client), config).packet;
        EXPECT_EQ(number(packet, OptionCode::leaseTime), lease);
        EXPECT_EQ(number(packet, OptionCode::renewalTime), renewal);
        EXPECT_EQ(number(packet, OptionCode::rebindingTime), rebinding);
    }
}

TEST(ReplyTest, FormatsTheLeaseTimeInItsNote) {
    ServerConfig config = smallConfig();
    config.leaseSeconds = 604800;
    EXPECT_EQ(replyTo(request(client).from(leased), config).note, "lease 7 d");
}

TEST(ReplyTest, DescribesTheNetworkOfThePrefix) {
    ServerConfig config = smallConfig();
    for (const auto& [prefix, mask, last] :
         {std::tuple{8, "255.0.0.0"_ip, "10.255.255.255"_ip}, std::tuple{20, "255.255.240.0"_ip, "10.0.15.255"_ip},
          std::tuple{30, "255.255.255.252"_ip, "10.0.0.3"_ip}}) {
        config.prefixLength = prefix;
        const DHCPPacket packet = replyTo(discover(client), config).packet;
        EXPECT_EQ(number(packet, OptionCode::subnetMask), mask.value);
        EXPECT_EQ(number(packet, OptionCode::broadcastAddress), last.value);
    }
}

TEST(ReplyTest, KeepsItsOrderOnTheWire) {
    const Bytes bytes = replyTo(discover(client), fullConfig()).packet.serialize(DHCPPacket::minimumReplyLength);
    const Bytes expected{53, 1,  2, 54, 4,   10, 0,  0,  1, 51,  4,   0,   0, 14, 16, 58, 4, 0, 0,   7,
                         8,  59, 4, 0,  0,   12, 78, 1,  4, 255, 255, 255, 0, 28, 4,  10, 0, 0, 255, 3,
                         4,  10, 0, 0,  254, 6,  12, 10, 0, 0,   53,  1,   1, 1,  1,  8,  8, 8, 8,   255};
    ASSERT_EQ(bytes.size(), DHCPPacket::minimumReplyLength);
    EXPECT_EQ(Bytes(bytes.begin() + 240, bytes.end()), expected);
}

} // namespace
} // namespace DHCPCore
