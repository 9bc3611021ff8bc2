// The commands that end by themselves: what they print, and with which status they exit.
#include "TarnwickTests/LoopbackClient.hpp"
#include "TarnwickTests/ToolProcess.hpp"

#include <gtest/gtest.h>

#include <regex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace Tarnwick {
namespace {

const std::string usage = "usage:\n"
                          "  tarnwick list\n"
                          "  tarnwick serve --iface <bsd> [--server 192.168.0.1/24] [--range "
                          "192.168.0.100-192.168.0.200]\n"
                          "                  [--lease 24h] [--router <ip>] [--dns <ip>[,<ip>]] [--leases <path>] "
                          "[--json]\n"
                          "  tarnwick serve --test-loopback [--port 6767] [--client-port 6868] [--leases <path>] "
                          "[--json]\n"
                          "  tarnwick --version\n";

TEST(CommandTest, PrintsTheUsageWithoutArguments) {
    EXPECT_EQ(runTool({}), (Finished{.status = 0, .output = usage, .errors = ""}));
}

TEST(CommandTest, PrintsTheUsageOnStandardOutputForAnUnknownCommand) {
    for (const std::string command : {"help", "--help", "-h", "List", "", "serve2"}) {
        SCOPED_TRACE(command);
        EXPECT_EQ(runTool({command}), (Finished{.status = 2, .output = usage, .errors = ""}));
    }
}

TEST(CommandTest, PrintsTheVersionWhateverFollows) {
    EXPECT_EQ(runTool({"--version"}), (Finished{.status = 0, .output = "tarnwick 0.2.1\n", .errors = ""}));
    EXPECT_EQ(runTool({"--version", "list"}), (Finished{.status = 0, .output = "tarnwick 0.2.1\n", .errors = ""}));
}

TEST(CommandTest, ListsTheWiredCardsOrSaysThatThereAreNone) {
    const Finished list = runTool({"list", "whatever"});
    EXPECT_EQ(list.status, 0);
    EXPECT_EQ(list.errors, "");
    const std::regex card(R"(en.{4}  service: .+  (-|([0-9a-f]{2}:){5}[0-9a-f]{2})  (● link up .*|○ no link)  .+)");
    std::istringstream lines(list.output);
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        EXPECT_TRUE(line == "No wired network cards found." || std::regex_match(line, card)) << line;
    }
    EXPECT_GE(count, 1);
}

TEST(CommandTest, ExplainsEachUsageErrorAndShowsTheUsage) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
        {{"serve"}, "serve needs --iface <bsd> or --test-loopback"},
        {{"serve", "--json"}, "serve needs --iface <bsd> or --test-loopback"},
        {{"serve", "--iface"}, "--iface needs a value"},
        {{"serve", "-x"}, "unknown option -x"},
        {{"serve", "--iface=en5"}, "unknown option --iface=en5"},
        {{"serve", "--test-loopback", "--server", "192.168.0.1"}, "--server must look like 192.168.0.1/24"},
        {{"serve", "--test-loopback", "--range", "192.168.0.100"},
         "--range must look like 192.168.0.100-192.168.0.200"},
        {{"serve", "--test-loopback", "--lease", "24H"}, "--lease must look like 90s, 15m, 24h or 7d"},
        {{"serve", "--test-loopback", "--router", "gateway"}, "--router must be an IPv4 address"},
        {{"serve", "--test-loopback", "--dns", "1.1.1.1,x"}, "--dns must be IPv4 addresses separated by commas"},
        {{"serve", "--test-loopback", "--port", "70000"}, "--port must be a port number"},
        {{"serve", "--test-loopback", "--client-port", "-1"}, "--client-port must be a port number"},
    };
    for (const auto& [arguments, text] : cases) {
        SCOPED_TRACE(text);
        EXPECT_EQ(runTool(arguments),
                  (Finished{.status = 2, .output = "", .errors = "tarnwick: " + text + "\n\n" + usage}));
    }
}

TEST(CommandTest, ReportsEveryFaultOfAConfigurationAtOnce) {
    EXPECT_EQ(runTool({"serve", "--test-loopback", "--server", "192.168.0.0/24", "--range",
                       "192.168.0.200-192.168.0.100", "--lease", "10s"}),
              (Finished{.status = 1,
                        .output = "",
                        .errors = "tarnwick: Server IP can't be the subnet's network or broadcast address.\n"
                                  "Range start must not be after range end.\n"
                                  "Lease time must be between 1 minute and 30 days.\n"}));
}

TEST(CommandTest, ReportsARangeThatTheServerAddressLeftBehind) {
    EXPECT_EQ(runTool({"serve", "--iface", "en5", "--server", "10.0.0.1/24"}),
              (Finished{.status = 1, .output = "", .errors = "tarnwick: Range must be inside 10.0.0.0/24.\n"}));
}

TEST(CommandTest, RefusesACardThatTheHostDoesNotHave) {
    EXPECT_EQ(
        runTool({"serve", "--iface", "en99"}),
        (Finished{.status = 1, .output = "", .errors = "tarnwick: no network card named en99; run `tarnwick list`\n"}));
}

TEST(CommandTest, ReportsAPortInUseAndLeavesTheLeaseFileAlone) {
    const LoopbackClient client;
    ToolProcess first(client.serveArguments());
    first.linesThrough("START");
    ToolProcess second(client.serveArguments());
    EXPECT_EQ(second.rest(), "");
    EXPECT_EQ(second.wait(), 1);
    const std::regex error("tarnwick: port " + std::to_string(client.serverPort()) + " is in use by .+\n");
    EXPECT_TRUE(std::regex_match(second.errors(), error)) << second.errors();
    EXPECT_FALSE(std::filesystem::exists(second.home() / ".local"));
}

} // namespace
} // namespace Tarnwick
