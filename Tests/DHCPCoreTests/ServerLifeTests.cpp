// Servers that are started, stopped and dropped again and again, at any moment: nothing is left, nothing hangs.
#include "Support/OpenDescriptors.hpp"
#include "Support/OwnThreads.hpp"
#include "Support/ServerHarness.hpp"
#include "Support/Settled.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>

namespace DHCPCore {
namespace {

using namespace TestSupport; // NOLINT(*-build-using-namespace): the words of the tests
using std::chrono::seconds;

/// Fails the test when this process keeps more descriptors or threads. A server that its own thread let go of last ends
/// there, and nobody waits for that thread: one of an earlier server may have been counted, too.
void expectAtMost(std::size_t descriptors, std::ptrdiff_t threads) {
    EXPECT_LE(settled([] { return openDescriptors().size(); }, descriptors), descriptors);
    EXPECT_LE(settled(ownThreads, threads), threads);
}

/// A pool of two addresses, one of a device that does not answer; every server is made on a host of its own.
class ServerLifeTest : public ServerHarness {
  protected:
    ServerLifeTest() {
        options.presenceEnabled = true;
        options.config.rangeEnd = ip(11);
    }

    void renew() {
        host = std::make_shared<FakeHost>();
        host->setNow(now);
        host->plugIn("en7", cardIndex);
        host->setAddresses({{.name = "en7", .subnet = {.address = serverIP, .prefixLength = 24}}});
        setLink(true);
        saveLeases(tableOf({boundLease(mac(9), ip(11))}));
        make();
    }

    /// Everything that a server does: a handshake, a refusal, a probe before an address changes its holder, a cycle of
    /// probes, a reply that is tried again, a cut cable and an adapter that goes and comes.
    /// Leaves out what comes after so many of these deeds.
    void live(std::size_t most = SIZE_MAX) {
        const FakeHost::Failure refused{EHOSTUNREACH};
        const std::vector<std::function<void()>> deeds{
            [this] { arrive(discover(mac(1))); },
            [this] { arrive(request(mac(1)).requesting(ip(10)).selecting(serverIP)); },
            [this] { arrive(request(mac(2)).requesting(ip(10)).selecting(serverIP)); },
            [this] { arrive(discover(mac(3))); },
            [this] { host->tick(Timing::presenceInterval); },
            [this, refused] {
                host->failSending({refused});
                arrive(discover(mac(1)));
            },
            [this] { host->passDelays(); },
            [this] {
                setLink(false);
                host->tick(seconds{1});
                setLink(true);
                host->tick(seconds{1});
            },
            [this] {
                host->unplug("en7");
                host->tick(seconds{1});
                host->plugIn("en7", cardIndex + 1);
                host->tick(seconds{1});
            },
            [this] { arrive(decline(mac(1)).requesting(ip(10))); },
        };
        for (std::size_t index = 0; index < std::min(most, deeds.size()); ++index) {
            try {
                deeds[index]();
            } catch (const std::logic_error&) {
                return; // the server was stopped meanwhile: nobody listens on the wire, and no timer is left
            }
        }
    }

