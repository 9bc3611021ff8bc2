// The road of a datagram up to its decision.
#include "Support/ServerHarness.hpp"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <thread>

namespace DHCPCore {
namespace {

using namespace TestSupport; // NOLINT(*-build-using-namespace): the words of the tests
using std::chrono::hours;
using std::chrono::seconds;
using Event = ServerEvent;
using Events = std::vector<ServerEvent>;

class ServerReceiveTest : public ServerHarness {
  protected:
    /// What a DISCOVER of that client leads to, as long as the pool has an address that is free.
    [[nodiscard]] static Events offering(const DHCPPacket& packet, IPv4Address address, const MACAddress& client) {
        return {received(packet), changed(newlyOffered(client, address, now + Timing::offerHold)),
                sent(DHCPMessageType::offer, address, client)};
    }
};

TEST_F(ServerReceiveTest, AnswersAMessageThatArrivedOnItsCard) {
    start();
    const auto message = discover(mac(1)).named("camera").ofVendor("lab");
    Lease lease = newlyOffered(mac(1), ip(10), now + Timing::offerHold);
    lease.hostname = "camera";
    lease.vendorClass = "lab";
    EXPECT_EQ(eventsOf(message, 3),
              (Events{received(message), changed(lease), sent(DHCPMessageType::offer, ip(10), mac(1))}));
    const auto replies = host->sent();
    ASSERT_EQ(replies.size(), 1U);
    EXPECT_EQ(replies[0].packet.messageType(), DHCPMessageType::offer);
    EXPECT_EQ(replies[0].packet.yiaddr, ip(10));
    EXPECT_EQ(replies[0].packet.xid, message.xid);
    EXPECT_EQ(replies[0].destination, ReplyDestination{ReplyDestination::Broadcast{}});
}

TEST_F(ServerReceiveTest, PadsItsRepliesTo300Bytes) {
    start();
    std::ignore = eventsOf(discover(mac(1)), 3);
    const auto replies = host->sent();
    ASSERT_EQ(replies.size(), 1U);
    EXPECT_EQ(replies[0].length, 300U);
}

TEST_F(ServerReceiveTest, ReportsARefusalWithItsReasonAndSendsIt) {
    start();
    const auto message = request(mac(1)).requesting("192.168.5.5"_ip);
    EXPECT_EQ(eventsOf(message, 2), (Events{received(message), sent(DHCPMessageType::nak, "192.168.5.5"_ip, mac(1),
                                                                    "requested address is not on this network")}));
}

TEST_F(ServerReceiveTest, SendsNothingWhenTheDecisionIsToBeSilent) {
    start();
    const auto message = decline(mac(1)).requesting(ip(10));
    EXPECT_EQ(eventsOf(message, 2),
              (Events{received(message), info("conflict: 02:00:00:00:00:01 reports 10.0.0.10 is already in use; "
                                              "quarantined for 10 m")}));
    EXPECT_EQ(host->sent(), std::vector<FakeHost::SentReply>{});
}

TEST_F(ServerReceiveTest, PassesOnANoticeOfItsDecisionEveryTime) {
    start();
    const auto message = request(mac(1)).requesting(ip(10)).selecting("10.0.0.99"_ip);
    const Events expected{received(message), info("client 02:00:00:00:00:01 chose another server (10.0.0.99)"),
                          raised(NoticeKind::otherServer, "Another DHCP server is on this cable (10.0.0.99). The "
                                                          "device chose it instead of Tarnwick.")};
    EXPECT_EQ(eventsOf(message, 3), expected);
    EXPECT_EQ(eventsOf(message, 3), expected);
}

TEST_F(ServerReceiveTest, DecidesByItsClock) {
    start();
    const Date later = now + hours{5};
    host->setNow(later);
    EXPECT_EQ(
        eventsOf(discover(mac(1)), 3),
        (Events{received(discover(mac(1))), changed(newlyOffered(mac(1), ip(10), later + Timing::offerHold, later)),
                sent(DHCPMessageType::offer, ip(10), mac(1))}));
}

TEST_F(ServerReceiveTest, CountsMalformedPacketsOnceTooManyReportsWait) {
    constexpr std::size_t reportsThatMayWait = 1U << 15U;
    constexpr std::size_t burst = 64;
    constexpr std::size_t packets = reportsThatMayWait + 10 * burst;
    start();
    const auto end = std::chrono::steady_clock::now() + patience;
    for (std::size_t count = burst; count <= packets; count += burst) {
        host->arrive(std::vector<Datagram>(burst, {.bytes = Bytes(1), .interfaceIndex = cardIndex, .source = {}}));
        while (events->waiting() < std::min(count, reportsThatMayWait)) {
            ASSERT_LT(std::chrono::steady_clock::now(), end);
            std::this_thread::yield();
        }
    }
    host->arrive({datagram(discover(mac(1)))});
    EXPECT_TRUE(host->waitForSent(1)) << "nobody reads, and yet who asks is answered";
    std::size_t reported = 0;
    auto event = events->next(patience);
    for (; event == dropped("malformed (too short (1 bytes))"); event = events->next(patience)) {
        ++reported;
    }
    EXPECT_GE(reported, reportsThatMayWait);
    EXPECT_LE(reported, reportsThatMayWait + 2 * burst);
    EXPECT_EQ(event, received(discover(mac(1))));
    EXPECT_EQ(take(2).size(), 2U);
    EXPECT_EQ(eventsOf(discover(mac(1)), 4)[0],
              info(std::to_string(packets - reported) +
                   " malformed packets dropped without a line for each: they came faster than lines are read"));
}

/// A device with a lease and strangers, who asked so often that far too many reports wait.
class ServerOverloadTest : public ServerReceiveTest {
  protected:
    static constexpr std::size_t burst = 64;
    static constexpr std::size_t reportsThatMayWait = 1U << 16U;
    static constexpr std::size_t messagesThatMayWait = 1024;
    static constexpr std::size_t reportsOfDiscover = 3;

