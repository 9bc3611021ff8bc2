#include "DHCPCore/Allocation.hpp"
#include "Support/LeaseBuilders.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace DHCPCore {
namespace {

using namespace std::chrono_literals;
using TestSupport::boundLease;
using TestSupport::ip;
using TestSupport::leaseIn;
using TestSupport::leaseSeen;
using TestSupport::leaseUntil;
using TestSupport::mac;
using TestSupport::now;

constexpr AddressRange pool{.lower = ip(10), .upper = ip(12)};
constexpr MACAddress client = mac(1);

bool always(IPv4Address /*address*/) { return true; }
bool never(IPv4Address /*address*/) { return false; }

/// What the client gets where every address is usable and every holder is online.
std::optional<IPv4Address> choose(const std::vector<Lease>& leases,
                                  std::optional<IPv4Address> requested = std::nullopt) {
    return chooseAddress(client, requested, leases, pool, always, never, now);
}

/// What the client gets where every address is usable and every holder is offline.
std::optional<IPv4Address> reclaim(const std::vector<Lease>& leases) {
    return chooseAddress(client, std::nullopt, leases, pool, always, always, now);
}

TEST(IsAvailableTest, RefusesAnUnusableAddressEvenToItsHolder) {
    const std::vector<Lease> leases{boundLease(client, ip(10))};
    EXPECT_FALSE(isAvailable(ip(10), client, leases, never, now));
    EXPECT_FALSE(isAvailable(ip(11), client, leases, never, now));
}

TEST(IsAvailableTest, AllowsAnAddressThatNobodyElseHolds) {
    const std::vector<Lease> leases{boundLease(client, ip(10)), boundLease(mac(2), ip(11)),
                                    leaseIn(Lease::State::released, mac(3), ip(12)), leaseUntil(now, mac(4), ip(13)),
                                    leaseUntil(now + 1us, mac(5), ip(14))};
    EXPECT_TRUE(isAvailable(ip(10), client, leases, always, now)) << "its own";
    EXPECT_FALSE(isAvailable(ip(11), client, leases, always, now)) << "another client's";
    EXPECT_TRUE(isAvailable(ip(12), client, leases, always, now)) << "released";
    EXPECT_TRUE(isAvailable(ip(13), client, leases, always, now)) << "expired at this instant";
    EXPECT_FALSE(isAvailable(ip(14), client, leases, always, now)) << "held for one more moment";
    EXPECT_TRUE(isAvailable(ip(15), client, leases, always, now)) << "unknown";
}

TEST(IsAvailableTest, LooksOnlyAtTheFirstLeaseThatHoldsTheAddress) {
    const Lease own = boundLease(client, ip(10));
    const Lease other = boundLease(mac(2), ip(10));
    EXPECT_TRUE(isAvailable(ip(10), client, std::vector<Lease>{own, other}, always, now));
    EXPECT_FALSE(isAvailable(ip(10), client, std::vector<Lease>{other, own}, always, now));
}

TEST(ChooseAddressTest, GivesAClientItsReleasedAddressBackEvenWhenItAsksForAnother) {
    EXPECT_EQ(choose({leaseIn(Lease::State::released, client, ip(12))}, ip(11)), ip(12));
}

TEST(ChooseAddressTest, GivesAClientItsExpiredAddressBackEvenWhenItAsksForAnother) {
    EXPECT_EQ(choose({leaseUntil(now - 24h, client, ip(12))}, ip(11)), ip(12));
}

TEST(ChooseAddressTest, GivesAClientItsReclaimedAddressBackWhenItIsFreeAgain) {
    EXPECT_EQ(choose({leaseIn(Lease::State::reclaimed, client, ip(12))}), ip(12));
}

TEST(ChooseAddressTest, PassesOverAPreviousAddressThatAnotherClientHolds) {
    EXPECT_EQ(choose({leaseIn(Lease::State::released, client, ip(12)), boundLease(mac(2), ip(12))}, ip(11)), ip(11));
}

TEST(ChooseAddressTest, PassesOverAPreviousAddressThatIsQuarantined) {
    const std::vector<Lease> leases{leaseIn(Lease::State::released, client, ip(10))};
    const auto isUsable = [](IPv4Address address) { return address != ip(10); };
    EXPECT_EQ(chooseAddress(client, ip(12), leases, pool, isUsable, never, now), ip(12));
    EXPECT_EQ(chooseAddress(client, std::nullopt, leases, pool, isUsable, never, now), ip(11));
}

TEST(ChooseAddressTest, NeverLooksAtASecondRecordOfTheClient) {
    EXPECT_EQ(choose({leaseIn(Lease::State::released, client, ip(10)), boundLease(mac(2), ip(10)),
                      leaseIn(Lease::State::released, client, ip(12))}),
              ip(11));
}

TEST(ChooseAddressTest, GivesTheRequestedAddressWhenItIsFree) {
    EXPECT_EQ(choose({}, ip(12)), ip(12));
    EXPECT_EQ(choose({leaseUntil(now, mac(2), ip(12))}, ip(12)), ip(12));
}

TEST(ChooseAddressTest, GivesTheRequestedAddressToTheClientThatHoldsIt) {
    const std::vector<Lease> leases{leaseIn(Lease::State::released, client, ip(10)), boundLease(mac(2), ip(10)),
                                    boundLease(client, ip(12))};
    EXPECT_EQ(choose(leases, ip(12)), ip(12));
}

TEST(ChooseAddressTest, PassesOverARequestedAddressThatAnotherClientHolds) {
    EXPECT_EQ(choose({boundLease(mac(2), ip(12))}, ip(12)), ip(10));
}

TEST(ChooseAddressTest, PassesOverARequestedAddressThatIsUnusable) {
    const auto isUsable = [](IPv4Address address) { return address != ip(12); };
    EXPECT_EQ(chooseAddress(client, ip(12), LeaseTable{}, pool, isUsable, never, now), ip(10));
}

TEST(ChooseAddressTest, TakesTheLowestFreeAddress) {
    EXPECT_EQ(choose({}), ip(10));
    EXPECT_EQ(choose({boundLease(mac(2), ip(10))}), ip(11));
    EXPECT_EQ(choose({boundLease(mac(2), ip(11)), boundLease(mac(3), ip(10))}), ip(12)) << "the upper bound belongs";
}

TEST(ChooseAddressTest, CountsALeaseThatExpiresNowAsFree) {
    EXPECT_EQ(choose({leaseUntil(now, mac(2), ip(10))}), ip(10));
    EXPECT_EQ(choose({leaseUntil(now + 1us, mac(2), ip(10))}), ip(11));
}

TEST(ChooseAddressTest, CountsAnAddressThatTheClientItselfHoldsAsFree) {
    const std::vector<Lease> leases{leaseIn(Lease::State::released, client, ip(10)), boundLease(mac(2), ip(10)),
                                    boundLease(client, ip(11))};
    EXPECT_EQ(choose(leases), ip(11));
}

TEST(ChooseAddressTest, CountsAnAddressWithTwoHoldersByTheFirst) {
    const Lease first = leaseIn(Lease::State::released, client, ip(9));
    const auto isUsable = [](IPv4Address address) { return pool.contains(address); };
    const auto chosen = [&](const std::vector<Lease>& leases) {
        return chooseAddress(client, std::nullopt, leases, pool, isUsable, never, now);
    };
    EXPECT_EQ(chosen({first, boundLease(client, ip(10)), boundLease(mac(2), ip(10))}), ip(10));
    EXPECT_EQ(chosen({first, boundLease(mac(2), ip(10)), boundLease(client, ip(10))}), ip(11));
}

TEST(ChooseAddressTest, TakesTheHolderThatWasSeenLongestAgoWhenTheRangeIsFull) {
    EXPECT_EQ(reclaim({leaseSeen(now - 2min, mac(2), ip(10)), leaseSeen(now - 3min, mac(3), ip(11)),
                       leaseSeen(now - 1min, mac(4), ip(12))}),
              ip(11));
}

TEST(ChooseAddressTest, TakesTheLowerAddressOfTwoHoldersSeenAtTheSameInstant) {
    EXPECT_EQ(reclaim({leaseSeen(now - 1min, mac(2), ip(10)), leaseSeen(now - 3min, mac(3), ip(12)),
                       leaseSeen(now - 3min, mac(4), ip(11))}),
              ip(11));
}

TEST(ChooseAddressTest, NeverTakesAnAddressFromAHolderThatIsOnline) {
    const std::vector<Lease> leases{leaseSeen(now - 3min, mac(2), ip(10)), leaseSeen(now - 2min, mac(3), ip(11)),
                                    leaseSeen(now - 1min, mac(4), ip(12))};
    const auto isOffline = [](IPv4Address address) { return address != ip(10); };
    EXPECT_EQ(chooseAddress(client, std::nullopt, leases, pool, always, isOffline, now), ip(11));
}

TEST(ChooseAddressTest, LeavesItToTheCallerThatAnOfferIsNeverTaken) {
    const std::vector<Lease> leases{leaseIn(Lease::State::offered, mac(2), ip(10)), boundLease(mac(3), ip(11)),
                                    boundLease(mac(4), ip(12))};
    const auto isOffline = [](IPv4Address address) { return address != ip(10); };
    EXPECT_EQ(chooseAddress(client, std::nullopt, leases, pool, always, isOffline, now), ip(11));
    EXPECT_EQ(reclaim(leases), ip(10));
}

TEST(ChooseAddressTest, FindsNothingInAFullRangeWhoseHoldersAreOnline) {
    EXPECT_EQ(choose({boundLease(mac(2), ip(10)), boundLease(mac(3), ip(11)), boundLease(mac(4), ip(12))}),
              std::nullopt);
}

TEST(ChooseAddressTest, FindsNothingWhereNoAddressIsUsable) {
    EXPECT_EQ(chooseAddress(client, ip(11), std::vector<Lease>{boundLease(mac(2), ip(10))}, pool, never, always, now),
              std::nullopt);
}

TEST(ChooseAddressTest, StopsAtTheHighestAddressThereIs) {
    constexpr AddressRange top{.lower = IPv4Address{255, 255, 255, 254}, .upper = IPv4Address::broadcast};
    const std::vector<Lease> one{boundLease(mac(2), top.lower)};
    EXPECT_EQ(chooseAddress(client, std::nullopt, one, top, always, never, now), top.upper);
    const std::vector<Lease> both{boundLease(mac(2), top.lower), boundLease(mac(3), top.upper)};
    EXPECT_EQ(chooseAddress(client, std::nullopt, both, top, always, never, now), std::nullopt);
}

TEST(ChooseAddressTest, WalksARangeOfOneAddress) {
    constexpr AddressRange single{.lower = ip(10), .upper = ip(10)};
    EXPECT_EQ(chooseAddress(client, std::nullopt, LeaseTable{}, single, always, never, now), ip(10));
}

TEST(ChooseAddressTest, FindsNothingFreeInAReversedRange) {
    constexpr AddressRange reversed{.lower = ip(11), .upper = ip(10)};
    EXPECT_EQ(chooseAddress(client, std::nullopt, LeaseTable{}, reversed, always, never, now), std::nullopt);
}

/// The questions asked of the two predicates, in order, as in "usable 10.0.0.10".
using Questions = std::vector<std::string>;

struct Situation {
    std::vector<Lease> leases;
    AddressRange range;
    std::optional<IPv4Address> requested;
    std::set<IPv4Address> usable;
    std::set<IPv4Address> offline;