    /// How many events the whole life leads to, at most: the timers' deeds and the probes' answers may meet.
    static constexpr int mostEvents = 40;
};

/// What a test does with its last server; the environment may ask for more of it.
int rounds(int usual) {
    const char* const asked = std::getenv("TARNWICK_LIVES");
    return asked == nullptr ? usual : std::stoi(asked);
}

TEST_F(ServerLifeTest, LeavesNothingAfterAThousandStartsAndStops) {
    const auto startAndStop =
        [this] {
            renew();
            server->start();
            arrive(discover(mac(1)));
            EXPECT_EQ(take(5).size(), 5U)
                << "started, the lease of the file, the link, received, the lease that is offered";
            server->stop();
            server.reset();
            while (events->next()) {
            }
            host.reset();
        };
    startAndStop(); // what the run-time library keeps for good from then on is not counted
    const std::size_t descriptors = openDescriptors().size();
    const std::ptrdiff_t threads = ownThreads();
    for (int round = 0; round < rounds(1000); ++round) {
        startAndStop();
    }
    expectAtMost(descriptors, threads);
}

TEST_F(ServerLifeTest, StopsInOrderAfterAnyOfItsEvents) {
    for (int last = 1; last <= mostEvents; ++last) {
        SCOPED_TRACE(last);
        renew();
        server->start();
        std::thread living([this] { live(); });
        int count = 0;
        int stops = 0;
        std::optional<ServerEvent> latest;
        // A life may have fewer events than that; it is then stopped when it has done everything.
        for (auto event = events->next(seconds{0}); count < last; event = events->next(std::chrono::milliseconds{50})) {
            count = event ? count + 1 : last;
        }
        server->stop();
        while (auto event = events->next()) {
            stops += *event == stopped() ? 1 : 0;
            latest = std::move(event);
        }
        living.join();
        EXPECT_EQ(latest, stopped());
        EXPECT_EQ(stops, 1);
        EXPECT_FALSE(host->isWireOpen());
        EXPECT_EQ(host->timers(), std::vector<FakeHost::Timer>{});
        EXPECT_EQ(savedLeases(), server->currentTable());
    }
}

TEST_F(ServerLifeTest, EndsWithoutBeingStoppedInTheMidstOfAnyOfItsDeeds) {
    const std::size_t descriptors = openDescriptors().size();
    const std::ptrdiff_t threads = ownThreads();
    constexpr std::size_t deeds = 10;
    constexpr std::size_t times = 10; // what the queue has got to by then differs each time
    for (std::size_t round = 0; round <= deeds * times; ++round) {
        SCOPED_TRACE(round);
        renew();
        server->start();
        live(round / times);
        server.reset();
        while (events->next()) {
        }
        EXPECT_FALSE(host->isWireOpen());
    }
    host.reset();
    expectAtMost(descriptors, threads);
}

TEST_F(ServerLifeTest, SendsNothingAgainOnceItIsStopped) {
    renew();
    server->start();
    host->failSending({FakeHost::Failure{EHOSTUNREACH}});
    arrive(discover(mac(1)));
    EXPECT_EQ(take(5).size(), 5U);
    server->stop();
    EXPECT_EQ(settled(), std::vector<ServerEvent>{stopped()});
    ASSERT_EQ(host->delays(), std::vector<SerialQueue::Duration>{seconds{1}});
    host->passDelays();
    EXPECT_EQ(host->sent(), std::vector<FakeHost::SentReply>{});
    EXPECT_EQ(events->next(), std::nullopt);
}

TEST_F(ServerLifeTest, StopsWhileAMessageWaitsForItsProbe) {
    renew();
    host->hold(ip(11));
    server->start();
    arrive(discover(mac(1)));
    arrive(discover(mac(2)));
    ASSERT_TRUE(host->waitForProbes(1));
    server->stop(); // does not wait for it
    host->release(ip(11));
    server.reset();
    std::optional<ServerEvent> latest;
    while (auto event = events->next()) {
        latest = std::move(event);
    }
    EXPECT_EQ(latest, stopped());
    EXPECT_LE(host->sent().size(), 1U) << "the address that was free";
}

/// The system's own sockets and timers, on loopback.
class SystemServerLifeTest : public ServerHarness {
  protected:
    void serve(std::uint16_t port) {
        options.mode = {TransportMode::Loopback{.serverPort = port, .clientPort = 9}};
        server = std::make_shared<DHCPServer>(options);
        events = server->events();
    }
};

TEST_F(SystemServerLifeTest, LeavesNothingAfterManyStartsStopsAndDrops) {
    const auto startAndEnd = [this](bool stops) {
        serve(0); // any free port
        server->start();
        server->refreshPresence();
        if (stops) {
            server->stop();
        }
        server.reset();
        std::size_t count = 0;
        while (events->next()) {
            ++count;
        }
        EXPECT_EQ(count, stops ? 2U : 1U);
    };
    startAndEnd(true);
    const std::size_t descriptors = openDescriptors().size();
    const std::ptrdiff_t threads = ownThreads();
    for (int round = 0; round < rounds(300); ++round) {
        startAndEnd(round % 3 != 0);
    }
    expectAtMost(descriptors, threads);
}

} // namespace
} // namespace DHCPCore
