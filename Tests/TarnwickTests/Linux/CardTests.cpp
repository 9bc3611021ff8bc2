// Serving on a card: every test makes itself a network of its own, with both ends of a cable in it.
#include "Support/FreshNetwork.hpp"
#include "TarnwickTests/ToolProcess.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace Tarnwick {
namespace {

using DHCPCore::TestSupport::inFreshNetwork;
using DHCPCore::TestSupport::ip;
using DHCPCore::TestSupport::readText;

const std::vector<std::string> serveOnCard{"serve", "--iface", "server0"};
const std::vector<std::string> serveOnCardInJSON{"serve", "--iface", "server0", "--json"};

/// The checks of a card that is ready.
const std::vector<std::string> passedChecks{"✓ Wired card, not the Mac's internet route",
                                            "✓ No other DHCP server has configured this card",
                                            "✓ server0 is set to 192.168.0.1/24",
                                            "✓ No overlap with other networks",
                                            "✓ Port 67 is free",
                                            "✓ Link up · 10GBase-T full-duplex"};

/// Runs the test with a card "server0", whose cable ends in "device0"; skips it where no network can be made.
void onACable(const std::function<void()>& test) {
    const bool made = inFreshNetwork([&] {
        ASSERT_TRUE(ip("link add server0 type veth peer name device0"));
        ASSERT_TRUE(ip("link set server0 up"));
        ASSERT_TRUE(ip("link set device0 up"));
        test();
    });
    if (!made) {
        GTEST_SKIP() << "this process may not make a network namespace";
    }
}

/// The same with the server's address on the card.
void onAReadyCable(const std::function<void()>& test) {
    onACable([&] {
        ASSERT_TRUE(ip("address add 192.168.0.1/24 dev server0"));
        test();
    });
}

std::vector<std::string> nextLines(ToolProcess& tool, std::size_t count) {
    std::vector<std::string> lines;
    while (lines.size() < count) {
        lines.push_back(tool.line().value_or("nothing"));
    }
    return lines;
}

TEST(CardTest, PrintsTheCommandThatMendsTheCardAndDoesNotServe) {
    onACable([] {
        const std::string checks = "✓ Wired card, not the Mac's internet route\n"
                                   "✓ No other DHCP server has configured this card\n"
                                   "✗ Card isn't set to 192.168.0.1/24\n"
                                   "✓ No overlap with other networks\n"
                                   "✓ Port 67 is free\n"
                                   "✓ Link up · 10GBase-T full-duplex\n";
        const std::string fix = "\nRun this, then start tarnwick again:\n"
                                "  sudo /usr/sbin/networksetup -setmanual 'server0' 192.168.0.1 255.255.255.0\n";
        const Finished refused{.status = 1, .output = checks + fix, .errors = ""};
        EXPECT_EQ(runTool(serveOnCard), refused);
        EXPECT_EQ(runTool(serveOnCardInJSON), refused) << "the checks are for people in JSON mode too";
    });
}

TEST(CardTest, PrintsNoCommandWhereNoneWouldMend) {
    onAReadyCable([] {
        ASSERT_TRUE(ip("link add other0 type veth peer name stranger0"));
        ASSERT_TRUE(ip("address add 192.168.0.9/25 dev other0"));
        const Finished refused = runTool(serveOnCard);
        EXPECT_EQ(refused.status, 1);
        EXPECT_EQ(refused.errors, "");
        EXPECT_TRUE(refused.output.find("✗ 192.168.0.0/24 overlaps other0 (192.168.0.0/25)\n") != std::string::npos)
            << refused.output;
        EXPECT_TRUE(refused.output.ends_with("✓ Link up · 10GBase-T full-duplex\n")) << refused.output;
    });
}

TEST(CardTest, WarnsOfALinkThatIsDownAndServesOn) {
    onAReadyCable([] {
        ASSERT_TRUE(ip("link set device0 down"));
        ToolProcess tool(serveOnCard);
        std::vector<std::string> checks = passedChecks;
        checks.back() = "⚠ No link: the server will start and wait for a device";
        EXPECT_EQ(nextLines(tool, checks.size()), checks);
        std::vector<std::string> events = nextLines(tool, 3);
        std::ranges::transform(events, events.begin(), withoutTime);
        EXPECT_EQ(events,
                  (std::vector<std::string>{
                      "START        server0 server 192.168.0.1/24 range 192.168.0.100-192.168.0.200 lease 24 h",
                      "LINK         down",
                      "NOTICE       Link down. No device is connected to server0. Serving resumes on its own when the "
                      "link returns.",
                  }));
    });
}

TEST(CardTest, PrintsItsChecksAsPlainTextBeforeTheEventsInJSON) {
    onAReadyCable([] {
        ToolProcess tool(serveOnCardInJSON);
        EXPECT_EQ(nextLines(tool, passedChecks.size()), passedChecks);
        EXPECT_TRUE(tool.line().value_or("nothing").starts_with(R"({"event":"started","label":"START",)"));
        EXPECT_TRUE(tool.line().value_or("nothing").starts_with(R"({"event":"link","label":"LINK",)"));
        tool.signal(SIGINT);
        EXPECT_TRUE(tool.line().value_or("nothing").starts_with(R"({"event":"stopped","label":"STOP",)"));
        EXPECT_EQ(tool.wait(), 0);
    });
}

TEST(CardTest, KeepsItsTextLinesInTheLogAlsoInJSON) {
    onAReadyCable([] {
        ToolProcess tool(serveOnCardInJSON);
        tool.linesThrough(R"("event":"link")");
        tool.signal(SIGINT);
        EXPECT_EQ(tool.wait(), 0);
        std::vector<std::string> lines;
        for (const auto& day : std::filesystem::directory_iterator(tool.home() / ".local/state/Tarnwick")) {
            std::istringstream log(readText(day.path()));
            for (std::string line; std::getline(log, line);) {
                lines.push_back(withoutTime(line));
            }
        }
        std::ranges::sort(lines); // the run may have gone over midnight
        EXPECT_EQ(lines, (std::vector<std::string>{
                             "LINK         up 10GBase-T full-duplex",
                             "START        server0 server 192.168.0.1/24 range 192.168.0.100-192.168.0.200 lease 24 h",
                             "STOP         server stopped",
                         }));
        EXPECT_TRUE(std::filesystem::exists(tool.home() / ".local/share/Tarnwick/leases.json"));
    });
}

TEST(CardTest, SurvivesFurtherInterruptsWhileItWaitsForItsProbes) {
    onAReadyCable([] {
        ASSERT_TRUE(ip("link set device0 down"));
        const DHCPCore::TestSupport::TemporaryDirectory folder;
        const std::filesystem::path leases = folder / "leases.json";
        DHCPCore::TestSupport::writeText(
            leases, R"({"version": 1, "quarantine": [], "leases": [{"mac": "02:00:00:00:00:09", "ip": "192.168.0.100",
                        "state": "bound", "expiresAt": "2999-01-01T00:00:00Z", "firstSeen": "2025-01-01T00:00:00Z",
                        "lastSeen": "2025-01-01T00:00:00Z"}]})");
        ToolProcess tool({"serve", "--iface", "server0", "--leases", leases.string()});
        tool.linesThrough("Link down");
        ASSERT_TRUE(ip("link set device0 up"));
        tool.linesThrough("LINK         up"); // the server asks for its devices at once
        tool.signal(SIGINT);
        tool.linesThrough("server stopped");
        for (int count = 0; count < 200; ++count) { // up to the end and beyond, wherever that is
            tool.signal(SIGINT);
            std::this_thread::sleep_for(std::chrono::milliseconds{1});
        }
        EXPECT_EQ(tool.wait(), 0);
    });
}

} // namespace
} // namespace Tarnwick
