#include "DHCPCore/Allocation.hpp"
#include "DHCPCore/LeaseFile.hpp"
#include "DHCPCore/LeaseStore.hpp"
#include "Model/LeaseModel.hpp"
#include "Model/Random.hpp"
#include "Support/LeaseBuilders.hpp"
#include "Support/Printing.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

/// The lease table and the choice of an address against the plain rules, on random tables. Tables with several records
/// of one client, or several quarantines of one address, occur too: a file may hold them, and the first match counts.
namespace DHCPCore {

namespace {

using Model::Random;
using std::chrono::microseconds;
using TestSupport::ip;
using TestSupport::mac;
using TestSupport::now;

constexpr std::uint64_t universe = 12; ///< So many clients, and so many addresses, in most of the tables.

IPv4Address anyAddress(Random& random) { return ip(static_cast<std::uint8_t>(10 + random.below(universe))); }
MACAddress anyClient(Random& random) { return mac(static_cast<std::uint8_t>(random.below(universe))); }

/// Before, at and after the present.
Date anyInstant(Random& random) { return now + microseconds{static_cast<int>(random.below(7)) - 3}; }

Lease anyLease(Random& random) {
    Lease lease =
        TestSupport::leaseIn(static_cast<Lease::State>(random.below(4)), anyClient(random), anyAddress(random));
    lease.expiresAt = anyInstant(random);
    lease.lastSeen = anyInstant(random);
    return lease;
}

Model::Table anyTable(Random& random, std::uint64_t longest) {
    Model::Table table;
    for (std::uint64_t count = random.below(longest); count > 0; --count) {
        table.leases.push_back(anyLease(random));
    }
    for (std::uint64_t count = random.below(4); count > 0; --count) {
        table.quarantine.push_back(
            {.ip = anyAddress(random), .until = anyInstant(random), .reportedBy = anyClient(random)});
    }
    return table;
}

/// One random change to both. @return whether what it gave back was the same.
bool change(Random& random, Model::Table& model, LeaseTable& table) {
    const Date instant = anyInstant(random);
    switch (random.below(14)) {
    case 0:
    case 1: {
        const MACAddress client = anyClient(random);
        return model.remove(client) == table.remove(client);
    }
    case 2: {
        const IPv4Address address = anyAddress(random);
        const MACAddress client = anyClient(random);
        model.addQuarantine(address, instant, client);
        table.addQuarantine(address, instant, client);
        return true;
    }
    case 3:
        model.pruneQuarantine(instant);
        table.pruneQuarantine(instant);
        return true;
    case 4:
        return !random.oneIn(6) || model.clearInactive(instant) == table.clearInactive(instant);
    case 5: {
        const AddressRange range{.lower = anyAddress(random), .upper = ip(10 + universe - 2)};
        return !random.oneIn(6) || model.dropOutside(range) == table.dropOutside(range);
    }
    case 6: {
        const MACAddress client = anyClient(random);
        const auto known = std::ranges::find(model.leases, client, &Lease::mac);
        if (known != model.leases.end()) {
            known->lastSeen = instant;
        }
        table.setLastSeen(client, instant);
        return true;
    }
    default: {
        const Lease lease = anyLease(random);
        model.upsert(lease);
        table.upsert(lease);
        return true;
    }
    }
}

/// The plain walk to the record that holds its address, meets the predicate, and was last heard from longest ago.
std::optional<Lease> oldestHolder(const Model::Table& model, Date instant,
                                  const std::function<bool(const Lease&)>& predicate) {
    std::optional<Lease> oldest;
    for (const Lease& lease : model.leases) {
        if (lease.holdsAddress(instant) && predicate(lease) &&
            (!oldest || std::tie(lease.lastSeen, lease.ip) < std::tie(oldest->lastSeen, oldest->ip))) {
            oldest = lease;
        }
    }
    return oldest;
}

void expectSameAnswers(const Model::Table& model, const LeaseTable& table, Date instant) {
    for (std::uint8_t number = 0; number < universe; ++number) {
        const IPv4Address address = ip(10 + number);
        EXPECT_EQ(table.lease(mac(number)), model.lease(mac(number)));
        EXPECT_EQ(table.holder(address, instant), Model::holder(model.leases, address, instant));
        EXPECT_EQ(table.isQuarantined(address, instant), model.isQuarantined(address, instant));
    }
    std::optional<IPv4Address> free;
    for (std::uint8_t number = universe; number > 0; --number) {
        const IPv4Address address = ip(9 + number);
        const bool isTaken = Model::holder(model.leases, address, instant) || model.isQuarantined(address, instant);
        free = isTaken ? free : address;
    }
    EXPECT_EQ(table.lowestFree({.lower = ip(10), .upper = ip(9 + universe)}, instant), free);
    const auto isEvenAndNotOffered = [&](const Lease& lease) {
        const auto holder = Model::holder(model.leases, lease.ip, instant);
        return lease.ip.value % 2 == 0 && holder && holder->state != Lease::State::offered;
    };
    const Lease* const oldest = table.findOldestHolder(instant, isEvenAndNotOffered);
    EXPECT_EQ(oldest == nullptr ? std::nullopt : std::optional{*oldest},
              oldestHolder(model, instant, isEvenAndNotOffered));
}

} // namespace

TEST(LeaseModelTest, ChangesTheTableByThePlainRules) {
    for (std::uint64_t seed = 1; seed <= 200 && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        Random random{seed};
        Model::Table model = random.oneIn(2) ? anyTable(random, 2 * universe) : Model::Table{};
        LeaseTable table{model.leases, model.quarantine};
        for (int step = 0; step < 150 && !testing::Test::HasFailure(); ++step) {
            SCOPED_TRACE(step);
            EXPECT_TRUE(change(random, model, table));
            EXPECT_TRUE(Model::agree(model, table)) << testing::PrintToString(table);
            expectSameAnswers(model, table, anyInstant(random));
        }
    }
}

TEST(LeaseModelTest, FindsTheSameWhateverWasCopiedOrMoved) {
    Random random{7};
    const Model::Table model = anyTable(random, 2 * universe);
    LeaseTable original{model.leases, model.quarantine};
    expectSameAnswers(model, original, now); // what is found out by asking is copied and moved, too
    const LeaseTable copy = original; // NOLINT(performance-unnecessary-copy-initialization): the copy is the point
    LeaseTable moved = std::move(original);
    original = LeaseTable{};

    expectSameAnswers(model, copy, now);
    expectSameAnswers(model, moved, now);
    expectSameAnswers({}, original, now);
}

TEST(LeaseModelTest, SortsByThePlainRules) {
    for (std::uint64_t seed = 1; seed <= 500; ++seed) {
        SCOPED_TRACE(seed);
        Random random{seed};
        const Model::Table model = anyTable(random, 3 * universe);
        const LeaseTable table{model.leases, model.quarantine};
        std::map<IPv4Address, PresenceState> seen;
        for (std::uint64_t count = universe / 2; count > 0; --count) {
            seen[anyAddress(random)] = static_cast<PresenceState>(random.below(4));
        }
        const auto presence = [&seen](const Lease& lease) {
            const auto found = seen.find(lease.ip);
            return found == seen.end() ? std::nullopt : std::optional{found->second};
        };

        EXPECT_EQ(table.sortedByIP(), model.sortedByIP());
        EXPECT_EQ(table.sortedForDisplay(presence), model.sortedForDisplay(presence));
    }
}

TEST(LeaseModelTest, ChoosesTheAddressByThePlainRules) {
    for (std::uint64_t seed = 1; seed <= 20000 && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        Random random{seed};
        std::vector<Lease> leases = anyTable(random, seed % 2 == 0 ? universe : 5 * universe).leases;
        std::set<IPv4Address> unusable;
        std::set<IPv4Address> offline;
        for (std::uint64_t count = random.below(4); count > 0; --count) {
            unusable.insert(anyAddress(random));
        }
        for (std::uint64_t count = random.below(universe); count > 0; --count) {
            offline.insert(anyAddress(random));
        }
        const AddressRange range{.lower = anyAddress(random), .upper = anyAddress(random)};
        const auto isUsable = [&](IPv4Address address) { return !unusable.contains(address); };
        const auto isOffline = [&](IPv4Address address) { return offline.contains(address); };
        const std::optional<IPv4Address> requested = random.oneIn(2) ? std::nullopt : std::optional{anyAddress(random)};
        const MACAddress client = anyClient(random);
        const Date instant = anyInstant(random);

        EXPECT_EQ(chooseAddress(client, requested, leases, range, isUsable, isOffline, instant),
                  Model::chooseAddress(client, requested, leases, range, isUsable, isOffline, instant));
        EXPECT_EQ(isAvailable(range.lower, client, leases, isUsable, instant),
                  Model::isAvailable(range.lower, client, leases, isUsable, instant));

        std::vector<Quarantine> quarantine;
        quarantine.reserve(unusable.size());
        for (const IPv4Address address : unusable) {
            quarantine.push_back(
                {.ip = address, .until = instant + microseconds{random.below(2)}, .reportedBy = client});
        }
        for (const Lease& lease : leases) {
            if (lease.state == Lease::State::offered) {
                offline.erase(lease.ip);
            }
        }
        const LeaseTable table(LeaseFile::oneRecordPerMAC(leases),
                               random.oneIn(2) ? quarantine : decltype(quarantine){});
        EXPECT_EQ(chooseAddress(client, requested, table, range, isUsable, isOffline, instant),
                  Model::chooseAddress(client, requested, table.leases().all(), range, isUsable, isOffline, instant));
        EXPECT_EQ(isAvailable(range.lower, client, table, isUsable, instant),
                  Model::isAvailable(range.lower, client, table.leases().all(), isUsable, instant));
    }
}

TEST(LeaseModelTest, ChoosesTheLowestFreeAddressOfAPoolThatIsFilledAndEmptied) {
    Random random{1};
    std::vector<Lease> leases;
    const AddressRange range{.lower = IPv4Address{10, 1, 0, 0}, .upper = IPv4Address{10, 1, 1, 255}};
    const auto always = [](IPv4Address) { return true; };
    for (std::uint16_t number = 0; number < 600; ++number) {
        const MACAddress client{
            .bytes = {0x02, 0, 0, 0, static_cast<std::uint8_t>(number >> 8U), static_cast<std::uint8_t>(number)}};
        const auto expected = Model::chooseAddress(client, {}, leases, range, always, always, now);
        ASSERT_EQ(chooseAddress(client, {}, leases, range, always, always, now), expected);
        Lease lease = TestSupport::boundLease(client, expected.value());
        lease.lastSeen = now - microseconds{random.below(50)};
        leases.push_back(lease);
        if (random.oneIn(3)) {
            leases[static_cast<std::size_t>(random.below(leases.size()))].state = Lease::State::released;
        }
    }
}

TEST(LeaseModelTest, EndsTheWalkAtTheLastAddressThereIs) {
    const AddressRange range{.lower = IPv4Address{255, 255, 255, 254}, .upper = IPv4Address::broadcast};
    const auto never = [](IPv4Address) { return false; };

    EXPECT_EQ(Model::chooseAddress(mac(1), {}, {}, range, never, never, now), std::nullopt);
    EXPECT_EQ(chooseAddress(mac(1), {}, LeaseTable{}, range, never, never, now), std::nullopt);
}

} // namespace DHCPCore