    [[nodiscard]] AddressPredicate isUsable(Questions& asked) const {
        return [this, &asked](IPv4Address address) {
            asked.push_back("usable " + address.description());
            return usable.contains(address);
        };
    }
    [[nodiscard]] AddressPredicate holderIsOffline(Questions& asked) const {
        return [this, &asked](IPv4Address address) {
            asked.push_back("offline " + address.description());
            return offline.contains(address);
        };
    }
};

struct Answer {
    int step = 5; ///< Which step of the rules gave the address; 5 for none.
    std::optional<IPv4Address> address;
    Questions asked;
};

/// The rules word by word, with a plain scan wherever they say "the first".
Answer chooseByTheRules(const Situation& situation) {
    Answer answer;
    const auto isUsable = situation.isUsable(answer.asked);
    const auto holderIsOffline = situation.holderIsOffline(answer.asked);
    const auto isHeldByAnother = [&](IPv4Address address) {
        for (const Lease& lease : situation.leases) {
            if (lease.ip == address && lease.holdsAddress(now)) {
                return lease.mac != client;
            }
        }
        return false;
    };
    for (const Lease& lease : situation.leases) {
        if (lease.mac == client) {
            if (isUsable(lease.ip) && !isHeldByAnother(lease.ip)) {
                return {.step = 1, .address = lease.ip, .asked = answer.asked};
            }
            break;
        }
    }
    if (situation.requested && isUsable(*situation.requested) && !isHeldByAnother(*situation.requested)) {
        return {.step = 2, .address = situation.requested, .asked = answer.asked};
    }
    for (std::uint64_t value = situation.range.lower.value; value <= situation.range.upper.value; ++value) {
        const IPv4Address address{static_cast<std::uint32_t>(value)};
        if (isUsable(address) && !isHeldByAnother(address)) {
            return {.step = 3, .address = address, .asked = answer.asked};
        }
    }
    std::vector<Lease> candidates;
    for (const Lease& lease : situation.leases) {
        const bool isOfferedOrBound = lease.state == Lease::State::offered || lease.state == Lease::State::bound;
        if (lease.mac != client && isOfferedOrBound && !lease.isExpired(now) && isUsable(lease.ip) &&
            holderIsOffline(lease.ip)) {
            candidates.push_back(lease);
        }
    }
    std::ranges::stable_sort(candidates, {}, &Lease::ip);
    std::ranges::stable_sort(candidates, {}, &Lease::lastSeen);
    if (!candidates.empty()) {
        return {.step = 4, .address = candidates.front().ip, .asked = answer.asked};
    }
    return answer;
}

/// Situations in little room, so that ties, doubles and borders are frequent.
class Situations {
  public:
    Situation next() {
        Situation situation;
        // Every other range ends at the highest address there is.
        base_ = below(2) == 0 ? ip(10).value : IPv4Address::broadcast.value - 9;
        situation.range = {.lower = address(2), .upper = address(2 + below(8))};
        const std::uint32_t leases = below(16);
        for (std::uint32_t count = 0; count < leases; ++count) {
            situation.leases.push_back(lease());
        }
        if (below(2) == 0) {
            situation.requested = address(below(10));
        }
        const std::uint32_t usableOfTen = below(11);
        for (std::uint32_t offset = 0; offset < 10; ++offset) {
            if (below(10) < usableOfTen) {
                situation.usable.insert(address(offset));
            }
            if (below(2) == 0) {
                situation.offline.insert(address(offset));
            }
        }
        return situation;
    }

