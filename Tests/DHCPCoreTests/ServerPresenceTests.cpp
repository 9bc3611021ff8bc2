// Probing: of leased devices, and of an address before it goes to another device.
#include "Support/ServerHarness.hpp"

#include <algorithm>

namespace DHCPCore {
namespace {

using namespace TestSupport; // NOLINT(*-build-using-namespace): the words of the tests
using std::chrono::hours;
using std::chrono::seconds;
using Event = ServerEvent;
using Events = std::vector<ServerEvent>;
using Probes = std::vector<FakeHost::Probe>;

const auto pool = {ip(10), ip(11), ip(12)};
const ProbeResult answered{.answered = true, .detail = "tcp 80 refused"};

class ServerPresenceTest : public ServerHarness {
  protected:
    ServerPresenceTest() { options.presenceEnabled = true; }

    [[nodiscard]] static FakeHost::Probe probeOf(IPv4Address address) {
        return {.interfaceName = "en7", .ip = address};
    }

    /// The probes so far by address: those of one cycle begin in any order.
    [[nodiscard]] Probes probesByAddress() const {
        Probes probes = host->probes();
        std::ranges::stable_sort(probes, {}, &FakeHost::Probe::ip);
        return probes;
    }

    /// So many devices have leases from 10.0.0.10 on, and a probe of them does not come back before `releaseDevices`.
    void holdDevices(std::uint8_t count) {
        options.config.rangeEnd = ip(10 + count);
        LeaseTable table;
        for (std::uint8_t number = 0; number < count; ++number) {
            table.upsert(boundLease(mac(number), ip(10 + number)));
            host->hold(ip(10 + number));
        }
        saveLeases(table);
    }
    void releaseDevices(std::uint8_t count) {
        for (std::uint8_t number = 0; number < count; ++number) {
            host->release(ip(10 + number));
        }
    }

