#include "DHCPCore/Linux/CardFacts.hpp"

#include <gtest/gtest.h>

#include <linux/ethtool.h>
#include <net/if_arp.h>
#include <string>
#include <utility>
#include <vector>

namespace DHCPCore {
namespace {

using Kind = NetworkCard::Kind;
using ConfigMethod = NetworkCard::ConfigMethod;

Netlink::Link link(std::uint16_t hardwareType, const std::string& kind) {
    return {.index = 2, .hardwareType = hardwareType, .flags = 0, .name = "en5", .kind = kind, .mac = {}};
}

TEST(CardKindTest, IsEthernetForACardWithASocketAndForItsVirtualTwin) {
    for (const std::string kind : {"", "veth", "dummy", "openvswitch"}) {
        EXPECT_EQ(CardFacts::kind(link(ARPHRD_ETHER, kind), false), Kind::ethernet) << kind;
    }
}

TEST(CardKindTest, IsWifiForWhatIsWireless) {
    EXPECT_EQ(CardFacts::kind(link(ARPHRD_ETHER, ""), true), Kind::wifi);
    EXPECT_EQ(CardFacts::kind(link(ARPHRD_IEEE80211_RADIOTAP, ""), true), Kind::wifi);
}

TEST(CardKindTest, IsBridgeForABridge) {
    EXPECT_EQ(CardFacts::kind(link(ARPHRD_ETHER, "bridge"), false), Kind::bridge);
}

TEST(CardKindTest, IsOtherForWhatOnlyLooksLikeEthernet) {
    for (const std::string kind : {"tun", "bond", "team", "vlan", "macvlan", "macvtap", "ipvlan", "ipvtap"}) {
        EXPECT_EQ(CardFacts::kind(link(ARPHRD_ETHER, kind), false), Kind::other) << kind;
    }
}

TEST(CardKindTest, IsOtherForEveryOtherHardware) {
    for (const std::uint16_t type :
         std::vector<std::uint16_t>{ARPHRD_NONE, ARPHRD_PPP, ARPHRD_INFINIBAND, ARPHRD_LOOPBACK, 0}) {
        EXPECT_EQ(CardFacts::kind(link(type, ""), false), Kind::other) << type;
    }
}

TEST(MediaWordTest, SaysSpeedAndDuplexAsDescribeMediaReadsThem) {
    const std::vector<std::pair<std::uint32_t, std::string>> table{{10, "10baseT"},      {100, "100baseTX"},
                                                                   {1000, "1000baseT"},  {2500, "2500Base-T"},
                                                                   {5000, "5000Base-T"}, {10000, "10GBase-T"}};
    for (const auto& [speed, text] : table) {
        const auto described = [speed = speed](std::uint8_t duplex) {
            return Interfaces::describeMedia(CardFacts::mediaWord(speed, duplex));
        };
        EXPECT_EQ(described(DUPLEX_FULL), text + " full-duplex");
        EXPECT_EQ(described(DUPLEX_HALF), text + " half-duplex");
        EXPECT_EQ(described(DUPLEX_UNKNOWN), text);
    }
}

TEST(MediaWordTest, IsNotEthernetForASpeedWithoutWord) {
    for (const std::uint32_t speed : {0U, 9U, 11U, 25000U, 100000U, 0xFFFFFFFFU}) {
        EXPECT_EQ(CardFacts::mediaWord(speed, DUPLEX_FULL), 0) << speed;
    }
    EXPECT_EQ(Interfaces::describeMedia(0), std::nullopt);
}

constexpr IPv4Address serverIP{192, 168, 0, 1};
constexpr IPv4Address selfAssigned{169, 254, 3, 4};
const ConfigMethod dhcp{ConfigMethod::DHCP{}};

Netlink::Address address(IPv4Address ip, bool isPermanent, int prefixLength = 24) {
    return {.interfaceIndex = 2, .subnet = {.address = ip, .prefixLength = prefixLength}, .isPermanent = isPermanent};
}

ConfigMethod manual(IPv4Address ip, IPv4Address mask) { return {ConfigMethod::Manual{.ip = ip, .mask = mask}}; }

TEST(ConfigMethodTest, IsManualForAPermanentAddressWhateverTheOwnerSays) {
    for (const ConfigMethod& owners : {dhcp, ConfigMethod{}}) {
        EXPECT_EQ(CardFacts::configMethod({address(serverIP, true), address(IPv4Address{10, 0, 0, 1}, true)}, owners),
                  manual(serverIP, IPv4Address{255, 255, 255, 0}));
    }
}

TEST(ConfigMethodTest, IsDHCPAsSoonAsOneAddressHasAnEnd) {
    EXPECT_EQ(CardFacts::configMethod({address(serverIP, true), address(IPv4Address{10, 0, 0, 1}, false)}, {}), dhcp);
}

TEST(ConfigMethodTest, DoesNotTakeASelfAssignedAddressForDHCP) {
    EXPECT_EQ(CardFacts::configMethod({address(selfAssigned, false)}, {}), ConfigMethod{});
    EXPECT_EQ(CardFacts::configMethod({address(selfAssigned, false)}, dhcp), dhcp);
    EXPECT_EQ(CardFacts::configMethod({address(selfAssigned, false), address(serverIP, true, 16)}, {}),
              manual(serverIP, IPv4Address{255, 255, 0, 0}));
    EXPECT_EQ(CardFacts::configMethod({address(IPv4Address{169, 253, 255, 255}, false)}, {}), dhcp);
}

TEST(ConfigMethodTest, IsTheOwnersWhereThereIsNoAddress) {
    const ConfigMethod owners = manual(serverIP, IPv4Address{255, 255, 255, 0});
    EXPECT_EQ(CardFacts::configMethod({}, owners), owners);
    EXPECT_EQ(CardFacts::configMethod({}, {}), ConfigMethod{});
}

TEST(ProductNameTest, IsOneLineOfTextThatATerminalOnlyShows) {
    const std::vector<std::pair<std::string, std::optional<std::string>>> table{
        {"USB 10/100/1000 LAN", "USB 10/100/1000 LAN"},
        {"  AX88179\r\n", "AX88179"},
        {"\x1B[31mred\x07\x7F", "[31mred"},
        {"a\xC2\x9B"
         "31mb",
         "a31mb"},
        {"caf\xC3\xA9 \xFF", "caf\u00E9 \uFFFD"},
        {"", std::nullopt},
        {" \t\x01\x02 ", std::nullopt}};
    for (const auto& [text, name] : table) {
        EXPECT_EQ(CardFacts::productName(text), name);
    }
}

TEST(HardwareDatabaseTest, NamesTheModel) {
    EXPECT_EQ(CardFacts::modelInHardwareDatabase("ID_VENDOR_FROM_DATABASE=Intel Corporation\n"
                                                 "ID_MODEL_FROM_DATABASE=Ethernet Controller I225-V\n"
                                                 "ID_MODEL_FROM_DATABASE=another\n"),
              "Ethernet Controller I225-V");
}

TEST(HardwareDatabaseTest, NamesNothingThatItDoesNotKnow) {
    for (const std::string output :
         {"", "\n", "ID_MODEL_FROM_DATABASE=\n", "ID_MODEL_FROM_DATABASE", "X_ID_MODEL_FROM_DATABASE=x\n"}) {
        EXPECT_EQ(CardFacts::modelInHardwareDatabase(output), std::nullopt) << output;
    }
}

} // namespace
} // namespace DHCPCore
