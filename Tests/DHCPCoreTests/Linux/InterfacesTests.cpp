#include "DHCPCore/Interfaces.hpp"
#include "Support/FreshNetwork.hpp"
#include "Support/OpenDescriptors.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

namespace DHCPCore {
namespace {

using ConfigMethod = NetworkCard::ConfigMethod;
using TestSupport::inFreshNetwork;
using TestSupport::ip;

constexpr const char* notAllowed = "this process may not make a network namespace";
const MACAddress cardMAC{{0x02, 0, 0, 0, 0, 0x05}};
const MACAddress peerMAC{{0x02, 0, 0, 0, 0, 0x06}};

void makeCards() {
    ASSERT_TRUE(ip("link add tnw5 address 02:00:00:00:00:05 type veth peer name tnw6 address 02:00:00:00:00:06"));
    ASSERT_TRUE(ip("link set tnw5 up"));
    ASSERT_TRUE(ip("link set tnw6 up"));
}

/// The card of that name in the list.
std::optional<NetworkCard> card(const std::string& name) {
    const auto cards = Interfaces::list();
    const auto found = std::ranges::find(cards, name, &NetworkCard::bsdName);
    return found == cards.end() ? std::nullopt : std::optional(*found);
}

TEST(LinuxInterfacesTest, DescribeAWiredCardThatNobodyManages) {
    const bool made = inFreshNetwork([] {
        makeCards();
        ASSERT_TRUE(ip("addr add 192.168.0.1/24 dev tnw5"));
        NetworkCard expected;
        expected.bsdName = "tnw5";
        expected.displayName = "tnw5";
        expected.serviceName = "tnw5";
        expected.kind = NetworkCard::Kind::ethernet;
        expected.mac = cardMAC;
        expected.linkUp = true;
        expected.media = "10GBase-T full-duplex";
        expected.addresses = {{.address = IPv4Address{192, 168, 0, 1}, .prefixLength = 24}};
        expected.configMethod = {
            ConfigMethod::Manual{.ip = IPv4Address{192, 168, 0, 1}, .mask = IPv4Address{255, 255, 255, 0}}};
        EXPECT_EQ(card("tnw5"), expected);
    });
    if (!made) {
        GTEST_SKIP() << notAllowed;
    }
}

TEST(LinuxInterfacesTest, TellALeasedAddressByItsLifetime) {
    const bool made = inFreshNetwork([] {
        makeCards();
        ASSERT_TRUE(ip("addr add 10.0.0.7/8 dev tnw5 valid_lft 600 preferred_lft 300"));
        ASSERT_TRUE(ip("addr add 169.254.3.4/16 dev tnw6 valid_lft 600 preferred_lft 300"));
        EXPECT_EQ(card("tnw5").value().configMethod, ConfigMethod{ConfigMethod::DHCP{}});
        EXPECT_EQ(card("tnw5").value().addressSummary(), "10.0.0.7 (DHCP)");
        EXPECT_EQ(card("tnw6").value().configMethod, ConfigMethod{});
        EXPECT_EQ(card("tnw6").value().addressSummary(), "169.254.3.4 (self-assigned)");
    });
    if (!made) {
        GTEST_SKIP() << notAllowed;
    }
}

TEST(LinuxInterfacesTest, ListCardsInTheSystemsOrderWithoutLoopback) {
    const bool made = inFreshNetwork([] {
        makeCards();
        ASSERT_TRUE(ip("link add tnwbr type bridge"));
        std::vector<std::string> names;
        for (const NetworkCard& card : Interfaces::list()) {
            // A host may put devices of its own into every new network.
            if (card.bsdName.starts_with("tnw")) {
                names.push_back(card.bsdName);
            }
            EXPECT_NE(card.bsdName, "lo");
        }
        EXPECT_EQ(names, (std::vector<std::string>{"tnw6", "tnw5", "tnwbr"}));
        EXPECT_EQ(card("tnwbr").value().kind, NetworkCard::Kind::bridge);
        EXPECT_EQ(card("tnwbr").value().serviceName, std::nullopt);
    });
    if (!made) {
        GTEST_SKIP() << notAllowed;
    }
}

TEST(LinuxInterfacesTest, MarkTheCardOfTheDefaultRoute) {
    const bool made = inFreshNetwork([] {
        makeCards();
        EXPECT_EQ(Interfaces::primaryInterface(), std::nullopt);
        ASSERT_TRUE(ip("addr add 192.168.0.1/24 dev tnw5"));
        ASSERT_TRUE(ip("route add default via 192.168.0.9"));
        EXPECT_EQ(Interfaces::primaryInterface(), "tnw5");
        EXPECT_TRUE(card("tnw5").value().isPrimary);
        EXPECT_FALSE(card("tnw6").value().isPrimary);
    });
    if (!made) {
        GTEST_SKIP() << notAllowed;
    }
}

InterfaceAddress address(const char* name, IPv4Address ip, int prefixLength, bool isPointToPoint) {
    return {.name = name, .subnet = {.address = ip, .prefixLength = prefixLength}, .isPointToPoint = isPointToPoint};
}

TEST(LinuxInterfacesTest, GiveEveryAddressOfTheHost) {
    const bool made = inFreshNetwork([] {
        makeCards();
        ASSERT_TRUE(ip("addr add 192.168.0.1/24 dev tnw5"));
        ASSERT_TRUE(ip("addr add 192.168.0.2/24 dev tnw5 label tnw5:1"));
        EXPECT_EQ(Interfaces::interfaceAddresses(),
                  (std::vector<InterfaceAddress>{address("lo0", IPv4Address::loopback, 8, false),
                                                 address("tnw5", IPv4Address{192, 168, 0, 1}, 24, false),
                                                 address("tnw5", IPv4Address{192, 168, 0, 2}, 24, false)}));
    });
    if (!made) {
        GTEST_SKIP() << notAllowed;
    }
}

TEST(LinuxInterfacesTest, MarkTheAddressOfATunnel) {
    const bool made = inFreshNetwork([] {
        if (!ip("tuntap add tnwtun mode tun")) {
            GTEST_SKIP() << "no tunnel can be made here";
        }
        ASSERT_TRUE(ip("addr add 10.8.0.1 peer 10.8.0.2 dev tnwtun"));
        EXPECT_EQ(Interfaces::interfaceAddresses(),
                  (std::vector<InterfaceAddress>{address("lo0", IPv4Address::loopback, 8, false),
                                                 address("tnwtun", IPv4Address{10, 8, 0, 1}, 32, true)}));
        const NetworkCard tunnel = card("tnwtun").value();
        EXPECT_EQ(tunnel.kind, NetworkCard::Kind::other);
        EXPECT_EQ(tunnel.mac, std::nullopt);
        EXPECT_EQ(tunnel.serviceName, std::nullopt);
    });
    if (!made) {
        GTEST_SKIP() << notAllowed;
    }
}

TEST(LinuxInterfacesTest, FindACardAgainByItsMACUnderAnotherName) {
    const bool made = inFreshNetwork([] {
        makeCards();
        EXPECT_EQ(Interfaces::bsdNameForMAC(cardMAC), "tnw5");
        EXPECT_EQ(Interfaces::bsdNameForMAC(peerMAC), "tnw6");
        ASSERT_TRUE(ip("link set tnw5 down"));
        ASSERT_TRUE(ip("link set tnw5 name tnw9"));
        EXPECT_EQ(Interfaces::bsdNameForMAC(cardMAC), "tnw9");
        ASSERT_TRUE(ip("link del tnw9"));
        EXPECT_EQ(Interfaces::bsdNameForMAC(cardMAC), std::nullopt);
        EXPECT_EQ(Interfaces::bsdNameForMAC(MACAddress{}), std::nullopt) << "loopback's is no card's";
    });
    if (!made) {
        GTEST_SKIP() << notAllowed;
    }
}

/// Waits until a card's link is down: the kernel tells a lost carrier a moment later.
bool goesDown(const std::string& name) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds{20};
    while (Interfaces::mediaStatus(name) != Interfaces::MediaStatus{}) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

TEST(LinuxInterfacesTest, FollowTheLinkOfACard) {
    const bool made = inFreshNetwork([] {
        makeCards();
        EXPECT_EQ(Interfaces::mediaStatus("tnw5"),
                  (Interfaces::MediaStatus{.linkUp = true, .description = "10GBase-T full-duplex"}));
        ASSERT_TRUE(ip("link set tnw6 down"));
        EXPECT_TRUE(goesDown("tnw5")) << "no carrier";
        EXPECT_EQ(Interfaces::mediaStatus("tnw6"), Interfaces::MediaStatus{}) << "switched off";
    });
    if (!made) {
        GTEST_SKIP() << notAllowed;
    }
}

TEST(LinuxInterfacesTest, DescribeNoMediaOfWhatIsNotEthernet) {
    const Interfaces::MediaStatus status = Interfaces::mediaStatus("lo");
    EXPECT_EQ(status.description, std::nullopt);
}

TEST(LinuxInterfacesTest, TakeACardThatDoesNotExistAsDown) {
    for (const std::string name : {"", "tnwnone", "a name that is longer than any", "exactly16chars.."}) {
        EXPECT_EQ(Interfaces::mediaStatus(name), Interfaces::MediaStatus{}) << name;
    }
}

TEST(LinuxInterfacesTest, DoNotTakeTheBeginningOfALongNameForACard) {
    const bool made = inFreshNetwork([] {
        ASSERT_TRUE(ip("link add exactly15chars. type veth peer name tnw6"));
        ASSERT_TRUE(ip("link set exactly15chars. up"));
        ASSERT_TRUE(ip("link set tnw6 up"));
        EXPECT_TRUE(Interfaces::mediaStatus("exactly15chars.").linkUp);
        EXPECT_FALSE(Interfaces::mediaStatus("exactly15chars.x").linkUp);
    });
    if (!made) {
        GTEST_SKIP() << notAllowed;
    }
}

TEST(LinuxInterfacesTest, LeaveNoDescriptorOpen) {
    const auto before = TestSupport::openDescriptors();
    std::ignore = Interfaces::list();
    std::ignore = Interfaces::interfaceAddresses();
    std::ignore = Interfaces::mediaStatus("lo");
    EXPECT_EQ(TestSupport::openDescriptors(), before);
}

} // namespace
} // namespace DHCPCore
