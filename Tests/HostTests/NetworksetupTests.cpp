// The built networksetup on a card that no manager owns. Every test makes itself a network with one cable in it.
#include "DHCPCore/Interfaces.hpp"
#include "DHCPCore/Linux/Netlink.hpp"
#include "DHCPCore/ProcessRunner.hpp"
#include "Support/FreshNetwork.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <net/if.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace DHCPCore {
namespace {

using ProcessRunner::Output;
using TestSupport::inFreshNetwork;
using TestSupport::ip;

using Addresses = std::vector<Netlink::Address>;

class NetworksetupTest : public testing::Test {
  protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "only root may make a network of its own";
        }
    }

    /// Runs the test in a network with the switched-off card "server0", whose cable ends in "device0".
    static void onACable(const std::function<void()>& test) {
        const bool made = inFreshNetwork([&test] {
            ASSERT_TRUE(ip("link add server0 type veth peer name device0"));
            test();
        });
        if (!made) {
            GTEST_SKIP() << "this machine does not let root make a network of its own";
        }
    }

    static Output networksetup(const std::vector<std::string>& words) {
        return ProcessRunner::run(NETWORKSETUP_PATH, words);
    }

    static Output setManual(const std::string& service) {
        return networksetup({"-setmanual", service, "192.168.0.1", "255.255.255.0"});
    }

    /// The addresses of server0.
    static Addresses addresses() {
        Addresses all = Netlink::parseAddresses(Netlink::ask(Netlink::Question::addresses).value_or(Bytes{}));
        std::erase_if(
            all, [](const Netlink::Address& address) { return address.interfaceIndex != ::if_nametoindex("server0"); });
        return all;
    }

    /// Whether server0 is; its link comes later.
    static bool isSwitchedOn() {
        const auto links = Netlink::parseLinks(Netlink::ask(Netlink::Question::links).value_or(Bytes{}));
        const auto card = std::ranges::find(links, "server0", &Netlink::Link::name);
        return card != links.end() && (card->flags & IFF_UP) != 0;
    }

    static Netlink::Address address(IPv4Address ip, int prefixLength, bool isPermanent = true) {
        return {.interfaceIndex = ::if_nametoindex("server0"),
                .subnet = {.address = ip, .prefixLength = prefixLength},
                .isPermanent = isPermanent};
    }

    static constexpr IPv4Address wanted{192, 168, 0, 1};
    inline static const Output done{
        .status = 0, .text = "Set server0 to 192.168.0.1/24 until the next restart, as no network manager owns it.\n"};
};

TEST_F(NetworksetupTest, SetsTheAddressAndSwitchesTheCardOn) {
    onACable([] {
        ASSERT_FALSE(isSwitchedOn());

        EXPECT_EQ(setManual("server0"), done);

        EXPECT_EQ(addresses(), Addresses{address(wanted, 24)});
        EXPECT_TRUE(isSwitchedOn());
    });
}

TEST_F(NetworksetupTest, LeavesNoOtherAddressOnTheCard) {
    onACable([] {
        for (const std::string other :
             {"10.0.0.1/8", "192.168.0.1/16", "192.168.0.7/24", "192.168.0.8/24", "172.16.0.1 peer 172.16.0.2/32",
              "10.9.9.9/24 valid_lft 3600 preferred_lft 3600"}) {
            ASSERT_TRUE(ip("address add " + other + " dev server0"));
        }

        EXPECT_EQ(setManual("server0"), done);

        EXPECT_EQ(addresses(), Addresses{address(wanted, 24)});
    });
}

TEST_F(NetworksetupTest, KeepsAnAddressThatWasSecondToOneThatGoes) {
    onACable([] {
        ASSERT_TRUE(ip("address add 192.168.0.7/24 dev server0"));
        ASSERT_TRUE(ip("address add 192.168.0.1/24 dev server0"));

        EXPECT_EQ(setManual("server0"), done);

        EXPECT_EQ(addresses(), Addresses{address(wanted, 24)});
    });
}

TEST_F(NetworksetupTest, MakesAnAddressWithALifetimePermanent) {
    onACable([] {
        ASSERT_TRUE(ip("address add 192.168.0.1/24 dev server0 valid_lft 3600 preferred_lft 3600"));

        EXPECT_EQ(setManual("server0"), done);

        EXPECT_EQ(addresses(), Addresses{address(wanted, 24)});
    });
}

