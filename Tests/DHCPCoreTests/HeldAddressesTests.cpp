#include "DHCPCore/HeldAddresses.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <optional>
#include <random>

namespace DHCPCore {
namespace {

using namespace std::chrono_literals;

constexpr Date now{1000s};
constexpr auto moment = std::chrono::microseconds{1};

AddressRange range(IPv4Address lower, IPv4Address upper) { return {.lower = lower, .upper = upper}; }

TEST(HeldAddressesTest, FindsTheLowestAddressWhereNothingIsHeld) {
    const HeldAddresses held;
    EXPECT_EQ(held.lowestFree(range({10, 0, 0, 7}, {10, 0, 9, 9}), now), (IPv4Address{10, 0, 0, 7}));
}

TEST(HeldAddressesTest, HoldsAnAddressUpToItsInstant) {
    HeldAddresses held;
    held.set({10, 0, 0, 7}, now + moment);
    held.set({10, 0, 0, 8}, now);
    EXPECT_EQ(held.lowestFree(range({10, 0, 0, 7}, {10, 0, 0, 9}), now), (IPv4Address{10, 0, 0, 8}));
    EXPECT_EQ(held.lowestFree(range({10, 0, 0, 7}, {10, 0, 0, 9}), now + moment), (IPv4Address{10, 0, 0, 7}));
    EXPECT_EQ(held.lowestFree(range({10, 0, 0, 7}, {10, 0, 0, 9}), now - moment), (IPv4Address{10, 0, 0, 9}));
}

TEST(HeldAddressesTest, FindsNothingInARangeThatIsHeldWhole) {
    HeldAddresses held;
    held.set({255, 255, 255, 254}, now + 1h);
    held.set({255, 255, 255, 255}, now + 1h);
    EXPECT_EQ(held.lowestFree(range({255, 255, 255, 254}, {255, 255, 255, 255}), now), std::nullopt);
}

TEST(HeldAddressesTest, FindsNothingInARangeThatEndsBeforeItBegins) {
    EXPECT_EQ(HeldAddresses{}.lowestFree(range({10, 0, 0, 9}, {10, 0, 0, 8}), now), std::nullopt);
}

TEST(HeldAddressesTest, LetsAnAddressGoAgain) {
    HeldAddresses held;
    held.set({10, 0, 0, 7}, now + 1h);
    held.set({10, 0, 0, 7}, HeldAddresses::notHeld);
    EXPECT_EQ(held.lowestFree(range({10, 0, 0, 7}, {10, 0, 0, 8}), now), (IPv4Address{10, 0, 0, 7}));
}

TEST(HeldAddressesTest, GivesTheAnswersOfAWalk) {
    std::mt19937 random(7);
    constexpr std::uint32_t base = 0x0A0000F0; // so that the range goes over the ends of pages
    constexpr std::uint32_t size = 600;
    const auto below = [&random](std::uint32_t limit) { return static_cast<std::uint32_t>(random() % limit); };
    HeldAddresses held;
    std::map<IPv4Address, Date> plain;
    for (int step = 0; step < 20000; ++step) {
        const IPv4Address ip{base + below(size)};
        const Date until = below(8) == 0 ? HeldAddresses::notHeld : Date{std::chrono::seconds{below(2000)}};
        held.set(ip, until);
        plain[ip] = until;
        const IPv4Address lower{base + below(size)};
        const auto asked = range(lower, IPv4Address{lower.value + below(size)});
        const Date instant{std::chrono::seconds{below(200)}};
        std::optional<IPv4Address> expected;
        for (IPv4Address candidate = asked.lower; candidate <= asked.upper && !expected; ++candidate.value) {
            const auto found = plain.find(candidate);
            if (found == plain.end() || found->second <= instant) {
                expected = candidate;
            }
        }
        ASSERT_EQ(held.lowestFree(asked, instant), expected) << "in step " << step;
    }
}

} // namespace
} // namespace DHCPCore
