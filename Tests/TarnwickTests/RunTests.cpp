// A whole run of the server: its files before and after, its output, and how it ends.
#include "DHCPCore/Date.hpp"
#include "TarnwickTests/LoopbackClient.hpp"
#include "TarnwickTests/ToolProcess.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <csignal>
#include <filesystem>
#include <regex>
#include <string>
#include <thread>
#include <vector>

namespace Tarnwick {
namespace {

using namespace DHCPCore;
using namespace DHCPCore::TestSupport;
using nlohmann::json;

constexpr IPv4Address server{192, 168, 0, 1};
const std::string startLine = "START        lo0 server 192.168.0.1/24 range 192.168.0.100-192.168.0.200 lease 24 h";

/// A scratch folder with a lease file, and a client.
class RunTest : public testing::Test {
  protected:
    [[nodiscard]] std::vector<std::string> arguments(const std::vector<std::string>& further = {}) const {
        std::vector<std::string> all = client_.serveArguments({"--leases", leases_.string()});
        all.insert(all.end(), further.begin(), further.end());
        return all;
    }

    /// Has a device get an address.
    void bind(std::uint8_t device) const {
        const DHCPPacket offer = client_.ask(message(DHCPMessageType::discover, device));
        const DHCPPacket request =
            with(with(message(DHCPMessageType::request, device), OptionCode::requestedIP, offer.yiaddr),
                 OptionCode::serverID, server);
        EXPECT_EQ(client_.ask(request).messageType(), DHCPMessageType::ack);
    }

    /// Has a device decline an address, again and again until the server is there and has saved it.
    void declineUntilSaved() const {
        while (!std::filesystem::exists(leases_)) {
            client_.send(with(message(DHCPMessageType::decline), OptionCode::requestedIP, IPv4Address{10, 0, 0, 1}));
            std::this_thread::sleep_for(std::chrono::milliseconds{1});
        }
    }

    /// A document with one bound lease that lasts long enough.
    static std::string document(const std::string& ip) {
        return R"({"version": 1, "quarantine": [], "leases": [{"mac": "02:00:00:00:00:09", "ip": ")" + ip +
               R"(", "state": "bound", "expiresAt": "2999-01-01T00:00:00Z", "hostname": "kept",
                   "firstSeen": "2025-01-01T00:00:00Z", "lastSeen": "2025-01-01T00:00:00Z"}]})";
    }

    /// Stops the server as Ctrl-C does. @return what it printed since the last line that was read, without times.
    static std::vector<std::string> stop(ToolProcess& tool) {
        tool.signal(SIGINT);
        std::vector<std::string> lines;
        while (const auto line = tool.line()) {
            lines.push_back(withoutTime(*line));
        }
        EXPECT_EQ(tool.wait(), 0);
        EXPECT_EQ(tool.errors(), "");
        return lines;
    }

    LoopbackClient client_;
    TemporaryDirectory folder_;
    std::filesystem::path leases_ = folder_ / "leases.json";
};

TEST_F(RunTest, StartsAndStopsOnInterrupt) {
    ToolProcess tool(arguments());
    const auto start = tool.line();
    ASSERT_TRUE(start);
    EXPECT_EQ(withoutTime(*start), startLine);
    EXPECT_EQ(stop(tool), (std::vector<std::string>{"STOP         server stopped"}));
}

TEST_F(RunTest, EndsInOrderWhenItIsInterruptedAsSoonAsItSaysThatItRuns) {
    for (int run = 0; run < 20; ++run) {
        ToolProcess tool(arguments());
        tool.linesThrough("START");
        tool.signal(SIGINT);
        tool.signal(SIGINT); // a second one changes nothing
        EXPECT_NE(tool.rest().find("STOP         server stopped\n"), std::string::npos);
        EXPECT_EQ(tool.wait(), 0);
    }
}

