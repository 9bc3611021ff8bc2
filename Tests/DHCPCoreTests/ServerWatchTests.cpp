// The watch over the card: its link, and the adapter that goes and comes back.
#include "Support/ServerHarness.hpp"

namespace DHCPCore {
namespace {

using namespace TestSupport; // NOLINT(*-build-using-namespace): the words of the tests
using std::chrono::seconds;
using Event = ServerEvent;
using Events = std::vector<ServerEvent>;

/// A server with two devices, one client's outstanding offer and one lease that was given back.
class ServerWatchTest : public ServerHarness {
  protected:
    const Lease first = boundLease(mac(1), ip(10));
    const Lease second = boundLease(mac(2), ip(11));

    ServerWatchTest() {
        saveLeases(tableOf({second, newlyOffered(mac(3), ip(12), now + Timing::offerHold),
                            leaseIn(Lease::State::released, mac(4), ip(12)), first}));
    }

    /// What the watch reports when it looks once.
    Events watch() {
        host->tick(seconds{1});
        return settled();
    }

    [[nodiscard]] static Event unpluggedRaised() {
        return raised(NoticeKind::adapterUnplugged, "The adapter was unplugged. Waiting for it to come back…");
    }

    /// Both devices marked offline, in the order of the table.
    [[nodiscard]] Events bothOffline(const std::string& reason) const {
        return {presence(second, PresenceState::offline, reason), presence(first, PresenceState::offline, reason)};
    }

    [[nodiscard]] static Events joined(Events head, const Events& tail) {
        head.insert(head.end(), tail.begin(), tail.end());
        return head;
    }

