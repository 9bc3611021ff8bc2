#include "DHCPCore/Presence.hpp"
#include "Support/FreshNetwork.hpp"
#include "Support/OpenDescriptors.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <string>
#include <vector>

namespace DHCPCore {
namespace {

using namespace std::chrono_literals;
using ::testing::MatchesRegex;
using TestSupport::inFreshNetwork;
using TestSupport::ip;

constexpr IPv4Address nobody{192, 168, 7, 99};
const Prober cardProber{.interfaceName = "en5", .tcpPorts = {80, 443}};
const ProbeResult silent{.answered = false, .detail = "no answer"};
constexpr const char* notAllowed = "this process may not make a network namespace";

/// A card that swallows whatever it sends.
void makeSilentCard() {
    ASSERT_TRUE(ip("link add en5 type veth peer name en6"));
    ASSERT_TRUE(ip("addr add 192.168.7.1/24 dev en5"));
    ASSERT_TRUE(ip("link set en5 up"));
    ASSERT_TRUE(ip("link set en6 arp off"));
    ASSERT_TRUE(ip("link set en6 up"));
}

/// Sets an option of the network of the calling thread; false where the test's container keeps it from being set.
[[nodiscard]] bool setOption(const std::string& name, const std::string& value) {
    std::ofstream file("/proc/sys/net/ipv4/" + name);
    file << value;
    return file.flush().good();
}

constexpr const char* optionsAreFixed = "the network's options can't be set here";

TEST(LinuxProberTest, FindsNobodyAtASilentAddress) {
    const bool made = inFreshNetwork([] {
        makeSilentCard();
        EXPECT_EQ(cardProber.probe(nobody, 100ms), silent);
    });
    if (!made) {
        GTEST_SKIP() << notAllowed;
    }
}

TEST(LinuxProberTest, FindsNobodyAtOnceWhereNothingLeadsTo) {
    const bool made = inFreshNetwork([] {
        const Prober prober{.interfaceName = "none", .tcpPorts = {80}};
        EXPECT_EQ(prober.probe(nobody, 1h), silent);
    });
    if (!made) {
        GTEST_SKIP() << notAllowed;
    }
}

TEST(LinuxProberTest, PingsThroughARawSocketWhereTheSystemAllowsNoOther) {
    const bool made = inFreshNetwork([] {
        if (!setOption("ping_group_range", "1 0")) { // nobody
            GTEST_SKIP() << optionsAreFixed;
        }
        const ProbeResult result = Prober{.interfaceName = "lo", .tcpPorts = {}}.probe(IPv4Address::loopback, 10s);
        EXPECT_TRUE(result.answered);
        EXPECT_THAT(result.detail, MatchesRegex(R"(icmp [0-9]+\.[0-9] ms)"));
    });
    if (!made) {
        GTEST_SKIP() << notAllowed;
    }
}

TEST(LinuxProberTest, PingsThroughADatagramSocketWhereTheSystemAllowsIt) {
    const bool made = inFreshNetwork([] {
        if (!setOption("ping_group_range", "0 2147483647")) { // everybody
            GTEST_SKIP() << optionsAreFixed;
        }
        const ProbeResult result = Prober{.interfaceName = "lo", .tcpPorts = {}}.probe(IPv4Address::loopback, 10s);
        EXPECT_TRUE(result.answered);
        EXPECT_THAT(result.detail, MatchesRegex(R"(icmp [0-9]+\.[0-9] ms)"));
    });
    if (!made) {
        GTEST_SKIP() << notAllowed;
    }
}

TEST(LinuxProberTest, FindsARefusingHostThatDoesNotAnswerPings) {
    const bool made = inFreshNetwork([] {
        if (!setOption("icmp_echo_ignore_all", "1")) {
            GTEST_SKIP() << optionsAreFixed;
        }
        const Prober prober{.interfaceName = "none", .tcpPorts = {80}};
        EXPECT_EQ(prober.probe(IPv4Address::loopback, 10s),
                  (ProbeResult{.answered = true, .detail = "tcp 80 refused"}));
    });
    if (!made) {
        GTEST_SKIP() << notAllowed;
    }
}

TEST(LinuxProberTest, AsksThroughItsCardOnly) {
    const bool made = inFreshNetwork([] {
        makeSilentCard();
        // The address is this host's own and would answer over loopback.
        ASSERT_TRUE(ip("addr add 10.1.1.1/32 dev lo"));
        EXPECT_EQ((Prober{.interfaceName = "en6", .tcpPorts = {80}}.probe(IPv4Address{10, 1, 1, 1}, 100ms)), silent);
        EXPECT_TRUE((Prober{.interfaceName = "none", .tcpPorts = {80}}.probe(IPv4Address{10, 1, 1, 1}, 10s)).answered);
    });
    if (!made) {
        GTEST_SKIP() << notAllowed;
    }
}

TEST(LinuxProberTest, ClosesItsSocketsWhenNobodyAnswers) {
    const bool made = inFreshNetwork([] {
        makeSilentCard();
        const auto before = TestSupport::openDescriptors();
        EXPECT_EQ(cardProber.probe(nobody, 20ms), silent);
        EXPECT_EQ(TestSupport::openDescriptors(), before);
    });
    if (!made) {
        GTEST_SKIP() << notAllowed;
    }
}

TEST(LinuxARPTableTest, HoldsTheNeighboursThatHaveAMAC) {
    const bool made = inFreshNetwork([] {
        makeSilentCard();
        ASSERT_TRUE(ip("neigh add 192.168.7.2 lladdr 02:00:00:00:00:02 dev en5"));
        ASSERT_TRUE(ip("neigh add 192.168.7.3 lladdr 02:00:00:00:00:03 dev en5 nud stale"));
        ASSERT_TRUE(ip("neigh add 192.168.7.4 nud failed dev en5"));
        ASSERT_TRUE(ip("neigh add fe80::2 lladdr 02:00:00:00:00:02 dev en5"));
        EXPECT_EQ(ARPTable::read(), (ARPTable::Map{{IPv4Address{192, 168, 7, 2}, MACAddress{{2, 0, 0, 0, 0, 2}}},
                                                   {IPv4Address{192, 168, 7, 3}, MACAddress{{2, 0, 0, 0, 0, 3}}}}));
    });
    if (!made) {
        GTEST_SKIP() << notAllowed;
    }
}

TEST(LinuxARPTableTest, TakesTheLaterEntryOfAnAddressOnTwoCards) {
    const bool made = inFreshNetwork([] {
        makeSilentCard();
        ASSERT_TRUE(ip("neigh add 192.168.7.2 lladdr 02:00:00:00:00:02 dev en5"));
        ASSERT_TRUE(ip("neigh add 192.168.7.2 lladdr 02:00:00:00:00:03 dev en6"));
        EXPECT_EQ(ARPTable::read().size(), 1U);
    });
    if (!made) {
        GTEST_SKIP() << notAllowed;
    }
}

} // namespace
} // namespace DHCPCore