TEST_F(RunTest, DiesOfOtherSignals) {
    ToolProcess tool(arguments());
    tool.linesThrough("START");
    tool.signal(SIGTERM);
    EXPECT_EQ(tool.wait(), 128 + SIGTERM);
}

TEST_F(RunTest, IgnoresTheCardInLoopbackModeAndKeepsNoLog) {
    ToolProcess tool(arguments({"--iface", "en99"}));
    const auto start = tool.line();
    ASSERT_TRUE(start);
    EXPECT_EQ(withoutTime(*start), startLine);
    stop(tool);
    EXPECT_EQ(tool.homeNames(), (std::vector<std::string>{"stderr"}));
}

TEST_F(RunTest, SavesAnAcknowledgedLeaseBeforeItsAnswerLeaves) {
    ToolProcess tool(arguments());
    tool.linesThrough("START");
    EXPECT_FALSE(std::filesystem::exists(leases_));
    const Date before = std::chrono::floor<std::chrono::seconds>(currentDate());
    bind(1);
    const json saved = json::parse(readText(leases_));
    const Date after = currentDate();
    EXPECT_EQ(saved["version"], 1);
    EXPECT_EQ(saved["quarantine"], json::array());
    ASSERT_EQ(saved["leases"].size(), 1U);
    const json& lease = saved["leases"][0];
    EXPECT_EQ(lease["mac"], "02:00:00:00:00:01");
    EXPECT_EQ(lease["ip"], "192.168.0.100");
    EXPECT_EQ(lease["state"], "bound");
    EXPECT_FALSE(lease.contains("hostname"));
    const auto expiry = parseISO8601(lease["expiresAt"].get<std::string>());
    ASSERT_TRUE(expiry);
    EXPECT_GE(*expiry, before + std::chrono::hours{24});
    EXPECT_LE(*expiry, after + std::chrono::hours{24});
    stop(tool);
    EXPECT_EQ(json::parse(readText(leases_)), saved);
    EXPECT_EQ(folder_.names(), (std::vector<std::string>{"leases.json"}));
}

TEST_F(RunTest, DoesNotSaveAnOfferAlone) {
    ToolProcess tool(arguments());
    tool.linesThrough("START");
    EXPECT_EQ(client_.ask(message(DHCPMessageType::discover)).messageType(), DHCPMessageType::offer);
    tool.linesThrough("TX OFFER");
    EXPECT_FALSE(std::filesystem::exists(leases_));
    stop(tool);
    EXPECT_EQ(json::parse(readText(leases_))["leases"][0]["state"], "offered") << "stopping saves the table as it is";
}

TEST_F(RunTest, KeepsLeasesFromOneRunToTheNext) {
    {
        ToolProcess tool(arguments());
        tool.linesThrough("START");
        bind(1);
        bind(2);
        stop(tool);
    }
    ToolProcess tool(arguments());
    EXPECT_EQ(withoutTime(tool.line().value_or("")), startLine);
    EXPECT_EQ(withoutTime(tool.line().value_or("")), "LEASE        bound 192.168.0.100 02:00:00:00:00:01");
    EXPECT_EQ(withoutTime(tool.line().value_or("")), "LEASE        bound 192.168.0.101 02:00:00:00:00:02");
    EXPECT_EQ(client_.ask(message(DHCPMessageType::discover, 2)).yiaddr, (IPv4Address{192, 168, 0, 101}));
}

TEST_F(RunTest, FindsEveryAcknowledgedLeaseAfterItWasKilled) {
    for (std::uint8_t device = 1; device <= 10; ++device) {
        ToolProcess tool(arguments());
        tool.linesThrough("START");
        bind(device);
        tool.signal(SIGKILL);
        EXPECT_EQ(tool.wait(), 128 + SIGKILL);
        const json leases = json::parse(readText(leases_))["leases"];
        ASSERT_EQ(leases.size(), device);
        EXPECT_EQ(leases.back()["mac"], deviceMAC(device).description());
        EXPECT_EQ(leases.back()["state"], "bound");
    }
}

