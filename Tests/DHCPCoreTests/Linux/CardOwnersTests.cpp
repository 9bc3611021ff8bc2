#include "DHCPCore/Linux/CardOwners.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace DHCPCore {

void PrintTo(const NetworkCard::ConfigMethod& method, std::ostream* out) {
    if (const auto* manual = std::get_if<NetworkCard::ConfigMethod::Manual>(&method.value)) {
        *out << "manual " << manual->ip.description() << ' ' << manual->mask.description();
    } else if (const auto* other = std::get_if<NetworkCard::ConfigMethod::Other>(&method.value)) {
        *out << "other " << other->method;
    } else {
        *out << (std::holds_alternative<NetworkCard::ConfigMethod::DHCP>(method.value) ? "dhcp" : "none");
    }
}

namespace {

using ConfigMethod = NetworkCard::ConfigMethod;
using Strings = std::vector<std::string>;

const ConfigMethod dhcp{ConfigMethod::DHCP{}};
const ConfigMethod none{};
const ConfigMethod manual{
    ConfigMethod::Manual{.ip = IPv4Address{192, 168, 0, 1}, .mask = IPv4Address{255, 255, 255, 0}}};
const ConfigMethod unusableManual{ConfigMethod::Other{.method = "Manual"}};
const MACAddress cardMAC{{0x02, 0, 0, 0, 0, 0x05}};

ConfigMethod other(std::string method) { return {ConfigMethod::Other{.method = std::move(method)}}; }

TEST(NetworkManagerTest, ListsDevicesWithTheirConnections) {
    const std::string output = "GENERAL.DEVICE:en5\n"
                               "GENERAL.HWADDR:02:00:00:00:00:05\n"
                               "GENERAL.STATE:100 (connected)\n"
                               "GENERAL.CONNECTION:Joe's: wired\\1\n"
                               "GENERAL.CON-UUID:0a1b2c3d-0000-0000-0000-000000000001\n"
                               "\n"
                               "GENERAL.DEVICE:en6\n"
                               "GENERAL.HWADDR:02:00:00:00:00:06\n"
                               "GENERAL.STATE:20 (unavailable)\n"
                               "GENERAL.CONNECTION:\n"
                               "GENERAL.CON-UUID:\n"
                               "\n"
                               "GENERAL.DEVICE:tun0\n"
                               "GENERAL.HWADDR:(unknown)\n"
                               "GENERAL.STATE:10 (unmanaged)\n"
                               "GENERAL.CONNECTION:--\n"
                               "GENERAL.CON-UUID:--\n";
    const std::vector<NetworkManager::Device> expected{
        {.name = "en5",
         .mac = cardMAC,
         .isManaged = true,
         .connection = "Joe's: wired\\1",
         .connectionUUID = "0a1b2c3d-0000-0000-0000-000000000001"},
        {.name = "en6",
         .mac = MACAddress{{0x02, 0, 0, 0, 0, 0x06}},
         .isManaged = true,
         .connection = "",
         .connectionUUID = ""},
        {.name = "tun0", .mac = std::nullopt, .isManaged = false, .connection = "", .connectionUUID = ""}};
    EXPECT_EQ(NetworkManager::parseDevices(output), expected);
}

TEST(NetworkManagerTest, ListsNoDevicesWhereItDoesNotRun) {
    for (const std::string output : {"", "Error: NetworkManager is not running.\n", "GENERAL.STATE:100\n", "\n:\n"}) {
        EXPECT_EQ(NetworkManager::parseDevices(output), std::vector<NetworkManager::Device>{});
    }
}

TEST(NetworkManagerTest, ManagesADeviceFromTheStateAfterUnmanagedOn) {
    const std::vector<std::pair<std::string, bool>> table{{"0 (unknown)", false},      {"10", false}, {"11", true},
                                                          {"30 (disconnected)", true}, {"", false},   {"x", false}};
    for (const auto& [state, isManaged] : table) {
        const auto devices = NetworkManager::parseDevices("GENERAL.DEVICE:en5\nGENERAL.STATE:" + state + "\n");
        ASSERT_EQ(devices.size(), 1U);
        EXPECT_EQ(devices[0].isManaged, isManaged) << state;
    }
}

TEST(NetworkManagerTest, AsksForEveryConnectionByItsUUID) {
    EXPECT_EQ(NetworkManager::connectionArguments("uuid-1\nuuid-2\n"),
              (Strings{"--terse", "--escape", "no", "--fields",
                       "connection.uuid,connection.id,connection.type,connection.interface-name", "connection", "show",
                       "uuid", "uuid-1", "uuid", "uuid-2"}));
}

TEST(NetworkManagerTest, ReadsConnectionsAsTheyAreNamed) {
    const std::vector<NetworkManager::Connection> expected{
        {.name = "Wired connection 1", .uuid = "uuid-1", .type = "802-3-ethernet", .interfaceName = ""},
        {.name = " Lab: a\\b ", .uuid = "uuid-2", .type = "802-3-ethernet", .interfaceName = "en6"}};
    EXPECT_EQ(NetworkManager::parseConnections("connection.id:of none\n"
                                               "connection.uuid:uuid-1\n"
                                               "connection.id:Wired connection 1\n"
                                               "connection.type:802-3-ethernet\n"
                                               "connection.interface-name:\n"
                                               "\n"
                                               "connection.uuid:uuid-2\n"
                                               "connection.id: Lab: a\\b \n"
                                               "connection.type:802-3-ethernet\n"
                                               "connection.interface-name:en6\n"),
              expected);
}

NetworkManager::Device managed(const std::string& name, const std::string& connection, const std::string& uuid) {
    return {.name = name, .mac = cardMAC, .isManaged = true, .connection = connection, .connectionUUID = uuid};
}

NetworkManager::Connection tied(const std::string& name, const std::string& uuid, const std::string& card) {
    return {.name = name, .uuid = uuid, .type = "802-3-ethernet", .interfaceName = card};
}

TEST(NetworkManagerTest, GivesADeviceWithoutCableTheConnectionThatIsTiedToIt) {
    std::vector<NetworkManager::Device> devices{managed("en5", "In use", "uuid-1"), managed("en6", "", ""),
                                                managed("en7", "", ""), managed("en8", "", "")};
    devices[3].isManaged = false;
    NetworkManager::assignConnections(devices, {tied("Other", "uuid-2", "en5"), tied("Lab", "uuid-3", "en6"),
                                                tied("Any", "uuid-4", ""), tied("Idle", "uuid-5", "en8")});
    std::vector<NetworkManager::Device> expected{managed("en5", "In use", "uuid-1"), managed("en6", "Lab", "uuid-3"),
                                                 managed("en7", "", ""), managed("en8", "", "")};
    expected[3].isManaged = false;
    EXPECT_EQ(devices, expected);
}

TEST(NetworkManagerTest, ChoosesNoneOfSeveralConnectionsThatAreTiedToADevice) {
    std::vector<NetworkManager::Device> devices{managed("en6", "", "")};
    NetworkManager::assignConnections(devices, {tied("Lab", "uuid-1", "en6"), tied("Office", "uuid-2", "en6")});
    EXPECT_EQ(devices, (std::vector<NetworkManager::Device>{managed("en6", "", "")}));
}

TEST(NetworkManagerTest, TellsHowAConnectionConfiguresIPv4) {
    const std::vector<std::pair<std::string, ConfigMethod>> table{
        {"ipv4.method:auto\nipv4.addresses:\n", dhcp},
        {"ipv4.method:auto\nipv4.addresses:192.168.0.1/24\n", dhcp},
        {"ipv4.method:manual\nipv4.addresses:192.168.0.1/24\n", manual},
        {"ipv4.method:manual\nipv4.addresses:192.168.0.1/24, 10.0.0.1/8\n", manual},
        {"ipv4.method:manual\nipv4.addresses:\n", unusableManual},
        {"ipv4.method:manual\n", unusableManual},
        {"ipv4.method:manual\nipv4.addresses:192.168.0.1\n", unusableManual},
        {"ipv4.method:link-local\nipv4.addresses:\n", other("link-local")},
        {"ipv4.method:disabled\n", other("disabled")},
        {"", none},
        {"Error: no such connection profile.\n", none}};
    for (const auto& [output, method] : table) {
        EXPECT_EQ(NetworkManager::parseMethod(output), method) << output;
    }
}

TEST(NetworkdTest, NamesTheFileThatOwnsACard) {
    EXPECT_EQ(Networkd::networkFile("# This is private data. Do not parse.\nADMIN_STATE=configured\n"
                                    "NETWORK_FILE=/etc/systemd/network/10-en5.network\nDNS=\n"),
              "/etc/systemd/network/10-en5.network");
    for (const std::string text : {"", "ADMIN_STATE=unmanaged\n", "NETWORK_FILE=\n", "XNETWORK_FILE=/etc\n"}) {
        EXPECT_EQ(Networkd::networkFile(text), std::nullopt) << text;
    }
}

/// What a network file that names the card says.
std::optional<ConfigMethod> networkdMethod(const std::string& rest) {
    return Networkd::parseMethod("[Match]\nName=en5\n" + rest, "en5", cardMAC);
}

TEST(NetworkdTest, TellsHowAFileConfiguresIPv4) {
    const std::vector<std::pair<std::string, ConfigMethod>> table{
        {"", none},
        {"[Network]\nDHCP=yes\n", dhcp},
        {"[Network]\nDHCP=ipv4\nAddress=192.168.0.1/24\n", dhcp},
        {"[Network]\nDHCP=ipv6\n", none},
        {"[Network]\nDHCP=yes\nDHCP=no\n", none},
        {"[Network]\nAddress=192.168.0.1/24\n", manual},
        {"[Network]\n  Address = 192.168.0.1/24  \n", manual},
        {"[Network]\nAddress=fd00::1/64\nAddress=192.168.0.1/24\nAddress=10.0.0.1/8\n", manual},
        {"[Address]\nAddress=192.168.0.1/24\n", manual},
        {"[Network]\nAddress=10.0.0.1/8\nAddress=\nAddress=192.168.0.1/24\n", manual},
        {"[Network]\nAddress=\\\n192.168.0.1/24\n", manual},
        {"[Network]\nAddress=10.0.0.1\n", none},
        {"[Network]\n#DHCP=yes\n;DHCP=yes\n", none},
        {"[Route]\nDHCP=yes\nAddress=192.168.0.1/24\n", none}};
    for (const auto& [text, method] : table) {
        EXPECT_EQ(networkdMethod(text), method) << text;
    }
}

TEST(NetworkdTest, SpeaksOfTheCardThatItsFileNames) {
    for (const std::string match :
         {"Name=en5", "Name=en*", "Name=eth0 en5", "Name=eth0\nName=en[0-9]", "Name=!eth*",
          "MACAddress=02:00:00:00:00:05", "PermanentMACAddress=02:00:00:00:00:06 02:00:00:00:00:05"}) {
        EXPECT_EQ(Networkd::parseMethod("[Match]\n" + match + "\n", "en5", cardMAC), none) << match;
    }
}

TEST(NetworkdTest, DoesNotSpeakOfACardThatItsFileDoesNotName) {
    for (const std::string match : {"", "Type=ether", "Name=en6", "Name=en", "Name=!en* eth0", "Name=en5x",
                                    "MACAddress=02:00:00:00:00:06", "Name=en6\nMACAddress=02:00:00:00:00:05"}) {
        EXPECT_EQ(Networkd::parseMethod("[Match]\n" + match + "\n[Network]\nDHCP=yes\n", "en5", cardMAC), std::nullopt)
            << match;
    }
    EXPECT_EQ(Networkd::parseMethod("[Match]\nMACAddress=x\n", "en5", std::nullopt), std::nullopt);
}

TEST(IfupdownTest, ReadsStanzasForIPv4InTheirOrder) {
    const std::string text = "# the loopback network interface\n"
                             "auto lo en5\n"
                             "iface lo inet loopback\n"
                             "\n"
                             "allow-hotplug en5\n"
                             "iface en5 inet static\n"
                             "    # the lab\n"
                             "    address 192.168.0.1/24\n"
                             "    gateway 192.168.0.9\n"
                             "iface en5 inet6 auto\n"
                             "    address 10.0.0.1/8\n"
                             "iface en6 inet dhcp\n"
                             "iface en7 inet manual\n";
    const Ifupdown::Configuration expected{.stanzas = {{.cardName = "lo", .method = other("loopback")},
                                                       {.cardName = "en5", .method = manual},
                                                       {.cardName = "en6", .method = dhcp},
                                                       {.cardName = "en7", .method = other("manual")}},
                                           .sources = {}};
    EXPECT_EQ(Ifupdown::parse(text), expected);
}

TEST(IfupdownTest, ReadsAnAddressWithEveryKindOfMask) {
    const std::vector<std::pair<std::string, ConfigMethod>> table{
        {"address 192.168.0.1/24\n", manual},
        {"address 192.168.0.1\nnetmask 255.255.255.0\n", manual},
        {"netmask 24\naddress 192.168.0.1\n", manual},
        {"\taddress\t192.168.0.1 \r\n\tnetmask\t24\r\n", manual},
        {"address 192.168.0.1 \\\n\nnetmask 24\n", manual},
        {"address \\\n192.168.0.1/24\n", manual},
        {"address 192.168.0.1\n", unusableManual},
        {"address 192.168.0.1\nnetmask 255.0.255.0\n", unusableManual},
        {"address 192.168.0.1\nnetmask 33\n", unusableManual},
        {"address lab-server/24\n", unusableManual},
        {"address\n", unusableManual},
        {"", unusableManual}};
    for (const auto& [options, method] : table) {
        const auto configuration = Ifupdown::parse("iface en5 inet static\n" + options);
        EXPECT_EQ(configuration.stanzas, (std::vector<Ifupdown::Stanza>{{.cardName = "en5", .method = method}}))
            << options;
    }
}

TEST(IfupdownTest, GoesByTheFirstStanzaOfACard) {
    const std::vector<Ifupdown::Stanza> stanzas{{.cardName = "en5", .method = manual},
                                                {.cardName = "en6", .method = dhcp},
                                                {.cardName = "en5", .method = dhcp}};
    EXPECT_EQ(Ifupdown::methodOf(stanzas, "en5"), manual);
    EXPECT_EQ(Ifupdown::methodOf(stanzas, "en6"), dhcp);
    EXPECT_EQ(Ifupdown::methodOf(stanzas, "en"), std::nullopt);
}

TEST(IfupdownTest, NamesTheFurtherFiles) {
    const auto configuration = Ifupdown::parse("source /etc/network/interfaces.d/*\nsource-directory more\nsource\n");
    EXPECT_EQ(configuration.sources, (Strings{"/etc/network/interfaces.d/*", "more/*"}));
}

TEST(IfupdownTest, EndsAStanzaWhereAnythingElseBegins) {
    for (const std::string keyword : {"auto en5", "allow-hotplug en5", "mapping eth0", "source more", "rename a=b",
                                      "no-scripts en5", "template x", "iface en9 inet6 auto"}) {
        const auto configuration = Ifupdown::parse("iface en5 inet static\n" + keyword + "\naddress 192.168.0.1/24\n");
        EXPECT_EQ(configuration.stanzas, (std::vector<Ifupdown::Stanza>{{.cardName = "en5", .method = unusableManual}}))
            << keyword;
    }
}

TEST(IfupdownTest, SkipsWhatIsIncomplete) {
    for (const std::string text : {"", "\n\n", "iface", "iface en5 inet", "iface en5 inet6 static",
                                   "address 10.0.0.1/8", "\\", "#iface en5 inet dhcp", "  # iface en5 inet dhcp"}) {
        EXPECT_EQ(Ifupdown::parse(text), Ifupdown::Configuration{}) << text;
    }
}

} // namespace
} // namespace DHCPCore
