// The example of a front end on a host whose cards come and go.
#include "Support/ChildProcess.hpp"
#include "Support/FreshNetwork.hpp"

#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

namespace Tarnwick {
namespace {

using DHCPCore::TestSupport::ChildProcess;
using DHCPCore::TestSupport::ip;
using Lines = std::vector<std::string>;

TEST(MonitorExampleLinuxTest, RefreshesTheCardsAsTheyChange) {
    const bool made = DHCPCore::TestSupport::inFreshNetwork([] {
        ChildProcess example({.words = {MONITOR_EXAMPLE, "prefix=x"}}); // so that it does not serve
        EXPECT_EQ(example.linesThrough("stopped"),
                  (Lines{"cards:", "  none", "settings:", "  server: Prefix must be a number such as 24.",
                         "server:", "  stopped"}));
        ASSERT_TRUE(ip("link add en5 type veth peer name en6"));
        example.linesThrough("  en5 no link, no address");
        ASSERT_TRUE(ip("link set en5 up"));
        ASSERT_TRUE(ip("link set en6 up"));
        example.linesThrough("  en5 link up, no address");
        ASSERT_TRUE(ip("address add 192.168.0.1/24 dev en5"));
        example.linesThrough("  en5 link up, 192.168.0.1 (manual)");
        ASSERT_TRUE(ip("link set en6 down"));
        example.linesThrough("  en5 no link, 192.168.0.1 (manual)");
        ASSERT_TRUE(ip("link delete en5"));
        example.linesThrough("  none");
        example.signal(SIGINT);
        EXPECT_EQ(example.rest(), "");
        EXPECT_EQ(example.wait(), 0);
    });
    if (!made) {
        GTEST_SKIP() << "this process may not make a network namespace";
    }
}

} // namespace
} // namespace Tarnwick
