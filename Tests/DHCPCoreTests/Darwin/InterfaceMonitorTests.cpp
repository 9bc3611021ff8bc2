#include "DHCPCore/InterfaceMonitor.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>

namespace DHCPCore {
namespace {

TEST(DarwinInterfaceMonitorTest, NeverCallsWithoutStart) {
    std::atomic<int> calls = 0;
    {
        InterfaceMonitor monitor([&] { ++calls; });
        monitor.stop();
    }
    EXPECT_EQ(calls, 0);
}

TEST(DarwinInterfaceMonitorTest, StartsAndStopsAgainAndAgain) {
    InterfaceMonitor monitor([] {});
    for (int round = 0; round < 3; ++round) {
        monitor.start();
        monitor.start();
        monitor.stop();
        monitor.stop();
    }
}

TEST(DarwinInterfaceMonitorTest, MayBeDroppedWhileStarted) {
    auto monitor = std::make_unique<InterfaceMonitor>([] {});
    monitor->start();
    monitor.reset();
}

} // namespace
} // namespace DHCPCore
