// What holds on every Mac, whatever is plugged into it.
#include "DHCPCore/Interfaces.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

namespace DHCPCore {
namespace {

using testing::Contains;

TEST(DarwinInterfacesTest, ListsEachCardOnceAndNoLoopback) {
    std::set<std::string> names;
    for (const NetworkCard& card : Interfaces::list()) {
        EXPECT_TRUE(names.insert(card.bsdName).second) << card.bsdName;
        EXPECT_FALSE(card.displayName.empty()) << card.bsdName;
    }
    EXPECT_FALSE(names.contains("lo0"));
}

TEST(DarwinInterfacesTest, KnowsTheAddressOfLoopback) {
    const InterfaceAddress loopback{
        .name = "lo0", .subnet = {.address = IPv4Address::loopback, .prefixLength = 8}, .isPointToPoint = false};
    EXPECT_THAT(Interfaces::interfaceAddresses(), Contains(loopback));
}

TEST(DarwinInterfacesTest, MarksTheCardOfTheDefaultRouteAsPrimary) {
    const auto primary = Interfaces::primaryInterface();
    for (const NetworkCard& card : Interfaces::list()) {
        EXPECT_EQ(card.isPrimary, primary == card.bsdName) << card.bsdName;
    }
}

TEST(DarwinInterfacesTest, FindsTheFirstCardOfEachMAC) {
    const auto cards = Interfaces::list();
    for (const NetworkCard& card : cards) {
        if (card.mac) {
            const auto first = std::ranges::find(cards, card.mac, &NetworkCard::mac);
            EXPECT_EQ(Interfaces::bsdNameForMAC(*card.mac), first->bsdName);
        }
    }
    EXPECT_EQ(Interfaces::bsdNameForMAC(MACAddress{{0x02, 0, 0, 0, 0, 0xFE}}), std::nullopt);
}

TEST(DarwinInterfacesTest, TakesACardThatDoesNotExistForDown) {
    for (const std::string name : {"nosuchcard0", "", "a name that no interface can have"}) {
        EXPECT_EQ(Interfaces::mediaStatus(name), Interfaces::MediaStatus{}) << name;
    }
}

} // namespace
} // namespace DHCPCore
