#include "DHCPCore/Preflight.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace DHCPCore {

void PrintTo(const PreflightCheck& check, std::ostream* out) {
    *out << rawValue(check.id) << ' ' << static_cast<int>(check.status) << " \"" << check.message << '"'
         << (check.fix ? " with fix" : "");
}

namespace {

using ID = PreflightCheck::ID;
using Status = PreflightCheck::Status;
using ConfigMethod = NetworkCard::ConfigMethod;

constexpr IPv4Address serverIP{192, 168, 0, 1};
constexpr Subnet serverSubnet{.address = serverIP, .prefixLength = 24};

PreflightCheck passed(ID id, std::string message) {
    return {.id = id, .status = Status::pass, .message = std::move(message), .fix = {}};
}
PreflightCheck warned(ID id, std::string message) {
    return {.id = id, .status = Status::warn, .message = std::move(message), .fix = {}};
}
PreflightCheck failed(ID id, std::string message) {
    return {.id = id, .status = Status::fail, .message = std::move(message), .fix = {}};
}

PreflightCheck withFix(PreflightCheck check, std::string service) {
    check.fix = PreflightCheck::Fix{PreflightCheck::Fix::ConfigureAdapter{.service = std::move(service)}};
    return check;
}

ConfigMethod manual(IPv4Address ip, IPv4Address mask) { return {ConfigMethod::Manual{.ip = ip, .mask = mask}}; }

/// A host on which nothing stands in the way.
PreflightInput readyHost() {
    PreflightInput input;
    input.card.bsdName = "en7";
    input.card.displayName = "USB LAN adapter";
    input.card.serviceName = "USB LAN";
    input.card.kind = NetworkCard::Kind::ethernet;
    input.card.linkUp = true;
    input.card.media = "1000baseT full-duplex";
    input.card.addresses = {serverSubnet};
    input.card.configMethod = manual(serverIP, serverSubnet.mask());
    input.otherAddresses = {
        {.name = "lo0", .subnet = {.address = IPv4Address::loopback, .prefixLength = 8}, .isPointToPoint = false},
        {.name = "en0", .subnet = {.address = IPv4Address{10, 0, 0, 5}, .prefixLength = 24}, .isPointToPoint = false},
        {.name = "en7", .subnet = serverSubnet, .isPointToPoint = false}};
    input.config.serverIP = serverIP;
    input.config.prefixLength = 24;
    input.config.rangeStart = IPv4Address{192, 168, 0, 100};
    input.config.rangeEnd = IPv4Address{192, 168, 0, 200};
    input.config.leaseSeconds = 3600;
    input.port67 = {Port67State::Free{}};
    return input;
}

std::vector<PreflightCheck> readyChecks() {
    return {passed(ID::wired, "Wired card, not the Mac's internet route"),
            passed(ID::foreignDHCP, "No other DHCP server has configured this card"),
            passed(ID::adapterConfigured, "USB LAN is set to 192.168.0.1/24"),
            passed(ID::subnetOverlap, "No overlap with other networks"),
            passed(ID::port67, "Port 67 is free"),
            passed(ID::link, "Link up \u00B7 1000baseT full-duplex")};
}

/// The check of that kind; nothing when there is none.
std::optional<PreflightCheck> find(const std::vector<PreflightCheck>& checks, ID id) {
    for (const PreflightCheck& check : checks) {
        if (check.id == id) {
            return check;
        }
    }
    return std::nullopt;
}

std::optional<PreflightCheck> evaluated(const PreflightInput& input, ID id) {
    return find(Preflight::evaluate(input), id);
}

TEST(PreflightCheckTest, NamesItsChecksInTheirOrder) {
    std::vector<std::string> names;
    for (const ID id : allCases<ID>()) {
        names.emplace_back(rawValue(id));
    }
    EXPECT_EQ(names, (std::vector<std::string>{"wired", "foreignDHCP", "adapterConfigured", "subnetOverlap",
                                               "vpnOverlap", "port67", "link", "vmware"}));
}

TEST(PreflightTest, PassesOnAHostThatIsReady) { EXPECT_EQ(Preflight::evaluate(readyHost()), readyChecks()); }

TEST(PreflightTest, ReportsEightChecksInTheirOrderWhenEverythingIsWrong) {
    PreflightInput input = readyHost();
    input.card.kind = NetworkCard::Kind::wifi;
    input.card.linkUp = false;
    input.card.configMethod = {ConfigMethod::DHCP{}};
    input.card.addresses = {{.address = IPv4Address{10, 1, 1, 1}, .prefixLength = 24}};
    input.otherAddresses.push_back({.name = "en1", .subnet = serverSubnet, .isPointToPoint = false});
    input.otherAddresses.push_back({.name = "utun3",
                                    .subnet = {.address = IPv4Address{192, 168, 0, 77}, .prefixLength = 32},
                                    .isPointToPoint = true});
    input.port67 = {Port67State::InUse{.holder = "dnsmasq:812"}};
    input.vmwareRunning = true;
    const std::vector<PreflightCheck> expected{
        failed(ID::wired, "USB LAN adapter is not a wired card."),
        failed(ID::foreignDHCP, "This card is on a network that already has a DHCP server (it got 10.1.1.1)."),
        withFix(failed(ID::adapterConfigured, "Card isn't set to 192.168.0.1/24"), "USB LAN"),
        failed(ID::subnetOverlap, "192.168.0.0/24 overlaps en1 (192.168.0.0/24)"),
        warned(ID::vpnOverlap, "VPN address 192.168.0.77 on utun3 is inside 192.168.0.0/24"),
        failed(ID::port67,
               "Port 67 is in use by dnsmasq:812. Turn off Internet Sharing or stop the VM's shared network."),
        warned(ID::link, "No link: the server will start and wait for a device"),
        warned(ID::vmware, "VMware Fusion is running and may grab the adapter")};
    EXPECT_EQ(Preflight::evaluate(input), expected);
}

TEST(PreflightTest, RefusesACardThatIsNotWiredAndChecksTheRest) {
    for (const auto kind : {NetworkCard::Kind::wifi, NetworkCard::Kind::bridge, NetworkCard::Kind::other}) {
        PreflightInput input = readyHost();
        input.card.kind = kind;
        input.card.isPrimary = true;
        auto expected = readyChecks();
        expected[0] = failed(ID::wired, "USB LAN adapter is not a wired card.");
        EXPECT_EQ(Preflight::evaluate(input), expected);
    }
}

TEST(PreflightTest, RefusesTheHostsInternetConnection) {
    PreflightInput input = readyHost();
    input.card.isPrimary = true;
    EXPECT_EQ(evaluated(input, ID::wired), failed(ID::wired, "USB LAN adapter is the Mac's main internet connection."));
}

TEST(PreflightTest, NamesTheFirstAddressThatAnotherServerGave) {
    PreflightInput input = readyHost();
    input.card.configMethod = {ConfigMethod::DHCP{}};
    input.card.addresses = {{.address = IPv4Address{169, 254, 3, 4}, .prefixLength = 16},
                            {.address = IPv4Address{172, 16, 0, 9}, .prefixLength = 16},
                            {.address = IPv4Address{10, 0, 0, 9}, .prefixLength = 8}};
    EXPECT_EQ(evaluated(input, ID::foreignDHCP),
              failed(ID::foreignDHCP, "This card is on a network that already has a DHCP server (it got 172.16.0.9)."));
}

TEST(PreflightTest, RefusesTheAdapterAsWellWhenAnotherServerConfiguresIt) {
    PreflightInput input = readyHost();
    input.card.configMethod = {ConfigMethod::DHCP{}};
    EXPECT_EQ(evaluated(input, ID::adapterConfigured),
              withFix(failed(ID::adapterConfigured, "Card isn't set to 192.168.0.1/24"), "USB LAN"));
    input.card.serviceName = std::nullopt;
    EXPECT_EQ(evaluated(input, ID::adapterConfigured),
              failed(ID::adapterConfigured, "No network service for en7. Add it in System Settings > Network."));
}

TEST(PreflightTest, OffersTheFixToACardOnDHCPThatOnlyAssignedItselfAnAddress) {
    PreflightInput input = readyHost();
    input.card.configMethod = {ConfigMethod::DHCP{}};
    input.card.addresses = {{.address = IPv4Address{169, 254, 3, 4}, .prefixLength = 16}};
    EXPECT_EQ(evaluated(input, ID::foreignDHCP),
              passed(ID::foreignDHCP, "No other DHCP server has configured this card"));
    EXPECT_EQ(evaluated(input, ID::adapterConfigured),
              withFix(failed(ID::adapterConfigured, "Card isn't set to 192.168.0.1/24"), "USB LAN"));
}

TEST(PreflightTest, TakesNoOtherMethodForAForeignServer) {
    for (const ConfigMethod& method : {manual(serverIP, serverSubnet.mask()),
                                       ConfigMethod{ConfigMethod::Other{.method = "BOOTP"}}, ConfigMethod{}}) {
        PreflightInput input = readyHost();
        input.card.configMethod = method;
        EXPECT_EQ(evaluated(input, ID::foreignDHCP),
                  passed(ID::foreignDHCP, "No other DHCP server has configured this card"));
    }
}

TEST(PreflightTest, NamesTheCardWhereAConfiguredOneHasNoService) {
    PreflightInput input = readyHost();
    input.card.serviceName = std::nullopt;
    EXPECT_EQ(evaluated(input, ID::adapterConfigured), passed(ID::adapterConfigured, "en7 is set to 192.168.0.1/24"));
}

TEST(PreflightTest, WantsExactlyTheServersAddressAndMask) {
    const auto refused = withFix(failed(ID::adapterConfigured, "Card isn't set to 192.168.0.1/24"), "USB LAN");
    for (const ConfigMethod& method :
         {manual(serverIP, IPv4Address{255, 255, 0, 0}), manual(serverIP, IPv4Address{255, 255, 255, 128}),
          manual(IPv4Address{192, 168, 0, 2}, serverSubnet.mask()), ConfigMethod{},
          ConfigMethod{ConfigMethod::Other{.method = "Manual"}}}) {
        PreflightInput input = readyHost();
        input.card.configMethod = method;
        EXPECT_EQ(evaluated(input, ID::adapterConfigured), refused);
    }
}

TEST(PreflightTest, HasNoFixForACardWithoutService) {
    PreflightInput input = readyHost();
    input.card.configMethod = {};
    input.card.serviceName = std::nullopt;
    EXPECT_EQ(evaluated(input, ID::adapterConfigured),
              failed(ID::adapterConfigured, "No network service for en7. Add it in System Settings > Network."));
}

/// The check of networks on a host with one more address.
std::optional<PreflightCheck> overlapWith(const std::string& name, const Subnet& subnet, bool isPointToPoint = false) {
    PreflightInput input = readyHost();
    input.otherAddresses.push_back({.name = name, .subnet = subnet, .isPointToPoint = isPointToPoint});
    return evaluated(input, ID::subnetOverlap);
}

const PreflightCheck noOverlap = passed(ID::subnetOverlap, "No overlap with other networks");

TEST(PreflightTest, RefusesANetworkThatHoldsTheServers) {
    EXPECT_EQ(overlapWith("en1", {.address = IPv4Address{192, 168, 5, 9}, .prefixLength = 16}),
              failed(ID::subnetOverlap, "192.168.0.0/24 overlaps en1 (192.168.0.0/16)"));
    EXPECT_EQ(overlapWith("en1", {.address = IPv4Address{10, 9, 8, 7}, .prefixLength = 0}),
              failed(ID::subnetOverlap, "192.168.0.0/24 overlaps en1 (0.0.0.0/0)"));
}

TEST(PreflightTest, RefusesANetworkInsideTheServers) {
    EXPECT_EQ(overlapWith("en1", {.address = IPv4Address{192, 168, 0, 130}, .prefixLength = 25}),
              failed(ID::subnetOverlap, "192.168.0.0/24 overlaps en1 (192.168.0.128/25)"));
    EXPECT_EQ(overlapWith("en1", {.address = IPv4Address{192, 168, 0, 255}, .prefixLength = 32}),
              failed(ID::subnetOverlap, "192.168.0.0/24 overlaps en1 (192.168.0.255/32)"));
}

TEST(PreflightTest, AllowsTheNetworksNextToTheServers) {
    EXPECT_EQ(overlapWith("en1", {.address = IPv4Address{192, 168, 1, 0}, .prefixLength = 24}), noOverlap);
    EXPECT_EQ(overlapWith("en1", {.address = IPv4Address{192, 167, 255, 255}, .prefixLength = 16}), noOverlap);
}

TEST(PreflightTest, NeverTakesTheCardsOwnAddressesOrLoopbackForAnotherNetwork) {
    EXPECT_EQ(overlapWith("en7", serverSubnet), noOverlap);
    EXPECT_EQ(overlapWith("lo0", serverSubnet), noOverlap);
    PreflightInput input = readyHost();
    for (const std::string name : {"en7", "lo0"}) {
        input.otherAddresses.push_back({.name = name, .subnet = serverSubnet, .isPointToPoint = true});
    }
    EXPECT_EQ(evaluated(input, ID::vpnOverlap), std::nullopt);
}

TEST(PreflightTest, NamesTheFirstOverlappingNetwork) {
    PreflightInput input = readyHost();
    for (const std::string name : {"en2", "en1"}) {
        input.otherAddresses.push_back({.name = name, .subnet = serverSubnet, .isPointToPoint = false});
    }
    EXPECT_EQ(evaluated(input, ID::subnetOverlap),
              failed(ID::subnetOverlap, "192.168.0.0/24 overlaps en2 (192.168.0.0/24)"));
}

TEST(PreflightTest, LeavesPointToPointAddressesToTheVPNCheck) {
    EXPECT_EQ(overlapWith("utun0", serverSubnet, true), noOverlap);
}

TEST(PreflightTest, ClampsAPrefixThatIsNone) {
    PreflightInput input = readyHost();
    input.config.prefixLength = -1;
    EXPECT_EQ(evaluated(input, ID::subnetOverlap), failed(ID::subnetOverlap, "0.0.0.0/0 overlaps en0 (10.0.0.0/24)"));
    EXPECT_EQ(evaluated(input, ID::adapterConfigured),
              withFix(failed(ID::adapterConfigured, "Card isn't set to 192.168.0.1/-1"), "USB LAN"));
    input.config.prefixLength = 33;
    EXPECT_EQ(evaluated(input, ID::subnetOverlap), noOverlap);
}

/// The check of VPNs on a host with one more tunnel.
std::optional<PreflightCheck> tunnelTo(IPv4Address address, int prefixLength = 32) {
    PreflightInput input = readyHost();
    input.otherAddresses.push_back(
        {.name = "utun4", .subnet = {.address = address, .prefixLength = prefixLength}, .isPointToPoint = true});
    return evaluated(input, ID::vpnOverlap);
}

TEST(PreflightTest, WarnsOfATunnelInsideTheServersNetwork) {
    EXPECT_EQ(tunnelTo(IPv4Address{192, 168, 0, 0}),
              warned(ID::vpnOverlap, "VPN address 192.168.0.0 on utun4 is inside 192.168.0.0/24"));
    EXPECT_EQ(tunnelTo(IPv4Address{192, 168, 0, 255}, 8),
              warned(ID::vpnOverlap, "VPN address 192.168.0.255 on utun4 is inside 192.168.0.0/24"));
}

TEST(PreflightTest, SaysNothingOfATunnelElsewhere) {
    EXPECT_EQ(tunnelTo(IPv4Address{192, 168, 1, 0}), std::nullopt);
    EXPECT_EQ(tunnelTo(IPv4Address{192, 167, 255, 255}, 8), std::nullopt) << "only the address itself counts";
}

TEST(PreflightTest, WarnsOfEveryTunnelWhenTheServersNetworkIsEverything) {
    PreflightInput input = readyHost();
    input.config.prefixLength = 0;
    input.otherAddresses = {
        {.name = "utun4", .subnet = {.address = IPv4Address{10, 0, 0, 1}, .prefixLength = 32}, .isPointToPoint = true}};
    EXPECT_EQ(evaluated(input, ID::vpnOverlap),
              warned(ID::vpnOverlap, "VPN address 10.0.0.1 on utun4 is inside 0.0.0.0/0"));
}

TEST(PreflightTest, SaysWhyPort67CannotBeHad) {
    PreflightInput input = readyHost();
    input.port67 = {Port67State::InUse{.holder = std::nullopt}};
    EXPECT_EQ(
        evaluated(input, ID::port67),
        failed(ID::port67,
               "Port 67 is in use by another program. Turn off Internet Sharing or stop the VM's shared network."));
    input.port67 = {Port67State::Error{.text = "Permission denied"}};
    EXPECT_EQ(evaluated(input, ID::port67), failed(ID::port67, "Port 67 can't be opened: Permission denied"));
}

TEST(PreflightTest, CallsALinkWithoutKnownMediaConnected) {
    PreflightInput input = readyHost();
    input.card.media = std::nullopt;
    EXPECT_EQ(evaluated(input, ID::link), passed(ID::link, "Link up \u00B7 connected"));
}

TEST(PreflightTest, LetsTheServerStartUnlessACheckFailed) {
    const auto pass = passed(ID::wired, "");
    const auto warn = warned(ID::link, "");
    EXPECT_TRUE(Preflight::canStart({}));
    EXPECT_TRUE(Preflight::canStart({pass, warn}));
    EXPECT_FALSE(Preflight::canStart({pass, failed(ID::port67, ""), warn}));
}

/// As `netstat -anv -p udp` prints it.
constexpr std::string_view netstatOutput =
    "Active Internet connections (including servers)\n"
    "Proto Recv-Q Send-Q  Local Address          Foreign Address        (state)       rhiwat  shiwat    process:pid\n"
    "udp4       0      0  *.5067                 *.*                                  786896    9216  "
    "mDNSResponder:345\n"
    "\n"
    "udp4  0  0  *.67                   *.*                                  786896    9216  bootpd:812  00100\n"
    "udp4  0  0  *.67                   *.*                                  786896    9216  dnsmasq:813  00100\n";

TEST(NetstatTest, NamesTheFirstProcessAtThePort) {
    EXPECT_EQ(Preflight::holderInNetstat(netstatOutput, 67), "bootpd:812");
}

TEST(NetstatTest, TakesNoLongerPortForIt) {
    const std::string line = "udp4  0  0  *.5067  *.*  786896  9216  mDNSResponder:345\n";
    EXPECT_EQ(Preflight::holderInNetstat(line, 67), std::nullopt);
    EXPECT_EQ(Preflight::holderInNetstat(line, 5067), "mDNSResponder:345");
    EXPECT_EQ(Preflight::holderInNetstat("udp4  0  0  *.670  *.*  1  bootpd:1\n", 67), std::nullopt);
    EXPECT_EQ(Preflight::holderInNetstat("udp4  0  0  67  *.*  1  bootpd:1\n", 67), std::nullopt);
}

TEST(NetstatTest, LooksAtTheFourthColumnOfMoreThanFour) {
    EXPECT_EQ(Preflight::holderInNetstat("a:1  b  c  *.67\n", 67), std::nullopt);
    EXPECT_EQ(Preflight::holderInNetstat("a:1  b  c  *.67  d\n", 67), "a:1");
    EXPECT_EQ(Preflight::holderInNetstat("a:1  b  *.67  c  d\n", 67), std::nullopt);
    EXPECT_EQ(Preflight::holderInNetstat("a:1  b  c  d  *.67\n", 67), std::nullopt);
}

TEST(NetstatTest, KeepsASingleBlankInItsColumn) {
    EXPECT_EQ(Preflight::holderInNetstat("udp4  0  0  *.67  *.*  Internet Sharing:99\n", 67), "Internet Sharing:99");
    EXPECT_EQ(Preflight::holderInNetstat("udp4 0 0 *.67 *.* bootpd:812\n", 67), std::nullopt);
    EXPECT_EQ(Preflight::holderInNetstat("udp4\t\t0 \t0\t 192.168.0.1.67  \t*.*   bootpd:812", 67), "bootpd:812");
    EXPECT_EQ(Preflight::holderInNetstat("  udp4  0  0  *.67  *.*  bootpd:812  \n", 67), "bootpd:812");
}

TEST(NetstatTest, TakesOnlyANameAColonAndDigitsForAProcess) {
    const auto holder = [](const std::string& column) {
        return Preflight::holderInNetstat("udp4  0  0  *.67  x  " + column + "\n", 67);
    };
    EXPECT_EQ(holder("a:b:7"), "a:b:7");
    EXPECT_EQ(holder("::7"), "::7");
    for (const std::string column : {":7", "a:", "a:7x", "a7", "*:7", "a*:7", "a:+7", "a:7 "}) {
        EXPECT_EQ(holder(column), std::nullopt) << column;
    }
}

TEST(NetstatTest, GoesOnToTheNextLineWhenOneNamesNobody) {
    EXPECT_EQ(Preflight::holderInNetstat("udp4  0  0  *.67  *.*  1\nudp4  0  0  *.67  *.*  bootpd:812\n", 67),
              "bootpd:812");
}

TEST(NetstatTest, FindsNobodyInAnythingElse) {
    for (const std::string_view output : {"", "\n\n", "netstat: command not found", "  ", ":67"}) {
        EXPECT_EQ(Preflight::holderInNetstat(output, 67), std::nullopt);
    }
}

} // namespace
} // namespace DHCPCore