TEST_F(NetworksetupTest, DoesTheSameTwice) {
    onACable([] {
        EXPECT_EQ(setManual("server0"), done);
        EXPECT_EQ(setManual("server0"), done);

        EXPECT_EQ(addresses(), Addresses{address(wanted, 24)});
    });
}

TEST_F(NetworksetupTest, TouchesNoOtherCard) {
    onACable([] {
        ASSERT_TRUE(ip("address add 10.0.0.1/8 dev device0"));

        EXPECT_EQ(setManual("server0"), done);

        EXPECT_EQ(
            Interfaces::interfaceAddresses(),
            (std::vector<InterfaceAddress>{
                {.name = "lo0",
                 .subnet = {.address = IPv4Address::loopback, .prefixLength = 8},
                 .isPointToPoint = false},
                {.name = "device0",
                 .subnet = {.address = IPv4Address{10, 0, 0, 1}, .prefixLength = 8},
                 .isPointToPoint = false},
                {.name = "server0", .subnet = {.address = wanted, .prefixLength = 24}, .isPointToPoint = false}}));
    });
}

TEST_F(NetworksetupTest, MakesTheCardAManualOneForTheServersChecks) {
    onACable([] {
        EXPECT_EQ(setManual("server0"), done);

        for (const NetworkCard& card : Interfaces::list()) {
            if (card.bsdName == "server0") {
                EXPECT_EQ(card.serviceName, "server0");
                EXPECT_EQ(card.configMethod, (NetworkCard::ConfigMethod{NetworkCard::ConfigMethod::Manual{
                                                 .ip = wanted, .mask = IPv4Address{255, 255, 255, 0}}}));
            }
        }
    });
}

TEST_F(NetworksetupTest, RemovesOnlyFixedAddressesForDHCP) {
    onACable([] {
        ASSERT_TRUE(ip("address add 192.168.0.1/24 dev server0"));
        ASSERT_TRUE(ip("address add 10.9.9.9/24 dev server0 valid_lft 3600 preferred_lft 3600"));

        EXPECT_EQ(
            networksetup({"-setdhcp", "server0"}),
            (Output{.status = 0,
                    .text = "Removed the fixed addresses of server0, but no network manager owns it, so nobody asks "
                            "DHCP for another.\n"}));

        EXPECT_EQ(addresses(), (Addresses{address(IPv4Address{10, 9, 9, 9}, 24, false)}));
    });
}

TEST_F(NetworksetupTest, RefusesWhatIsNoServiceAndChangesNothing) {
    onACable([] {
        ASSERT_TRUE(ip("link add bridge0 type bridge"));

        EXPECT_EQ(setManual("lo"), (Output{.status = 1, .text = "networksetup: No network service is named lo.\n"}));
        EXPECT_EQ(setManual("en5"), (Output{.status = 1, .text = "networksetup: No network service is named en5.\n"}));
        EXPECT_EQ(setManual("bridge0"),
                  (Output{.status = 1,
                          .text = "networksetup: bridge0 is not a wired card, and no network manager owns it.\n"}));
        EXPECT_EQ(Interfaces::interfaceAddresses().size(), 1U); // that of loopback
    });
}

TEST_F(NetworksetupTest, RefusesToWorkForAnOrdinaryUser) {
    onACable([] {
        const std::vector<std::string> asNobody{"--reuid=65534", "--clear-groups", NETWORKSETUP_PATH};
        const auto run = [&asNobody](std::vector<std::string> words) {
            words.insert(words.begin(), asNobody.begin(), asNobody.end());
            return ProcessRunner::run("/usr/bin/setpriv", words);
        };
        if (run({"--version"}).status != 0) {
            GTEST_SKIP() << "an ordinary user can't reach the built program";
        }

        EXPECT_EQ(
            run({"-setdhcp", "server0"}),
            (Output{.status = 1, .text = "networksetup: Only root may set up a card: put sudo before the command.\n"}));
        EXPECT_EQ(run({"-setdhcp"}),
                  (Output{.status = 1, .text = "networksetup: Use it as networksetup -setdhcp SERVICE.\n"}));
    });
}

TEST_F(NetworksetupTest, TellsItsVersion) {
    EXPECT_EQ(networksetup({"--version"}), (Output{.status = 0, .text = "tarnwick networksetup 0.2.1\n"}));
}

} // namespace
} // namespace DHCPCore
