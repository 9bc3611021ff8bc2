#include "networksetup/Plan.hpp"
#include "networksetup/Refusal.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace NetworkSetup {
namespace {

using DHCPCore::IPv4Address;
using DHCPCore::Subnet;

using Address = std::optional<Subnet>;
using Arguments = std::vector<std::string>;

constexpr Subnet lab{.address = IPv4Address{192, 168, 0, 1}, .prefixLength = 24};

/// A host with the wired card "en5" with link, the wired card "en6" without, and the wireless card "wl0".
Facts bareHost() {
    return {.cards = {{.name = "en5", .isWired = true, .hasLink = true},
                      {.name = "en6", .isWired = true, .hasLink = false},
                      {.name = "wl0", .isWired = false, .hasLink = true}},
            .networkManager = {},
            .networkd = {},
            .ifupdown = {}};
}

Facts hostWith(std::vector<NetworkManagerFacts::Connection> connections) {
    Facts facts = bareHost();
    facts.networkManager = NetworkManagerFacts{
        .nmcli = "/bin/nmcli", .connections = std::move(connections), .cards = {"en5", "en6", "wl0"}};
    return facts;
}

NetworkManagerFacts::Connection connection(const std::string& name, const std::string& uuid,
                                           std::optional<std::string> card, bool isActive) {
    return {.name = name, .uuid = uuid, .type = "802-3-ethernet", .card = std::move(card), .isActive = isActive};
}

Facts hostWithNetworkd(const std::string& file, std::optional<std::string> presentText = {}) {
    Facts facts = bareHost();
    facts.networkd = NetworkdFacts{.networkctl = "/bin/networkctl",
                                   .directory = "/etc/systemd/network",
                                   .files = {{"en5", file}},
                                   .presentText = std::move(presentText)};
    return facts;
}

Facts hostWithIfupdown(std::vector<IfupdownFacts::File> files, std::set<std::string> upCards = {}) {
    Facts facts = bareHost();
    facts.ifupdown = IfupdownFacts{
        .ifup = "/sbin/ifup", .ifdown = "/sbin/ifdown", .files = std::move(files), .upCards = std::move(upCards)};
    return facts;
}

Step run(const std::string& path, Arguments arguments, const std::string& failure) {
    return {.value = Step::RunProgram{.path = path, .arguments = std::move(arguments)}, .failure = failure};
}

Step write(const std::string& path, const std::string& text, const std::string& failure) {
    return {.value = Step::WriteFile{.path = path, .text = text}, .failure = failure};
}

/// The sentence with which the service is refused; empty when it is planned.
std::string refusalOf(const std::string& service, const Address& address, const Facts& facts) {
    try {
        static_cast<void>(makePlan(service, address, facts));
        return {};
    } catch (const Refusal& refusal) {
        return refusal.description();
    }
}

} // namespace

void PrintTo(const Plan& plan, std::ostream* out) {
    for (const Step& step : plan.steps) {
        if (const auto* const program = std::get_if<Step::RunProgram>(&step.value)) {
            *out << program->path;
            for (const std::string& argument : program->arguments) {
                *out << " [" << argument << ']';
            }
        } else if (const auto* const file = std::get_if<Step::WriteFile>(&step.value)) {
            *out << file->path << " =\n" << file->text;
        } else {
            *out << "step " << step.value.index();
        }
        *out << " | " << step.failure << '\n';
    }
    *out << plan.done;
}

