#include "DHCPCore/SettingsForm.hpp"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace DHCPCore {
namespace {

using Field = SettingsForm::Field;
using Errors = SettingsForm::Errors;

/// What the command line serves when it is told nothing.
ServerConfig defaults() {
    return {.serverIP = IPv4Address{192, 168, 0, 1},
            .prefixLength = 24,
            .rangeStart = IPv4Address{192, 168, 0, 100},
            .rangeEnd = IPv4Address{192, 168, 0, 200},
            .leaseSeconds = 86400,
            .router = std::nullopt,
            .dns = {}};
}

SettingsForm form() { return SettingsForm(defaults()); }

SettingsForm formWith(std::string SettingsForm::*field, std::string text) {
    SettingsForm changed = form();
    changed.*field = std::move(text);
    return changed;
}

SettingsForm formWithLease(std::string text) {
    SettingsForm changed = formWith(&SettingsForm::customLease, std::move(text));
    changed.leasePreset = LeasePreset::custom;
    return changed;
}

TEST(LeasePresetTest, HasItsNamesInDeclarationOrder) {
    EXPECT_EQ(allCases<LeasePreset>(), (std::array{LeasePreset::oneHour, LeasePreset::eightHours, LeasePreset::oneDay,
                                                   LeasePreset::sevenDays, LeasePreset::custom}));
    const std::vector<std::string_view> names{"oneHour", "eightHours", "oneDay", "sevenDays", "custom"};
    std::vector<std::string_view> found;
    for (const LeasePreset preset : allCases<LeasePreset>()) {
        found.push_back(rawValue(preset));
        EXPECT_EQ(fromRawValue<LeasePreset>(rawValue(preset)), preset);
    }
    EXPECT_EQ(found, names);
}

TEST(LeasePresetTest, HasALabelAndSeconds) {
    EXPECT_EQ(label(LeasePreset::oneHour), "1 h");
    EXPECT_EQ(label(LeasePreset::eightHours), "8 h");
    EXPECT_EQ(label(LeasePreset::oneDay), "24 h");
    EXPECT_EQ(label(LeasePreset::sevenDays), "7 d");
    EXPECT_EQ(label(LeasePreset::custom), "Custom");
    EXPECT_EQ(seconds(LeasePreset::oneHour), 3600U);
    EXPECT_EQ(seconds(LeasePreset::eightHours), 28800U);
    EXPECT_EQ(seconds(LeasePreset::oneDay), 86400U);
    EXPECT_EQ(seconds(LeasePreset::sevenDays), 604800U);
    EXPECT_EQ(seconds(LeasePreset::custom), std::nullopt);
}

TEST(SettingsFormTest, ShowsTheDefaultsAndGivesThemBack) {
    const SettingsForm shown = form();
    EXPECT_EQ(shown.serverIP, "192.168.0.1");
    EXPECT_EQ(shown.prefix, "24");
    EXPECT_EQ(shown.rangeStart, "192.168.0.100");
    EXPECT_EQ(shown.rangeEnd, "192.168.0.200");
    EXPECT_EQ(shown.leasePreset, LeasePreset::oneDay);
    EXPECT_EQ(shown.customLease, "");
    EXPECT_EQ(shown.router, "");
    EXPECT_EQ(shown.dns, "");
    EXPECT_EQ(shown.config(), defaults());
    EXPECT_EQ(shown.errors(), Errors{});
}

TEST(SettingsFormTest, ShowsGatewayAndDNSAndGivesThemBack) {
    ServerConfig config = defaults();
    config.router = IPv4Address{192, 168, 0, 254};
    config.dns = {IPv4Address{9, 9, 9, 9}, IPv4Address{1, 1, 1, 1}};
    const SettingsForm shown(config);
    EXPECT_EQ(shown.router, "192.168.0.254");
    EXPECT_EQ(shown.dns, "9.9.9.9, 1.1.1.1");
    EXPECT_EQ(shown.config(), config);
}

TEST(SettingsFormTest, ShowsALeaseTimeAsItsPreset) {
    for (const LeasePreset preset :
         {LeasePreset::oneHour, LeasePreset::eightHours, LeasePreset::oneDay, LeasePreset::sevenDays}) {
        ServerConfig config = defaults();
        config.leaseSeconds = seconds(preset).value();
        const SettingsForm shown(config);
        EXPECT_EQ(shown.leasePreset, preset);
        EXPECT_EQ(shown.customLease, "");
        EXPECT_EQ(shown.config(), config);
    }
}

TEST(SettingsFormTest, ShowsAnyOtherLeaseTimeInSeconds) {
    for (const std::uint32_t leaseSeconds : {5400U, 3599U, 3601U}) {
        ServerConfig config = defaults();
        config.leaseSeconds = leaseSeconds;
        const SettingsForm shown(config);
        EXPECT_EQ(shown.leasePreset, LeasePreset::custom);
        EXPECT_EQ(shown.customLease, std::to_string(leaseSeconds) + "s");
        EXPECT_EQ(shown.config(), config);
    }
}

TEST(SettingsFormTest, IsEqualOnlyInEveryField) {
    EXPECT_EQ(form(), form());
    for (const auto field :
         {&SettingsForm::serverIP, &SettingsForm::prefix, &SettingsForm::rangeStart, &SettingsForm::rangeEnd,
          &SettingsForm::customLease, &SettingsForm::router, &SettingsForm::dns}) {
        EXPECT_NE(formWith(field, "x"), form());
    }
    SettingsForm other = form();
    other.leasePreset = LeasePreset::oneHour;
    EXPECT_NE(other, form());
}

TEST(SettingsFormTest, IgnoresBlanksAroundEveryText) {
    SettingsForm typed;
    typed.serverIP = "  192.168.0.1\t";
    typed.prefix = " 24 ";
    typed.rangeStart = "\t192.168.0.100 ";
    typed.rangeEnd = " 192.168.0.200";
    typed.leasePreset = LeasePreset::custom;
    typed.customLease = " 24h\t";
    typed.router = " \t ";
    typed.dns = "  ";
    EXPECT_EQ(typed.config(), defaults());
    EXPECT_EQ(typed.rangeCount(), 101);
}

TEST(SettingsFormTest, TakesSpacesAndTabsOnlyForBlanks) {
    EXPECT_EQ(formWith(&SettingsForm::serverIP, "192.168.0.1\n").errors(),
              (Errors{{Field::server, {"Server IP must look like 192.168.0.1."}}}));
}

TEST(SettingsFormTest, AsksForAServerAddress) {
    for (const std::string text : {"", "  ", "192.168.0", "192.168. 0.1", "192.168.0.256", "localhost"}) {
        SCOPED_TRACE(text);
        const SettingsForm typed = formWith(&SettingsForm::serverIP, text);
        EXPECT_EQ(typed.errors(), (Errors{{Field::server, {"Server IP must look like 192.168.0.1."}}}));
        EXPECT_EQ(typed.config(), std::nullopt);
    }
}

TEST(SettingsFormTest, AsksForANumberAsPrefix) {
    for (const std::string text : {"", "/24", "24.0", "x", "+", "2 4", "99999999999"}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(formWith(&SettingsForm::prefix, text).errors(),
                  (Errors{{Field::server, {"Prefix must be a number such as 24."}}}));
    }
}

TEST(SettingsFormTest, AllowsASignBeforeThePrefix) {
    EXPECT_EQ(formWith(&SettingsForm::prefix, "+24").config(), defaults());
    EXPECT_EQ(formWith(&SettingsForm::prefix, "-24").errors(),
              (Errors{{Field::server, {"Prefix /-24 is not allowed. Use /8 to /30."}}}));
}

TEST(SettingsFormTest, ReportsServerAndPrefixInThatOrder) {
    SettingsForm typed = formWith(&SettingsForm::serverIP, "x");
    typed.prefix = "y";
    EXPECT_EQ(
        typed.errors(),
        (Errors{{Field::server, {"Server IP must look like 192.168.0.1.", "Prefix must be a number such as 24."}}}));
}

TEST(SettingsFormTest, AsksOnceForTheTwoEndsOfTheRange) {
    const Errors expected{{Field::range, {"Range must be two IPv4 addresses."}}};
    EXPECT_EQ(formWith(&SettingsForm::rangeStart, "x").errors(), expected);
    EXPECT_EQ(formWith(&SettingsForm::rangeEnd, "").errors(), expected);
    SettingsForm both = formWith(&SettingsForm::rangeStart, "x");
    both.rangeEnd = "y";
    EXPECT_EQ(both.errors(), expected);
}

TEST(SettingsFormTest, AsksForALeaseTime) {
    for (const std::string text : {"", "h", "1.5h", "-1h", "1 h", "4294967296", "forever"}) {
        SCOPED_TRACE(text);
        const SettingsForm typed = formWithLease(text);
        EXPECT_EQ(typed.leaseSeconds(), std::nullopt);
        EXPECT_EQ(typed.errors(), (Errors{{Field::lease, {"Lease time must look like 90m, 24h or 7d."}}}));
    }
}

TEST(SettingsFormTest, TakesTheLeaseTimeFromThePresetElseFromTheText) {
    EXPECT_EQ(formWithLease(" 90m ").leaseSeconds(), 5400U);
    EXPECT_EQ(formWithLease("4294967295").leaseSeconds(), 4294967295U);
    SettingsForm preset = formWithLease("nonsense");
    preset.leasePreset = LeasePreset::eightHours;
    EXPECT_EQ(preset.leaseSeconds(), 28800U);
    EXPECT_EQ(preset.errors(), Errors{}) << "the text does not count then";
}

TEST(SettingsFormTest, AsksForAGatewayOrNothing) {
    EXPECT_EQ(formWith(&SettingsForm::router, "none").errors(),
              (Errors{{Field::gateway, {"Gateway must be an IPv4 address, or empty for off."}}}));
    EXPECT_EQ(formWith(&SettingsForm::router, " ").config(), defaults());
}

TEST(SettingsFormTest, AsksOnceForDNSServersOrNothing) {
    const Errors expected{{Field::dns, {"DNS must be IPv4 addresses separated by commas, or empty for off."}}};
    for (const std::string text : {"x", "9.9.9.9 1.1.1.1", "9.9.9.9; 1.1.1.1", "x, y", "9.9.9.9, x"}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(formWith(&SettingsForm::dns, text).errors(), expected);
    }
}

TEST(SettingsFormTest, IgnoresEmptyPiecesBetweenCommas) {
    ServerConfig config = defaults();
    config.dns = {IPv4Address{9, 9, 9, 9}, IPv4Address{1, 1, 1, 1}};
    for (const std::string text : {"9.9.9.9,1.1.1.1", " 9.9.9.9 , ,\t1.1.1.1,,", ",9.9.9.9, 1.1.1.1"}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(formWith(&SettingsForm::dns, text).config(), config);
    }
    EXPECT_EQ(formWith(&SettingsForm::dns, " , ,,").config(), defaults());
}

TEST(SettingsFormTest, CollectsWhatCannotBeReadOfEveryField) {
    SettingsForm typed;
    typed.leasePreset = LeasePreset::custom;
    typed.router = "r";
    typed.dns = "d";
    EXPECT_EQ(typed.errors(),
              (Errors{{Field::server, {"Server IP must look like 192.168.0.1.", "Prefix must be a number such as 24."}},
                      {Field::range, {"Range must be two IPv4 addresses."}},
                      {Field::lease, {"Lease time must look like 90m, 24h or 7d."}},
                      {Field::gateway, {"Gateway must be an IPv4 address, or empty for off."}},
                      {Field::dns, {"DNS must be IPv4 addresses separated by commas, or empty for off."}}}));
}

TEST(SettingsFormTest, DoesNotValidateWhileATextCannotBeRead) {
    SettingsForm typed = formWith(&SettingsForm::serverIP, "192.168.0.x");
    std::swap(typed.rangeStart, typed.rangeEnd);
    EXPECT_EQ(typed.errors(), (Errors{{Field::server, {"Server IP must look like 192.168.0.1."}}}));
}

TEST(SettingsFormTest, StopsAtAPrefixOutOfBounds) {
    SettingsForm typed = formWith(&SettingsForm::prefix, "31");
    std::swap(typed.rangeStart, typed.rangeEnd);
    EXPECT_EQ(typed.errors(), (Errors{{Field::server, {"Prefix /31 is not allowed. Use /8 to /30."}}}));
    EXPECT_EQ(typed.config(), std::nullopt);
    EXPECT_EQ(formWith(&SettingsForm::prefix, "7").errors(),
              (Errors{{Field::server, {"Prefix /7 is not allowed. Use /8 to /30."}}}));
    EXPECT_EQ(formWith(&SettingsForm::prefix, "8").errors(), Errors{});
}

TEST(SettingsFormTest, ShowsFaultsOfTheServerAddressUnderServer) {
    EXPECT_EQ(formWith(&SettingsForm::serverIP, "192.168.0.0").errors(),
              (Errors{{Field::server, {"Server IP can't be the subnet's network or broadcast address."}}}));
    EXPECT_EQ(formWith(&SettingsForm::serverIP, "192.168.0.100").errors(),
              (Errors{{Field::server, {"Server IP must not be inside the range."}}}));
}

TEST(SettingsFormTest, ShowsFaultsOfTheRangeUnderRange) {
    SettingsForm reversed = form();
    std::swap(reversed.rangeStart, reversed.rangeEnd);
    EXPECT_EQ(reversed.errors(), (Errors{{Field::range, {"Range start must not be after range end."}}}));
    EXPECT_EQ(formWith(&SettingsForm::rangeEnd, "192.168.1.1").errors(),
              (Errors{{Field::range, {"Range must be inside 192.168.0.0/24."}}}));
    EXPECT_EQ(formWith(&SettingsForm::rangeEnd, "192.168.0.255").errors(),
              (Errors{{Field::range, {"Range can't include the subnet's network or broadcast address."}}}));
}

TEST(SettingsFormTest, ShowsFaultsOfTheLeaseTimeUnderLease) {
    const Errors expected{{Field::lease, {"Lease time must be between 1 minute and 30 days."}}};
    EXPECT_EQ(formWithLease("59s").errors(), expected);
    EXPECT_EQ(formWithLease("60s").errors(), Errors{});
    EXPECT_EQ(formWithLease("30d").errors(), Errors{});
    EXPECT_EQ(formWithLease("2592001").errors(), expected);
}

TEST(SettingsFormTest, ShowsAGatewayOutsideUnderGateway) {
    EXPECT_EQ(formWith(&SettingsForm::router, "192.168.1.1").errors(),
              (Errors{{Field::gateway, {"Gateway must be inside 192.168.0.0/24."}}}));
}

TEST(SettingsFormTest, ShowsTooManyDNSServersUnderDNS) {
    EXPECT_EQ(formWith(&SettingsForm::dns, "1.1.1.1,2.2.2.2,3.3.3.3").errors(), Errors{});
    EXPECT_EQ(formWith(&SettingsForm::dns, "1.1.1.1,2.2.2.2,3.3.3.3,4.4.4.4").errors(),
              (Errors{{Field::dns, {"Use at most 3 DNS servers."}}}));
}

TEST(SettingsFormTest, ShowsEveryFaultOfTheConfiguration) {
    SettingsForm typed = formWith(&SettingsForm::serverIP, "192.168.0.255");
    std::swap(typed.rangeStart, typed.rangeEnd);
    typed.router = "10.0.0.1";
    typed.dns = "1.1.1.1,2.2.2.2,3.3.3.3,4.4.4.4";
    EXPECT_EQ(typed.errors(),
              (Errors{{Field::server, {"Server IP can't be the subnet's network or broadcast address."}},
                      {Field::range, {"Range start must not be after range end."}},
                      {Field::gateway, {"Gateway must be inside 192.168.0.0/24."}},
                      {Field::dns, {"Use at most 3 DNS servers."}}}));
}

TEST(SettingsFormTest, CountsTheAddressesOfTheRange) {
    EXPECT_EQ(form().rangeCount(), 101);
    EXPECT_EQ(formWith(&SettingsForm::rangeEnd, "192.168.0.100").rangeCount(), 1);
    EXPECT_EQ(formWith(&SettingsForm::rangeEnd, "192.168.0.99").rangeCount(), std::nullopt);
    EXPECT_EQ(formWith(&SettingsForm::rangeStart, "x").rangeCount(), std::nullopt);
    EXPECT_EQ(formWith(&SettingsForm::rangeEnd, "").rangeCount(), std::nullopt);
}

TEST(SettingsFormTest, CountsTheLargestRange) {
    SettingsForm typed = formWith(&SettingsForm::rangeStart, "0.0.0.0");
    typed.rangeEnd = "255.255.255.255";
    EXPECT_EQ(typed.rangeCount(), 4294967296);
}

} // namespace
} // namespace DHCPCore
