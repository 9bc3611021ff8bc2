// The server whose host's clock is set, by a little or by years, while it serves.
#include "Support/ServerHarness.hpp"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace DHCPCore {
namespace {

using namespace TestSupport; // NOLINT(*-build-using-namespace): the words of the tests
using namespace std::chrono_literals;
using std::chrono::hours;
using std::chrono::seconds;
using std::chrono::sys_days;
using std::chrono::years;
using Events = std::vector<ServerEvent>;

class ServerClockTest : public ServerHarness {
  protected:
    /// Sets the clock, and has a device that had an address at some time ask for it again. @return the lease it got.
    std::optional<Lease> renewedAt(Date date, std::uint8_t device) {
        host->setNow(date);
        const auto renewal = request(mac(device)).from(ip(device + 9));
        arrive(renewal);
        EXPECT_EQ(take(1), Events{received(renewal)});
        const Events answer = take(2);
        const auto* const sent = std::get_if<ServerEvent::Sent>(&answer.at(1).value);
        EXPECT_TRUE(sent != nullptr && sent->summary.type == DHCPMessageType::ack);
        return server->currentTable().lease(mac(device));
    }

    /// The address that a device is offered when it asks for that one.
    IPv4Address offeredTo(std::uint8_t device, IPv4Address wanted) {
        arrive(discover(mac(device)).requesting(wanted));
        const Events events = take(3);
        const auto* const sent = std::get_if<ServerEvent::Sent>(&events.at(2).value);
        return sent == nullptr ? IPv4Address::zero : sent->summary.ip;
    }

    static constexpr Date tenYearsAgo = now - years{10};
    static constexpr Date inTenYears = now + years{10};
};

TEST_F(ServerClockTest, KeepsALeaseWhenTheClockIsSetBackByYears) {
    saveLeases(tableOf({boundLease(mac(1), ip(10))}));
    start();
    host->setNow(tenYearsAgo);
    EXPECT_EQ(offeredTo(2, ip(10)), ip(11));
    EXPECT_EQ(server->currentTable().holder(ip(10), tenYearsAgo), boundLease(mac(1), ip(10)));
}

TEST_F(ServerClockTest, RenewsALeaseByTheClockThatWasSetBack) {
    saveLeases(tableOf({boundLease(mac(1), ip(10))}));
    start();
    const auto renewed = renewedAt(tenYearsAgo, 1);
    ASSERT_TRUE(renewed);
    EXPECT_EQ(renewed->expiresAt, tenYearsAgo + hours{1});
    EXPECT_EQ(renewed->lastSeen, tenYearsAgo);
    EXPECT_EQ(savedLeases().lease(mac(1))->expiresAt, tenYearsAgo + hours{1});
}

TEST_F(ServerClockTest, CountsALeaseAsEndedWhenTheClockIsSetForwardByYears) {
    saveLeases(tableOf({boundLease(mac(1), ip(10))}));
    start();
    host->setNow(inTenYears);
    EXPECT_EQ(offeredTo(2, ip(10)), ip(10));
}

TEST_F(ServerClockTest, RenewsALeaseThatEndedByTheClockAlone) {
    saveLeases(tableOf({boundLease(mac(1), ip(10))}));
    start();
    const auto renewed = renewedAt(inTenYears, 1);
    ASSERT_TRUE(renewed);
    EXPECT_EQ(renewed->expiresAt, inTenYears + hours{1});
}

TEST_F(ServerClockTest, MendsALeaseOfAWrongClockWithItsNextRenewal) {
    start();
    ASSERT_TRUE(renewedAt(inTenYears, 1));
    host->setNow(now);
    EXPECT_EQ(offeredTo(2, ip(10)), ip(11)) << "its device was promised the address, and may be using it";
    const auto renewed = renewedAt(now, 1);
    ASSERT_TRUE(renewed);
    EXPECT_EQ(renewed->expiresAt, now + hours{1});
    host->setNow(now + hours{1});
    EXPECT_EQ(offeredTo(3, ip(10)), ip(10));
}

TEST_F(ServerClockTest, LoadsLeasesOfTheFutureAndOfThePast) {
    const LeaseTable table = tableOf({leaseUntil(inTenYears, mac(1), ip(10)), leaseSeen(inTenYears, mac(2), ip(11)),
                                      leaseUntil(tenYearsAgo, mac(3), ip(12))});
    saveLeases(table);
    start();
    EXPECT_EQ(server->currentTable(), table);
    EXPECT_EQ(offeredTo(4, ip(10)), ip(12));
}

TEST_F(ServerClockTest, ServesInAnyYear) {
    const std::vector<Date> dates{sys_days{1969y / 12 / 31} + 23h,
                                  Date{},
                                  Date{} + seconds{0x7FFFFFFF} - 30min, // a lease ends beyond 32 bits with a sign
                                  Date{} + seconds{0x7FFFFFFF},
                                  Date{} + seconds{0x80000000},
                                  Date{} + seconds{0xFFFFFFFF} - 30min, // and without one
                                  Date{} + seconds{0xFFFFFFFF},
                                  sys_days{9999y / 12 / 31},
                                  sys_days{1y / 1 / 1}};
    start();
    for (const Date date : dates) {
        SCOPED_TRACE(iso8601(date));
        const auto renewed = renewedAt(date, 1);
        ASSERT_TRUE(renewed);
        EXPECT_EQ(renewed->expiresAt, date + hours{1});
        EXPECT_EQ(savedLeases().lease(mac(1))->expiresAt, std::chrono::floor<seconds>(date + hours{1}));
    }
}

TEST_F(ServerClockTest, LosesNoLeaseWhenTheClockIsBeyondWhatTheFileCanHold) {
    start();
    ASSERT_TRUE(renewedAt(sys_days{12345y / 1 / 1}, 1));
    const auto saved = savedLeases().lease(mac(1));
    ASSERT_TRUE(saved);
    EXPECT_EQ(saved->ip, ip(10));
    EXPECT_EQ(iso8601(saved->expiresAt), "9999-12-31T23:59:59Z");
    EXPECT_EQ(directory.names(), std::vector<std::string>{"leases.json"}) << "nothing was moved aside";
}

TEST_F(ServerClockTest, GivesAnAddressToAnotherAtTheVeryInstantAtWhichItsLeaseEnds) {
    const Date end = now + hours{1};
    saveLeases(tableOf({boundLease(mac(1), ip(10))}));
    start();
    host->setNow(end - std::chrono::microseconds{1});
    EXPECT_EQ(offeredTo(2, ip(10)), ip(11));
    host->setNow(end);
    EXPECT_EQ(offeredTo(3, ip(10)), ip(10));
}

TEST_F(ServerClockTest, UsesADeclinedAddressAgainAtTheVeryInstantAtWhichItsQuarantineEnds) {
    const Date end = now + Timing::quarantine;
    options.leaseFile.save(LeaseTable({}, {{.ip = ip(10), .until = end, .reportedBy = mac(9)}}));
    start();
    host->setNow(end - std::chrono::microseconds{1});
    EXPECT_EQ(offeredTo(2, ip(10)), ip(11));
    host->setNow(end);
    EXPECT_EQ(offeredTo(3, ip(10)), ip(10));
}

} // namespace
} // namespace DHCPCore
