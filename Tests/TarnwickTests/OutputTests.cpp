// Standard output whose reader has stopped reading, without going away: a pager, a terminal on hold, a slow script.
#include "TarnwickTests/LoopbackClient.hpp"
#include "TarnwickTests/ToolProcess.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace Tarnwick {
namespace {

using namespace DHCPCore;
using namespace DHCPCore::TestSupport;
using nlohmann::json;

constexpr std::uint32_t many = 3000; // DISCOVERs, whose lines are more than ten times what a pipe takes

/// A device that asks while nobody reads what the tool prints.
class StalledOutputTest : public testing::Test {
  protected:
    [[nodiscard]] std::vector<std::string> arguments(const std::vector<std::string>& further = {}) const {
        std::vector<std::string> all = client.serveArguments({"--leases", leases.string()});
        all.insert(all.end(), further.begin(), further.end());
        return all;
    }

    /// Asks so often, each time with another transaction, and requires an answer each time.
    void discoverAgainAndAgain() const {
        for (std::uint32_t xid = 1; xid <= many; ++xid) {
            DHCPPacket discover = message(DHCPMessageType::discover);
            discover.xid = xid;
            const DHCPPacket answer = client.ask(discover);
            ASSERT_EQ(answer.messageType(), DHCPMessageType::offer);
            ASSERT_EQ(answer.xid, xid);
        }
    }

    LoopbackClient client;
    TemporaryDirectory folder;
    std::filesystem::path leases = folder / "leases.json";
};

TEST_F(StalledOutputTest, KeepsNoDeviceWaitingAndLosesNoLine) {
    ToolProcess tool(arguments());
    tool.linesThrough("START");
    discoverAgainAndAgain();
    for (std::uint32_t xid = 1; xid <= many; ++xid) {
        ASSERT_EQ(withoutTime(tool.line().value_or("")),
                  fmt::format("RX DISCOVER  02:00:00:00:00:01 host=- vendor=- req=- xid=0x{:08x} if=lo0", xid));
        ASSERT_EQ(withoutTime(tool.line().value_or("")), "LEASE        offered 192.168.0.100 02:00:00:00:00:01");
        ASSERT_EQ(withoutTime(tool.line().value_or("")), "TX OFFER     192.168.0.100 -> 255.255.255.255:68 via lo0");
    }
    tool.signal(SIGINT);
    EXPECT_EQ(withoutTime(tool.line().value_or("")), "STOP         server stopped");
    EXPECT_EQ(tool.wait(), 0);
}

TEST_F(StalledOutputTest, LosesNoJSONObject) {
    ToolProcess tool(arguments({"--json"}));
    tool.linesThrough("START");
    discoverAgainAndAgain();
    for (std::uint32_t xid = 1; xid <= many; ++xid) {
        const json discover = json::parse(tool.line().value_or(""));
        ASSERT_EQ(discover["xid"], fmt::format("0x{:08x}", xid));
        ASSERT_EQ(json::parse(tool.line().value_or(""))["event"], "leaseChanged");
        ASSERT_EQ(json::parse(tool.line().value_or(""))["event"], "sent");
    }
}

TEST_F(StalledOutputTest, DoesNotKeepTheLeasesFromBeingSavedAtTheEnd) {
    ToolProcess tool(arguments());
    tool.linesThrough("START");
    discoverAgainAndAgain();
    tool.signal(SIGINT);
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!std::filesystem::exists(leases) && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds{1}); // nobody has read a line
    }
    EXPECT_EQ(json::parse(readText(leases))["leases"][0]["state"], "offered");
    EXPECT_TRUE(tool.rest().ends_with("  STOP         server stopped\n"));
    EXPECT_EQ(tool.wait(), 0);
}

TEST_F(StalledOutputTest, EndsInOrderWhenTheReaderGoesAwayInTheEnd) {
    ToolProcess tool(arguments());
    tool.linesThrough("START");
    discoverAgainAndAgain();
    tool.closeOutput();
    EXPECT_EQ(tool.wait(), 0);
    EXPECT_EQ(tool.errors(), "");
    EXPECT_EQ(json::parse(readText(leases))["leases"][0]["state"], "offered");
}

} // namespace
} // namespace Tarnwick
