// The built tool serving a card: what it puts on the cable, and what it does about full pools and other servers.
#include "DHCPCore/Date.hpp"
#include "HostTests/Clients.hpp"
#include "HostTests/HostTest.hpp"
#include "HostTests/Wire.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <csignal>

namespace Tarnwick {
namespace {

using namespace DHCPCore;
using namespace DHCPCore::TestSupport;

constexpr MACAddress everybody{{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}};

/// A request that takes the offer of the server at that address.
ClientMessage take(const Frame& offer, const MACAddress& mac, IPv4Address server = Lab::serverIP) {
    return request(mac).requesting(messageIn(offer).yiaddr).selecting(server);
}

ClientMessage withID(ClientMessage message, std::uint32_t xid) {
    message.xid = xid;
    return message;
}

/// The addresses of a frame, without what it carries.
Frame envelope(Frame frame) {
    frame.payload.clear();
    return frame;
}

class ServingTest : public HostTest {
  protected:
    /// A server of one address, which a device that was seen lately holds.
    [[nodiscard]] ToolProcess::Setting servingOneAddress() const {
        keepLeases({keptLease(mac(77), "192.168.0.100"_ip)});
        return serving({"--range", "192.168.0.100-192.168.0.100"});
    }
};

TEST_F(ServingTest, AnswersADeviceWithoutAddressByBroadcast) {
    const Device device(lab(), 1);
    const Wire wire(device.network(), "eth0");
    ToolProcess tool(serving());
    started(tool);
    const Frame toEverybody{.from = Lab::cardMAC,
                            .to = everybody,
                            .source = Lab::serverIP,
                            .destination = IPv4Address::broadcast,
                            .sourcePort = 67,
                            .destinationPort = 68};

    const Frame offer = wire.ask(discover(mac(1)));
    EXPECT_EQ(envelope(offer), toEverybody);
    EXPECT_EQ(messageIn(offer).messageType(), DHCPMessageType::offer);
    EXPECT_EQ(messageIn(offer).yiaddr, "192.168.0.100"_ip);

    const Frame ack = wire.ask(take(offer, mac(1)));
    EXPECT_EQ(envelope(ack), toEverybody);
    EXPECT_EQ(messageIn(ack).messageType(), DHCPMessageType::ack);

    const Frame nak = wire.ask(request(mac(1)).requesting("10.0.0.1"_ip));
    EXPECT_EQ(envelope(nak), toEverybody);
    EXPECT_EQ(messageIn(nak).messageType(), DHCPMessageType::nak);
}

TEST_F(ServingTest, AnswersARenewalToTheDeviceAlone) {
    const Device device(lab(), 1);
    device.setAddress("192.168.0.100/24");
    keepLeases({keptLease(device.mac(), "192.168.0.100"_ip)});
    ToolProcess tool(serving());
    started(tool);

    const Wire wire(device.network(), "eth0");
    wire.send(Frame{.from = device.mac(),
                    .to = Lab::cardMAC,
                    .source = "192.168.0.100"_ip,
                    .destination = Lab::serverIP,
                    .sourcePort = 68,
                    .destinationPort = 67,
                    .payload = request(device.mac()).from("192.168.0.100"_ip).serialize(0)});
    const auto ack = wire.nextReply();
    ASSERT_TRUE(ack);
    EXPECT_EQ(envelope(*ack), (Frame{.from = Lab::cardMAC,
                                     .to = device.mac(),
                                     .source = Lab::serverIP,
                                     .destination = "192.168.0.100"_ip,
                                     .sourcePort = 67,
                                     .destinationPort = 68}));
    EXPECT_EQ(messageIn(*ack).messageType(), DHCPMessageType::ack);
}

TEST_F(ServingTest, NeverAnswersWhatArrivesOnAnotherCard) {
    const Network elsewhere("elsewhere");
    lab().host().ip("link add en6 type veth peer name eth0 netns " + elsewhere.name());
    lab().host().ip("link set en6 up");
    elsewhere.ip("link set eth0 up");
    lab().host().awaitLink("en6");
    const Wire otherCable(elsewhere, "eth0");
    const Device device(lab(), 1);
    const Wire cable(device.network(), "eth0");
    ToolProcess tool(serving());
    started(tool);

    otherCable.send(discover(mac(66)));
    otherCable.send(Frame{.from = mac(66),
                          .to = everybody,
                          .source = "192.168.0.166"_ip,
                          .destination = Lab::serverIP,
                          .sourcePort = 68,
                          .destinationPort = 67,
                          .payload = discover(mac(66)).serialize(0)});
    // The server reads in order: with this answer it is past the others.
    EXPECT_EQ(messageIn(cable.ask(discover(mac(1)))).messageType(), DHCPMessageType::offer);

    for (const std::string& event : eventsThrough(tool, "TX OFFER")) {
        EXPECT_TRUE(event.find(mac(66).description()) == std::string::npos ||
                    event.starts_with("DROP         arrived on en6 instead of en5"))
            << event;
    }
    lab().host().ip("link delete en6"); // so that waiting for an answer there ends at once
    EXPECT_EQ(otherCable.nextReply(), std::nullopt);
}

TEST_F(ServingTest, SendsNothingWhileTheCardHasLostItsAddress) {
    const Device device(lab(), 1);
    const Wire wire(device.network(), "eth0");
    ToolProcess tool(serving());
    started(tool);

    lab().host().ip("address add 10.9.9.9/24 dev en5"); // a source that the system would be glad to choose
    lab().removeAddress("en5");
    wire.send(withID(discover(mac(1)), 1));
    EXPECT_EQ(eventsThrough(tool, "INFO").back(), "INFO         OFFER not sent: 192.168.0.1 is not on en5 right now");

    lab().setAddress("en5");
    wire.send(withID(discover(mac(1)), 2));
    const auto offer = wire.nextReply();
    ASSERT_TRUE(offer);
    EXPECT_EQ(messageIn(*offer).xid, 2U) << "the first one left after all";
    EXPECT_EQ(offer->source, Lab::serverIP);
}

TEST_F(ServingTest, SendsNothingWhileAnotherCardHasItsAddress) {
    const Device device(lab(), 1);
    const Wire wire(device.network(), "eth0");
    lab().plugCard("en6", mac(6));
    ToolProcess tool(serving());
    started(tool);

    lab().removeAddress("en5");
    lab().setAddress("en6");
    wire.send(withID(discover(mac(1)), 1));
    EXPECT_EQ(eventsThrough(tool, "INFO").back(), "INFO         OFFER not sent: 192.168.0.1 is not on en5 right now");

    lab().removeAddress("en6");
    lab().setAddress("en5");
    wire.send(withID(discover(mac(1)), 2));
    const auto offer = wire.nextReply();
    ASSERT_TRUE(offer);
    EXPECT_EQ(messageIn(*offer).xid, 2U) << "the first one left after all";
}

TEST_F(ServingTest, SaysThatADeviceChoseAnotherServer) {
    if (!isInstalled("dnsmasq")) {
        GTEST_SKIP() << "dnsmasq is not installed";
    }
    constexpr IPv4Address otherIP{192, 168, 0, 2};
    const Device other(lab(), 2);
    other.setAddress("192.168.0.2/24");
    const Device device(lab(), 1);
    const Wire wire(device.network(), "eth0");
    ToolProcess tool(serving());
    started(tool);
    std::vector<std::string> words = other.network().prefix();
    words.insert(words.end(), {"dnsmasq", "--no-daemon", "--conf-file=/dev/null", "--port=0", "--no-ping", "--log-dhcp",
                               "--interface=eth0", "--dhcp-range=192.168.0.50,192.168.0.60,1h",
                               "--dhcp-leasefile=" + (folder() / "dnsmasq.leases").string()});
    ChildProcess dnsmasq({.words = std::move(words), .errorsInOutput = true});
    dnsmasq.linesThrough("IP range");

    wire.send(discover(mac(1)));
    auto offer = wire.nextReply();
    while (offer && offer->source != otherIP) {
        offer = wire.nextReply();
    }
    ASSERT_TRUE(offer);
    eventsThrough(tool, "TX OFFER");
    wire.send(take(*offer, mac(1), otherIP));
    dnsmasq.linesThrough("DHCPACK");

    const auto events = eventsThrough(tool, "NOTICE");
    ASSERT_EQ(events.size(), 4U);
    EXPECT_EQ(std::vector(events.begin() + 1, events.end()),
              (std::vector<std::string>{
                  "LEASE        released 192.168.0.100 02:00:00:00:00:01",
                  "INFO         client 02:00:00:00:00:01 chose another server (192.168.0.2)",
                  "NOTICE       Another DHCP server is on this cable (192.168.0.2). The device chose it instead of "
                  "Tarnwick."}));
}

TEST_F(ServingTest, TakesTheAddressOfADeviceThatDoesNotAnswer) {
    const Device device(lab(), 1);
    const Wire wire(device.network(), "eth0");
    const std::string reclaimed = "INFO         range full: reclaimed 192.168.0.100 from 02:00:00:00:00:4d "
                                  "(offline, lease not expired)";
    ToolProcess tool(servingOneAddress());
    started(tool);

    wire.send(discover(device.mac()));
    auto events = eventsThrough(tool, "TX OFFER");
    std::erase_if(events, [](const std::string& event) { return event.starts_with("OFFLINE"); });
    ASSERT_EQ(events.size(), 6U);
    EXPECT_TRUE(events[0].starts_with("RX DISCOVER  02:00:00:00:00:01")) << events[0];
    EXPECT_EQ(std::vector(events.begin() + 1, events.end()),
              (std::vector<std::string>{"INFO         probing 192.168.0.100 before giving it to another device",
                                        "LEASE        reclaimed 192.168.0.100 02:00:00:00:00:4d", reclaimed,
                                        "LEASE        offered 192.168.0.100 02:00:00:00:00:01",
                                        "TX OFFER     192.168.0.100 -> 255.255.255.255:68 via en5"}));
}

TEST_F(ServingTest, LeavesTheAddressToADeviceThatAnswersAgain) {
    const Device device(lab(), 1);
    const Wire wire(device.network(), "eth0");
    const Device holder(lab(), 77);
    ToolProcess tool(servingOneAddress());
    started(tool);
    eventsThrough(tool, "OFFLINE");
    holder.setAddress("192.168.0.100/24");
    holder.speak();

    wire.send(discover(device.mac()));
    const auto events = eventsThrough(tool, "DROP");
    ASSERT_EQ(events.size(), 3U);
    EXPECT_EQ(events[1], "INFO         probing 192.168.0.100 before giving it to another device");
    EXPECT_EQ(events[2], "DROP         address pool exhausted 02:00:00:00:00:01");
}

TEST_F(ServingTest, DoesNotEvenProbeADeviceThatIsOnline) {
    const Device device(lab(), 1);
    const Wire wire(device.network(), "eth0");
    const Device holder(lab(), 77);
    holder.setAddress("192.168.0.100/24");
    ToolProcess tool(servingOneAddress());
    started(tool);
    eventsThrough(tool, "ONLINE");

    wire.send(discover(device.mac()));
    const auto events = eventsThrough(tool, "DROP");
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[1], "DROP         address pool exhausted 02:00:00:00:00:01");
}

TEST_F(ServingTest, KeepsTheEventsInTheLogFileOfTheDay) {
    const Device device(lab(), 1);
    const Wire wire(device.network(), "eth0");
    ToolProcess tool(serving());
    std::string printed = tool.linesThrough("  START  ").back() + "\n";
    EXPECT_EQ(messageIn(wire.ask(discover(device.mac()))).messageType(), DHCPMessageType::offer);
    tool.signal(SIGINT);
    printed += tool.rest();
    ASSERT_EQ(tool.wait(), 0);
    EXPECT_NE(printed.find("  TX OFFER     192.168.0.100 -> 255.255.255.255:68 via en5\n"), std::string::npos);
    EXPECT_EQ(logged(tool), printed);
}

TEST_F(ServingTest, KeepsTheEventsAsTextWhenItPrintsJSON) {
    ToolProcess tool(serving({"--json"}));
    tool.linesThrough(R"("label":"LINK")");
    tool.signal(SIGINT);
    ASSERT_EQ(tool.wait(), 0);
    const std::string log = logged(tool);
    EXPECT_EQ(withoutTime(log.substr(0, log.find('\n'))), startLine);
    EXPECT_TRUE(log.ends_with("  STOP         server stopped\n")) << log;
}

} // namespace
} // namespace Tarnwick
