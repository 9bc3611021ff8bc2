// The card under a serving tool: its cable cut and mended, the adapter pulled out, replaced and renamed.
#include "HostTests/HostTest.hpp"
#include "HostTests/Wire.hpp"

namespace Tarnwick {
namespace {

using namespace DHCPCore;
using namespace DHCPCore::TestSupport;

const std::string unplugged = "NOTICE       The adapter was unplugged. Waiting for it to come back…";

/// A server with a device that is online.
class AdapterTest : public HostTest {
  protected:
    void SetUp() override {
        HostTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        device_.emplace(lab(), std::uint8_t{1});
        device_->setAddress("192.168.0.100/24");
        keepLeases({keptLease(device_->mac(), "192.168.0.100"_ip)});
        tool_.emplace(serving());
        started(*tool_);
        awaitOnline();
    }
    void TearDown() override {
        tool_.reset();
        device_.reset();
        HostTest::TearDown();
    }

    [[nodiscard]] ToolProcess& tool() { return *tool_; }
    void awaitOnline() { eventsThrough(tool(), "ONLINE       192.168.0.100 02:00:00:00:00:01 "); }

    /// Has the device ask again for what it holds. @return whether the server acknowledges that, from that card.
    [[nodiscard]] bool isServed(const MACAddress& card) const {
        const Frame ack = Wire(device_->network(), "eth0").ask(request(device_->mac()).requesting("192.168.0.100"_ip));
        return ack.from == card && ack.source == Lab::serverIP &&
               messageIn(ack).messageType() == DHCPMessageType::ack && messageIn(ack).yiaddr == "192.168.0.100"_ip;
    }

    /// The events when the adapter goes.
    inline static const std::vector<std::string> gone{"OFFLINE      192.168.0.100 02:00:00:00:00:01 adapter unplugged",
                                                      unplugged};

    /// Makes the card that has the server's address, as the adapter does when it is plugged in.
    void plugIn(const std::string& name, const MACAddress& mac) const {
        lab().plugCard(name, mac);
        lab().setAddress(name);
    }

  private:
    std::optional<Device> device_;
    std::optional<ToolProcess> tool_;
};

TEST_F(AdapterTest, PausesWithoutLinkAndFindsItsDevicesAgain) {
    lab().cutCable();
    EXPECT_EQ(eventsThrough(tool(), "OFFLINE"),
              (std::vector<std::string>{"LINK         down",
                                        "NOTICE       Link down. No device is connected to en5. Serving resumes on "
                                        "its own when the link returns.",
                                        "OFFLINE      192.168.0.100 02:00:00:00:00:01 link down"}));
    lab().mendCable();
    EXPECT_EQ(eventsThrough(tool(), "LINK"), (std::vector<std::string>{"LINK         up 10GBase-T full-duplex"}));
    awaitOnline();
    EXPECT_TRUE(isServed(Lab::cardMAC));
}

TEST_F(AdapterTest, FollowsItsAdapterToAnotherName) {
    lab().unplugCard("en5");
    EXPECT_EQ(eventsThrough(tool(), "NOTICE"), gone);
    plugIn("en9", Lab::cardMAC);
    EXPECT_EQ(eventsThrough(tool(), "INFO"), (std::vector<std::string>{"INFO         en9 is back"}));
    EXPECT_TRUE(eventsThrough(tool(), "LINK").back().starts_with("LINK         "));
    EXPECT_TRUE(isServed(Lab::cardMAC));
    EXPECT_EQ(eventsThrough(tool(), "TX ACK").back(),
              "TX ACK       192.168.0.100 -> 255.255.255.255:68 via en9 (lease 24 h)");
}

TEST_F(AdapterTest, ServesAnotherAdapterThatTakesTheName) {
    lab().unplugCard("en5");
    plugIn("en5", mac(55));
    EXPECT_EQ(eventsThrough(tool(), "NOTICE"), gone);
    EXPECT_EQ(eventsThrough(tool(), "INFO").back(), "INFO         en5 is back");
    eventsThrough(tool(), "LINK");
    EXPECT_TRUE(isServed(mac(55)));
}

TEST_F(AdapterTest, FollowsItsCardThatIsRenamed) {
    lab().host().ip("link set en5 down");
    lab().host().ip("link set en5 name en7");
    lab().host().ip("link set en7 up");
    lab().host().awaitLink("en7");
    const auto events = eventsThrough(tool(), "INFO");
    EXPECT_TRUE(tells(events, unplugged));
    EXPECT_EQ(events.back(), "INFO         en7 is back");
    EXPECT_EQ(eventsThrough(tool(), "LINK").back(), "LINK         up 10GBase-T full-duplex");
    EXPECT_TRUE(isServed(Lab::cardMAC));
    EXPECT_EQ(eventsThrough(tool(), "TX ACK").back(),
              "TX ACK       192.168.0.100 -> 255.255.255.255:68 via en7 (lease 24 h)");
}

TEST_F(AdapterTest, KeepsItsLeasesWhileTheAdapterIsAway) {
    lab().unplugCard("en5");
    eventsThrough(tool(), "NOTICE");
    EXPECT_EQ(stop(tool()), (std::vector<std::string>{"STOP         server stopped"}));
    plugIn("en5", Lab::cardMAC);
    ToolProcess again(serving());
    EXPECT_TRUE(tells(started(again), "LEASE        bound 192.168.0.100 02:00:00:00:00:01"));
}

} // namespace
} // namespace Tarnwick
