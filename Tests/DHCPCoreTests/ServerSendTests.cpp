// What the server makes of a reply that can't be sent.
#include "Support/ServerHarness.hpp"

namespace DHCPCore {
namespace {

using namespace TestSupport; // NOLINT(*-build-using-namespace): the words of the tests
using std::chrono::hours;
using std::chrono::seconds;
using Event = ServerEvent;
using Events = std::vector<ServerEvent>;

/// The errors of a network that can't be used.
constexpr auto unusable = {EADDRNOTAVAIL, ENETDOWN, ENETUNREACH, EHOSTUNREACH};

class ServerSendTest : public ServerHarness {
  protected:
    /// The events of a client's first DISCOVER, ended by these.
    [[nodiscard]] static Events offering(Events last) {
        Events all{received(discover(mac(1))), changed(newlyOffered(mac(1), ip(10), now + Timing::offerHold))};
        all.insert(all.end(), last.begin(), last.end());
        return all;
    }

    [[nodiscard]] static ServerEvent offerSent() { return sent(DHCPMessageType::offer, ip(10), mac(1)); }

    [[nodiscard]] static ServerEvent deniedRaised() {
        return raised(NoticeKind::localNetworkDenied, "Local Network access is off for Tarnwick. macOS is blocking "
                                                      "DHCP broadcasts, so no device can get an address.");
    }

