#include "networksetup/InterfacesFile.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace NetworkSetup::InterfacesFile {
namespace {

using DHCPCore::IPv4Address;
using DHCPCore::Subnet;

const std::optional<Subnet> address = Subnet{.address = IPv4Address{192, 168, 0, 1}, .prefixLength = 24};

TEST(InterfacesFileTest, FindsTheStanzasOfACard) {
    constexpr auto text = "auto en5\n"
                          "iface en5 inet6 auto\n"
                          "iface en50 inet dhcp\n"
                          "#iface en5 inet manual\n"
                          "\tiface \\\n en5  inet static # not a comment\n"
                          "iface en5 inet dhcp";

    EXPECT_EQ(stanzas(text, "en5"),
              (std::vector<std::vector<std::string>>{{"static", "#", "not", "a", "comment"}, {"dhcp"}}));
    EXPECT_EQ(stanzas(text, "en6"), (std::vector<std::vector<std::string>>{}));
}

TEST(InterfacesFileTest, DoesNotContinueAComment) {
    EXPECT_EQ(stanzas("# ends so: \\\niface en5 inet dhcp\n", "en5"),
              (std::vector<std::vector<std::string>>{{"dhcp"}}));
}

TEST(InterfacesFileTest, ReadsAStanzaThatEndsInABackslash) {
    EXPECT_EQ(stanzas("iface en5 inet dhcp\\", "en5"), (std::vector<std::vector<std::string>>{{"dhcp\\"}}));
    EXPECT_EQ(stanzas("iface en5 inet dhcp \\\n", "en5"), (std::vector<std::vector<std::string>>{{"dhcp"}}));
}

TEST(InterfacesFileTest, MakesADHCPStanzaStatic) {
    EXPECT_EQ(withAddress("auto lo\niface lo inet loopback\n\nallow-hotplug en5\niface en5 inet dhcp\n\n# end\n", "en5",
                          address),
              "auto lo\niface lo inet loopback\n\nallow-hotplug en5\n"
              "iface en5 inet static\n    address 192.168.0.1\n    netmask 255.255.255.0\n\n# end\n");
}

TEST(InterfacesFileTest, ReplacesTheAddressAndKeepsTheOtherOptions) {
    constexpr auto text = "iface en5 inet static\n"
                          "    address 10.0.0.7/8\n"
                          "    netmask 255.0.0.0\n"
                          "    network 10.0.0.0\n"
                          "    broadcast 10.255.255.255\n"
                          "    gateway \\\n        10.0.0.1\n"
                          "    mtu 1400\n"
                          "    # about the switch\n"
                          "    up echo address gateway\n"
                          "iface en6 inet static\n"
                          "    address 10.0.1.7/24\n"
                          "    gateway 10.0.1.1\n";

    EXPECT_EQ(withAddress(text, "en5", address), "iface en5 inet static\n"
                                                 "    address 192.168.0.1\n"
                                                 "    netmask 255.255.255.0\n"
                                                 "    mtu 1400\n"
                                                 "    # about the switch\n"
                                                 "    up echo address gateway\n"
                                                 "iface en6 inet static\n"
                                                 "    address 10.0.1.7/24\n"
                                                 "    gateway 10.0.1.1\n");
}

TEST(InterfacesFileTest, ReturnsAStanzaToDHCP) {
    EXPECT_EQ(withAddress("iface en5 inet static\n\taddress 10.0.0.7\n\tnetmask 255.0.0.0\n\tmtu 1400\nauto en5", "en5",
                          std::nullopt),
              "iface en5 inet dhcp\n\tmtu 1400\nauto en5");
}

TEST(InterfacesFileTest, LeavesTheOptionsOfEveryKindOfStanzaAfterItAlone) {
    for (const std::string head :
         {"iface en6 inet static", "mapping en*", "auto en6", "allow-hotplug en6", "source x", "source-directory x",
          "source-dir x", "rename a=b", "no-auto-down en6", "no-scripts en6", "template t"}) {
        SCOPED_TRACE(head);
        const std::string after = head + "\n    address 10.0.0.7\n";
        EXPECT_EQ(withAddress("iface en5 inet dhcp\n" + after, "en5", std::nullopt), "iface en5 inet dhcp\n" + after);
    }
}

TEST(InterfacesFileTest, IsTheSameAfterASecondTime) {
    const std::string once = withAddress("iface en5 inet dhcp\n    mtu 1400\n", "en5", address);

    EXPECT_EQ(withAddress(once, "en5", address), once);
    EXPECT_EQ(withAddress(once, "en5", std::nullopt), "iface en5 inet dhcp\n    mtu 1400\n");
}

TEST(InterfacesFileTest, LeavesATextWithoutTheCardAsItIs) {
    for (const std::string text :
         {"", "\n", "\\\n", "iface", "iface en5", "iface en6 inet static\n address 1.2.3.4\n\r\n"}) {
        EXPECT_EQ(withAddress(text, "en5", address), text);
    }
}

} // namespace
} // namespace NetworkSetup::InterfacesFile
