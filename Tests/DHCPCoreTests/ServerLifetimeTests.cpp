// Servers that are dropped without being stopped: nothing hangs, nothing is touched afterwards.
#include "Support/OpenDescriptors.hpp"
#include "Support/ServerHarness.hpp"

#include <thread>

namespace DHCPCore {
namespace {

using namespace TestSupport; // NOLINT(*-build-using-namespace): the words of the tests
using std::chrono::seconds;
using Events = std::vector<ServerEvent>;

class ServerLifetimeTest : public ServerHarness {
  protected:
    ServerLifetimeTest() { options.presenceEnabled = true; }

    /// Every reference that the test has goes.
    void drop() {
        dropped = server;
        server.reset();
    }

    [[nodiscard]] bool isGone() const { return dropped.expired(); }

    std::weak_ptr<DHCPServer> dropped;
};

TEST_F(ServerLifetimeTest, MayBeDroppedWithoutEverBeingStarted) {
    make();
    drop();
    EXPECT_TRUE(isGone());
    EXPECT_EQ(events->next(), std::nullopt);
}

TEST_F(ServerLifetimeTest, EndsItsEventsAndClosesItsSocketWhenItIsDropped) {
    start();
    drop();
    EXPECT_TRUE(isGone());
    EXPECT_EQ(events->next(), std::nullopt);
    EXPECT_FALSE(host->isWireOpen());
    EXPECT_EQ(host->timers(), std::vector<FakeHost::Timer>{});
    EXPECT_EQ(directory.names(), std::vector<std::string>{}) << "only stopping saves";
}

TEST_F(ServerLifetimeTest, LeavesNoDescriptorOpen) {
    const auto before = openDescriptors();
    start();
    EXPECT_GT(openDescriptors().size(), before.size());
    drop();
    host.reset(); // with the far end of the wire
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(ServerLifetimeTest, MayBeDroppedAfterAFailedStart) {
    host->failOpening({EACCES});
    make();
    EXPECT_THROW(server->start(), TransportError);
    drop();
    EXPECT_TRUE(isGone());
    EXPECT_EQ(events->next(), std::nullopt);
}

TEST_F(ServerLifetimeTest, DeliversWhatItReportedBeforeItWasDropped) {
    make();
    server->start();
    drop();
    EXPECT_EQ(events->next(), started());
    EXPECT_EQ(events->next(), link(true));
    EXPECT_EQ(events->next(), std::nullopt);
}

TEST_F(ServerLifetimeTest, MayBeDroppedWhileAProbeIsOut) {
    saveLeases(tableOf({boundLease(mac(1), ip(10))}));
    host->hold(ip(10));
    start();
    server->refreshPresence();
    ASSERT_TRUE(host->waitForProbes(1));
    std::thread dropping([this] { drop(); }); // waits for the probe, which lasts a second at most
    EXPECT_EQ(events->next(), std::nullopt);
    host->release(ip(10));
    dropping.join();
    EXPECT_TRUE(isGone());
}

TEST_F(ServerLifetimeTest, MayBeDroppedWhileAMessageWaitsForItsProbe) {
    options.config.rangeEnd = ip(10);
    saveLeases(tableOf({boundLease(mac(1), ip(10))}));
    host->hold(ip(10));
    start();
    arrive(discover(mac(2)));
    EXPECT_EQ(take(2).size(), 2U);
    ASSERT_TRUE(host->waitForProbes(1));
    std::thread dropping([this] { drop(); });
    EXPECT_EQ(events->next(), std::nullopt);
    host->release(ip(10));
    dropping.join();
    EXPECT_EQ(host->sent(), std::vector<FakeHost::SentReply>{});
}

TEST_F(ServerLifetimeTest, MayBeDroppedWhileManyProbesComeBack) {
    options.config.rangeEnd = ip(200);
    std::vector<Lease> leases;
    for (std::uint8_t last = 10; last < 200; ++last) {
        leases.push_back(boundLease(mac(last), ip(last)));
    }
    saveLeases(tableOf(leases));
    start();
    server->refreshPresence();
    EXPECT_EQ(take(20).size(), 20U);
    drop();
    while (events->next()) { // the queue may hold the last reference for a moment
    }
}

TEST_F(ServerLifetimeTest, MayBeDroppedWhileASecondTryIsPending) {
    host->delayForReal();
    host->failSending({EHOSTUNREACH});
    start();
    std::ignore = eventsOf(discover(mac(1)), 2);
    drop();
    EXPECT_TRUE(isGone());
    EXPECT_EQ(host->sent(), std::vector<FakeHost::SentReply>{});
}

TEST_F(ServerLifetimeTest, MayBeDroppedWhileMessagesAreWaiting) {
    start();
    host->arrive(std::vector<Datagram>(200, datagram(discover(mac(1)))));
    drop();
    while (events->next()) {
    }
    EXPECT_FALSE(host->isWireOpen());
}

TEST_F(ServerLifetimeTest, MayBeDroppedForTheLastTimeOnItsOwnQueue) {
    start();
    host->beforeNextReply([this] { drop(); }); // the handler at work has the last reference then
    arrive(discover(mac(1)));
    EXPECT_EQ(take(3).size(), 3U) << "the message at work is done with";
    EXPECT_EQ(events->next(), std::nullopt);
}

TEST_F(ServerLifetimeTest, MayBeDroppedForTheLastTimeOnItsOwnQueueWhileAProbeIsOut) {
    saveLeases(tableOf({boundLease(mac(9), ip(12))}));
    host->hold(ip(12));
    start();
    server->refreshPresence();
    ASSERT_TRUE(host->waitForProbes(1));
    host->beforeNextReply([this] {
        drop();
        host->release(ip(12));
    });
    arrive(discover(mac(1)));
    while (events->next()) {
    }
}

TEST_F(ServerLifetimeTest, MayBeDroppedForTheLastTimeByAProbeThatComesBack) {
    options.config.rangeEnd = ip(10);
    saveLeases(tableOf({boundLease(mac(1), ip(10))}));
    start();
    host->beforeNextReply([this] { drop(); });
    arrive(discover(mac(2)));
    while (events->next()) {
    }
    EXPECT_EQ(host->sent().size(), 1U) << "the reply at work still left";
}

TEST_F(ServerLifetimeTest, MayBeStoppedAndDroppedFromAnotherThreadAtOnce) {
    start();
    host->arrive(std::vector<Datagram>(200, datagram(discover(mac(1)))));
    std::thread stopping([this, last = std::move(server)]() mutable {
        dropped = last;
        last->stop();
        last.reset();
    });
    std::optional<ServerEvent> lastEvent;
    while (auto event = events->next()) {
        lastEvent = std::move(event);
    }
    stopping.join();
    EXPECT_EQ(lastEvent, stopped());
    EXPECT_TRUE(isGone());
}

} // namespace
} // namespace DHCPCore
