#include "DHCPCore/HostSetup.hpp"
#include "DHCPCore/ProcessRunner.hpp"

#include <gtest/gtest.h>

#include <string>

namespace DHCPCore {
namespace {

constexpr IPv4Address serverIP{192, 168, 0, 1};
constexpr IPv4Address mask{255, 255, 255, 0};

TEST(HostSetupTest, QuotesAnEmptyTextAsAnEmptyWord) { EXPECT_EQ(HostSetup::shellQuote(""), "''"); }

TEST(HostSetupTest, QuotesASingleQuoteByLeavingTheQuotes) {
    EXPECT_EQ(HostSetup::shellQuote("Joe's USB LAN"), R"('Joe'\''s USB LAN')");
    EXPECT_EQ(HostSetup::shellQuote("'"), R"(''\''')");
}

TEST(HostSetupTest, LeavesEveryOtherCharacterAsItIs) {
    EXPECT_EQ(HostSetup::shellQuote(R"(a"b\c$d`e)"), R"('a"b\c$d`e')");
}

TEST(HostSetupTest, GivesTheShellOneWordThatIsTheTextItself) {
    for (const std::string text : {"", "'", "Joe's USB LAN", R"(5" \ $HOME `id` \)", "a\nb", "''\\''", "*", "-n"}) {
        SCOPED_TRACE(text);
        const auto output = ProcessRunner::run("/bin/sh", {"-c", "printf '[%s]' " + HostSetup::shellQuote(text)});
        EXPECT_EQ(output, (ProcessRunner::Output{.status = 0, .text = "[" + text + "]"}));
    }
}

TEST(HostSetupTest, SetsAddressAndMaskOfAServiceWithoutRouter) {
    EXPECT_EQ(HostSetup::setManualCommand("USB LAN", serverIP, mask),
              "/usr/sbin/networksetup -setmanual 'USB LAN' 192.168.0.1 255.255.255.0");
}

TEST(HostSetupTest, ReturnsAServiceToDHCP) {
    EXPECT_EQ(HostSetup::setDHCPCommand("Joe's LAN"), R"(/usr/sbin/networksetup -setdhcp 'Joe'\''s LAN')");
}

TEST(HostSetupTest, PutsSudoBeforeACommand) {
    EXPECT_EQ(HostSetup::sudoLine(HostSetup::setManualCommand("en5", serverIP, mask)),
              "sudo /usr/sbin/networksetup -setmanual 'en5' 192.168.0.1 255.255.255.0");
}

} // namespace
} // namespace DHCPCore