    ServerOverloadTest() {
        saveLeases(tableOf({boundLease(mac(9), ip(11))}));
        start();
        const auto end = std::chrono::steady_clock::now() + patience;
        while (reports() <= reportsThatMayWait) {
            host->arrive(std::vector<Datagram>(burst, datagram(discover(mac(1)))));
            asked += burst;
            while (reports() < asked * reportsOfDiscover && std::chrono::steady_clock::now() < end) {
                std::this_thread::yield();
            }
        }
    }

    [[nodiscard]] std::size_t reports() const { return events->waiting(); }

    /// Strangers ask again, so often, and then the device with a lease; all at once, and a reader has just read.
    void askAmongStrangers(std::size_t strangers) {
        EXPECT_TRUE(events->next(patience));
        std::vector<Datagram> datagrams(strangers, datagram(discover(mac(1))));
        datagrams.push_back(datagram(request(mac(9)).from(ip(11))));
        host->arrive(std::move(datagrams));
        asked += 1;
        EXPECT_TRUE(host->waitForSent(asked)) << "who has a lease is answered";
        EXPECT_EQ(host->sent().size(), asked) << "strangers are not";
    }

    void readEverything() {
        while (events->next(seconds{0})) {
        }
    }

    std::size_t asked = 0;
};

TEST_F(ServerOverloadTest, LetsStrangersWaitUntilTheReaderHasCaughtUp) {
    askAmongStrangers(2);
    EXPECT_EQ(host->delays(), std::vector<SerialQueue::Duration>{std::chrono::milliseconds{1}});
    EXPECT_TRUE(events->next(patience)); // the reader is seen to read
    host->passDelays();
    EXPECT_EQ(host->sent().size(), asked) << "too many reports still wait";

    readEverything();
    host->passDelays();
    EXPECT_EQ(host->sent().size(), asked + 2);
    const auto message = discover(mac(1));
    EXPECT_EQ(take(2 * reportsOfDiscover)[0], received(message));
    EXPECT_EQ(host->delays(), std::vector<SerialQueue::Duration>{});
}

TEST_F(ServerOverloadTest, CountsTheStrangersForWhomThereIsNoRoom) {
    constexpr std::size_t tooMany = 10;
    for (std::size_t left = messagesThatMayWait + tooMany; left > 0;) {
        const std::size_t strangers = std::min(left, burst - 1);
        askAmongStrangers(strangers);
        left -= strangers;
    }
    readEverything();
    host->passDelays();
    EXPECT_EQ(take(1), Events{info("10 messages of devices without a lease dropped without a line for each: they came "
                                   "faster than lines are read")});
    for (std::size_t turns = messagesThatMayWait; turns > 0 && !host->delays().empty(); --turns) {
        host->passDelays();
    }
    EXPECT_EQ(host->sent().size(), asked + messagesThatMayWait);
}

TEST_F(ServerOverloadTest, LetsNobodyPassWhoCameLaterThanThoseWhoWait) {
    constexpr std::size_t strangers = 40;
    constexpr std::size_t perTurn = 32;
    askAmongStrangers(strangers);
    readEverything();
    host->arrive({datagram(discover(mac(2)))});
    EXPECT_TRUE(host->waitForSent(asked + perTurn));
    host->passDelays();
    ASSERT_EQ(host->sent().size(), asked + strangers + 1);
    EXPECT_EQ(host->sent().back().packet.mac(), mac(2));
}

TEST_F(ServerOverloadTest, ForgetsWhoHasWaitedForSoLongThatItAsksAgain) {
    askAmongStrangers(2);
    host->setNow(now + seconds{2} + std::chrono::microseconds{1});
    readEverything();
    host->passDelays();
    EXPECT_EQ(host->sent().size(), asked);
    arrive(discover(mac(1)));
    EXPECT_EQ(take(2)[0],
              info("2 messages of devices without a lease dropped without a line for each: they came faster "
                   "than lines are read"));
}

TEST_F(ServerOverloadTest, HandlesWhoHasWaitedForTwoSeconds) {
    askAmongStrangers(2);
    host->setNow(now + seconds{2});
    readEverything();
    host->passDelays();
    EXPECT_EQ(host->sent().size(), asked + 2);
}

TEST_F(ServerOverloadTest, TellsAtItsEndHowManyItRefused) {
    askAmongStrangers(2);
    host->setNow(now + hours{1});
    readEverything();
    host->passDelays();
    server->stop();
    EXPECT_EQ(take(2), (Events{info("2 messages of devices without a lease dropped without a line for each: they came "
                                    "faster than lines are read"),
                               stopped()}));
}

TEST_F(ServerOverloadTest, WaitsForNoReaderThatHasStopped) {
    askAmongStrangers(1);
    const auto end = std::chrono::steady_clock::now() + patience;
    while (host->sent().size() == asked && std::chrono::steady_clock::now() < end) {
        host->passDelays();
    }
    EXPECT_EQ(host->sent().size(), asked + 1);
}

TEST_F(ServerOverloadTest, ForgetsWhoWaitsWhenItIsStopped) {
    askAmongStrangers(2);
    server->stop();
    readEverything();
    host->passDelays();
    EXPECT_EQ(host->sent().size(), asked);
}

TEST_F(ServerReceiveTest, DropsWhatArrivedOnAnotherCard) {
    start();
    host->plugIn("en0", 4);
    host->arrive({datagram(discover(mac(1)), 4)});
    EXPECT_EQ(take(1), Events{dropped("arrived on en0 instead of en7")});
    EXPECT_EQ(settled(), Events{}) << "nothing is decided about it";
    EXPECT_EQ(server->currentTable(), LeaseTable{});
    EXPECT_EQ(host->sent(), std::vector<FakeHost::SentReply>{});
}

TEST_F(ServerReceiveTest, NamesACardThatHasNoNameByItsIndex) {
    start();
    host->arrive({datagram(discover(mac(1)), 12)});
    EXPECT_EQ(take(1), Events{dropped("arrived on interface 12 instead of en7")});
}

TEST_F(ServerReceiveTest, DropsGarbageFromAnotherCardForTheCard) {
    start();
    host->arrive({{.bytes = {1, 2, 3}, .interfaceIndex = 12, .source = ip(9), .sourcePort = 68}});
    EXPECT_EQ(take(1), Events{dropped("arrived on interface 12 instead of en7")});
}

TEST_F(ServerReceiveTest, WarnsOnceWhenTheSystemDoesNotTellTheArrivalCard) {
    start();
    host->arrive({datagram(discover(mac(1)), std::nullopt)});
    Events expected{info("arrival interface check unavailable; relying on IP_BOUND_IF")};
    std::ranges::copy(offering(discover(mac(1)), ip(10), mac(1)), std::back_inserter(expected));
    EXPECT_EQ(take(4), expected);
    host->arrive({datagram(discover(mac(2)), std::nullopt)});
    EXPECT_EQ(take(3), offering(discover(mac(2)), ip(11), mac(2)));
}

TEST_F(ServerReceiveTest, TakesMessagesFromAnywhereInLoopbackMode) {
    options.mode = {TransportMode::Loopback{.serverPort = 6767, .clientPort = 6868}};
    start();
    for (const std::optional<std::uint32_t> index :
         {std::optional<std::uint32_t>(99), std::optional<std::uint32_t>()}) {
        host->arrive({datagram(inform(mac(1)).from(ip(50)), index)});
        EXPECT_EQ(take(3), (Events{received(inform(mac(1)).from(ip(50)), "lo0"),
                                   info("static-IP device 10.0.0.50 (02:00:00:00:00:01) asked for options"),
                                   {Event::Sent{{.type = DHCPMessageType::ack,
                                                 .ip = ip(50),
                                                 .mac = mac(1),
                                                 .destination = {ReplyDestination::Unicast{ip(50)}},
                                                 .interface = "lo0",
                                                 .note = std::nullopt}}}}));
    }
}

TEST_F(ServerReceiveTest, DropsWhatIsNoDHCPMessage) {
    start();
    const Bytes whole = discover(mac(1)).serialize(0);
    for (const std::size_t length : {std::size_t{0}, std::size_t{1}, DHCPPacket::headerLength, whole.size() - 2}) {
        SCOPED_TRACE(length);
        const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        std::string reason = "parsed";
        try {
            std::ignore = DHCPPacket::parse(cut);
        } catch (const PacketError& error) {
            reason = "malformed (" + error.description() + ")";
        }
        host->arrive({{.bytes = cut, .interfaceIndex = cardIndex, .source = ip(9), .sourcePort = 68}});
        EXPECT_EQ(take(1), Events{dropped(reason)});
        EXPECT_EQ(settled(), Events{});
    }
}

TEST_F(ServerReceiveTest, ReportsAFailedReadingAndGoesOn) {
    start();
    host->failReceiving(ENOBUFS);
    EXPECT_EQ(take(1), Events{info("receive failed: " + TransportError("recvmsg", ENOBUFS).description())});
    arrive(discover(mac(1)));
    EXPECT_EQ(take(3), offering(discover(mac(1)), ip(10), mac(1)));
}

TEST_F(ServerReceiveTest, AnswersEverythingThatIsWaitingWithoutAFurtherArrival) {
    start();
    constexpr std::size_t waiting = 64 * 3 + 1; // more than are read before others get their turn
    host->arrive(std::vector<Datagram>(waiting, datagram(discover(mac(1)))));
    const Events all = take(3 * waiting);
    const Events each = offering(discover(mac(1)), ip(10), mac(1));
    for (std::size_t index = 0; index < all.size(); ++index) {
        EXPECT_EQ(all[index], each[index % each.size()]) << index;
    }
    EXPECT_EQ(host->sent().size(), waiting);
}

TEST_F(ServerReceiveTest, ReportsABurstAsIfItsMessagesHadComeOneByOne) {
    struct Message {
        DHCPPacket packet;
        std::size_t events;
    };
    const std::vector<Message> messages{{discover(mac(1)), 3},
                                        {request(mac(2)).requesting(ip(11)), 3},
                                        {request(mac(3)).requesting(ip(11)), 2},
                                        {decline(mac(2)).requesting(ip(11)), 3},
                                        {request(mac(1)).requesting(ip(10)).selecting(serverIP), 3},
                                        {inform(mac(9)).from(ip(50)), 3},
                                        {discover(mac(4)), 3},
                                        {discover(mac(5)), 2}};
    start();
    Events oneByOne;
    for (const Message& message : messages) {
        const Events each = eventsOf(message.packet, message.events);
        oneByOne.insert(oneByOne.end(), each.begin(), each.end());
    }
    const LeaseTable table = server->currentTable();

    options.leaseFile.url = directory / "other.json";
    make();
    start();
    std::vector<Datagram> waiting;
    std::ranges::transform(messages, std::back_inserter(waiting),
                           [](const Message& message) { return datagram(message.packet); });
    host->arrive(waiting);
    EXPECT_EQ(take(oneByOne.size()), oneByOne);
    EXPECT_EQ(server->currentTable(), table);
}

TEST_F(ServerReceiveTest, AnswersABurstOnlyAfterAllOfItIsSaved) {
    start();
    LeaseTable savedBefore;
    host->beforeNextReply([&] { savedBefore = savedLeases(); });
    host->arrive({datagram(request(mac(1)).requesting(ip(10))), datagram(request(mac(2)).requesting(ip(11)))});
    EXPECT_EQ(take(6).back(), granted(ip(11), mac(2)));
    EXPECT_EQ(savedBefore, savedLeases());
    EXPECT_EQ(savedBefore.leases().size(), 2U);
}

TEST_F(ServerReceiveTest, OffersInABurstBeforeTheSaveThatOthersWaitFor) {
    start();
    const auto requesting = request(mac(1)).requesting(ip(10));
    const auto discovering = discover(mac(2));
    LeaseTable savedBefore = tableOf({boundLease(mac(9), ip(12))});
    host->beforeNextReply([&] { savedBefore = savedLeases(); });
    host->arrive({datagram(requesting), datagram(discovering)});
    EXPECT_EQ(take(6), (Events{received(requesting), changed(newlyBound(mac(1), ip(10), now + hours{1})),
                               granted(ip(10), mac(1)), received(discovering),
                               changed(newlyOffered(mac(2), ip(11), now + Timing::offerHold)),
                               sent(DHCPMessageType::offer, ip(11), mac(2))}))
        << "reported in the order of the messages";
    const auto replies = host->sent();
    ASSERT_EQ(replies.size(), 2U);
    EXPECT_EQ(replies[0].packet.messageType(), DHCPMessageType::offer);
    EXPECT_EQ(savedBefore, LeaseTable{}) << "nothing was saved when the offer left";
    EXPECT_EQ(replies[1].packet.messageType(), DHCPMessageType::ack);
}

TEST_F(ServerReceiveTest, TellsOnceThatABurstCouldNotBeSaved) {
    blockSaving();
    start();
    const auto first = request(mac(1)).requesting(ip(10));
    const auto second = request(mac(2)).requesting(ip(11));
    host->arrive({datagram(first), datagram(second)});
    EXPECT_EQ(take(7), (Events{received(first), changed(newlyBound(mac(1), ip(10), now + hours{1})),
                               raised(NoticeKind::leaseSaveFailed, "Leases could not be saved: " + savingError()),
                               granted(ip(10), mac(1)), received(second),
                               changed(newlyBound(mac(2), ip(11), now + hours{1})), granted(ip(11), mac(2))}));
}

TEST_F(ServerReceiveTest, EndsInOrderBetweenAnyTwoEventsOfABurst) {
    constexpr std::size_t waiting = 130;
    for (const std::size_t seen : {0U, 1U, 2U, 3U, 100U, 191U, 192U, 193U, 300U, 390U}) {
        SCOPED_TRACE(seen);
        host = std::make_shared<FakeHost>();
        host->setNow(now);
        host->plugIn("en7", cardIndex);
        setLink(true);
        make();
        start();
        host->arrive(std::vector<Datagram>(waiting, datagram(discover(mac(1)))));
        const Events before = take(seen);
        server->stop();
        const Events after = settled();
        ASSERT_FALSE(after.empty());
        EXPECT_EQ(after.back(), stopped());
        EXPECT_EQ((before.size() + after.size() - 1) % 3, 0U) << "no message is left half done";
        EXPECT_EQ(events->next(), std::nullopt);
        const auto isSent = [](const Event& event) { return std::holds_alternative<Event::Sent>(event.value); };
        EXPECT_EQ(
            static_cast<std::size_t>(std::ranges::count_if(before, isSent) + std::ranges::count_if(after, isSent)),
            host->sent().size());
    }
}

} // namespace
} // namespace DHCPCore