    [[nodiscard]] static Event probing(IPv4Address address) {
        return info("probing " + address.description() + " before giving it to another device");
    }
};

TEST_F(ServerPresenceTest, ProbesEveryBoundLeaseThatHasNotExpired) {
    saveLeases(
        tableOf({leaseUntil(now, mac(1), ip(10)), leaseUntil(now + seconds{1}, mac(2), ip(11)),
                 newlyOffered(mac(3), ip(12), now + hours{1}), leaseIn(Lease::State::reclaimed, mac(4), ip(12))}));
    start();
    host->tick(seconds{10});
    EXPECT_EQ(take(1),
              Events{presence(leaseUntil(now + seconds{1}, mac(2), ip(11)), PresenceState::offline, "no answer")});
    EXPECT_EQ(host->probes(), Probes{probeOf(ip(11))});
}

TEST_F(ServerPresenceTest, AsksWhoAnsweredOnlyWhenSomebodyDid) {
    const Lease silent = boundLease(mac(1), ip(10));
    const Lease lively = boundLease(mac(2), ip(11));
    saveLeases(tableOf({silent, lively}));
    host->answer(ip(11), answered);
    start();
    host->tick(seconds{10});
    EXPECT_EQ(take(2).size(), 2U);
    EXPECT_EQ(host->arpReadings(), 1);
}

TEST_F(ServerPresenceTest, LeavesAThreadFreeForAProbeThatADeviceWaitsFor) {
    constexpr std::uint8_t devices = 60;
    constexpr std::size_t atATime = 42;
    holdDevices(devices);
    start();
    host->tick(seconds{10});
    EXPECT_TRUE(host->waitForProbes(atATime));
    EXPECT_EQ(settled(), Events{});
    EXPECT_EQ(host->probes().size(), atATime) << "the others wait for their turn";
    host->tick(seconds{10});
    EXPECT_EQ(settled(), Events{});
    EXPECT_EQ(host->probes().size(), atATime) << "no cycle begins while one is under way";

    releaseDevices(devices);
    EXPECT_EQ(take(devices).size(), devices);
    EXPECT_EQ(host->probes().size(), devices);
}

TEST_F(ServerPresenceTest, PassesOverADeviceThatLostItsLeaseBeforeItsTurn) {
    constexpr std::uint8_t devices = 50;
    holdDevices(devices);
    start();
    host->tick(seconds{10});
    EXPECT_TRUE(host->waitForProbes(42));
    server->forgetLease(mac(49));
    EXPECT_EQ(take(1), Events{removed(mac(49))});
    releaseDevices(devices);
    EXPECT_EQ(take(49).size(), 49U);
    EXPECT_EQ(std::ranges::count(host->probes(), probeOf(ip(10 + 49))), 0);
}

TEST_F(ServerPresenceTest, TellsWhatAnsweredAndWho) {
    const Lease alone = boundLease(mac(1), ip(10));
    const Lease same = boundLease(mac(2), ip(11));
    const Lease other = boundLease(mac(3), ip(12));
    saveLeases(tableOf({alone, same, other}));
    host->answer(ip(10), answered);
    host->answer(ip(11), {.answered = true, .detail = "icmp 0.4 ms"});
    host->answer(ip(12), {.answered = true, .detail = "tcp 443 open"});
    host->seeInARP(ip(11), mac(2));
    host->seeInARP(ip(12), mac(9));
    start();
    host->tick(seconds{10});
    const Events events = take(3);
    for (const Event& expected : {presence(alone, PresenceState::online, "tcp 80 refused"),
                                  presence(same, PresenceState::online, "icmp 0.4 ms"),
                                  presence(other, PresenceState::conflict, "tcp 443 open")}) {
        EXPECT_EQ(std::ranges::count(events, expected), 1) << testing::PrintToString(expected);
    }
}

TEST_F(ServerPresenceTest, ProbesAllDevicesAtTheSameTime) {
    saveLeases(tableOf({boundLease(mac(1), ip(10)), boundLease(mac(2), ip(11)), boundLease(mac(3), ip(12))}));
    for (const IPv4Address address : pool) {
        host->hold(address);
    }
    start();
    server->refreshPresence();
    EXPECT_TRUE(host->waitForProbes(3)) << "none waits for another";
    EXPECT_EQ(probesByAddress(), (Probes{probeOf(ip(10)), probeOf(ip(11)), probeOf(ip(12))}));
    for (const IPv4Address address : pool) {
        host->release(address);
    }
    EXPECT_EQ(take(3).size(), 3U);
}

TEST_F(ServerPresenceTest, DoesNotProbeAnAddressAgainWhileItsProbeIsOut) {
    const Lease slow = boundLease(mac(1), ip(10));
    const Lease quick = boundLease(mac(2), ip(11));
    saveLeases(tableOf({slow, quick}));
    host->hold(ip(10));
    start();
    host->tick(seconds{10});
    EXPECT_EQ(take(1), Events{presence(quick, PresenceState::offline, "no answer")});
    host->answer(ip(11), answered);
    host->tick(seconds{10});
    EXPECT_EQ(take(1), Events{presence(quick, PresenceState::online, "tcp 80 refused")});
    EXPECT_EQ(probesByAddress(), (Probes{probeOf(ip(10)), probeOf(ip(11)), probeOf(ip(11))}));

    host->release(ip(10));
    EXPECT_EQ(take(1), Events{presence(slow, PresenceState::offline, "no answer")});
    host->answer(ip(10), answered);
    host->tick(seconds{10});
    EXPECT_EQ(take(1), Events{presence(slow, PresenceState::online, "tcp 80 refused")}) << "its turn has come again";
}

TEST_F(ServerPresenceTest, ProbesNothingWhileTheLinkIsDown) {
    saveLeases(tableOf({boundLease(mac(1), ip(10))}));
    setLink(false);
    start();
    host->tick(seconds{10});
    server->refreshPresence();
    EXPECT_EQ(settled(), Events{});
    EXPECT_EQ(host->probes(), Probes{});
}

TEST_F(ServerPresenceTest, DoesNotProbeDevicesWhenItIsTurnedOff) {
    options.presenceEnabled = false;
    saveLeases(tableOf({boundLease(mac(1), ip(10))}));
    start();
    server->refreshPresence();
    EXPECT_EQ(settled(), Events{});
    EXPECT_EQ(host->probes(), Probes{});
}

TEST_F(ServerPresenceTest, DoesNotProbeDevicesBeforeItsStartOrAfterItsEnd) {
    saveLeases(tableOf({boundLease(mac(1), ip(10))}));
    make();
    server->refreshPresence();
    EXPECT_EQ(settled(), Events{});
    start();
    server->stop();
    server->refreshPresence();
    EXPECT_EQ(settled(), Events{stopped()});
    EXPECT_EQ(host->probes(), Probes{});
}

TEST_F(ServerPresenceTest, StopsAtOnceWhileAProbeIsOutAndSaysNothingOfItsAnswer) {
    saveLeases(tableOf({boundLease(mac(1), ip(10))}));
    host->hold(ip(10));
    start();
    server->refreshPresence();
    ASSERT_TRUE(host->waitForProbes(1));
    server->stop();
    EXPECT_EQ(settled(), Events{stopped()});
    host->release(ip(10));
    server.reset(); // waits for the probe
    EXPECT_EQ(settled(), Events{});
}

TEST_F(ServerPresenceTest, ProbesThroughTheNameUnderWhichTheAdapterIsBack) {
    options.cardMAC = cardMAC;
    saveLeases(tableOf({boundLease(mac(1), ip(10))}));
    start();
    host->unplug("en7");
    host->tick(seconds{1});
    host->plugIn("en9", 21);
    host->nameCard(cardMAC, "en9");
    host->tick(seconds{1});
    std::ignore = settled();
    host->answer(ip(10), answered);
    server->refreshPresence();
    EXPECT_EQ(take(1), Events{presence(boundLease(mac(1), ip(10)), PresenceState::online, "tcp 80 refused")});
    EXPECT_EQ(host->probes(), (Probes{{.interfaceName = "en9", .ip = ip(10)}}));
}

/// A full pool: three devices hold its three addresses, none of which is known to be there.
class ServerReclaimTest : public ServerPresenceTest {
  protected:
    ServerReclaimTest() {
        for (std::uint8_t each = 0; each < 3; ++each) {
            Lease lease = boundLease(mac(each), ip(static_cast<std::uint8_t>(10 + each)));
            lease.lastSeen = now - hours{10} + hours{each}; // the oldest is asked first
            holders.push_back(lease);
        }
        saveLeases(tableOf(holders));
    }

