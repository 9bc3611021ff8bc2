// The example of a front end, built and run as a user would run it.
#include "DHCPCore/LeaseFile.hpp"
#include "Support/ChildProcess.hpp"
#include "TarnwickTests/LoopbackClient.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <regex>
#include <string>
#include <utility>
#include <vector>

namespace Tarnwick {
namespace {

using namespace DHCPCore;
using TestSupport::ChildProcess;
using Lines = std::vector<std::string>;

constexpr const char* usage =
    "usage: monitor [--port 6767] [--client-port 6868] [--leases <path>] [<field>=<text> ...]\n"
    "fields: serverIP prefix rangeStart rangeEnd lease router dns\n";

/// The example with ports of its own, and leases in its home folder.
class MonitorExampleTest : public testing::Test {
  protected:
    [[nodiscard]] ChildProcess::Setting setting(const Lines& further) const {
        Lines words{MONITOR_EXAMPLE, "--port", std::to_string(client.serverPort()), "--client-port",
                    std::to_string(client.clientPort())};
        words.insert(words.end(), further.begin(), further.end());
        return {.words = std::move(words)};
    }

    /// The lines from the settings up to the one with the text: the cards before them are those of this host.
    static Lines fromSettings(ChildProcess& example, const std::string& text) {
        example.linesThrough("settings:");
        return example.linesThrough(text);
    }

    /// The last of these pictures of the server: what follows the last title.
    static Lines lastPicture(const Lines& lines) {
        Lines picture;
        for (const std::string& line : lines) {
            if (line == "server:") {
                picture.clear();
            }
            picture.push_back(std::regex_replace(line, std::regex(R"(\d\d:\d\d:\d\d\.\d\d\d)"), "TIME"));
        }
        return picture;
    }

    [[nodiscard]] DHCPPacket ask(DHCPMessageType type, IPv4Address requested) const {
        DHCPPacket packet = with(message(type), OptionCode::serverID, IPv4Address{192, 168, 0, 1});
        return client.ask(with(packet, OptionCode::requestedIP, requested));
    }

    LoopbackClient client;
};

TEST_F(MonitorExampleTest, ShowsTheErrorsOfTheTextsAndDoesNotServe) {
    ChildProcess example(setting({"serverIP=192.168.0", "prefix=x", "rangeEnd=", "lease=h", "router=none", "dns=a,b"}));
    EXPECT_EQ(
        fromSettings(example, "stopped"),
        (Lines{"  server: Server IP must look like 192.168.0.1.", "  server: Prefix must be a number such as 24.",
               "  range: Range must be two IPv4 addresses.", "  lease: Lease time must look like 90m, 24h or 7d.",
               "  gateway: Gateway must be an IPv4 address, or empty for off.",
               "  dns: DNS must be IPv4 addresses separated by commas, or empty for off.", "server:", "  stopped"}));
    example.signal(SIGINT);
    EXPECT_EQ(example.rest(), "");
    EXPECT_EQ(example.wait(), 0);
    EXPECT_EQ(example.errors(), "");
}

TEST_F(MonitorExampleTest, ShowsTheFaultsOfAConfigurationThatCanBeRead) {
    ChildProcess example(setting({"prefix=31"}));
    EXPECT_EQ(fromSettings(example, "stopped"),
              (Lines{"  server: Prefix /31 is not allowed. Use /8 to /30.", "server:", "  stopped"}));
}

TEST_F(MonitorExampleTest, FollowsALiveServer) {
    ChildProcess example(setting({"rangeEnd=192.168.0.149", "lease= 90m "}));
    EXPECT_EQ(fromSettings(example, "serving"), (Lines{"  50 addresses, lease 1 h 30 m", "server:", "  serving lo0"}));
    const DHCPPacket offer = client.ask(message(DHCPMessageType::discover));
    const DHCPPacket ack = ask(DHCPMessageType::request, offer.yiaddr);
    EXPECT_EQ(ack.messageType(), DHCPMessageType::ack);
    Lines lines = example.linesThrough("device found");
    lines.push_back(example.line().value_or("nothing"));
    EXPECT_EQ(lastPicture(lines), (Lines{"server:", "  serving lo0", "  last packet TIME",
                                         "  device found: 192.168.0.100 02:00:00:00:00:01 bound",
                                         "  lease 192.168.0.100 02:00:00:00:00:01 bound"}));
    example.signal(SIGINT);
    lines = example.linesThrough("stopped");
    std::ignore = example.line();
    EXPECT_EQ(example.line(), "  device found: 192.168.0.100 02:00:00:00:00:01 bound");
    EXPECT_EQ(example.rest(), "  lease 192.168.0.100 02:00:00:00:00:01 bound\n");
    EXPECT_EQ(example.wait(), 0);
    EXPECT_EQ(example.errors(), "");
}

TEST_F(MonitorExampleTest, ShowsThatTheLeaseFileWasSetAside) {
    const TestSupport::TemporaryDirectory directory;
    TestSupport::writeText(directory / "leases.json", "not JSON");
    ChildProcess example(setting({"--leases", (directory / "leases.json").string()}));
    const Lines lines = fromSettings(example, "- ");
    const std::string expected = "  - The lease file could not be read and was moved to "
                                 "leases\\.json\\.corrupt-[0-9]{8}-[0-9]{6}\\. Starting with no leases\\.";
    EXPECT_TRUE(std::regex_match(lines.back(), std::regex(expected))) << lines.back();
    example.signal(SIGTERM);
    example.linesThrough("stopped");
    EXPECT_EQ(example.rest(), lines.back() + "\n") << "it outlives the run";
    EXPECT_EQ(example.wait(), 0);
}

TEST_F(MonitorExampleTest, TellsThatItCannotHaveThePort) {
    const LoopbackClient other;
    ChildProcess example({.words = {MONITOR_EXAMPLE, "--port", std::to_string(other.clientPort()), "--client-port",
                                    std::to_string(client.clientPort())}});
    const std::string port = std::to_string(other.clientPort());
    EXPECT_EQ(fromSettings(example, "failed"),
              (Lines{"  101 addresses, lease 24 h", "server:", "  stopped",
                     "  ! bind 127.0.0.1:" + port + " failed: Address already in use (errno " +
                         std::to_string(EADDRINUSE) + ")"}));
    example.signal(SIGINT);
    EXPECT_EQ(example.rest(), "");
    EXPECT_EQ(example.wait(), 0);
}

TEST_F(MonitorExampleTest, EndsWhenNobodyReadsItsOutput) {
    ChildProcess example(setting({}));
    example.linesThrough("serving");
    example.closeOutput();
    client.send(message(DHCPMessageType::discover));
    EXPECT_EQ(example.wait(), 0);
}

TEST_F(MonitorExampleTest, ExplainsItselfWhenItIsStartedWrongly) {
    for (const Lines& words :
         {Lines{"name=x"}, {"--port"}, {"--port", "x"}, {"--port", "65536"}, {"--x", "1"}, {"x"}}) {
        SCOPED_TRACE(words.front());
        Lines all{MONITOR_EXAMPLE};
        all.insert(all.end(), words.begin(), words.end());
        ChildProcess example({.words = std::move(all)});
        EXPECT_EQ(example.rest(), "");
        EXPECT_EQ(example.wait(), 2);
        EXPECT_EQ(example.errors(), usage);
    }
}

} // namespace
} // namespace Tarnwick
