#include "networksetup/Refusal.hpp"
#include "networksetup/Request.hpp"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace NetworkSetup {
namespace {

using DHCPCore::IPv4Address;
using Words = std::vector<std::string>;

Request manual(const std::string& service, IPv4Address address, int prefixLength) {
    return {Request::SetManual{.service = service, .address = {.address = address, .prefixLength = prefixLength}}};
}

/// The sentence with which the words are refused; empty when they are taken.
std::string refusalOf(const Words& words) {
    try {
        static_cast<void>(parseRequest(words));
        return {};
    } catch (const Refusal& refusal) {
        return refusal.description();
    }
}

std::string refusalOfAddress(const std::string& ip, const std::string& mask) {
    return refusalOf({"-setmanual", "USB LAN", ip, mask});
}

TEST(RequestTest, ReadsAManualAddress) {
    EXPECT_EQ(parseRequest(Words{"-setmanual", "USB LAN", "192.168.0.1", "255.255.255.0"}),
              manual("USB LAN", IPv4Address{192, 168, 0, 1}, 24));
}

TEST(RequestTest, ReadsAReturnToDHCP) {
    EXPECT_EQ(parseRequest(Words{"-setdhcp", "USB LAN"}), (Request{Request::SetDHCP{"USB LAN"}}));
}

TEST(RequestTest, ReadsTheQuestionForTheVersion) {
    EXPECT_EQ(parseRequest(Words{"--version"}), (Request{Request::ShowVersion{}}));
}

TEST(RequestTest, TakesAServiceNameAsItIs) {
    for (const std::string name : {R"(Joe's "USB" \LAN)", " en5 ", "-setdhcp", "Büro", "en5; reboot", "$(reboot)"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(parseRequest(Words{"-setdhcp", name}), (Request{Request::SetDHCP{name}}));
    }
}

TEST(RequestTest, TellsItsUseForAnyOtherVerb) {
    constexpr auto use = "Use it as networksetup -setmanual SERVICE IP MASK, or as networksetup -setdhcp SERVICE.";
    for (const Words& words : {Words{}, Words{""}, Words{"setdhcp", "en5"}, Words{"-SetDHCP", "en5"},
                               Words{"-setdhcp ", "en5"}, Words{"en5"}, Words{"-h"}}) {
        EXPECT_EQ(refusalOf(words), use);
    }
}

TEST(RequestTest, RefusesOneWordTooFewOrTooMany) {
    constexpr auto manualUse = "Use it as networksetup -setmanual SERVICE IP MASK.";
    EXPECT_EQ(refusalOf({"-setmanual", "en5", "192.168.0.1"}), manualUse);
    EXPECT_EQ(refusalOf({"-setmanual", "en5", "192.168.0.1", "255.255.255.0", "192.168.0.254"}), manualUse);
    EXPECT_EQ(refusalOf({"-setdhcp"}), "Use it as networksetup -setdhcp SERVICE.");
    EXPECT_EQ(refusalOf({"-setdhcp", "en5", ""}), "Use it as networksetup -setdhcp SERVICE.");
    EXPECT_EQ(refusalOf({"--version", "en5"}), "Use it as networksetup --version.");
}

TEST(RequestTest, RefusesAnEmptyServiceName) {
    EXPECT_EQ(refusalOf({"-setdhcp", ""}), "The service name is empty.");
    EXPECT_EQ(refusalOf({"-setmanual", "", "192.168.0.1", "255.255.255.0"}), "The service name is empty.");
}

TEST(RequestTest, RefusesWhatATerminalCouldObeyOrIsNoText) {
    for (const std::string name : {"en5\n", "\x1b[2J", "a\x7f", "a\tb", "a\xC2\x9Bz", "a\xFF", "\xC3"}) {
        EXPECT_EQ(refusalOf({"-setdhcp", name}), "An argument holds what can't be printed.");
    }
    EXPECT_EQ(refusalOf({"-setdhcp", "a\xC2\xA0z"}), ""); // one beyond the last control character
}

TEST(RequestTest, RefusesWhatIsNoAddress) {
    for (const std::string ip : {"", "192.168.0", "192.168.0.1/24", "192.168.0.256", " 192.168.0.1", "fe80::1"}) {
        EXPECT_EQ(refusalOfAddress(ip, "255.255.255.0"), "Not an IPv4 address: " + ip + ".");
    }
}

TEST(RequestTest, RefusesAnAddressThatNoCardMayHave) {
    for (const std::string ip : {"0.0.0.0", "0.255.255.254", "127.0.0.1", "127.255.255.254", "224.0.0.1", "239.1.1.1",
                                 "240.0.0.1", "255.255.255.255"}) {
        EXPECT_EQ(refusalOfAddress(ip, "255.0.0.0"), ip + " can't be the address of a card.");
    }
    for (const std::string ip : {"1.0.0.1", "126.255.255.254", "128.0.0.1", "223.255.255.254", "169.254.7.7"}) {
        EXPECT_EQ(refusalOfAddress(ip, "255.0.0.0"), "") << ip;
    }
}

TEST(RequestTest, RefusesWhatIsNoMask) {
    for (const std::string mask : {"", "24", "/24", "255.255.255", "255.0.255.0", "0.0.0.255", "255.255.255.253"}) {
        EXPECT_EQ(refusalOfAddress("192.168.0.1", mask), "Not a subnet mask: " + mask + ".");
    }
}

TEST(RequestTest, RefusesAMaskWithoutANetwork) {
    for (const std::string mask : {"0.0.0.0", "255.255.255.254", "255.255.255.255"}) {
        EXPECT_EQ(refusalOfAddress("192.168.0.1", mask), "The mask " + mask + " leaves no network to serve.");
    }
    EXPECT_EQ(parseRequest(Words{"-setmanual", "en5", "192.168.0.1", "128.0.0.0"}),
              manual("en5", IPv4Address{192, 168, 0, 1}, 1));
    EXPECT_EQ(parseRequest(Words{"-setmanual", "en5", "192.168.0.1", "255.255.255.252"}),
              manual("en5", IPv4Address{192, 168, 0, 1}, 30));
}

TEST(RequestTest, RefusesTheAddressesThatTheNetworkReserves) {
    EXPECT_EQ(refusalOfAddress("192.168.0.0", "255.255.255.0"),
              "192.168.0.0 is the network address of 192.168.0.0/24.");
    EXPECT_EQ(refusalOfAddress("192.168.0.255", "255.255.255.0"),
              "192.168.0.255 is the broadcast address of 192.168.0.0/24.");
    EXPECT_EQ(refusalOfAddress("192.168.0.254", "255.255.255.0"), "");
    EXPECT_EQ(refusalOfAddress("192.168.0.0", "255.255.0.0"), "192.168.0.0 is the network address of 192.168.0.0/16.");
    EXPECT_EQ(refusalOfAddress("192.168.1.0", "255.255.0.0"), "");
}

} // namespace
} // namespace NetworkSetup
