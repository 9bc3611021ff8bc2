// Real datagrams over loopback: what the client gets, and what the tool says about it.
#include "TarnwickTests/LoopbackClient.hpp"
#include "TarnwickTests/ToolProcess.hpp"

#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <utility>
#include <vector>

namespace Tarnwick {
namespace {

using namespace DHCPCore;
using namespace std::string_literals;

constexpr IPv4Address server{192, 168, 0, 1};
constexpr IPv4Address firstAddress{192, 168, 0, 100};
constexpr IPv4Address secondAddress{192, 168, 0, 101};

/// A server with a client; the lines that a test has not read yet are compared without their times.
class ExchangeTest : public testing::Test {
  protected:
    explicit ExchangeTest(const std::vector<std::string>& further = {}) : tool_(client_.serveArguments(further)) {
        tool_.linesThrough("START");
    }

    /// The lines up to the one that contains the text, without their times.
    std::vector<std::string> linesThrough(const std::string& text) {
        std::vector<std::string> lines = tool_.linesThrough(text);
        for (std::string& line : lines) {
            line = withoutTime(line);
        }
        return lines;
    }

    /// The one line that a message without an answer leads to, after its RX line.
    std::string outcomeOf(const DHCPPacket& packet) {
        client_.send(packet);
        const auto received = tool_.line();
        const auto outcome = tool_.line();
        EXPECT_TRUE(received && withoutTime(*received).starts_with("RX "));
        return outcome ? withoutTime(*outcome) : "nothing";
    }

    /// Binds an address to a device by DISCOVER and REQUEST, and forgets the lines about it.
    IPv4Address bind(std::uint8_t device) {
        const DHCPPacket offer = client_.ask(message(DHCPMessageType::discover, device));
        const DHCPPacket ack = client_.ask(selecting(offer.yiaddr, device));
        tool_.linesThrough("TX ACK");
        EXPECT_EQ(ack.messageType(), DHCPMessageType::ack);
        return ack.yiaddr;
    }

    static DHCPPacket selecting(IPv4Address requested, std::uint8_t device = 1) {
        return with(with(message(DHCPMessageType::request, device), OptionCode::requestedIP, requested),
                    OptionCode::serverID, server);
    }

    static DHCPPacket rebooting(IPv4Address requested, std::uint8_t device = 1) {
        return with(message(DHCPMessageType::request, device), OptionCode::requestedIP, requested);
    }

    static DHCPPacket renewing(IPv4Address ciaddr, std::uint8_t device = 1) {
        DHCPPacket packet = message(DHCPMessageType::request, device);
        packet.ciaddr = ciaddr;
        return packet;
    }

