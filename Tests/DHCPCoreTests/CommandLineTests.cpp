#include "Support/Printing.hpp"
#include "tarnwick/CommandLine.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Tarnwick {
namespace {

using DHCPCore::IPv4Address;
using Arguments = std::vector<std::string>;

/// What the arguments must give: the defaults in loopback mode, changed by `change`.
ServeOptions loopbackOptions(const std::function<void(ServeOptions&)>& change) {
    ServeOptions options;
    options.loopback = true;
    change(options);
    return options;
}

/// The defaults for serving on that card.
ServeOptions onCard(const std::string& name) {
    ServeOptions options;
    options.interface = name;
    return options;
}

ServeOptions parseLoopback(Arguments arguments) {
    arguments.insert(arguments.begin(), "--test-loopback");
    return parseServe(arguments);
}

/// The text of the usage error that the arguments cause.
std::string usageFault(const Arguments& arguments) {
    try {
        static_cast<void>(parseServe(arguments));
    } catch (const CLIError& error) {
        EXPECT_TRUE(error.isUsage);
        return error.description();
    }
    return "parsed without a fault";
}

TEST(CommandLineTest, ShowsItsUsage) {
    EXPECT_EQ(usageText, R"(usage:
  tarnwick list
  tarnwick serve --iface <bsd> [--server 192.168.0.1/24] [--range 192.168.0.100-192.168.0.200]
                  [--lease 24h] [--router <ip>] [--dns <ip>[,<ip>]] [--leases <path>] [--json]
  tarnwick serve --test-loopback [--port 6767] [--client-port 6868] [--leases <path>] [--json]
  tarnwick --version)");
}

TEST(CommandLineTest, StartsFromTheDefaults) {
    const ServeOptions options = parseServe(Arguments{"--test-loopback"});
    EXPECT_TRUE(options.loopback);
    EXPECT_EQ(options.interface, std::nullopt);
    EXPECT_EQ(options.config, (DHCPCore::ServerConfig{
                                  .serverIP = IPv4Address{192, 168, 0, 1},
                                  .prefixLength = 24,
                                  .rangeStart = IPv4Address{192, 168, 0, 100},
                                  .rangeEnd = IPv4Address{192, 168, 0, 200},
                                  .leaseSeconds = 86400,
                                  .router = std::nullopt,
                                  .dns = {},
                              }));
    EXPECT_EQ(options.leasePath, std::nullopt);
    EXPECT_FALSE(options.json);
    EXPECT_EQ(options.port, 6767);
    EXPECT_EQ(options.clientPort, 6868);
}

TEST(CommandLineTest, TakesEveryOptionInAnyOrder) {
    const ServeOptions options = parseServe(Arguments{"--json",
                                                      "--client-port",
                                                      "1068",
                                                      "--dns",
                                                      "1.1.1.1",
                                                      "--iface",
                                                      "en5",
                                                      "--range",
                                                      "10.0.0.10-10.0.0.20",
                                                      "--lease",
                                                      "15m",
                                                      "--leases",
                                                      "/tmp/l.json",
                                                      "--router",
                                                      "10.0.0.254",
                                                      "--port",
                                                      "1067",
                                                      "--server",
                                                      "10.0.0.1/16",
                                                      "--test-loopback"});
    ServeOptions expected = onCard("en5");
    expected.config.serverIP = IPv4Address{10, 0, 0, 1};
    expected.config.prefixLength = 16;
    expected.config.rangeStart = IPv4Address{10, 0, 0, 10};
    expected.config.rangeEnd = IPv4Address{10, 0, 0, 20};
    expected.config.leaseSeconds = 900;
    expected.config.router = IPv4Address{10, 0, 0, 254};
    expected.config.dns = {IPv4Address{1, 1, 1, 1}};
    expected.leasePath = "/tmp/l.json";
    expected.json = true;
    expected.loopback = true;
    expected.port = 1067;
    expected.clientPort = 1068;
    EXPECT_EQ(options, expected);
}

TEST(CommandLineTest, NeedsACardOrLoopback) {
    const std::string text = "serve needs --iface <bsd> or --test-loopback";
    EXPECT_EQ(usageFault({}), text);
    EXPECT_EQ(usageFault({"--json"}), text);
    EXPECT_EQ(usageFault({"--server", "10.0.0.1/24", "--port", "67"}), text);
}

TEST(CommandLineTest, TakesACardAndLoopbackTogether) {
    EXPECT_EQ(parseLoopback({"--iface", "en5"}), loopbackOptions([](auto& options) { options.interface = "en5"; }));
}

TEST(CommandLineTest, TakesTheNextArgumentVerbatim) {
    EXPECT_EQ(parseServe(Arguments{"--iface", "--json"}), onCard("--json"));
    EXPECT_EQ(parseServe(Arguments{"--iface", ""}), onCard(""));
    EXPECT_EQ(parseLoopback({"--leases", ""}), loopbackOptions([](auto& options) { options.leasePath = ""; }));
}

TEST(CommandLineTest, LetsTheLaterOfTwoWin) {
    EXPECT_EQ(parseLoopback({"--dns", "1.1.1.1,8.8.8.8", "--dns", "9.9.9.9", "--port", "1", "--port", "2"}),
              loopbackOptions([](auto& options) {
                  options.config.dns = {IPv4Address{9, 9, 9, 9}};
                  options.port = 2;
              }));
}

TEST(CommandLineTest, KeepsTheHostBitsOfTheServerAndLeavesThePool) {
    const ServeOptions options = parseServe(Arguments{"--iface", "en5", "--server", "10.0.0.77/24"});
    ServeOptions expected = onCard("en5");
    expected.config.serverIP = IPv4Address{10, 0, 0, 77};
    EXPECT_EQ(options, expected);
    EXPECT_EQ(options.config.validate().at(0).description(), "Range must be inside 10.0.0.0/24.");
}

TEST(CommandLineTest, LeavesAReversedPoolToValidation) {
    const ServeOptions options = parseLoopback({"--range", "192.168.0.150-192.168.0.120"});
    EXPECT_EQ(options, loopbackOptions([](auto& expected) {
                  expected.config.rangeStart = IPv4Address{192, 168, 0, 150};
                  expected.config.rangeEnd = IPv4Address{192, 168, 0, 120};
              }));
    EXPECT_EQ(options.config.validate().at(0).description(), "Range start must not be after range end.");
}

TEST(CommandLineTest, DropsEmptyPiecesOfARange) {
    for (const char* range : {"192.168.0.50--192.168.0.60", "-192.168.0.50-192.168.0.60-"}) {
        EXPECT_EQ(parseLoopback({"--range", range}), loopbackOptions([](auto& options) {
                      options.config.rangeStart = IPv4Address{192, 168, 0, 50};
                      options.config.rangeEnd = IPv4Address{192, 168, 0, 60};
                  }));
    }
}

TEST(CommandLineTest, ReadsAListOfDNSServers) {
    const IPv4Address one{1, 1, 1, 1};
    const IPv4Address eight{8, 8, 8, 8};
    for (const auto& [text, dns] : std::vector<std::pair<std::string, std::vector<IPv4Address>>>{
             {"1.1.1.1", {one}},
             {"1.1.1.1,,8.8.8.8", {one, eight}},
             {"1.1.1.1,8.8.8.8,9.9.9.9,8.8.4.4", {one, eight, IPv4Address{9, 9, 9, 9}, IPv4Address{8, 8, 4, 4}}},
             {"", {}},
             {",,", {}},
         }) {
        SCOPED_TRACE(text);
        EXPECT_EQ(parseLoopback({"--dns", "4.4.4.4", "--dns", text}),
                  loopbackOptions([&servers = dns](auto& options) { options.config.dns = servers; }));
    }
}

TEST(CommandLineTest, LeavesTheBoundsOfTheLeaseToValidation) {
    const ServeOptions options = parseLoopback({"--lease", "10s"});
    EXPECT_EQ(options, loopbackOptions([](auto& expected) { expected.config.leaseSeconds = 10; }));
    EXPECT_EQ(options.config.validate().at(0).description(), "Lease time must be between 1 minute and 30 days.");
}

TEST(CommandLineTest, ReadsPortNumbers) {
    for (const auto& [text, port] : std::vector<std::pair<std::string, std::uint16_t>>{
             {"0", 0}, {"-0", 0}, {"+68", 68}, {"0068", 68}, {"65535", 65535}}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(parseLoopback({"--port", text}), loopbackOptions([&number = port](auto& o) { o.port = number; }));
        EXPECT_EQ(parseLoopback({"--client-port", text}),
                  loopbackOptions([&number = port](auto& o) { o.clientPort = number; }));
    }
}

TEST(CommandLineTest, RefusesWhatIsNoPortNumber) {
    for (const char* text : {"-1", "65536", "70000", "", "+", "-", "80a", " 80", "++80", "0x50", "6.7"}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(usageFault({"--test-loopback", "--port", text}), "--port must be a port number");
        EXPECT_EQ(usageFault({"--test-loopback", "--client-port", text}), "--client-port must be a port number");
    }
}

TEST(CommandLineTest, SaysWhatABadValueMustLookLike) {
    struct Row {
        const char* option;
        std::vector<const char*> values;
        const char* text;
    };
    for (const Row& row : {
             Row{"--server", {"", "192.168.0.1", "192.168.0.1/33", "x/24"}, "--server must look like 192.168.0.1/24"},
             Row{"--range",
                 {"", "192.168.0.100", "1.1.1.1-2.2.2.2-3.3.3.3", "1.1.1.1-x", "x-1.1.1.1", "1.1.1.1 - 2.2.2.2"},
                 "--range must look like 192.168.0.100-192.168.0.200"},
             Row{"--lease", {"", "24H", "1h30m", "-5m", "50000d"}, "--lease must look like 90s, 15m, 24h or 7d"},
             Row{"--router", {"", "x", "1.1.1.1/24"}, "--router must be an IPv4 address"},
             Row{"--dns",
                 {"1.1.1.1,x", "x", "1.1.1.1, 8.8.8.8", " "},
                 "--dns must be IPv4 addresses separated by commas"},
         }) {
        for (const char* value : row.values) {
            SCOPED_TRACE(std::string(row.option) + " " + value);
            EXPECT_EQ(usageFault({"--iface", "en5", row.option, value}), row.text);
        }
    }
}

TEST(CommandLineTest, SaysWhichOptionNeedsAValue) {
    for (const std::string option :
         {"--iface", "--server", "--range", "--lease", "--router", "--dns", "--leases", "--port", "--client-port"}) {
        EXPECT_EQ(usageFault({"--test-loopback", option}), option + " needs a value");
    }
}

TEST(CommandLineTest, RefusesUnknownOptions) {
    for (const std::string option :
         {"-x", "", "--JSON", "--json=true", "--jso", "en5", "-i", "--iface=en5", "--help"}) {
        EXPECT_EQ(usageFault({"--test-loopback", option}), "unknown option " + option);
    }
}

TEST(CommandLineTest, StopsAtTheFirstBadArgument) {
    EXPECT_EQ(usageFault({"-x", "--port", "70000"}), "unknown option -x");
    EXPECT_EQ(usageFault({"--port", "70000", "-x"}), "--port must be a port number");
}

TEST(CLIErrorTest, ComparesTextAndKind) {
    EXPECT_EQ(CLIError("text", true), CLIError("text", true));
    EXPECT_FALSE(CLIError("text", true) == CLIError("text", false));
    EXPECT_FALSE(CLIError("text", true) == CLIError("other", true));
}

} // namespace
} // namespace Tarnwick
