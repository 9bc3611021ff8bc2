#include "DHCPCore/Presence.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

namespace DHCPCore {
namespace {

using namespace std::chrono_literals;
using testing::MatchesRegex;

TEST(DarwinProberTest, PingsLoopbackWithoutRights) {
    const ProbeResult result = Prober{.interfaceName = "lo0", .tcpPorts = {}}.probe(IPv4Address::loopback, 10s);
    EXPECT_TRUE(result.answered);
    EXPECT_THAT(result.detail, MatchesRegex("icmp [0-9]+\\.[0-9] ms"));
}

TEST(DarwinProberTest, ProbesUntiedWhereTheCardDoesNotExist) {
    const ProbeResult result = Prober{.interfaceName = "nosuchcard0", .tcpPorts = {}}.probe(IPv4Address::loopback, 10s);
    EXPECT_TRUE(result.answered);
}

TEST(DarwinARPTableTest, HoldsNoAddressOfLoopback) {
    EXPECT_FALSE(ARPTable::read().contains(IPv4Address::loopback)); // it has no hardware address
}

} // namespace
} // namespace DHCPCore