    LoopbackClient client_;
    ToolProcess tool_;
};

std::string textOf(const DHCPPacket& packet, std::uint8_t code) {
    const auto data = packet.option(code);
    return data ? std::string(data->begin(), data->end()) : "nothing";
}

std::vector<std::uint8_t> optionCodes(const DHCPPacket& packet) {
    std::vector<std::uint8_t> codes;
    for (const DHCPOptionField& field : packet.options) {
        codes.push_back(field.code);
    }
    return codes;
}

TEST_F(ExchangeTest, GivesADeviceAnAddressAndTellsEveryStep) {
    DHCPPacket discover = with(message(DHCPMessageType::discover), OptionCode::hostname, "device-1");
    discover = with(discover, OptionCode::vendorClass, "acme 1.0");
    const DHCPPacket offer = client_.ask(discover);
    const DHCPPacket ack = client_.ask(selecting(offer.yiaddr));
    const std::string received = "RX REQUEST   02:00:00:00:00:01 host=- vendor=- req=192.168.0.100 sid=192.168.0.1 "
                                 "xid=0x00000001 if=lo0";
    EXPECT_EQ(linesThrough("TX ACK"),
              (std::vector<std::string>{
                  "RX DISCOVER  02:00:00:00:00:01 host=device-1 vendor=acme 1.0 req=- xid=0x00000001 if=lo0",
                  "LEASE        offered 192.168.0.100 02:00:00:00:00:01 host=device-1",
                  "TX OFFER     192.168.0.100 -> 255.255.255.255:68 via lo0",
                  received,
                  "LEASE        bound 192.168.0.100 02:00:00:00:00:01 host=device-1",
                  "TX ACK       192.168.0.100 -> 255.255.255.255:68 via lo0 (lease 24 h)",
              }));
    EXPECT_EQ(offer.messageType(), DHCPMessageType::offer);
    EXPECT_EQ(offer.yiaddr, firstAddress);
    EXPECT_EQ(ack.messageType(), DHCPMessageType::ack);
    EXPECT_EQ(ack.yiaddr, firstAddress);
}

TEST_F(ExchangeTest, SendsAtLeast300BytesWithTheOptionsInTheirOrder) {
    client_.send(message(DHCPMessageType::discover));
    const auto bytes = client_.receiveBytes();
    ASSERT_TRUE(bytes);
    EXPECT_EQ(bytes->size(), DHCPPacket::minimumReplyLength);
    const DHCPPacket offer = DHCPPacket::parse(*bytes);
    EXPECT_EQ(optionCodes(offer), (std::vector<std::uint8_t>{53, 54, 51, 58, 59, 1, 28}));
    EXPECT_EQ(offer.serverID(), server);
}

TEST_F(ExchangeTest, AcknowledgesARenewalByUnicast) {
    const IPv4Address ip = bind(1);
    const DHCPPacket ack = client_.ask(renewing(ip));
    EXPECT_EQ(ack.messageType(), DHCPMessageType::ack);
    EXPECT_EQ(ack.ciaddr, ip);
    EXPECT_EQ(linesThrough("TX ACK"),
              (std::vector<std::string>{
                  "RX REQUEST   02:00:00:00:00:01 host=- vendor=- req=- ciaddr=192.168.0.100 xid=0x00000001 if=lo0",
                  "LEASE        bound 192.168.0.100 02:00:00:00:00:01",
                  "TX ACK       192.168.0.100 -> 192.168.0.100:68 via lo0 (lease 24 h)",
              }));
}

TEST_F(ExchangeTest, AcknowledgesARebootingDeviceItsFreeAddress) {
    const DHCPPacket ack = client_.ask(rebooting(IPv4Address{192, 168, 0, 150}));
    EXPECT_EQ(ack.messageType(), DHCPMessageType::ack);
    EXPECT_EQ(ack.yiaddr, (IPv4Address{192, 168, 0, 150}));
}

TEST_F(ExchangeTest, RefusesEachImpossibleRequestWithItsReason) {
    bind(1); // holds 192.168.0.100
    bind(2); // holds 192.168.0.101, and declines it
    client_.send(with(message(DHCPMessageType::decline, 2), OptionCode::requestedIP, secondAddress));
    tool_.linesThrough("conflict");
    const DHCPPacket selectingNothing = with(message(DHCPMessageType::request, 3), OptionCode::serverID, server);
    const std::vector<std::pair<DHCPPacket, std::string>> cases{
        {selectingNothing, "no requested address"},
        {message(DHCPMessageType::request, 3), "no requested address"},
        {selecting(firstAddress, 3), "requested address is not available"},
        {renewing(firstAddress, 3), "address is not available for renewal"},
        {rebooting(IPv4Address{10, 0, 0, 5}, 3), "requested address is not on this network"},
        {rebooting(IPv4Address{192, 168, 0, 99}, 3), "requested address is outside the range"},
        {rebooting(server, 3), "requested address is outside the range"},
        {rebooting(secondAddress, 3), "requested address was declined recently"},
        {rebooting(firstAddress, 3), "address in use by another device"},
    };
    for (const auto& [packet, reason] : cases) {
        SCOPED_TRACE(reason);
        const DHCPPacket nak = client_.ask(packet);
        EXPECT_EQ(nak.messageType(), DHCPMessageType::nak);
        EXPECT_EQ(nak.yiaddr, IPv4Address::zero);
        EXPECT_EQ(textOf(nak, OptionCode::message), reason);
        EXPECT_EQ(optionCodes(nak), (std::vector<std::uint8_t>{53, 54, 56}));
        const IPv4Address about = packet.requestedIP().value_or(packet.ciaddr);
        EXPECT_EQ(linesThrough("TX NAK").back(),
                  "TX NAK       " + about.description() + " -> 255.255.255.255:68 via lo0 (" + reason + ")");
    }
}

TEST_F(ExchangeTest, ReportsADeviceThatChoseAnotherServer) {
    EXPECT_EQ(client_.ask(message(DHCPMessageType::discover)).yiaddr, firstAddress);
    tool_.linesThrough("TX OFFER");
    const DHCPPacket elsewhere = with(with(message(DHCPMessageType::request), OptionCode::requestedIP, firstAddress),
                                      OptionCode::serverID, IPv4Address{192, 168, 0, 2});
    client_.send(elsewhere);
    EXPECT_EQ(linesThrough("NOTICE"),
              (std::vector<std::string>{
                  "RX REQUEST   02:00:00:00:00:01 host=- vendor=- req=192.168.0.100 sid=192.168.0.2 xid=0x00000001 "
                  "if=lo0",
                  "LEASE        released 192.168.0.100 02:00:00:00:00:01",
                  "INFO         client 02:00:00:00:00:01 chose another server (192.168.0.2)",
                  "NOTICE       Another DHCP server is on this cable (192.168.0.2). The device chose it instead of "
                  "Tarnwick.",
              }));
}

TEST_F(ExchangeTest, QuarantinesADeclinedAddress) {
    bind(1);
    client_.send(with(message(DHCPMessageType::decline), OptionCode::requestedIP, firstAddress));
    EXPECT_EQ(linesThrough("INFO"),
              (std::vector<std::string>{
                  "RX DECLINE   02:00:00:00:00:01 host=- vendor=- req=192.168.0.100 xid=0x00000001 if=lo0",
                  "LEASE        removed 02:00:00:00:00:01",
                  "INFO         conflict: 02:00:00:00:00:01 reports 192.168.0.100 is already in use; quarantined for "
                  "10 m",
              }));
    EXPECT_EQ(client_.ask(message(DHCPMessageType::discover)).yiaddr, secondAddress);
}

TEST_F(ExchangeTest, DropsADeclineThatNamesNoAddress) {
    EXPECT_EQ(outcomeOf(message(DHCPMessageType::decline)),
              "DROP         DECLINE without a requested address 02:00:00:00:00:01");
}

TEST_F(ExchangeTest, FreesAReleasedAddress) {
    const IPv4Address ip = bind(1);
    DHCPPacket release = with(message(DHCPMessageType::release), OptionCode::serverID, server);
    release.ciaddr = ip;
    EXPECT_EQ(outcomeOf(release), "LEASE        released 192.168.0.100 02:00:00:00:00:01");
    EXPECT_EQ(client_.ask(message(DHCPMessageType::discover, 2)).yiaddr, firstAddress);
}

TEST_F(ExchangeTest, IgnoresAReleaseOfAnUnknownLeaseOrForAnotherServer) {
    DHCPPacket release = message(DHCPMessageType::release);
    release.ciaddr = firstAddress;
    EXPECT_EQ(outcomeOf(release), "INFO         RELEASE from 02:00:00:00:00:01 for another server ignored");
    EXPECT_EQ(outcomeOf(with(release, OptionCode::serverID, server)),
              "INFO         RELEASE from 02:00:00:00:00:01 for an unknown lease ignored");
}

TEST_F(ExchangeTest, TellsADeviceWithItsOwnAddressTheOptions) {
    DHCPPacket inform = message(DHCPMessageType::inform);
    inform.ciaddr = IPv4Address{192, 168, 0, 7};
    const DHCPPacket ack = client_.ask(inform);
    EXPECT_EQ(ack.messageType(), DHCPMessageType::ack);
    EXPECT_EQ(ack.yiaddr, IPv4Address::zero);
    EXPECT_EQ(optionCodes(ack), (std::vector<std::uint8_t>{53, 54, 1, 28}));
    EXPECT_EQ(linesThrough("TX ACK"),
              (std::vector<std::string>{
                  "RX INFORM    02:00:00:00:00:01 host=- vendor=- req=- ciaddr=192.168.0.7 xid=0x00000001 if=lo0",
                  "INFO         static-IP device 192.168.0.7 (02:00:00:00:00:01) asked for options",
                  "TX ACK       192.168.0.7 -> 192.168.0.7:68 via lo0",
              }));
}

TEST_F(ExchangeTest, DropsAnInformFromAnotherNetwork) {
    DHCPPacket inform = message(DHCPMessageType::inform);
    inform.ciaddr = IPv4Address{10, 0, 0, 7};
    EXPECT_EQ(outcomeOf(inform), "DROP         INFORM from 10.0.0.7, which is not on this network 02:00:00:00:00:01");
}

TEST_F(ExchangeTest, DropsWhatNoDirectClientSends) {
    DHCPPacket reply = message(DHCPMessageType::discover);
    reply.op = 2;
    EXPECT_EQ(outcomeOf(reply), "DROP         not a client request (op 2)");
    DHCPPacket notEthernet = message(DHCPMessageType::discover);
    notEthernet.hlen = 16;
    EXPECT_EQ(outcomeOf(notEthernet), "DROP         not Ethernet (htype 1, hlen 16)");
    DHCPPacket relayed = message(DHCPMessageType::discover);
    relayed.giaddr = IPv4Address{10, 0, 0, 1};
    EXPECT_EQ(outcomeOf(relayed), "DROP         relayed request (not served) 02:00:00:00:00:01");
    EXPECT_EQ(outcomeOf(message(DHCPMessageType::offer)), "DROP         OFFER is a server message 02:00:00:00:00:01");
    EXPECT_EQ(outcomeOf(message(DHCPMessageType::ack)), "DROP         ACK is a server message 02:00:00:00:00:01");
    EXPECT_EQ(outcomeOf(message(DHCPMessageType::nak)), "DROP         NAK is a server message 02:00:00:00:00:01");
    DHCPPacket bootp = message(DHCPMessageType::discover);
    bootp.options.clear();
    EXPECT_EQ(outcomeOf(bootp), "DROP         BOOTP request (not served) 02:00:00:00:00:01");
}

TEST_F(ExchangeTest, DropsMalformedDatagramsAndServesOn) {
    Bytes bytes = message(DHCPMessageType::discover).serialize(0);
    client_.send(Bytes{});
    client_.send(Bytes(239, 0));
    client_.send(Bytes(240, 0));
    bytes.pop_back();                             // the end option goes
    bytes.insert(bytes.end(), {12, 5, 'h', 'o'}); // a host name that runs past the end
    client_.send(bytes);
    EXPECT_EQ(linesThrough("option 12"), (std::vector<std::string>{
                                             "DROP         malformed (too short (0 bytes))",
                                             "DROP         malformed (too short (239 bytes))",
                                             "DROP         malformed (bad magic cookie)",
                                             "DROP         malformed (option 12 runs past the end)",
                                         }));
    EXPECT_EQ(client_.ask(message(DHCPMessageType::discover)).yiaddr, firstAddress);
}

TEST_F(ExchangeTest, EscapesWhatADeviceSaysOfItself) {
    client_.send(with(message(DHCPMessageType::discover), OptionCode::hostname, "a\n\x1B[31m\xFF%s\"\\"));
    EXPECT_EQ(linesThrough("TX OFFER").front(),
              R"(RX DISCOVER  02:00:00:00:00:01 host=a\x0a\x1b[31m\xff%s"\ vendor=- req=- xid=0x00000001 if=lo0)");
}

TEST_F(ExchangeTest, GivesAnAPCDeviceItsCookie) {
    const DHCPPacket offer = client_.ask(with(message(DHCPMessageType::discover), OptionCode::vendorClass, "APC 2.0"));
    EXPECT_EQ(textOf(offer, OptionCode::vendorSpecific), "\x01\x04\x31"
                                                         "APC");
    EXPECT_EQ(linesThrough("TX OFFER").back(),
              "TX OFFER     192.168.0.100 -> 255.255.255.255:68 via lo0 (+APC cookie)");
    EXPECT_EQ(textOf(client_.ask(with(message(DHCPMessageType::discover, 2), OptionCode::vendorClass, "apc 2.0")),
                     OptionCode::vendorSpecific),
              "nothing");
}

class SmallPoolTest : public ExchangeTest {
  protected:
    SmallPoolTest()
        : ExchangeTest(
              {"--range", "192.168.0.100-192.168.0.100", "--router", "192.168.0.1", "--dns", "1.1.1.1,8.8.8.8"}) {}
};

TEST_F(SmallPoolTest, AnswersNobodyWhenEveryAddressIsTaken) {
    bind(1);
    EXPECT_EQ(outcomeOf(message(DHCPMessageType::discover, 2)),
              "DROP         address pool exhausted 02:00:00:00:00:02");
}

TEST_F(SmallPoolTest, OffersTheRouterAndTheNameServersThatWereConfigured) {
    const DHCPPacket offer = client_.ask(message(DHCPMessageType::discover));
    EXPECT_EQ(optionCodes(offer), (std::vector<std::uint8_t>{53, 54, 51, 58, 59, 1, 28, 3, 6}));
    EXPECT_EQ(textOf(offer, OptionCode::router), "\xC0\xA8\x00\x01"s);
    EXPECT_EQ(textOf(offer, OptionCode::dns), "\x01\x01\x01\x01\x08\x08\x08\x08"s);
}

} // namespace
} // namespace Tarnwick
