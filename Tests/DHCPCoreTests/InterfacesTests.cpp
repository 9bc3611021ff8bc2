#include "DHCPCore/Interfaces.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

namespace DHCPCore {
namespace {

using Kind = NetworkCard::Kind;
using ConfigMethod = NetworkCard::ConfigMethod;

constexpr MACAddress firstMAC{{0x00, 0x1C, 0x42, 0x00, 0x00, 0x01}};
constexpr MACAddress secondMAC{{0x00, 0x1C, 0x42, 0x00, 0x00, 0x02}};
constexpr Subnet serverSubnet{.address = IPv4Address{192, 168, 0, 1}, .prefixLength = 24};

/// A wired card with link, named like its interface.
NetworkCard wiredCard(const std::string& name) {
    NetworkCard card;
    card.bsdName = name;
    card.displayName = name;
    card.kind = Kind::ethernet;
    card.linkUp = true;
    return card;
}

NetworkCard shownAs(NetworkCard card, std::string displayName) {
    card.displayName = std::move(displayName);
    return card;
}

NetworkCard disconnected(NetworkCard card) {
    card.linkUp = false;
    return card;
}

NetworkCard ofKind(NetworkCard card, Kind kind) {
    card.kind = kind;
    return card;
}

NetworkCard withMAC(NetworkCard card, const MACAddress& mac) {
    card.mac = mac;
    return card;
}

NetworkCard withMethod(NetworkCard card, Subnet address, ConfigMethod method) {
    card.addresses = {address};
    card.configMethod = std::move(method);
    return card;
}

std::vector<std::string> names(const std::vector<NetworkCard>& cards) {
    std::vector<std::string> names;
    names.reserve(cards.size());
    for (const NetworkCard& card : cards) {
        names.push_back(card.bsdName);
    }
    return names;
}

using Names = std::vector<std::string>;

TEST(NetworkCardTest, NamesItsKindsInTheirOrder) {
    Names texts;
    for (const Kind kind : allCases<Kind>()) {
        texts.emplace_back(rawValue(kind));
    }
    EXPECT_EQ(texts, (Names{"ethernet", "wifi", "bridge", "other"}));
}

TEST(NetworkCardTest, IsKnownByItsSystemName) { EXPECT_EQ(wiredCard("en7").id(), "en7"); }

TEST(NetworkCardTest, SummarisesThatItHasNoAddress) {
    NetworkCard card = wiredCard("en7");
    card.configMethod = {ConfigMethod::DHCP{}};
    EXPECT_EQ(card.addressSummary(), "no address");
}

TEST(NetworkCardTest, SummarisesTheFirstAddressAndWhereItComesFrom) {
    const std::vector<std::pair<ConfigMethod, std::string>> table{
        {{ConfigMethod::Manual{.ip = serverSubnet.address, .mask = serverSubnet.mask()}}, "192.168.0.1 (manual)"},
        {{ConfigMethod::DHCP{}}, "192.168.0.1 (DHCP)"},
        {{ConfigMethod::None{}}, "192.168.0.1"},
        {{ConfigMethod::Other{.method = "Manual"}}, "192.168.0.1"},
    };
    for (const auto& [method, summary] : table) {
        NetworkCard card = withMethod(wiredCard("en7"), serverSubnet, method);
        card.addresses.push_back({.address = IPv4Address{10, 0, 0, 1}, .prefixLength = 8});
        EXPECT_EQ(card.addressSummary(), summary);
    }
}

TEST(NetworkCardTest, SummarisesALinkLocalFirstAddressAsSelfAssignedWhateverTheMethod) {
    const Subnet selfAssigned{.address = IPv4Address{169, 254, 3, 4}, .prefixLength = 16};
    const ConfigMethod manual{ConfigMethod::Manual{.ip = selfAssigned.address, .mask = selfAssigned.mask()}};
    for (const ConfigMethod& method : {ConfigMethod{ConfigMethod::DHCP{}}, manual, ConfigMethod{}}) {
        EXPECT_EQ(withMethod(wiredCard("en7"), selfAssigned, method).addressSummary(), "169.254.3.4 (self-assigned)");
    }
    const Subnet besides{.address = IPv4Address{169, 253, 255, 255}, .prefixLength = 16};
    EXPECT_EQ(withMethod(wiredCard("en7"), besides, {ConfigMethod::DHCP{}}).addressSummary(), "169.253.255.255 (DHCP)");
}

TEST(NetworkCardTest, HashesAlikeWhenEqualAndApartByEachField) {
    const NetworkCard card = withMAC(wiredCard("en7"), firstMAC);
    std::vector<NetworkCard> variants(10, card);
    variants[1].displayName = "USB LAN";
    variants[2].serviceName = "en7";
    variants[3].kind = Kind::wifi;
    variants[4].mac = secondMAC;
    variants[5].linkUp = false;
    variants[6].media = "10baseT";
    variants[7].addresses = {serverSubnet};
    variants[8].configMethod = {ConfigMethod::DHCP{}};
    variants[9].isPrimary = true;
    std::unordered_set<std::size_t> hashes;
    for (const NetworkCard& variant : variants) {
        hashes.insert(std::hash<NetworkCard>{}(variant));
    }
    EXPECT_EQ(hashes.size(), variants.size());
    EXPECT_EQ(std::hash<NetworkCard>{}(card), std::hash<NetworkCard>{}(variants[0]));
}

TEST(NetworkCardTest, TellsConfigMethodsApartInASet) {
    const std::unordered_set<ConfigMethod> methods{{ConfigMethod::Manual{.ip = serverSubnet.address, .mask = {}}},
                                                   {ConfigMethod::Manual{.ip = {}, .mask = serverSubnet.address}},
                                                   {ConfigMethod::Other{.method = "BOOTP"}},
                                                   {ConfigMethod::Other{.method = "INFORM"}},
                                                   {ConfigMethod::DHCP{}},
                                                   {ConfigMethod::DHCP{}},
                                                   {ConfigMethod::None{}}};
    EXPECT_EQ(methods.size(), 6U);
}

TEST(InterfaceAddressTest, HashesApartByEachField) {
    const InterfaceAddress address{.name = "en7", .subnet = serverSubnet, .isPointToPoint = false};
    std::vector<InterfaceAddress> variants(4, address);
    variants[1].name = "en8";
    variants[2].subnet.prefixLength = 16;
    variants[3].isPointToPoint = true;
    const std::unordered_set<InterfaceAddress> set(variants.begin(), variants.end());
    EXPECT_EQ(set.size(), 4U);
}

TEST(OfferedCardsTest, AreWiredWithLinkAndNoThunderbolt) {
    const std::vector<NetworkCard> cards{shownAs(wiredCard("en7"), "USB 10/100/1000 LAN"),
                                         ofKind(shownAs(wiredCard("bridge0"), "Thunderbolt Bridge"), Kind::bridge),
                                         shownAs(wiredCard("en1"), "Thunderbolt 1"),
                                         ofKind(shownAs(wiredCard("en0"), "Wi-Fi"), Kind::wifi),
                                         ofKind(wiredCard("en3"), Kind::other),
                                         ofKind(wiredCard("en4"), Kind::bridge)};
    EXPECT_EQ(Interfaces::offered(cards, true), std::vector<NetworkCard>{cards[0]});
}

TEST(OfferedCardsTest, BearANameThatBeginsWithEn) {
    EXPECT_EQ(names(Interfaces::offered({wiredCard("eth0"), wiredCard("enp3s0"), wiredCard("en"), wiredCard("e"),
                                         wiredCard("ben0"), wiredCard("En1")},
                                        true)),
              (Names{"en", "enp3s0"}));
}

TEST(OfferedCardsTest, AreNotThunderboltOnlyWhereTheNameBeginsSo) {
    EXPECT_EQ(names(Interfaces::offered({shownAs(wiredCard("en1"), "Apple Thunderbolt"),
                                         shownAs(wiredCard("en2"), "thunderbolt"), shownAs(wiredCard("en3"), "Thunder"),
                                         shownAs(wiredCard("en4"), "Thunderbolt")},
                                        true)),
              (Names{"en1", "en3", "en2"}));
}

TEST(OfferedCardsTest, IncludeDisconnectedOnesOnlyOnDemandAndLast) {
    const std::vector<NetworkCard> cards{disconnected(shownAs(wiredCard("en1"), "A")), shownAs(wiredCard("en2"), "Z"),
                                         disconnected(shownAs(wiredCard("en3"), "B")), shownAs(wiredCard("en4"), "Y")};
    EXPECT_EQ(names(Interfaces::offered(cards, true)), (Names{"en4", "en2", "en1", "en3"}));
    EXPECT_EQ(names(Interfaces::offered(cards, false)), (Names{"en4", "en2"}));
}

TEST(OfferedCardsTest, KeepTheSystemsOrderWhereNamesAreEqual) {
    EXPECT_EQ(names(Interfaces::offered({shownAs(wiredCard("en9"), "USB LAN"), shownAs(wiredCard("en2"), "USB LAN"),
                                         shownAs(wiredCard("en5"), "USB LAN")},
                                        true)),
              (Names{"en9", "en2", "en5"}));
}

TEST(PreferredCardTest, IsTheCurrentOneWhileTheServerRuns) {
    const std::vector<NetworkCard> cards{wiredCard("en5")};
    EXPECT_EQ(Interfaces::preferredCardID(cards, "en99", std::nullopt, true), "en99");
    EXPECT_EQ(Interfaces::preferredCardID(cards, std::nullopt, std::nullopt, true), std::nullopt);
}

TEST(PreferredCardTest, IsTheCurrentOneWhileItIsOfferedEvenWithoutLink) {
    const std::vector<NetworkCard> cards{withMAC(wiredCard("en5"), firstMAC), disconnected(wiredCard("en6"))};
    EXPECT_EQ(Interfaces::preferredCardID(cards, "en6", firstMAC, false), "en6");
}

TEST(PreferredCardTest, IsElseTheFirstOfferedOneWithTheRememberedMAC) {
    const std::vector<NetworkCard> cards{wiredCard("en5"), withMAC(disconnected(wiredCard("en8")), secondMAC),
                                         withMAC(disconnected(wiredCard("en7")), secondMAC),
                                         ofKind(withMAC(wiredCard("en4"), secondMAC), Kind::wifi)};
    EXPECT_EQ(Interfaces::preferredCardID(cards, "en99", secondMAC, false), "en7");
    EXPECT_EQ(Interfaces::preferredCardID(cards, std::nullopt, secondMAC, false), "en7");
}

TEST(PreferredCardTest, IsElseTheFirstOfferedOneWithLink) {
    const std::vector<NetworkCard> cards{shownAs(wiredCard("en5"), "B"), shownAs(wiredCard("en6"), "A"),
                                         disconnected(wiredCard("en4"))};
    EXPECT_EQ(Interfaces::preferredCardID(cards, std::nullopt, firstMAC, false), "en6");
    EXPECT_EQ(Interfaces::preferredCardID(cards, "en99", std::nullopt, false), "en6");
}

TEST(PreferredCardTest, IsNoneWithoutLinkAndWithoutMemory) {
    EXPECT_EQ(Interfaces::preferredCardID({disconnected(wiredCard("en5"))}, std::nullopt, std::nullopt, false),
              std::nullopt);
    EXPECT_EQ(Interfaces::preferredCardID({}, "en5", firstMAC, false), std::nullopt);
}

constexpr std::int32_t ethernet = 0x20;
constexpr std::int32_t fullDuplex = 1 << 20;
constexpr std::int32_t halfDuplex = 1 << 21;

TEST(MediaDescriptionTest, NamesTheKnownSpeeds) {
    const std::vector<std::pair<std::int32_t, std::string>> table{
        {3, "10baseT"}, {6, "100baseTX"}, {16, "1000baseT"}, {21, "10GBase-T"}, {22, "2500Base-T"}, {23, "5000Base-T"}};
    for (const auto& [subtype, text] : table) {
        EXPECT_EQ(Interfaces::describeMedia(ethernet | subtype), text);
        EXPECT_EQ(Interfaces::describeMedia(ethernet | subtype | fullDuplex), text + " full-duplex");
        EXPECT_EQ(Interfaces::describeMedia(ethernet | subtype | halfDuplex), text + " half-duplex");
        EXPECT_EQ(Interfaces::describeMedia(ethernet | subtype | fullDuplex | halfDuplex), text + " full-duplex");
    }
}

TEST(MediaDescriptionTest, NumbersAnUnknownSpeed) {
    EXPECT_EQ(Interfaces::describeMedia(ethernet), "media 0");
    EXPECT_EQ(Interfaces::describeMedia(ethernet | 31 | fullDuplex), "media 31 full-duplex");
    EXPECT_EQ(Interfaces::describeMedia(ethernet | 0xF001F), "media 983071");
    EXPECT_EQ(Interfaces::describeMedia(ethernet | 0x10000 | 16), "media 65552") << "not 1000baseT";
}

TEST(MediaDescriptionTest, OverlooksTheBitsThatSayNeitherSpeedNorDuplex) {
    EXPECT_EQ(Interfaces::describeMedia(ethernet | 16 | 0x0FC0FF00), "1000baseT");
}

TEST(MediaDescriptionTest, IsAbsentForWhatIsNotEthernet) {
    for (const std::int32_t word : {0, 16, 0x40 | 16, 0x80 | 16, 0x60 | 16, 0xE0 | 16}) {
        EXPECT_EQ(Interfaces::describeMedia(word), std::nullopt) << word;
    }
}

TEST(MediaDescriptionTest, ReadsAWordWithItsTopBitSet) {
    EXPECT_EQ(Interfaces::describeMedia(static_cast<std::int32_t>(0x80000030U)), "1000baseT");
}

TEST(MediaStatusTest, IsUpWhenTheStatusIsBothValidAndActive) {
    const Interfaces::MediaStatus up{.linkUp = true, .description = "1000baseT full-duplex"};
    const std::int32_t gigabit = ethernet | 16 | fullDuplex;
    EXPECT_EQ(Interfaces::mediaStatusOf(3, gigabit), up);
    EXPECT_EQ(Interfaces::mediaStatusOf(-1, gigabit), up);
    for (const std::int32_t status : {0, 1, 2, 4, 5, 6}) {
        EXPECT_EQ(Interfaces::mediaStatusOf(status, gigabit), Interfaces::MediaStatus{}) << status;
    }
}

TEST(MediaStatusTest, HasNoDescriptionWhereTheMediaIsNotEthernet) {
    EXPECT_EQ(Interfaces::mediaStatusOf(3, 0x80), (Interfaces::MediaStatus{.linkUp = true, .description = {}}));
}

TEST(MaskOfSocketAddressTest, TakesMissingBytesForZeros) {
    const Bytes whole{16, 2, 0, 0, 255, 254, 253, 252, 9, 9, 9, 9, 9, 9, 9, 9};
    const std::vector<IPv4Address> masks{IPv4Address{0, 0, 0, 0},         IPv4Address{0, 0, 0, 0},
                                         IPv4Address{0, 0, 0, 0},         IPv4Address{0, 0, 0, 0},
                                         IPv4Address{0, 0, 0, 0},         IPv4Address{255, 0, 0, 0},
                                         IPv4Address{255, 254, 0, 0},     IPv4Address{255, 254, 253, 0},
                                         IPv4Address{255, 254, 253, 252}, IPv4Address{255, 254, 253, 252}};
    for (std::size_t length = 0; length < masks.size(); ++length) {
        SCOPED_TRACE(length);
        EXPECT_EQ(Interfaces::maskOfSocketAddress(std::span(whole).first(length)), masks[length]);
    }
    EXPECT_EQ(Interfaces::maskOfSocketAddress(whole), (IPv4Address{255, 254, 253, 252}));
}

} // namespace
} // namespace DHCPCore
