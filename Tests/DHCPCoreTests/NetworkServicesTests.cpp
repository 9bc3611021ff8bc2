#include "DHCPCore/NetworkServices.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace DHCPCore {
namespace {

using ConfigMethod = NetworkCard::ConfigMethod;
using IPv4Settings = NetworkService::IPv4Settings;
using NetworkServices::configMethod;

NetworkService service(std::string name, std::string bsdName, bool isEnabled = true) {
    return {.name = std::move(name), .bsdName = std::move(bsdName), .isEnabled = isEnabled, .ipv4 = {}};
}

TEST(ConfigMethodTest, IsNoneWithoutAMethod) {
    EXPECT_EQ(configMethod({}), ConfigMethod{ConfigMethod::None{}});
    EXPECT_EQ(configMethod({.method = std::nullopt, .address = "192.168.0.1", .mask = "255.255.255.0"}),
              ConfigMethod{ConfigMethod::None{}});
}

TEST(ConfigMethodTest, KnowsDHCP) {
    EXPECT_EQ(configMethod({.method = "DHCP", .address = {}, .mask = {}}), ConfigMethod{ConfigMethod::DHCP{}});
    EXPECT_EQ(configMethod({.method = "dhcp", .address = {}, .mask = {}}), ConfigMethod{ConfigMethod::Other{"dhcp"}});
}

TEST(ConfigMethodTest, ReadsAddressAndMaskOfAManualService) {
    const ConfigMethod expected{
        ConfigMethod::Manual{.ip = IPv4Address{192, 168, 0, 1}, .mask = IPv4Address{255, 255, 255, 0}}};
    EXPECT_EQ(configMethod({.method = "Manual", .address = "192.168.0.1", .mask = "255.255.255.0"}), expected);
}

TEST(ConfigMethodTest, TakesAManualServiceWithoutUsableAddressesForAnotherMethod) {
    const std::optional<std::string> address = "192.168.0.1";
    const std::optional<std::string> mask = "255.255.255.0";
    const std::optional<std::string> wrong = "192.168.0";
    for (const IPv4Settings& settings : {IPv4Settings{.method = "Manual", .address = std::nullopt, .mask = mask},
                                         IPv4Settings{.method = "Manual", .address = address, .mask = std::nullopt},
                                         IPv4Settings{.method = "Manual", .address = wrong, .mask = mask},
                                         IPv4Settings{.method = "Manual", .address = address, .mask = wrong}}) {
        EXPECT_EQ(configMethod(settings), ConfigMethod{ConfigMethod::Other{"Manual"}});
    }
}

TEST(ConfigMethodTest, KeepsTheNameOfEveryOtherMethod) {
    for (const std::string name : {"BOOTP", "INFORM", "LinkLocal", ""}) {
        EXPECT_EQ(configMethod({.method = name, .address = "192.168.0.1", .mask = "255.255.255.0"}),
                  ConfigMethod{ConfigMethod::Other{name}});
    }
}

TEST(ConfigMethodTest, LeavesTheSummaryOfAManualServiceWithoutAddressesBare) {
    NetworkCard card;
    card.addresses = {Subnet{.address = IPv4Address{192, 168, 0, 1}, .prefixLength = 24}};
    card.configMethod = configMethod({.method = "Manual", .address = std::nullopt, .mask = std::nullopt});
    EXPECT_EQ(card.addressSummary(), "192.168.0.1");
}

TEST(NetworkServicesTest, GivesACardItsFirstEnabledService) {
    const std::vector<NetworkService> services{service("Wi-Fi", "en0"), service("Old LAN", "en7", false),
                                               service("USB LAN", "en7"), service("Second LAN", "en7")};
    EXPECT_EQ(NetworkServices::ofCard(services, "en7"), services[2]);
    EXPECT_EQ(NetworkServices::ofCard(services, "en0"), services[0]);
}

TEST(NetworkServicesTest, GivesNoServiceToACardWithoutAnEnabledOne) {
    NetworkService withoutCard = service("VPN", "");
    withoutCard.bsdName = std::nullopt;
    const std::vector<NetworkService> services{service("Old LAN", "en7", false), withoutCard};
    EXPECT_EQ(NetworkServices::ofCard(services, "en7"), std::nullopt);
    EXPECT_EQ(NetworkServices::ofCard(services, ""), std::nullopt);
    EXPECT_EQ(NetworkServices::ofCard({}, "en7"), std::nullopt);
}

TEST(NetworkServicesTest, NamesTheServicesThatHaveANameEnabledOrNot) {
    NetworkService nameless = service("", "en8");
    nameless.name = std::nullopt;
    EXPECT_EQ(NetworkServices::names({service("USB LAN", "en7"), nameless, service("Wi-Fi", "en0", false)}),
              (std::vector<std::string>{"USB LAN", "Wi-Fi"}));
    EXPECT_EQ(NetworkServices::names({}), std::vector<std::string>{});
}

} // namespace
} // namespace DHCPCore