    void startAndUnplug() {
        start();
        host->unplug("en7");
        std::ignore = watch();
    }
};

TEST_F(ServerWatchTest, SaysNothingWhileNothingChanges) {
    start();
    EXPECT_EQ(watch(), Events{});
    setLink(false);
    std::ignore = watch();
    EXPECT_EQ(watch(), Events{}) << "a link that stays down is no news";
}

TEST_F(ServerWatchTest, DoesNotReportMediaThatChangeWhileTheLinkStaysUp) {
    start();
    host->setMedia({.linkUp = true, .description = "100baseTX half-duplex"});
    EXPECT_EQ(watch(), Events{});
}

TEST_F(ServerWatchTest, ReportsALostLinkThenTheNoticeThenItsDevicesOffline) {
    start();
    setLink(false);
    EXPECT_EQ(watch(), joined({link(false), linkDownRaised()}, bothOffline("link down")));
    EXPECT_TRUE(host->isWireOpen()) << "the socket stays open";
}

TEST_F(ServerWatchTest, ClearsTheNoticeWhenTheLinkReturns) {
    start();
    setLink(false);
    std::ignore = watch();
    setLink(true);
    EXPECT_EQ(watch(), (Events{link(true), cleared(NoticeKind::linkDown)}));
}

TEST_F(ServerWatchTest, ClearsTheNoticeOfALinkThatWasDownAtTheStart) {
    setLink(false);
    start();
    setLink(true);
    EXPECT_EQ(watch(), (Events{link(true), cleared(NoticeKind::linkDown)}));
}

TEST_F(ServerWatchTest, MarksADeviceOfflineOnce) {
    start();
    setLink(false);
    std::ignore = watch();
    setLink(true);
    std::ignore = watch();
    setLink(false);
    EXPECT_EQ(watch(), (Events{link(false), linkDownRaised()})) << "they are offline already";
}

TEST_F(ServerWatchTest, LooksForItsDevicesAtOnceWhenTheLinkReturns) {
    options.presenceEnabled = true;
    host->answer(ip(10), {.answered = true, .detail = "icmp 0.4 ms"});
    start();
    setLink(false);
    std::ignore = watch();
    setLink(true);
    host->tick(seconds{1});
    EXPECT_EQ(take(3), (Events{link(true), cleared(NoticeKind::linkDown),
                               presence(first, PresenceState::online, "icmp 0.4 ms")}));
    EXPECT_TRUE(host->waitForProbes(2));
}

TEST_F(ServerWatchTest, CountsAnAdapterThatIsGoneAsUnplugged) {
    start();
    host->unplug("en7");
    EXPECT_EQ(watch(), joined(bothOffline("adapter unplugged"), {unpluggedRaised()}));
    EXPECT_FALSE(host->isWireOpen());
    EXPECT_EQ(host->timers().size(), 1U) << "it goes on watching";
}

TEST_F(ServerWatchTest, CountsAnAdapterThatWasReplacedAsUnplugged) {
    start();
    host->plugIn("en7", cardIndex + 1);
    EXPECT_EQ(watch(), joined(bothOffline("adapter unplugged"), {unpluggedRaised()}));
    EXPECT_FALSE(host->isWireOpen());
}

TEST_F(ServerWatchTest, MarksNoDeviceOfflineTwiceWhenTheAdapterGoesAfterTheLink) {
    start();
    setLink(false);
    std::ignore = watch();
    host->unplug("en7");
    EXPECT_EQ(watch(), Events{unpluggedRaised()});
}

TEST_F(ServerWatchTest, WaitsInSilenceForTheAdapter) {
    startAndUnplug();
    EXPECT_EQ(watch(), Events{});
    EXPECT_EQ(watch(), Events{});
    EXPECT_EQ(host->openings().size(), 1U);
}

TEST_F(ServerWatchTest, ServesAgainWhenTheAdapterIsBack) {
    startAndUnplug();
    host->plugIn("en7", cardIndex + 1);
    EXPECT_EQ(watch(), (Events{cleared(NoticeKind::adapterUnplugged), info("en7 is back"), link(true)}));
    EXPECT_EQ(host->openings(), (std::vector<TransportMode>{options.mode, options.mode}));
    host->arrive({datagram(request(mac(1)).requesting(ip(10)), cardIndex + 1)});
    EXPECT_EQ(std::get<Event::Sent>(take(3).back().value).summary.type, DHCPMessageType::ack);
    EXPECT_EQ(watch(), Events{});
}

TEST_F(ServerWatchTest, DoesNotLookForItsDevicesWhenTheAdapterIsBack) {
    options.presenceEnabled = true;
    startAndUnplug();
    host->plugIn("en7", cardIndex);
    std::ignore = watch();
    EXPECT_EQ(host->probes(), std::vector<FakeHost::Probe>{});
}

TEST_F(ServerWatchTest, RaisesTheLinkNoticeWhenTheAdapterIsBackWithoutACable) {
    startAndUnplug();
    host->plugIn("en7", cardIndex);
    setLink(false);
    EXPECT_EQ(watch(),
              (Events{cleared(NoticeKind::adapterUnplugged), info("en7 is back"), link(false), linkDownRaised()}));
    setLink(true);
    EXPECT_EQ(watch(), (Events{link(true), cleared(NoticeKind::linkDown)}));
}

TEST_F(ServerWatchTest, ClearsTheLinkNoticeOfBeforeWhenTheAdapterIsBackWithACable) {
    setLink(false);
    startAndUnplug();
    host->plugIn("en7", cardIndex);
    setLink(true);
    EXPECT_EQ(watch(), (Events{cleared(NoticeKind::adapterUnplugged), info("en7 is back"), link(true),
                               cleared(NoticeKind::linkDown)}));
}

TEST_F(ServerWatchTest, FindsItsAdapterUnderAnotherNameByItsHardwareAddress) {
    options.cardMAC = cardMAC;
    startAndUnplug();
    host->plugIn("en9", 21);
    host->nameCard(cardMAC, "en9");
    EXPECT_EQ(watch(), (Events{cleared(NoticeKind::adapterUnplugged), info("en9 is back"), link(true)}));
    EXPECT_EQ(host->openings().back(), TransportMode{TransportMode::Interface{"en9"}});

    const auto message = request(mac(1)).requesting(ip(13));
    host->arrive({datagram(message, 21)});
    EXPECT_EQ(take(2), (Events{received(message, "en9"), sent(DHCPMessageType::nak, ip(13), mac(1),
                                                              "requested address is outside the range", "en9")}));
    host->arrive({datagram(message, 33)});
    EXPECT_EQ(take(1), Events{dropped("arrived on interface 33 instead of en9")});
    setLink(false);
    EXPECT_EQ(watch(), (Events{link(false), linkDownRaised("en9")}));
    host->unplug("en9");
    EXPECT_EQ(watch(), Events{unpluggedRaised()});
}

TEST_F(ServerWatchTest, PrefersTheCardOfItsHardwareAddressToOneThatTookItsName) {
    options.cardMAC = cardMAC;
    startAndUnplug();
    host->plugIn("en7", 30);
    host->plugIn("en9", 21);
    host->nameCard(cardMAC, "en9");
    EXPECT_EQ(watch(), (Events{cleared(NoticeKind::adapterUnplugged), info("en9 is back"), link(true)}));
}

TEST_F(ServerWatchTest, TakesTheCardOfItsNameWhenNoCardHasTheHardwareAddress) {
    options.cardMAC = cardMAC;
    startAndUnplug();
    EXPECT_EQ(watch(), Events{});
    host->plugIn("en7", 30);
    EXPECT_EQ(watch(), (Events{cleared(NoticeKind::adapterUnplugged), info("en7 is back"), link(true)}));
}

TEST_F(ServerWatchTest, TakesOnlyItsOwnNameWithoutAHardwareAddress) {
    startAndUnplug();
    host->plugIn("en9", 21);
    host->nameCard(cardMAC, "en9");
    EXPECT_EQ(watch(), Events{});
}

TEST_F(ServerWatchTest, SaysEverySecondWhyTheAdapterCannotBeReopened) {
    startAndUnplug();
    host->plugIn("en7", cardIndex);
    host->failOpening({EADDRINUSE, {"out of luck"}});
    EXPECT_EQ(watch(),
              Events{info("could not reopen en7: " + TransportError("bind 0.0.0.0:67", EADDRINUSE).description())});
    EXPECT_EQ(watch(), Events{info("could not reopen en7: out of luck")});
    EXPECT_EQ(watch(), (Events{cleared(NoticeKind::adapterUnplugged), info("en7 is back"), link(true)}));
}

TEST_F(ServerWatchTest, TriesAgainWhenTheReopenedSocketCannotBeWatched) {
    startAndUnplug();
    host->plugIn("en7", cardIndex);
    host->openUnwatchable();
    const Events failed = watch();
    ASSERT_EQ(failed.size(), 1U);
    EXPECT_TRUE(std::get<Event::Info>(failed[0].value).text.starts_with("could not reopen en7: "));
    EXPECT_EQ(watch(), (Events{cleared(NoticeKind::adapterUnplugged), info("en7 is back"), link(true)}));
}

TEST_F(ServerWatchTest, KeepsTheNewNameWhenTheAdapterCannotBeReopenedUnderIt) {
    options.cardMAC = cardMAC;
    startAndUnplug();
    host->plugIn("en9", 21);
    host->nameCard(cardMAC, "en9");
    host->failOpening({EACCES});
    EXPECT_EQ(watch(),
              Events{info("could not reopen en9: " + TransportError("bind 0.0.0.0:67", EACCES).description())});
    EXPECT_EQ(watch(), (Events{cleared(NoticeKind::adapterUnplugged), info("en9 is back"), link(true)}));
}

TEST_F(ServerWatchTest, StopsWhileItWaitsForTheAdapter) {
    startAndUnplug();
    server->stop();
    EXPECT_EQ(settled(), Events{stopped()});
    EXPECT_EQ(host->timers(), std::vector<FakeHost::Timer>{});
}

} // namespace
} // namespace DHCPCore