    /// What follows when the holder of that index is found gone.
    [[nodiscard]] Events reclaimed(std::size_t index, const MACAddress& client) const {
        Lease victim = holders[index];
        victim.state = Lease::State::reclaimed;
        return {changed(victim),
                info("range full: reclaimed " + victim.ip.description() + " from " + victim.mac.description() +
                     " (offline, lease not expired)"),
                changed(newlyOffered(client, victim.ip, now + Timing::offerHold)),
                sent(DHCPMessageType::offer, victim.ip, client)};
    }

    [[nodiscard]] static Event exhausted(const MACAddress& client) {
        return {Event::Dropped{.reason = "address pool exhausted", .mac = client}};
    }

    [[nodiscard]] static Events joined(Events head, const Events& tail) {
        head.insert(head.end(), tail.begin(), tail.end());
        return head;
    }

    const MACAddress newcomer = mac(50);
    std::vector<Lease> holders; ///< In the order of the table.
};

TEST_F(ServerReclaimTest, OffersTheAddressOfADeviceThatDoesNotAnswer) {
    start();
    arrive(discover(newcomer));
    EXPECT_EQ(take(6), joined({received(discover(newcomer)), probing(ip(10))}, reclaimed(0, newcomer)));
    EXPECT_EQ(settled(), Events{});
    EXPECT_EQ(host->probes(), Probes{probeOf(ip(10))});
    EXPECT_EQ(host->arpReadings(), 0) << "the answer alone decides";
    EXPECT_EQ(savedLeases().leases().size(), 4U) << "a reclaim is saved";
}

TEST_F(ServerReclaimTest, ProbesTheNextDeviceWhenTheFirstAnswers) {
    host->answer(ip(10), answered);
    start();
    arrive(discover(newcomer));
    EXPECT_EQ(take(7),
              joined({received(discover(newcomer)), probing(ip(10)), probing(ip(11))}, reclaimed(1, newcomer)));
    EXPECT_EQ(host->probes(), (Probes{probeOf(ip(10)), probeOf(ip(11))}));
}

TEST_F(ServerReclaimTest, GivesUpWhenEveryDeviceAnswers) {
    for (const IPv4Address address : pool) {
        host->answer(address, answered);
    }
    start();
    arrive(discover(newcomer));
    EXPECT_EQ(take(5), (Events{received(discover(newcomer)), probing(ip(10)), probing(ip(11)), probing(ip(12)),
                               exhausted(newcomer)}));
}

TEST_F(ServerReclaimTest, RemembersADeviceThatAnsweredAsOnline) {
    for (const IPv4Address address : pool) {
        host->answer(address, answered);
    }
    start();
    arrive(discover(newcomer));
    std::ignore = take(5);
    EXPECT_EQ(eventsOf(discover(mac(51)), 2), (Events{received(discover(mac(51))), exhausted(mac(51))}))
        << "nobody is probed again";
    EXPECT_EQ(host->probes().size(), 3U);
    setLink(false);
    host->tick(seconds{1});
    EXPECT_EQ(settled().size(), 5U) << "all three were online, and are offline now";
}

TEST_F(ServerReclaimTest, ProbesFiveAddressesForOneMessageAtMost) {
    options.config.rangeEnd = ip(16);
    for (std::uint8_t each = 3; each < 7; ++each) {
        holders.push_back(boundLease(mac(each), ip(static_cast<std::uint8_t>(10 + each))));
    }
    saveLeases(tableOf(holders));
    for (std::uint8_t last = 10; last <= 16; ++last) {
        host->answer(ip(last), answered);
    }
    start();
    arrive(discover(newcomer));
    const Events all = take(7);
    EXPECT_EQ(all.front(), received(discover(newcomer)));
    EXPECT_EQ(all.back(), exhausted(newcomer));
    EXPECT_EQ(settled(), Events{});
    EXPECT_EQ(host->probes().size(), Timing::maxProbesPerPacket);
}

TEST_F(ServerReclaimTest, CountsEveryAddressAsInUseWhenItMayNotProbe) {
    options.presenceEnabled = false;
    start();
    EXPECT_EQ(eventsOf(discover(newcomer), 2), (Events{received(discover(newcomer)), exhausted(newcomer)}));
    EXPECT_EQ(host->probes(), Probes{});
}

TEST_F(ServerReclaimTest, DecidesAfterTheProbeByWhatIsTrueThen) {
    host->hold(ip(10));
    start();
    arrive(discover(newcomer));
    EXPECT_EQ(take(2), (Events{received(discover(newcomer)), probing(ip(10))}));
    server->forgetLease(holders[2].mac);
    host->release(ip(10));
    EXPECT_EQ(take(3),
              (Events{removed(holders[2].mac), changed(newlyOffered(newcomer, ip(12), now + Timing::offerHold)),
                      sent(DHCPMessageType::offer, ip(12), newcomer)}))
        << "an address has become free";
}

TEST_F(ServerReclaimTest, ServesOthersWhileAProbeIsOut) {
    host->hold(ip(10));
    start();
    arrive(discover(newcomer));
    std::ignore = take(2);
    const auto renewal = request(holders[1].mac).from(ip(11));
    arrive(renewal);
    const Events meanwhile = take(3);
    EXPECT_EQ(meanwhile.front(), received(renewal));
    EXPECT_TRUE(std::holds_alternative<Event::Sent>(meanwhile.back().value));
    host->release(ip(10));
    EXPECT_EQ(take(4), reclaimed(0, newcomer));
}

TEST_F(ServerReclaimTest, ProbesOnceForARepeatedMessage) {
    host->hold(ip(10));
    host->answer(ip(10), answered);
    start();
    for (int attempt = 0; attempt < 2; ++attempt) {
        arrive(discover(newcomer));
        EXPECT_EQ(take(2), (Events{received(discover(newcomer)), probing(ip(10))}));
    }
    host->release(ip(10));
    const Events first = joined({probing(ip(11)), probing(ip(11))}, reclaimed(1, newcomer));
    EXPECT_EQ(take(first.size()), first);
    EXPECT_EQ(take(2), (Events{changed(newlyOffered(newcomer, ip(11), now + Timing::offerHold)),
                               sent(DHCPMessageType::offer, ip(11), newcomer)}))
        << "the second message finds the offer of the first";
    EXPECT_EQ(host->probes(), (Probes{probeOf(ip(10)), probeOf(ip(11))}));
}

TEST_F(ServerReclaimTest, JoinsTheProbeOfAPresenceCycle) {
    host->hold(ip(10));
    start();
    host->tick(seconds{10});
    ASSERT_TRUE(host->waitForProbes(3));
    EXPECT_EQ(take(2).size(), 2U) << "the other two are offline";
    arrive(discover(newcomer));
    EXPECT_EQ(take(2), (Events{received(discover(newcomer)), probing(ip(10))}));
    host->release(ip(10));
    EXPECT_EQ(take(5), joined({presence(holders[0], PresenceState::offline, "no answer")}, reclaimed(0, newcomer)));
    EXPECT_EQ(host->probes().size(), 3U);
}

// A message that waits for the same probe shows when the cycle's own answer, which may be no news, has been dealt with.

TEST_F(ServerReclaimTest, ReportsADeviceOnlyWhenItsStateChanges) {
    start();
    host->tick(seconds{10});
    EXPECT_EQ(take(3).size(), 3U) << "all are offline";
    host->hold(ip(10));
    host->answer(ip(10), {.answered = false, .detail = "no answer in other words"});
    host->tick(seconds{10});
    ASSERT_TRUE(host->waitForProbes(6));
    arrive(discover(newcomer));
    EXPECT_EQ(take(2), (Events{received(discover(newcomer)), probing(ip(10))}));
    host->release(ip(10));
    EXPECT_EQ(take(4), reclaimed(0, newcomer));
    EXPECT_EQ(settled(), Events{});
}

TEST_F(ServerReclaimTest, CountsADeviceThatAnswersAsOfflineWhenTheLinkWentMeanwhile) {
    options.config.rangeEnd = ip(10);
    saveLeases(tableOf({holders[0]}));
    host->hold(ip(10));
    host->answer(ip(10), answered);
    start();
    host->tick(seconds{10});
    arrive(discover(newcomer));
    EXPECT_EQ(take(2), (Events{received(discover(newcomer)), probing(ip(10))}));
    setLink(false);
    host->tick(seconds{1});
    EXPECT_EQ(settled(),
              (Events{link(false), linkDownRaised(), presence(holders[0], PresenceState::offline, "link down")}));
    host->release(ip(10));
    EXPECT_EQ(take(1), Events{exhausted(newcomer)}) << "offline it was, offline it is; but its address stays with it";
    EXPECT_EQ(settled(), Events{});
}

TEST_F(ServerReclaimTest, DropsTheMessageInSilenceWhenItEndsMeanwhile) {
    host->hold(ip(10));
    start();
    arrive(discover(newcomer));
    std::ignore = take(2);
    ASSERT_TRUE(host->waitForProbes(1));
    server->stop();
    EXPECT_EQ(settled(), Events{stopped()});
    host->release(ip(10));
    server.reset(); // waits for the probe
    EXPECT_EQ(host->sent(), std::vector<FakeHost::SentReply>{});
    EXPECT_EQ(savedLeases(), tableOf(holders));
}

} // namespace
} // namespace DHCPCore