  private:
    std::uint32_t below(std::uint32_t bound) { return static_cast<std::uint32_t>(random_()) % bound; }
    [[nodiscard]] IPv4Address address(std::uint32_t offset) const { return IPv4Address{base_ + offset}; }

    Lease lease() {
        Lease lease = boundLease(mac(static_cast<std::uint8_t>(1 + below(12))), address(below(10)));
        if (below(3) == 0) {
            lease.state = allCases<Lease::State>().at(below(4));
        }
        if (below(3) == 0) {
            lease.expiresAt = now + std::chrono::microseconds{below(3)} - 1us;
        }
        lease.lastSeen = now - std::chrono::minutes{below(3)};
        return lease;
    }

    std::mt19937 random_{20250314};
    std::uint32_t base_ = 0;
};

TEST(ChooseAddressTest, AnswersAndAsksLikeThePlainScanInAnySituation) {
    Situations situations;
    std::map<int, int> answersByStep;
    for (int round = 0; round < 20000; ++round) {
        const Situation situation = situations.next();
        const Answer expected = chooseByTheRules(situation);
        Questions asked;
        const auto chosen = chooseAddress(client, situation.requested, situation.leases, situation.range,
                                          situation.isUsable(asked), situation.holderIsOffline(asked), now);
        ASSERT_EQ(chosen, expected.address) << "round " << round << ", step " << expected.step;
        ASSERT_EQ(asked, expected.asked) << "round " << round << ", step " << expected.step;
        ++answersByStep[expected.step];
    }
    for (int step = 1; step <= 5; ++step) {
        EXPECT_GT(answersByStep[step], 100) << "step " << step << " is hardly tried";
    }
}

} // namespace
} // namespace DHCPCore