    void moveServerAddressAway() {
        host->setAddresses({{.name = "en7", .subnet = {.address = ip(2), .prefixLength = 24}},
                            {.name = "en0", .subnet = {.address = serverIP, .prefixLength = 24}}});
    }
};

TEST_F(ServerSendTest, SaysThatTheLinkIsDown) {
    setLink(false);
    start();
    moveServerAddressAway(); // the link is the reason also when the address is missing
    for (const int code : unusable) {
        SCOPED_TRACE(code);
        host->failSending({code});
        EXPECT_EQ(eventsOf(discover(mac(1)), 3), offering({info("OFFER not sent: link down")}));
    }
    EXPECT_EQ(host->delays(), std::vector<SerialQueue::Duration>{});
}

TEST_F(ServerSendTest, SaysThatTheServerAddressIsMissingFromTheCard) {
    start();
    moveServerAddressAway();
    for (const int code : unusable) {
        SCOPED_TRACE(code);
        host->failSending({code});
        EXPECT_EQ(eventsOf(discover(mac(1)), 3), offering({info("OFFER not sent: 10.0.0.1 is not on en7 right now")}));
    }
    EXPECT_EQ(host->delays(), std::vector<SerialQueue::Duration>{});
}

TEST_F(ServerSendTest, PassesOnAnyOtherErrorInItsOwnWords) {
    start();
    host->failSending({EPERM});
    EXPECT_EQ(eventsOf(discover(mac(1)), 3),
              offering({info("OFFER not sent: send to 255.255.255.255:68 failed: Operation not permitted (errno 1)")}));
    EXPECT_EQ(host->delays(), std::vector<SerialQueue::Duration>{});
}

TEST_F(ServerSendTest, PassesOnAnErrorThatIsNotOfTheTransport) {
    start();
    host->failSending({"out of ink"});
    EXPECT_EQ(eventsOf(discover(mac(1)), 3), offering({info("OFFER not sent: out of ink")}));
    EXPECT_EQ(host->delays(), std::vector<SerialQueue::Duration>{});
}

TEST_F(ServerSendTest, NamesTheReplyThatWasNotSent) {
    start();
    host->failSending({EPERM, EPERM});
    const std::string reason = "send to 255.255.255.255:68 failed: Operation not permitted (errno 1)";
    const auto granted = request(mac(1)).requesting(ip(10));
    EXPECT_EQ(eventsOf(granted, 3), (Events{received(granted), changed(newlyBound(mac(1), ip(10), now + hours{1})),
                                            info("ACK not sent: " + reason)}));
    const auto refused = request(mac(1)).requesting(ip(13));
    EXPECT_EQ(eventsOf(refused, 2), (Events{received(refused), info("NAK not sent: " + reason)}));
}

TEST_F(ServerSendTest, TriesAgainInSilenceAfterASecondWhenLinkAndAddressAreFine) {
    start();
    for (const int code : unusable) {
        SCOPED_TRACE(code);
        host->failSending({code});
        EXPECT_EQ(eventsOf(discover(mac(1)), 2), offering({}));
        EXPECT_EQ(host->delays(), std::vector<SerialQueue::Duration>{seconds{1}});
        EXPECT_EQ(host->sent(), std::vector<FakeHost::SentReply>{});
        host->failSending({EPERM});
        host->passDelays();
        std::ignore = settled();
    }
}

TEST_F(ServerSendTest, SendsTheSameReplyWhenItTriesAgain) {
    start();
    host->failSending({EHOSTUNREACH});
    EXPECT_EQ(eventsOf(discover(mac(1)), 2), offering({}));
    host->passDelays();
    EXPECT_EQ(settled(), Events{offerSent()}) << "nothing was raised, so nothing is cleared";
    const auto replies = host->sent();
    ASSERT_EQ(replies.size(), 1U);
    EXPECT_EQ(replies[0].packet.yiaddr, ip(10));
    EXPECT_EQ(replies[0].length, 300U);
}

TEST_F(ServerSendTest, RaisesTheLocalNetworkNoticeWhenTheSecondTryFailsTooAndTriesNoMore) {
    start();
    host->failSending({EHOSTUNREACH, EHOSTUNREACH});
    EXPECT_EQ(eventsOf(discover(mac(1)), 2), offering({}));
    host->passDelays();
    EXPECT_EQ(settled(), Events{deniedRaised()});
    EXPECT_EQ(host->delays(), std::vector<SerialQueue::Duration>{});
}

TEST_F(ServerSendTest, ClearsTheLocalNetworkNoticeOnceByTheNextReplyThatIsSent) {
    start();
    host->failSending({EHOSTUNREACH, EHOSTUNREACH});
    std::ignore = eventsOf(discover(mac(1)), 2);
    host->passDelays();
    EXPECT_EQ(settled(), Events{deniedRaised()});
    EXPECT_EQ(eventsOf(discover(mac(1)), 4), offering({cleared(NoticeKind::localNetworkDenied), offerSent()}));
    EXPECT_EQ(eventsOf(discover(mac(1)), 3), offering({offerSent()}));
}

TEST_F(ServerSendTest, RaisesTheLocalNetworkNoticeForEveryReplyThatFailsTwice) {
    start();
    host->failSending({EHOSTUNREACH, EHOSTUNREACH, EHOSTUNREACH, EHOSTUNREACH});
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(eventsOf(discover(mac(1)), 2), offering({}));
        host->passDelays();
        EXPECT_EQ(settled(), Events{deniedRaised()});
    }
}

TEST_F(ServerSendTest, ExplainsTheSecondTryByWhatIsTrueThen) {
    start();
    host->failSending({EHOSTUNREACH, EHOSTUNREACH, EHOSTUNREACH, ENOBUFS});
    std::ignore = eventsOf(discover(mac(1)), 2);
    moveServerAddressAway();
    host->passDelays();
    EXPECT_EQ(settled(), Events{info("OFFER not sent: 10.0.0.1 is not on en7 right now")});

    host->setAddresses({{.name = "en7", .subnet = {.address = serverIP, .prefixLength = 24}}});
    std::ignore = eventsOf(discover(mac(1)), 2);
    host->passDelays();
    EXPECT_EQ(settled(),
              Events{info("OFFER not sent: " + TransportError("send to 255.255.255.255:68", ENOBUFS).description())});
}

TEST_F(ServerSendTest, SaysThatTheSocketIsClosedWhenTheAdapterWentBeforeTheSecondTry) {
    start();
    host->failSending({EHOSTUNREACH});
    std::ignore = eventsOf(discover(mac(1)), 2);
    host->unplug("en7");
    host->tick(seconds{1});
    std::ignore = settled();
    host->passDelays();
    EXPECT_EQ(settled(), Events{info("OFFER not sent: socket closed")});
}

TEST_F(ServerSendTest, SaysNothingOfASecondTryAfterItsEnd) {
    start();
    host->failSending({EHOSTUNREACH});
    std::ignore = eventsOf(discover(mac(1)), 2);
    server->stop();
    host->passDelays();
    EXPECT_EQ(settled(), Events{stopped()});
    EXPECT_EQ(host->sent(), std::vector<FakeHost::SentReply>{});
}

} // namespace
} // namespace DHCPCore
