#include "DHCPCore/Config.hpp"
#include "DHCPCore/DHCPCore.hpp"
#include "DHCPCore/Error.hpp"
#include "Support/Printing.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace DHCPCore {
namespace {

ServerConfig goodConfig() {
    return {
        .serverIP = IPv4Address{192, 168, 0, 1},
        .prefixLength = 24,
        .rangeStart = IPv4Address{192, 168, 0, 100},
        .rangeEnd = IPv4Address{192, 168, 0, 200},
        .leaseSeconds = 86400,
        .router = std::nullopt,
        .dns = {},
    };
}

ServerConfig withPool(IPv4Address start, IPv4Address end) {
    ServerConfig config = goodConfig();
    config.rangeStart = start;
    config.rangeEnd = end;
    return config;
}

/// 10.0.0.1 on the smallest subnet that can be served, 10.0.0.0/30.
ServerConfig smallest(IPv4Address start, IPv4Address end) {
    ServerConfig config = withPool(start, end);
    config.serverIP = IPv4Address{10, 0, 0, 1};
    config.prefixLength = 30;
    return config;
}

std::vector<std::string> faults(const ServerConfig& config) {
    std::vector<std::string> texts;
    for (const ConfigError& error : config.validate()) {
        texts.push_back(error.description());
    }
    return texts;
}

using Texts = std::vector<std::string>;

constexpr const char* networkInRange = "Range can't include the subnet's network or broadcast address.";
constexpr const char* reversed = "Range start must not be after range end.";

TEST(ConfigTest, NamesTheVersion) { EXPECT_EQ(DHCPCoreInfo::version, "0.2.1"); }

TEST(ConfigValidationTest, AcceptsAGoodConfiguration) {
    EXPECT_EQ(faults(goodConfig()), Texts{});
    ServerConfig full = goodConfig();
    full.router = IPv4Address{192, 168, 0, 254};
    full.dns = {IPv4Address{1, 1, 1, 1}, IPv4Address{8, 8, 8, 8}, IPv4Address{9, 9, 9, 9}};
    EXPECT_EQ(faults(full), Texts{}) << "DNS servers may be anywhere";
}

TEST(ConfigValidationTest, AcceptsPrefixesFrom8To30) {
    ServerConfig wide = goodConfig();
    wide.prefixLength = 8;
    EXPECT_EQ(faults(wide), Texts{});
    EXPECT_EQ(faults(smallest(IPv4Address{10, 0, 0, 2}, IPv4Address{10, 0, 0, 2})), Texts{});
}

TEST(ConfigValidationTest, ReportsABadPrefixAlone) {
    for (const auto& [prefixLength, text] : std::vector<std::pair<int, std::string>>{
             {7, "Prefix /7 is not allowed. Use /8 to /30."},
             {31, "Prefix /31 is not allowed. Use /8 to /30."},
             {-1, "Prefix /-1 is not allowed. Use /8 to /30."},
             {std::numeric_limits<int>::max(), "Prefix /2147483647 is not allowed. Use /8 to /30."},
         }) {
        SCOPED_TRACE(prefixLength);
        const ServerConfig config{
            .serverIP = IPv4Address{192, 168, 0, 0},
            .prefixLength = prefixLength,
            .rangeStart = IPv4Address{10, 0, 0, 2},
            .rangeEnd = IPv4Address{10, 0, 0, 1},
            .leaseSeconds = 0,
            .router = IPv4Address{1, 1, 1, 1},
            .dns = std::vector<IPv4Address>(4),
        };
        EXPECT_EQ(config.validate(), (std::vector<ConfigError>{{ConfigError::PrefixOutOfBounds{prefixLength}}}));
        EXPECT_EQ(faults(config), Texts{text});
    }
}

TEST(ConfigValidationTest, RefusesTheNetworkAndTheBroadcastAddressAsServer) {
    for (const IPv4Address serverIP : {IPv4Address{192, 168, 0, 0}, IPv4Address{192, 168, 0, 255}}) {
        ServerConfig config = goodConfig();
        config.serverIP = serverIP;
        EXPECT_EQ(faults(config), Texts{"Server IP can't be the subnet's network or broadcast address."});
    }
}

TEST(ConfigValidationTest, RefusesAReversedPool) {
    EXPECT_EQ(faults(withPool(IPv4Address{192, 168, 0, 150}, IPv4Address{192, 168, 0, 149})), Texts{reversed});
    EXPECT_EQ(faults(withPool(IPv4Address{192, 168, 0, 150}, IPv4Address{192, 168, 0, 150})), Texts{});
}

TEST(ConfigValidationTest, LooksForNetworkAndBroadcastInAReversedPoolToo) {
    EXPECT_EQ(faults(withPool(IPv4Address{192, 168, 0, 255}, IPv4Address{192, 168, 0, 150})),
              (Texts{reversed, networkInRange}));
    EXPECT_EQ(faults(withPool(IPv4Address{192, 168, 0, 150}, IPv4Address{192, 168, 0, 0})),
              (Texts{reversed, networkInRange}))
        << "the server lies between the ends, but a reversed pool contains nothing";
}

TEST(ConfigValidationTest, RefusesNetworkAndBroadcastInThePool) {
    EXPECT_EQ(faults(withPool(IPv4Address{192, 168, 0, 200}, IPv4Address{192, 168, 0, 254})), Texts{});
    EXPECT_EQ(faults(withPool(IPv4Address{192, 168, 0, 200}, IPv4Address{192, 168, 0, 255})), Texts{networkInRange});
    EXPECT_EQ(faults(withPool(IPv4Address{192, 168, 0, 0}, IPv4Address{192, 168, 0, 0})), Texts{networkInRange});
    EXPECT_EQ(faults(smallest(IPv4Address{10, 0, 0, 2}, IPv4Address{10, 0, 0, 3})), Texts{networkInRange});
}

TEST(ConfigValidationTest, RefusesAPoolWithOneEndOutside) {
    const Texts outside{"Range must be inside 192.168.0.0/24."};
    EXPECT_EQ(faults(withPool(IPv4Address{192, 168, 0, 100}, IPv4Address{192, 168, 1, 0})), outside)
        << "and says nothing about the broadcast address";
    EXPECT_EQ(faults(withPool(IPv4Address{10, 0, 0, 1}, IPv4Address{10, 0, 0, 2})), outside);
    ServerConfig config = withPool(IPv4Address{192, 167, 255, 255}, IPv4Address{192, 168, 0, 200});
    EXPECT_EQ(config.validate(),
              (std::vector<ConfigError>{
                  {ConfigError::RangeOutsideSubnet{{.address = IPv4Address{192, 168, 0, 1}, .prefixLength = 24}}},
                  {ConfigError::ServerIPInsideRange{}}}));
}

TEST(ConfigValidationTest, RefusesTheServerInThePool) {
    const Texts inside{"Server IP must not be inside the range."};
    EXPECT_EQ(faults(withPool(IPv4Address{192, 168, 0, 1}, IPv4Address{192, 168, 0, 9})), inside);
    EXPECT_EQ(faults(withPool(IPv4Address{192, 168, 0, 2}, IPv4Address{192, 168, 0, 9})), Texts{});
    ServerConfig config = goodConfig();
    config.serverIP = config.rangeEnd;
    EXPECT_EQ(faults(config), inside);
}

TEST(ConfigValidationTest, RefusesAGatewayOutside) {
    ServerConfig config = goodConfig();
    config.router = IPv4Address{192, 168, 0, 255};
    EXPECT_EQ(faults(config), Texts{});
    config.router = IPv4Address{192, 168, 1, 0};
    EXPECT_EQ(faults(config), Texts{"Gateway must be inside 192.168.0.0/24."});
}

TEST(ConfigValidationTest, BoundsTheLeaseTime) {
    for (const auto& [seconds, good] : std::vector<std::pair<std::uint32_t, bool>>{
             {0, false}, {59, false}, {60, true}, {2592000, true}, {2592001, false}}) {
        SCOPED_TRACE(seconds);
        ServerConfig config = goodConfig();
        config.leaseSeconds = seconds;
        EXPECT_EQ(faults(config), good ? Texts{} : Texts{"Lease time must be between 1 minute and 30 days."});
    }
}

TEST(ConfigValidationTest, AllowsThreeDNSServers) {
    ServerConfig config = goodConfig();
    config.dns.resize(3);
    EXPECT_EQ(faults(config), Texts{});
    config.dns.resize(4);
    EXPECT_EQ(faults(config), Texts{"Use at most 3 DNS servers."});
}

TEST(ConfigValidationTest, ReportsEveryFaultInAFixedOrder) {
    const ServerConfig config{
        .serverIP = IPv4Address{10, 0, 0, 0},
        .prefixLength = 24,
        .rangeStart = IPv4Address{10, 0, 0, 20},
        .rangeEnd = IPv4Address{9, 0, 0, 10},
        .leaseSeconds = 59,
        .router = IPv4Address{10, 0, 1, 1},
        .dns = std::vector<IPv4Address>(4),
    };
    EXPECT_EQ(faults(config),
              (Texts{"Server IP can't be the subnet's network or broadcast address.", reversed,
                     "Range must be inside 10.0.0.0/24.", "Gateway must be inside 10.0.0.0/24.",
                     "Lease time must be between 1 minute and 30 days.", "Use at most 3 DNS servers."}));
}

TEST(ConfigValidationTest, PutsAServerInThePoolBehindThePoolsOwnFaults) {
    ServerConfig config = withPool(IPv4Address{192, 168, 0, 0}, IPv4Address{192, 168, 0, 255});
    config.router = IPv4Address{10, 0, 0, 1};
    EXPECT_EQ(faults(config), (Texts{networkInRange, "Server IP must not be inside the range.",
                                     "Gateway must be inside 192.168.0.0/24."}));
}

TEST(ConfigDerivedTest, ClampsThePrefix) {
    struct Row {
        int prefixLength;
        std::string_view subnet;
        std::string_view mask;
        std::string_view broadcast;
    };
    for (const Row& row : {
             Row{-5, "0.0.0.0/0", "0.0.0.0", "255.255.255.255"},
             Row{0, "0.0.0.0/0", "0.0.0.0", "255.255.255.255"},
             Row{1, "128.0.0.0/1", "128.0.0.0", "255.255.255.255"},
             Row{24, "192.168.0.0/24", "255.255.255.0", "192.168.0.255"},
             Row{32, "192.168.0.1/32", "255.255.255.255", "192.168.0.1"},
             Row{33, "192.168.0.1/32", "255.255.255.255", "192.168.0.1"},
         }) {
        SCOPED_TRACE(row.prefixLength);
        ServerConfig config = goodConfig();
        config.prefixLength = row.prefixLength;
        EXPECT_EQ(config.subnet().description(), row.subnet);
        EXPECT_EQ(config.subnet().address, config.serverIP);
        EXPECT_EQ(config.mask().description(), row.mask);
        EXPECT_EQ(config.broadcastAddress().description(), row.broadcast);
    }
}

TEST(ConfigDerivedTest, RoundsTheTimersDownWithoutOverflow) {
    struct Row {
        std::uint32_t lease;
        std::uint32_t renewal;
        std::uint32_t rebinding;
    };
    for (const Row& row :
         {Row{86400, 43200, 75600}, Row{61, 30, 53}, Row{0, 0, 0}, Row{4294967295, 2147483647, 3758096383}}) {
        SCOPED_TRACE(row.lease);
        ServerConfig config = goodConfig();
        config.leaseSeconds = row.lease;
        EXPECT_EQ(config.renewalSeconds(), row.renewal);
        EXPECT_EQ(config.rebindingSeconds(), row.rebinding);
    }
}

TEST(ConfigDerivedTest, SortsTheRangeButCountsItAsItStands) {
    const IPv4Address low{192, 168, 0, 10};
    const IPv4Address high{192, 168, 0, 20};
    EXPECT_EQ(withPool(low, high).range(), (AddressRange{.lower = low, .upper = high}));
    EXPECT_EQ(withPool(high, low).range(), (AddressRange{.lower = low, .upper = high}));
    EXPECT_EQ(withPool(low, high).rangeCount(), 11);
    EXPECT_EQ(withPool(low, low).rangeCount(), 1);
    EXPECT_EQ(withPool(high, low).rangeCount(), 0);
    EXPECT_EQ(withPool(IPv4Address::zero, IPv4Address::broadcast).rangeCount(), 4294967296);
}

TEST(ConfigDerivedTest, ContainsBothEndsOfThePool) {
    const ServerConfig config = withPool(IPv4Address{192, 168, 0, 10}, IPv4Address{192, 168, 0, 20});
    EXPECT_FALSE(config.inRange(IPv4Address{192, 168, 0, 9}));
    EXPECT_TRUE(config.inRange(IPv4Address{192, 168, 0, 10}));
    EXPECT_TRUE(config.inRange(IPv4Address{192, 168, 0, 20}));
    EXPECT_FALSE(config.inRange(IPv4Address{192, 168, 0, 21}));
    EXPECT_FALSE(withPool(config.rangeEnd, config.rangeStart).inRange(IPv4Address{192, 168, 0, 15}));
}

constexpr const char* fullJSON = R"({"dns":["1.1.1.1","8.8.8.8"],"leaseSeconds":3600,"prefixLength":24,)"
                                 R"("rangeEnd":"192.168.0.200","rangeStart":"192.168.0.100",)"
                                 R"("router":"192.168.0.254","serverIP":"192.168.0.1"})";

ServerConfig fullConfig() {
    ServerConfig config = goodConfig();
    config.leaseSeconds = 3600;
    config.router = IPv4Address{192, 168, 0, 254};
    config.dns = {IPv4Address{1, 1, 1, 1}, IPv4Address{8, 8, 8, 8}};
    return config;
}

/// The full document with one key's value replaced.
nlohmann::json documentWith(const char* key, std::string_view value) {
    auto document = nlohmann::json::parse(fullJSON);
    document[key] = nlohmann::json::parse(value);
    return document;
}

TEST(ConfigJSONTest, WritesEveryField) { EXPECT_EQ(nlohmann::json(fullConfig()).dump(), fullJSON); }

TEST(ConfigJSONTest, ReadsEveryField) { EXPECT_EQ(nlohmann::json::parse(fullJSON).get<ServerConfig>(), fullConfig()); }

TEST(ConfigJSONTest, LeavesAnAbsentRouterOut) {
    const nlohmann::json json = goodConfig();
    EXPECT_FALSE(json.contains("router"));
    EXPECT_EQ(json.at("dns"), nlohmann::json::array());
    EXPECT_EQ(json.get<ServerConfig>(), goodConfig());
}

TEST(ConfigJSONTest, ReadsANullRouterAsAbsent) {
    EXPECT_EQ(documentWith("router", "null").get<ServerConfig>().router, std::nullopt);
}

TEST(ConfigJSONTest, NeedsEveryOtherKey) {
    for (const char* key : {"serverIP", "prefixLength", "rangeStart", "rangeEnd", "leaseSeconds", "dns"}) {
        SCOPED_TRACE(key);
        auto document = nlohmann::json::parse(fullJSON);
        document.erase(key);
        EXPECT_THROW(static_cast<void>(document.get<ServerConfig>()), nlohmann::json::out_of_range);
    }
}

TEST(ConfigJSONTest, RefusesValuesOfAnotherType) {
    for (const char* key : {"serverIP", "rangeStart", "rangeEnd", "router", "dns"}) {
        for (const char* value : {"7", "true", "{}", R"({"0":"1.1.1.1"})", "[7]"}) {
            SCOPED_TRACE(std::string(key) + ": " + value);
            EXPECT_THROW(static_cast<void>(documentWith(key, value).get<ServerConfig>()), nlohmann::json::type_error);
        }
    }
    for (const char* document : {"[]", "null", "7", "\"text\""}) {
        SCOPED_TRACE(document);
        EXPECT_THROW(static_cast<void>(nlohmann::json::parse(document).get<ServerConfig>()),
                     nlohmann::json::type_error);
    }
}

TEST(ConfigJSONTest, RefusesNumbersThatDoNotFitTheirField) {
    struct Row {
        const char* key;
        const char* value;
        const char* text;
    };
    for (const Row& row : {
             Row{"leaseSeconds", "-1", "Not a lease time: -1"},
             Row{"leaseSeconds", "4294967296", "Not a lease time: 4294967296"},
             Row{"leaseSeconds", "18446744073709551616", "Not a lease time: 1.8446744073709552e+19"},
             Row{"leaseSeconds", "3600.0", "Not a lease time: 3600.0"},
             Row{"leaseSeconds", "\"3600\"", "Not a lease time: \"3600\""},
             Row{"leaseSeconds", "true", "Not a lease time: true"},
             Row{"prefixLength", "2147483648", "Not a prefix length: 2147483648"},
             Row{"prefixLength", "-2147483649", "Not a prefix length: -2147483649"},
             Row{"prefixLength", "1e30", "Not a prefix length: 1e+30"},
             Row{"prefixLength", "null", "Not a prefix length: null"},
         }) {
        SCOPED_TRACE(row.text);
        try {
            static_cast<void>(documentWith(row.key, row.value).get<ServerConfig>());
            ADD_FAILURE() << "decoded";
        } catch (const DecodingError& error) {
            EXPECT_EQ(error.description(), row.text);
        }
    }
}

TEST(ConfigJSONTest, ReadsNumbersAtTheBoundsOfTheirField) {
    EXPECT_EQ(documentWith("leaseSeconds", "4294967295").get<ServerConfig>().leaseSeconds, 4294967295U);
    EXPECT_EQ(documentWith("leaseSeconds", "0").get<ServerConfig>().leaseSeconds, 0U);
    EXPECT_EQ(documentWith("prefixLength", "-2147483648").get<ServerConfig>().prefixLength,
              std::numeric_limits<int>::min());
}

TEST(ConfigJSONTest, NamesAnAddressThatDoesNotDecode) {
    try {
        static_cast<void>(documentWith("rangeEnd", R"("192.168.0")").get<ServerConfig>());
        ADD_FAILURE() << "decoded";
    } catch (const DecodingError& error) {
        EXPECT_EQ(error.description(), "Not an IPv4 address: 192.168.0");
    }
}

TEST(DurationTest, ReadsSecondsMinutesHoursAndDays) {
    for (const auto& [text, seconds] : std::vector<std::pair<std::string_view, std::uint32_t>>{
             {"90s", 90},
             {"15m", 900},
             {"24h", 86400},
             {"7d", 604800},
             {"3600", 3600},
             {"0s", 0},
             {"0", 0},
             {"007m", 420},
             {"4294967295", 4294967295},
             {"4294967295s", 4294967295},
             {"71582788m", 4294967280},
             {"1193046h", 4294965600},
             {"49710d", 4294944000},
             {"00000000000000000000000000001", 1},
         }) {
        SCOPED_TRACE(text);
        EXPECT_EQ(parseDuration(text), seconds);
    }
}

TEST(DurationTest, RefusesOtherText) {
    for (const std::string_view text : {"", "s", "m", "h", "d", "24H", "7D", "1.5h", "1h30m", "-5m", "+5m", "-0", "5 m",
                                        " 5m", "5m ", "5ms", "0x10", "1w", "٣m"}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(parseDuration(text), std::nullopt);
    }
}

TEST(DurationTest, RefusesMoreSecondsThan32BitsHold) {
    for (const std::string_view text : {"4294967296", "71582789m", "1193047h", "49711d", "50000d",
                                        "18446744073709551615d", "18446744073709551616", "307445734561825861m"}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(parseDuration(text), std::nullopt);
    }
}

TEST(DurationTest, ShowsAtMostTwoUnits) {
    for (const auto& [seconds, text] : std::vector<std::pair<std::uint32_t, std::string_view>>{
             {0, "0 s"},
             {1, "1 s"},
             {59, "59 s"},
             {60, "1 m"},
             {90, "1 m 30 s"},
             {3599, "59 m 59 s"},
             {3600, "1 h"},
             {3601, "1 h 1 s"},
             {3660, "1 h 1 m"},
             {3661, "1 h 1 m"}, // the seconds are dropped
             {86400, "24 h"},   // one day is not shown in days
             {90000, "25 h"},
             {172799, "47 h 59 m"},
             {172800, "2 d"},
             {172801, "48 h 1 s"},
             {604800, "7 d"},
             {2592000, "30 d"},
             {4294967295, "1193046 h 28 m"},
         }) {
        SCOPED_TRACE(seconds);
        EXPECT_EQ(formatDuration(seconds), text);
    }
}

} // namespace
} // namespace DHCPCore