TEST_F(RunTest, RemovesAtItsStartWhatAKilledRunLeftBesideTheLeaseFile) {
    writeText(leases_, document("192.168.0.109"));
    writeText(folder_ / ".leases.json.tmp-6F1C2B0E-5D7A-4C1B-9E3F-0A1B2C3D4E5F", "{");
    writeText(folder_ / ".leases.json.tmp-mine", "another's");
    ToolProcess tool(arguments());
    EXPECT_EQ(withoutTime(tool.linesThrough("START").back()), startLine);
    EXPECT_EQ(folder_.names(), (std::vector<std::string>{".leases.json.tmp-mine", "leases.json"}));
}

TEST_F(RunTest, DropsALeaseThatLiesOutsideTheRange) {
    writeText(leases_, document("192.168.0.99"));
    ToolProcess tool(arguments());
    std::vector<std::string> lines = tool.linesThrough("START");
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(withoutTime(lines[0]),
              "INFO         dropped lease 192.168.0.99 for 02:00:00:00:00:09: outside the range");
    EXPECT_EQ(withoutTime(lines[1]), "LEASE        removed 02:00:00:00:00:09");
    EXPECT_EQ(withoutTime(lines[2]), startLine);
}

TEST_F(RunTest, MovesAsideALeaseFileThatItCanNotUse) {
    for (const std::string& text :
         {std::string("{ no json"), std::string(), std::string(R"({"version": 1})"),
          std::string(R"({"version": 2, "leases": [], "quarantine": []})"), std::string(100'000, '[')}) {
        SCOPED_TRACE(text.substr(0, 60));
        const TemporaryDirectory folder;
        const std::filesystem::path file = folder / "leases.json";
        writeText(file, text);
        ToolProcess tool(client_.serveArguments({"--leases", file.string()}));
        const std::vector<std::string> lines = tool.linesThrough("START");
        ASSERT_EQ(lines.size(), 2U);
        const std::vector<std::string> names = folder.names();
        ASSERT_EQ(names.size(), 1U);
        EXPECT_TRUE(std::regex_match(names[0], std::regex(R"(leases\.json\.corrupt-\d{8}-\d{6})"))) << names[0];
        EXPECT_EQ(readText(folder / names[0]), text);
        EXPECT_EQ(withoutTime(lines[0]), "NOTICE       The lease file could not be read and was moved to " + names[0] +
                                             ". Starting with no leases.");
        stop(tool);
        EXPECT_TRUE(std::filesystem::exists(file));
    }
}

TEST_F(RunTest, LeavesAloneALeaseFileThatItCanNotRead) {
    std::filesystem::create_directory(leases_);
    ToolProcess tool(arguments());
    const std::vector<std::string> lines = tool.linesThrough("START");
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_TRUE(
        std::regex_match(withoutTime(lines[0]),
                         std::regex(R"(NOTICE       Tarnwick can't read leases\.json \(.+\)\. Leases are kept in )"
                                    R"(memory only and the file is left untouched\.)")))
        << lines[0];
    bind(1);
    stop(tool);
    EXPECT_EQ(folder_.names(), (std::vector<std::string>{"leases.json"}));
    EXPECT_TRUE(std::filesystem::is_directory(leases_));
}

TEST_F(RunTest, TakesARelativePathForTheLeaseFile) {
    const std::filesystem::path relative = std::filesystem::relative(leases_);
    ToolProcess tool(client_.serveArguments({"--leases", relative.string()}));
    tool.linesThrough("START");
    bind(1);
    EXPECT_TRUE(std::filesystem::exists(leases_));
}

TEST_F(RunTest, ServesOnWhenLeasesCanNotBeSaved) {
    const std::filesystem::path file = folder_ / "file";
    writeText(file, "in the way");
    ToolProcess tool(client_.serveArguments({"--leases", (file / "leases.json").string()}));
    tool.linesThrough("START");
    bind(1);
    const std::vector<std::string> lines = tool.linesThrough("TX ACK");
    const std::string notice = withoutTime(lines.at(lines.size() - 2));
    EXPECT_TRUE(notice.starts_with("NOTICE       Leases could not be saved: ")) << notice;
    EXPECT_EQ(readText(file), "in the way");
}

TEST_F(RunTest, PrintsEachEventAsOneJSONObject) {
    ToolProcess tool(arguments({"--json"}));
    tool.linesThrough("START");
    const DHCPPacket discover = with(message(DHCPMessageType::discover), OptionCode::hostname, "a/\"b\"");
    client_.send(discover);
    std::vector<std::string> lines = tool.linesThrough("TX OFFER");
    const std::regex time(R"("time":"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ")");
    for (std::string& line : lines) {
        line = std::regex_replace(line, time, "TIME");
    }
    EXPECT_EQ(lines, (std::vector<std::string>{
                         R"({"event":"received","hostname":"a\/\"b\"","label":"RX DISCOVER","mac":"02:00:00:00:00:01",)"
                         R"("text":"02:00:00:00:00:01 host=a\/\"b\" vendor=- req=- xid=0x00000001 if=lo0",TIME,)"
                         R"("type":"DISCOVER","xid":"0x00000001"})",
                         R"({"event":"leaseChanged","ip":"192.168.0.100","label":"LEASE","mac":"02:00:00:00:00:01",)"
                         R"("state":"offered","text":"offered 192.168.0.100 02:00:00:00:00:01 host=a\/\"b\"",TIME})",
                         R"({"destination":"255.255.255.255:68","event":"sent","interface":"lo0","ip":"192.168.0.100",)"
                         R"("label":"TX OFFER","mac":"02:00:00:00:00:01",)"
                         R"("text":"192.168.0.100 -> 255.255.255.255:68 via lo0",TIME,"type":"OFFER"})",
                     }));
    tool.signal(SIGINT);
    const std::string stop = std::regex_replace(tool.line().value_or(""), time, "TIME");
    EXPECT_EQ(stop, R"({"event":"stopped","label":"STOP","text":"server stopped",TIME})");
    EXPECT_EQ(tool.wait(), 0);
}

