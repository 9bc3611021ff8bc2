// The table's index against the plain walk: whatever is done to a table, both give the same answers.
#include "DHCPCore/LeaseStore.hpp"
#include "Support/Printing.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <random>
#include <tuple>
#include <utility>
#include <vector>

namespace DHCPCore {
namespace {

constexpr Date start{std::chrono::seconds{1'700'000'000}};
constexpr std::uint8_t clients = 12;
constexpr std::uint8_t addresses = 8;

MACAddress clientMAC(std::uint32_t number) { return {{0x02, 0, 0, 0, 0, static_cast<std::uint8_t>(number)}}; }
IPv4Address address(std::uint32_t number) { return {10, 0, 0, static_cast<std::uint8_t>(number)}; }

std::optional<Lease> walkForClient(const LeaseTable& table, const MACAddress& mac) {
    for (const Lease& lease : table.leases()) {
        if (lease.mac == mac) {
            return lease;
        }
    }
    return std::nullopt;
}

std::optional<Lease> walkForHolder(const LeaseTable& table, IPv4Address ip, Date now) {
    for (const Lease& lease : table.leases()) {
        if (lease.ip == ip && lease.holdsAddress(now)) {
            return lease;
        }
    }
    return std::nullopt;
}

/// A table to which random things happen, few clients and addresses, so that they meet often.
class RandomTable {
  public:
    explicit RandomTable(std::uint32_t seed) : random_(seed) {
        std::vector<Lease> leases;
        for (std::uint32_t count = below(20); count > 0; --count) {
            leases.push_back(anyLease()); // clients may occur twice, as in a table put together by hand
        }
        table = LeaseTable(std::move(leases), {});
    }

    void step() {
        now += std::chrono::seconds{below(10)};
        switch (below(12)) {
        case 0:
            table.remove(clientMAC(below(clients)));
            break;
        case 1:
            table.clearInactive(now);
            break;
        case 2:
            std::ignore = table.dropOutside({.lower = address(below(3)), .upper = address(addresses - below(3))});
            break;
        default:
            table.upsert(anyLease());
        }
    }

    LeaseTable table;
    Date now = start;

  private:
    std::uint32_t below(std::uint32_t bound) { return static_cast<std::uint32_t>(random_() % bound); }

    Lease anyLease() {
        Lease lease;
        lease.mac = clientMAC(below(clients));
        lease.ip = address(below(addresses));
        lease.state = allCases<Lease::State>().at(below(4));
        lease.expiresAt = now + std::chrono::seconds{below(40)};
        return lease;
    }

    std::mt19937 random_;
};

TEST(LeaseIndexTest, GivesTheAnswersOfThePlainWalkWhateverHappensToTheTable) {
    for (std::uint32_t seed = 0; seed < 200; ++seed) {
        RandomTable random(seed);
        for (int step = 0; step < 100; ++step) {
            for (std::uint8_t number = 0; number < clients; ++number) {
                ASSERT_EQ(random.table.lease(clientMAC(number)), walkForClient(random.table, clientMAC(number)))
                    << "seed " << seed << ", step " << step;
            }
            for (std::uint8_t number = 0; number < addresses; ++number) {
                ASSERT_EQ(random.table.holder(address(number), random.now),
                          walkForHolder(random.table, address(number), random.now))
                    << "seed " << seed << ", step " << step;
            }
            random.step();
        }
    }
}

TEST(LeaseIndexTest, TellsThePositionsOfAnAddressInTableOrder) {
    LeaseIndex index;
    index.append(clientMAC(1), address(1), 0);
    index.append(clientMAC(2), address(2), 1);
    index.append(clientMAC(3), address(2), 2);
    index.move(address(1), address(2), 0);
    const auto positions = index.positionsOf(address(2));
    EXPECT_EQ(std::vector<std::size_t>(positions.begin(), positions.end()), (std::vector<std::size_t>{0, 1, 2}));
    EXPECT_TRUE(index.positionsOf(address(1)).empty());
}

} // namespace
} // namespace DHCPCore
