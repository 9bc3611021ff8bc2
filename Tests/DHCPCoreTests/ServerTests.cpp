// Starting, stopping, and what becomes of the leases and their file.
#include "Support/ServerHarness.hpp"

#include <fcntl.h>
#include <filesystem>

namespace DHCPCore {
namespace {

using namespace TestSupport; // NOLINT(*-build-using-namespace): the words of the tests
using std::chrono::hours;
using std::chrono::seconds;
using Event = ServerEvent;
using Events = std::vector<ServerEvent>;

class ServerTest : public ServerHarness {};

/// Moves the harness to the loopback test mode.
class LoopbackServerTest : public ServerHarness {
  protected:
    LoopbackServerTest() { options.mode = {TransportMode::Loopback{.serverPort = 6767, .clientPort = 6868}}; }
};

Lease offeredTo(const MACAddress& client, IPv4Address address) {
    return newlyOffered(client, address, now + Timing::offerHold);
}

Lease boundTo(const MACAddress& client, IPv4Address address) { return newlyBound(client, address, now + hours{1}); }

// Starting.

TEST_F(ServerTest, ReportsItsStartThenTheLeasesThenTheLink) {
    const std::vector<Lease> leases{boundLease(mac(2), ip(11)), leaseIn(Lease::State::released, mac(1), ip(10))};
    saveLeases(tableOf(leases));
    EXPECT_EQ(start(), (Events{started(), changed(leases[0]), changed(leases[1]), link(true)}));
    EXPECT_EQ(server->currentTable(), tableOf(leases));
}

TEST_F(ServerTest, RaisesANoticeWhenTheLinkIsDownAtTheStart) {
    setLink(false);
    EXPECT_EQ(start(), (Events{started(), link(false),
                               raised(NoticeKind::linkDown, "Link down. No device is connected to en7. Serving resumes "
                                                            "on its own when the link returns.")}));
}

TEST_F(ServerTest, OpensItsCardWithItsOwnAddress) {
    start();
    EXPECT_EQ(host->openings(), std::vector<TransportMode>{options.mode});
    EXPECT_EQ(host->replySource(), serverIP);
    EXPECT_TRUE(host->isWireOpen());
}

TEST_F(ServerTest, AsksForLocalNetworkPermissionWithTheFirstAddressOfThePool) {
    start();
    EXPECT_EQ(host->alerts(), (std::vector<FakeHost::Alert>{{.interfaceName = "en7", .nearby = ip(10)}}));
}

TEST_F(ServerTest, WatchesItsCardEverySecond) {
    start();
    EXPECT_EQ(host->timers(), (std::vector<FakeHost::Timer>{{.first = seconds{1}, .interval = seconds{1}}}));
}

TEST_F(ServerTest, LooksForItsDevicesEveryTenSecondsBeginningAfterOne) {
    options.presenceEnabled = true;
    start();
    EXPECT_EQ(host->timers(), (std::vector<FakeHost::Timer>{{.first = seconds{1}, .interval = seconds{1}},
                                                            {.first = seconds{1}, .interval = seconds{10}}}));
}

TEST_F(ServerTest, ReportsAndOpensNothingWhenStartedAgainWhileRunning) {
    start();
    server->start();
    EXPECT_EQ(settled(), Events{});
    EXPECT_EQ(host->openings().size(), 1U);
    EXPECT_EQ(host->timers().size(), 1U);
    EXPECT_EQ(host->alerts().size(), 1U);
}

TEST_F(ServerTest, ThrowsWhyItsSocketCannotBeOpenedAndReportsNothing) {
    host->failOpening({EADDRINUSE});
    make();
    try {
        server->start();
        ADD_FAILURE() << "started";
    } catch (const TransportError& error) {
        EXPECT_EQ(error, TransportError("bind 0.0.0.0:67", EADDRINUSE));
    }
    EXPECT_EQ(settled(), Events{});
    EXPECT_EQ(host->timers(), std::vector<FakeHost::Timer>{});
}

TEST_F(ServerTest, IsNotRunningButHasItsLeasesAfterAFailedStart) {
    const LeaseTable table = tableOf({boundLease(mac(1), ip(10))});
    saveLeases(table);
    host->failOpening({EACCES});
    make();
    EXPECT_THROW(server->start(), TransportError);
    EXPECT_EQ(server->currentTable(), table);
    server->stop();
    EXPECT_EQ(settled(), Events{}) << "there is nothing to stop";
}

TEST_F(ServerTest, StartsAfterAFailedStart) {
    host->failOpening({EACCES});
    make();
    EXPECT_THROW(server->start(), TransportError);
    EXPECT_EQ(start(), (Events{started(), link(true)}));
}

TEST_F(ServerTest, LeavesNothingOpenWhenItsSocketCannotBeWatched) {
    make();
    host->openUnwatchable();
    EXPECT_THROW(server->start(), Error);
    EXPECT_EQ(::fcntl(host->lastDescriptor(), F_GETFD), -1);
    EXPECT_EQ(settled(), Events{});
    EXPECT_EQ(start(), (Events{started(), link(true)}));
}

TEST_F(LoopbackServerTest, ReportsItsStartOnTheLoopbackDeviceAndNoLink) {
    setLink(false);
    EXPECT_EQ(start(), Events{started()});
    EXPECT_EQ(started(), (Event{Event::Started{.interface = "lo0", .config = options.config}}));
    EXPECT_EQ(host->openings(), std::vector<TransportMode>{options.mode});
}

TEST_F(LoopbackServerTest, NeitherWatchesACardNorAsksForPermission) {
    start();
    EXPECT_EQ(host->timers(), std::vector<FakeHost::Timer>{});
    EXPECT_EQ(host->alerts(), std::vector<FakeHost::Alert>{});
}

TEST_F(LoopbackServerTest, LooksForItsDevicesWhenAskedTo) {
    options.presenceEnabled = true;
    start();
    EXPECT_EQ(host->timers(), (std::vector<FakeHost::Timer>{{.first = seconds{1}, .interval = seconds{10}}}));
}

// Stopping.

TEST_F(ServerTest, SavesReportsAndFinishesItsEventsWhenStopped) {
    start();
    server->stop();
    EXPECT_EQ(settled(), Events{stopped()});
    EXPECT_EQ(events->next(), std::nullopt) << "nothing will follow";
    EXPECT_TRUE(std::filesystem::exists(options.leaseFile.url));
    EXPECT_EQ(host->timers(), std::vector<FakeHost::Timer>{});
    EXPECT_FALSE(host->isWireOpen());
}

TEST_F(ServerTest, StopsOnce) {
    start();
    server->stop();
    server->stop();
    EXPECT_EQ(settled(), Events{stopped()});
}

TEST_F(ServerTest, KeepsItsEventsOpenWhenStoppedBeforeItsStart) {
    make();
    server->stop();
    EXPECT_EQ(settled(), Events{});
    EXPECT_FALSE(std::filesystem::exists(options.leaseFile.url)) << "it has loaded nothing that it could save";
    EXPECT_EQ(start(), (Events{started(), link(true)}));
}

TEST_F(ServerTest, SavesAnOutstandingOfferWhenStopped) {
    start();
    std::ignore = eventsOf(discover(mac(1)), 3);
    server->stop();
    EXPECT_EQ(savedLeases(), tableOf({offeredTo(mac(1), ip(10))}));
}

TEST_F(ServerTest, RaisesANoticeBeforeItsEndWhenItsLeasesCannotBeSaved) {
    blockSaving();
    start();
    server->stop();
    EXPECT_EQ(settled(),
              (Events{raised(NoticeKind::leaseSaveFailed, "Leases could not be saved: " + savingError()), stopped()}));
}

TEST_F(ServerTest, DoesNothingOnATickAfterItsEnd) {
    options.presenceEnabled = true;
    saveLeases(tableOf({boundLease(mac(1), ip(10))}));
    start();
    const auto watch = host->workOfTimer(seconds{1});
    const auto presence = host->workOfTimer(seconds{10});
    server->stop();
    setLink(false);
    host->runOnQueue(watch);
    host->runOnQueue(presence);
    EXPECT_EQ(settled(), Events{stopped()});
    EXPECT_EQ(host->probes(), std::vector<FakeHost::Probe>{});
}

// Loading.

TEST_F(ServerTest, ReportsALeaseFileThatWasSetAsideBeforeItsStart) {
    writeText(options.leaseFile.url, "no JSON");
    const Events all = start();
    const auto names = directory.names();
    ASSERT_EQ(names.size(), 1U);
    EXPECT_EQ(all, (Events{raised(NoticeKind::leaseFileSetAside, "The lease file could not be read and was moved to " +
                                                                     names[0] + ". Starting with no leases."),
                           started(), link(true)}));
    EXPECT_EQ(readText(directory / names[0]), "no JSON");
}

TEST_F(ServerTest, KeepsItsLeasesInMemoryOnlyWhenTheirFileCannotBeRead) {
    std::filesystem::create_directory(options.leaseFile.url);
    std::string reason;
    try {
        std::ignore = options.leaseFile.load(now);
    } catch (const Error& error) {
        reason = error.description();
    }
    EXPECT_EQ(start(),
              (Events{raised(NoticeKind::leaseSaveFailed, "Tarnwick can't read leases.json (" + reason +
                                                              "). Leases are kept in memory only and the file is left "
                                                              "untouched."),
                      started(), link(true)}));
    EXPECT_EQ(eventsOf(request(mac(1)).requesting(ip(10)), 3),
              (Events{received(request(mac(1)).requesting(ip(10))), changed(boundTo(mac(1), ip(10))),
                      granted(ip(10), mac(1))}))
        << "neither saved nor complained about";
    server->stop();
    EXPECT_EQ(settled(), Events{stopped()});
    EXPECT_EQ(directory.names(), std::vector<std::string>{"leases.json"});
    EXPECT_TRUE(std::filesystem::is_directory(options.leaseFile.url));
}

TEST_F(ServerTest, NeverWritesAFileThatItCouldNotReadOnce) {
    std::filesystem::create_directory(options.leaseFile.url);
    host->failOpening({EACCES});
    make();
    EXPECT_THROW(server->start(), TransportError);
    std::filesystem::remove(options.leaseFile.url);
    start();
    std::ignore = eventsOf(request(mac(1)).requesting(ip(10)), 3);
    server->stop();
    EXPECT_EQ(settled(), Events{stopped()});
    EXPECT_EQ(directory.names(), std::vector<std::string>{}) << "the first notice said so, and still stands";
}

TEST_F(ServerTest, DropsLeasesOutsideTheRangeBeforeItsStartAndSaves) {
    const Lease below = boundLease(mac(1), ip(9));
    const Lease lowest = boundLease(mac(2), ip(10));
    const Lease above = leaseIn(Lease::State::released, mac(3), ip(13));
    const Lease highest = boundLease(mac(4), ip(12));
    saveLeases(tableOf({below, lowest, above, highest}));
    EXPECT_EQ(start(), (Events{info("dropped lease 10.0.0.9 for 02:00:00:00:00:01: outside the range"), removed(mac(1)),
                               info("dropped lease 10.0.0.13 for 02:00:00:00:00:03: outside the range"),
                               removed(mac(3)), started(), changed(lowest), changed(highest), link(true)}));
    EXPECT_EQ(savedLeases(), tableOf({lowest, highest}));
}

TEST_F(ServerTest, KeepsTheLeasesOfARangeThatIsReversed) {
    std::swap(options.config.rangeStart, options.config.rangeEnd);
    const Lease lowest = boundLease(mac(1), ip(10));
    const Lease highest = boundLease(mac(2), ip(12));
    saveLeases(tableOf({lowest, boundLease(mac(3), ip(13)), highest}));
    EXPECT_EQ(start(), (Events{info("dropped lease 10.0.0.13 for 02:00:00:00:00:03: outside the range"),
                               removed(mac(3)), started(), changed(lowest), changed(highest), link(true)}));
}

TEST_F(ServerTest, DoesNotTouchTheFileWhenNoLeaseIsDropped) {
    saveLeases(tableOf({boundLease(mac(1), ip(10))}));
    const std::string before = readText(options.leaseFile.url) + "\n";
    writeText(options.leaseFile.url, before);
    start();
    EXPECT_EQ(readText(options.leaseFile.url), before);
}

// Saving.

TEST_F(ServerTest, DoesNotSaveAMereOffer) {
    start();
    EXPECT_EQ(eventsOf(discover(mac(1)), 3), (Events{received(discover(mac(1))), changed(offeredTo(mac(1), ip(10))),
                                                     sent(DHCPMessageType::offer, ip(10), mac(1))}));
    EXPECT_EQ(directory.names(), std::vector<std::string>{});
}

TEST_F(ServerTest, SavesABindingBeforeItsReplyLeaves) {
    start();
    LeaseTable savedThen;
    host->beforeNextReply([&] { savedThen = savedLeases(); });
    std::ignore = eventsOf(request(mac(1)).requesting(ip(10)), 3);
    EXPECT_EQ(savedThen, tableOf({boundTo(mac(1), ip(10))}));
}

TEST_F(ServerTest, RaisesANoticeForEverySaveThatFailsAndClearsItOnceByTheNextThatSucceeds) {
    blockSaving();
    start();
    const std::string text = "Leases could not be saved: " + savingError();
    const auto message = request(mac(1)).requesting(ip(10));
    const Events failing{received(message), changed(boundTo(mac(1), ip(10))), raised(NoticeKind::leaseSaveFailed, text),
                         granted(ip(10), mac(1))};
    EXPECT_EQ(eventsOf(message, 4), failing);
    EXPECT_EQ(eventsOf(message, 4), failing) << "it goes on serving, and says so again";
    unblockSaving();
    EXPECT_EQ(eventsOf(message, 4), (Events{received(message), changed(boundTo(mac(1), ip(10))),
                                            cleared(NoticeKind::leaseSaveFailed), granted(ip(10), mac(1))}));
    EXPECT_EQ(eventsOf(message, 3),
              (Events{received(message), changed(boundTo(mac(1), ip(10))), granted(ip(10), mac(1))}));
}

// What a front end asks for.

TEST_F(ServerTest, ForgetsALeaseAndSaves) {
    saveLeases(tableOf({boundLease(mac(1), ip(10)), boundLease(mac(2), ip(11))}));
    start();
    server->forgetLease(mac(1));
    EXPECT_EQ(settled(), Events{removed(mac(1))});
    EXPECT_EQ(savedLeases(), tableOf({boundLease(mac(2), ip(11))}));
}

TEST_F(ServerTest, DoesNothingToForgetALeaseThatItDoesNotHave) {
    start();
    server->forgetLease(mac(9));
    EXPECT_EQ(settled(), Events{});
    EXPECT_EQ(directory.names(), std::vector<std::string>{});
}

TEST_F(ServerTest, RemovesEveryInactiveLeaseInTheOrderOfTheTable) {
    saveLeases(tableOf({leaseIn(Lease::State::released, mac(1), ip(10)),
                        leaseIn(Lease::State::reclaimed, mac(2), ip(11)), leaseUntil(now, mac(3), ip(12)),
                        leaseUntil(now + seconds{1}, mac(4), ip(10)), newlyOffered(mac(5), ip(11), now + seconds{1})}));
    start();
    server->clearInactive();
    EXPECT_EQ(settled(), (Events{removed(mac(1)), removed(mac(2)), removed(mac(3))}));
    const LeaseTable rest =
        tableOf({leaseUntil(now + seconds{1}, mac(4), ip(10)), newlyOffered(mac(5), ip(11), now + seconds{1})});
    EXPECT_EQ(server->currentTable(), rest);
    EXPECT_EQ(savedLeases(), rest);
}

TEST_F(ServerTest, SavesNothingWhenNoLeaseIsInactive) {
    saveLeases(tableOf({boundLease(mac(1), ip(10))}));
    start();
    std::filesystem::remove(options.leaseFile.url);
    server->clearInactive();
    EXPECT_EQ(settled(), Events{});
    EXPECT_EQ(directory.names(), std::vector<std::string>{});
}

} // namespace
} // namespace DHCPCore