TEST_F(RunTest, EndsInOrderWhenNobodyReadsItsOutput) {
    ToolProcess tool(arguments());
    tool.linesThrough("START");
    bind(1);
    tool.linesThrough("TX ACK");
    tool.closeOutput();
    client_.send(message(DHCPMessageType::decline)); // an event that nobody will read
    EXPECT_EQ(tool.wait(), 0);
    EXPECT_EQ(tool.errors(), "");
    EXPECT_EQ(json::parse(readText(leases_))["leases"][0]["state"], "bound");
    EXPECT_EQ(folder_.names(), (std::vector<std::string>{"leases.json"}));
}

TEST_F(RunTest, ReportsAFullOutputOnceAndServesOn) {
    if (!std::filesystem::exists("/dev/full")) {
        GTEST_SKIP() << "this system has no device that is always full";
    }
    ToolProcess tool({.arguments = arguments(), .outputFile = "/dev/full"});
    declineUntilSaved();
    bind(1);
    tool.signal(SIGINT);
    EXPECT_EQ(tool.wait(), 0);
    EXPECT_EQ(tool.errors(), "tarnwick: standard output: No space left on device\n");
}

TEST_F(RunTest, WritesNoEventIntoAFileWhenItHasNoOutput) {
    ToolProcess tool({.arguments = arguments(), .outputClosed = true});
    declineUntilSaved();
    bind(1);
    tool.signal(SIGINT);
    EXPECT_EQ(tool.wait(), 0);
    EXPECT_EQ(json::parse(readText(leases_))["leases"].size(), 1U);
}

} // namespace
} // namespace Tarnwick