namespace {

TEST(PlanTest, SetsABareCardInTheKernel) {
    EXPECT_EQ(makePlan("en5", lab, bareHost()),
              (Plan{.steps = {{.value = Step::SetAddress{.card = "en5", .address = lab},
                               .failure = "Could not set en5 to 192.168.0.1/24"}},
                    .done = "Set en5 to 192.168.0.1/24 until the next restart, as no network manager owns it"}));
}

TEST(PlanTest, TellsThatNobodyAsksDHCPForABareCard) {
    EXPECT_EQ(
        makePlan("en5", std::nullopt, bareHost()),
        (Plan{.steps = {{.value = Step::RemoveAddresses{.card = "en5", .all = false},
                         .failure = "Could not remove the fixed addresses of en5"}},
              .done = "Removed the fixed addresses of en5, but no network manager owns it, so nobody asks DHCP for "
                      "another"}));
}

TEST(PlanTest, RefusesAnUnknownService) {
    EXPECT_EQ(refusalOf("en7", lab, bareHost()), "No network service is named en7.");
    EXPECT_EQ(refusalOf("EN5", std::nullopt, bareHost()), "No network service is named EN5.");
    EXPECT_EQ(refusalOf("USB LAN", lab, Facts{}), "No network service is named USB LAN.");
}

TEST(PlanTest, RefusesABareCardThatIsNotWired) {
    EXPECT_EQ(refusalOf("wl0", lab, bareHost()), "wl0 is not a wired card, and no network manager owns it.");
}

TEST(PlanTest, SetsAConnectionOfNetworkManager) {
    const Facts facts = hostWith({connection("USB LAN", "uuid-1", "en5", true)});

    EXPECT_EQ(
        makePlan("USB LAN", lab, facts),
        (Plan{.steps = {run("/bin/nmcli",
                            {"connection", "modify", "uuid", "uuid-1", "ipv4.method", "manual", "ipv4.addresses",
                             "192.168.0.1/24", "ipv4.gateway", "", "connection.autoconnect", "yes"},
                            "Could not change the NetworkManager connection USB LAN"),
                        run("/bin/nmcli", {"--wait", "30", "connection", "up", "uuid", "uuid-1", "ifname", "en5"},
                            "Set the NetworkManager connection USB LAN to 192.168.0.1/24, but could not bring it up")},
              .done = "Set the NetworkManager connection USB LAN to 192.168.0.1/24"}));
}

TEST(PlanTest, ReturnsAConnectionToDHCPWithoutWaitingForAnAnswer) {
    const Facts facts = hostWith({connection("USB LAN", "uuid-1", "en5", true)});

    EXPECT_EQ(makePlan("USB LAN", std::nullopt, facts),
              (Plan{.steps = {run("/bin/nmcli",
                                  {"connection", "modify", "uuid", "uuid-1", "ipv4.method", "auto", "ipv4.addresses",
                                   "", "ipv4.gateway", ""},
                                  "Could not change the NetworkManager connection USB LAN"),
                              run("/bin/nmcli", {"--wait", "0", "connection", "up", "uuid", "uuid-1", "ifname", "en5"},
                                  "Set the NetworkManager connection USB LAN to DHCP, but could not bring it up")},
                    .done = "Set the NetworkManager connection USB LAN to DHCP"}));
}

TEST(PlanTest, LeavesAConnectionDownWhileTheCableIsOut) {
    const Plan plan = makePlan("Lab", lab, hostWith({connection("Lab", "uuid-2", "en6", false)}));

    EXPECT_EQ(plan.steps.size(), 1U);
    EXPECT_EQ(plan.done,
              "Set the NetworkManager connection Lab to 192.168.0.1/24; it takes effect when the cable is plugged in");
}

TEST(PlanTest, BringsUpAConnectionOfAnyCard) {
    const Plan plan = makePlan("Lab", lab, hostWith({connection("Lab", "uuid-2", std::nullopt, false)}));

    ASSERT_EQ(plan.steps.size(), 2U);
    EXPECT_EQ(plan.steps[1], run("/bin/nmcli", {"--wait", "30", "connection", "up", "uuid", "uuid-2"},
                                 "Set the NetworkManager connection Lab to 192.168.0.1/24, but could not bring it up"));
}

TEST(PlanTest, TakesTheActiveOneOfConnectionsWithTheSameName) {
    const Plan plan = makePlan(
        "Lab", lab,
        hostWith({connection("Lab", "uuid-1", std::nullopt, false), connection("Lab", "uuid-2", "en6", true)}));

    EXPECT_EQ(std::get<Step::RunProgram>(plan.steps.at(0).value).arguments.at(3), "uuid-2");
}

TEST(PlanTest, RefusesToGuessBetweenConnectionsWithTheSameName) {
    const auto sentence = "Several NetworkManager connections are named Lab.";
    EXPECT_EQ(refusalOf("Lab", lab,
                        hostWith({connection("Lab", "uuid-1", "en5", true), connection("Lab", "uuid-2", "en6", true)})),
              sentence);
    EXPECT_EQ(refusalOf("Lab", lab,
                        hostWith({connection("Lab", "uuid-1", {}, false), connection("Lab", "uuid-2", {}, false)})),
              sentence);
}

TEST(PlanTest, TakesNoConnectionThatIsNotWired) {
    Facts facts = hostWith({connection("Home", "uuid-1", "wl0", true)});
    facts.networkManager->connections[0].type = "802-11-wireless";

    EXPECT_EQ(refusalOf("Home", lab, facts), "No network service is named Home.");
}

TEST(PlanTest, TellsTheNameOfTheConnectionThatOwnsACard) {
    EXPECT_EQ(refusalOf("en5", lab, hostWith({connection("USB LAN", "uuid-1", "en5", true)})),
              "en5 belongs to the NetworkManager connection USB LAN.");
}

TEST(PlanTest, TakesTheConnectionThatIsTiedToACardWithoutACable) {
    const Facts facts = hostWith({connection("Lab", "uuid-2", "en6", false)});

    EXPECT_EQ(makePlan("en6", lab, facts), makePlan("Lab", lab, facts));
}

TEST(PlanTest, RefusesToGuessBetweenConnectionsOfACard) {
    EXPECT_EQ(
        refusalOf("en6", lab,
                  hostWith({connection("Lab", "uuid-1", "en6", false), connection("Office", "uuid-2", "en6", false)})),
        "Several NetworkManager connections are tied to en6.");
}

TEST(PlanTest, MakesAConnectionForAManagedCardWithoutOne) {
    EXPECT_EQ(
        makePlan("en5", lab, hostWith({})),
        (Plan{
            .steps = {run("/bin/nmcli",
                          {"connection", "add", "type", "ethernet", "con-name", "en5", "ifname", "en5", "ipv4.method",
                           "manual", "ipv4.addresses", "192.168.0.1/24", "ipv4.gateway", "", "connection.autoconnect",
                           "yes"},
                          "Could not make the NetworkManager connection en5"),
                      run("/bin/nmcli", {"--wait", "30", "connection", "up", "id", "en5", "ifname", "en5"},
                          "Made the NetworkManager connection en5 and set it to 192.168.0.1/24, but could not bring it "
                          "up")},
            .done = "Made the NetworkManager connection en5 and set it to 192.168.0.1/24"}));
}

TEST(PlanTest, MakesNoConnectionForAManagedCardThatIsNotWired) {
    EXPECT_EQ(refusalOf("wl0", lab, hostWith({})), "wl0 is not a wired card, and has no NetworkManager connection.");
}

TEST(PlanTest, SetsACardThatNetworkManagerLeavesAloneInTheKernel) {
    Facts facts = hostWith({});
    facts.networkManager->cards.erase("en5");

    EXPECT_EQ(makePlan("en5", lab, facts), makePlan("en5", lab, bareHost()));
}

constexpr auto ownFile = "/etc/systemd/network/00-networksetup-en5.network";
constexpr auto ownFileHead =
    "# Written by networksetup (Tarnwick). Delete this file and run \"networkctl reload\" to undo it.\n"
    "[Match]\nName=en5\n\n[Link]\nRequiredForOnline=no\n\n[Network]\n";

TEST(PlanTest, SetsACardOfSystemdNetworkd) {
    const std::string failure = "Set en5 to 192.168.0.1/24 in /etc/systemd/network/00-networksetup-en5.network, but "
                                "systemd-networkd did not take it";
    EXPECT_EQ(makePlan("en5", lab, hostWithNetworkd("/run/systemd/network/10-netplan-en5.network")),
              (Plan{.steps = {write(ownFile,
                                    std::string(ownFileHead) +
                                        "Address=192.168.0.1/24\nDHCP=no\nConfigureWithoutCarrier=yes\n",
                                    "Could not set en5 to 192.168.0.1/24"),
                              run("/bin/networkctl", {"reload"}, failure),
                              run("/bin/networkctl", {"reconfigure", "en5"}, failure),
                              {.value = Step::AwaitAddress{.card = "en5", .address = lab}, .failure = failure}},
                    .done = "Set en5 to 192.168.0.1/24 in /etc/systemd/network/00-networksetup-en5.network"}));
}

TEST(PlanTest, ReturnsACardOfSystemdNetworkdToDHCP) {
    const std::string failure = "Set en5 to DHCP in /etc/systemd/network/00-networksetup-en5.network, but "
                                "systemd-networkd did not take it";
    EXPECT_EQ(makePlan("en5", std::nullopt, hostWithNetworkd(ownFile, ownFileHead)),
              (Plan{.steps = {write(ownFile, std::string(ownFileHead) + "DHCP=ipv4\n", "Could not set en5 to DHCP"),
                              run("/bin/networkctl", {"reload"}, failure),
                              run("/bin/networkctl", {"reconfigure", "en5"}, failure)},
                    .done = "Set en5 to DHCP in /etc/systemd/network/00-networksetup-en5.network"}));
}

TEST(PlanTest, NeverReplacesAFileOfSomebodyElse) {
    EXPECT_EQ(refusalOf("en5", lab, hostWithNetworkd("/etc/systemd/network/10-lab.network", "[Match]\n")),
              "/etc/systemd/network/00-networksetup-en5.network was written by somebody else.");
}

TEST(PlanTest, RefusesToStandBehindAnotherFile) {
    EXPECT_EQ(refusalOf("en5", lab, hostWithNetworkd("/usr/lib/systemd/network/00-first.network")),
              "/usr/lib/systemd/network/00-first.network configures en5 and stands before every file of this program.");
    EXPECT_EQ(refusalOf("en5", lab, hostWithNetworkd("/usr/lib/systemd/network/00-second.network")), "");
}

TEST(PlanTest, SetsACardOfIfupdown) {
    const std::string path = "/etc/network/interfaces.d/lab";
    const Facts facts =
        hostWithIfupdown({{.path = "/etc/network/interfaces", .text = "source interfaces.d/*\niface en6 inet dhcp\n"},
                          {.path = path, .text = "auto en5\niface en5 inet dhcp\n"}},
                         {"lo", "en5"});

    EXPECT_EQ(
        makePlan("en5", lab, facts),
        (Plan{.steps = {run("/sbin/ifdown", {"--force", "en5"}, "Could not take en5 down"),
                        write(path,
                              "auto en5\niface en5 inet static\n    address 192.168.0.1\n"
                              "    netmask 255.255.255.0\n",
                              "Could not set en5 to 192.168.0.1/24, and left it down"),
                        {.value = Step::RemoveAddresses{.card = "en5", .all = true},
                         .failure = "Set en5 to 192.168.0.1/24 in /etc/network/interfaces.d/lab, but could not "
                                    "remove its old addresses"},
                        run("/sbin/ifup", {"en5"},
                            "Set en5 to 192.168.0.1/24 in /etc/network/interfaces.d/lab, but could not bring it up")},
              .done = "Set en5 to 192.168.0.1/24 in /etc/network/interfaces.d/lab"}));
}

TEST(PlanTest, DoesNotTakeDownACardThatIfupdownDidNotBringUp) {
    const std::string path = "/etc/network/interfaces";
    const Facts facts = hostWithIfupdown({{.path = path, .text = "iface en5 inet static\n address 10.0.0.1/8\n"}});

    EXPECT_EQ(makePlan("en5", std::nullopt, facts),
              (Plan{.steps = {write(path, "iface en5 inet dhcp\n", "Could not set en5 to DHCP"),
                              {.value = Step::RemoveAddresses{.card = "en5", .all = true},
                               .failure = "Set en5 to DHCP in /etc/network/interfaces, but could not remove its old "
                                          "addresses"},
                              run("/sbin/ifup", {"en5"},
                                  "Set en5 to DHCP in /etc/network/interfaces, but could not bring it up")},
                    .done = "Set en5 to DHCP in /etc/network/interfaces"}));
}

TEST(PlanTest, SetsACardWithoutAStanzaInTheKernel) {
    EXPECT_EQ(makePlan("en5", lab, hostWithIfupdown({{.path = "/i", .text = "iface en6 inet dhcp\n"}})),
              makePlan("en5", lab, bareHost()));
}

TEST(PlanTest, RefusesToGuessBetweenStanzas) {
    const auto sentence = "en5 has more than one stanza in the files of ifupdown.";
    const std::string stanza = "iface en5 inet dhcp\n";
    EXPECT_EQ(refusalOf("en5", lab, hostWithIfupdown({{.path = "/i", .text = stanza + stanza}})), sentence);
    EXPECT_EQ(refusalOf("en5", lab, hostWithIfupdown({{.path = "/i", .text = stanza}, {.path = "/j", .text = stanza}})),
              sentence);
}

TEST(PlanTest, RefusesAStanzaThatInherits) {
    EXPECT_EQ(refusalOf("en5", lab, hostWithIfupdown({{.path = "/i", .text = "iface en5 inet dhcp inherits lab\n"}})),
              "The stanza of en5 in /i has more than a method.");
    EXPECT_EQ(refusalOf("en5", lab, hostWithIfupdown({{.path = "/i", .text = "iface en5 inet\n"}})),
              "The stanza of en5 in /i has no method.");
}

TEST(PlanTest, WritesNoCardNameThatAFileTakesForAPattern) {
    for (const std::string name : {"en*", "-en5", ".en5", "!en5", "en 5", "en%i", "e[n]5"}) {
        Facts facts = hostWithNetworkd("/x.network");
        facts.cards[0].name = name;
        facts.networkd->files = {{name, "/x.network"}};
        EXPECT_EQ(refusalOf(name, lab, facts), "The name " + name + " can't stand in a configuration file.");
        facts.networkd.reset();
        EXPECT_EQ(refusalOf(name, lab, facts), "") << "in the kernel it can";
    }
}

} // namespace
} // namespace NetworkSetup
