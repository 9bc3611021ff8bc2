#include "Support/TemporaryDirectory.hpp"
#include "networksetup/Survey.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <net/if.h>
#include <string>
#include <vector>

namespace NetworkSetup {
namespace {

using DHCPCore::NetworkCard;
using DHCPCore::NetworkManager::Device;
using DHCPCore::TestSupport::TemporaryDirectory;
using DHCPCore::TestSupport::writeText;
namespace fs = std::filesystem;

// What nmcli prints on a host with a wired card in use, one without a cable, and one that it leaves alone.
constexpr auto connectionList = "0f3c0a5e-2f4f-4a9e-9f62-0d2b1b0a7d11\n7d1c6f0e-8a58-4a53-b0a3-5a0b7c3ad222\n";
constexpr auto connections = "connection.uuid:0f3c0a5e-2f4f-4a9e-9f62-0d2b1b0a7d11\n"
                             "connection.id:Wired connection 1\n"
                             "connection.type:802-3-ethernet\n"
                             "connection.interface-name:\n"
                             "\n"
                             "connection.uuid:7d1c6f0e-8a58-4a53-b0a3-5a0b7c3ad222\n"
                             "connection.id:Lab: a\\b \n"
                             "connection.type:802-3-ethernet\n"
                             "connection.interface-name:en6\n";

NetworkCard card(const std::string& name, std::uint8_t lastByte) {
    NetworkCard card;
    card.bsdName = name;
    card.kind = NetworkCard::Kind::ethernet;
    card.mac = DHCPCore::MACAddress{{2, 0, 0, 0, 0, lastByte}};
    return card;
}

Device device(const std::string& name, std::uint8_t lastByte, bool isManaged, const std::string& connectionUUID) {
    return {.name = name,
            .mac = DHCPCore::MACAddress{{2, 0, 0, 0, 0, lastByte}},
            .isManaged = isManaged,
            .connection = {},
            .connectionUUID = connectionUUID};
}

NetworkManagerFacts recordedManager() {
    return {.nmcli = "",
            .connections = {{.name = "Wired connection 1",
                             .uuid = "0f3c0a5e-2f4f-4a9e-9f62-0d2b1b0a7d11",
                             .type = "802-3-ethernet",
                             .card = "en5",
                             .isActive = true},
                            {.name = "Lab: a\\b ",
                             .uuid = "7d1c6f0e-8a58-4a53-b0a3-5a0b7c3ad222",
                             .type = "802-3-ethernet",
                             .card = "en6",
                             .isActive = false}},
            .cards = {"en5", "en6"}};
}

TEST(SurveyTest, ReadsConnectionsAndTheirCards) {
    EXPECT_EQ(networkManagerFrom(connections,
                                 {device("en5", 5, true, "0f3c0a5e-2f4f-4a9e-9f62-0d2b1b0a7d11"),
                                  device("en6", 6, true, ""), device("en7", 7, false, "")},
                                 {card("en5", 5), card("en6", 6), card("en7", 7)}),
              recordedManager());
}

TEST(SurveyTest, DoesNotTakeADeviceOfTheSameNameForTheCard) {
    const auto manager = networkManagerFrom(
        connections, {device("en5", 9, true, "0f3c0a5e-2f4f-4a9e-9f62-0d2b1b0a7d11")}, {card("en5", 5)});

    EXPECT_EQ(manager.cards, std::set<std::string>{});
    EXPECT_FALSE(manager.connections.at(0).isActive);
}

TEST(SurveyTest, LeavesOutWhatBelongsToNoConnection) {
    EXPECT_EQ(networkManagerFrom("Error: no\nconnection.interface-name:en5\n", {}, {}), NetworkManagerFacts{});
}

TEST(SurveyTest, ReadsTheCardsThatAreUp) {
    EXPECT_EQ(upCardsIn("lo=lo\nen5=lab\n\n"), (std::set<std::string>{"lo", "en5"}));
    EXPECT_EQ(upCardsIn(""), std::set<std::string>{});
}

/// A host whose managers are shell scripts and files in a folder.
class SurveyedHost : public testing::Test {
  protected:
    SurveyedHost() {
        for (const auto name : {"bin", "links", "network", "interfaces.d", "more.d"}) {
            fs::create_directory(folder / name);
        }
        places = {.nmcli = {path("bin/none"), path("bin/nmcli")},
                  .systemctl = {path("bin/systemctl")},
                  .networkctl = {path("bin/networkctl")},
                  .networkdLinks = path("links"),
                  .networkdDirectory = path("network"),
                  .ifup = {path("bin/ifup")},
                  .ifdown = {path("bin/ifdown")},
                  .interfaces = path("interfaces"),
                  .ifstate = path("ifstate")};
    }

    [[nodiscard]] std::string path(const std::string& name) const { return folder / name; }

    /// A program that answers questions it knows: by the text of all its arguments.
    void install(const std::string& name, const std::string& cases) const {
        writeText(path("bin/" + name),
                  "#!/bin/sh\ncase \"$*\" in\n" + cases + "*) echo unexpected: \"$*\"; exit 9;;\nesac\n");
        fs::permissions(path("bin/" + name), fs::perms::owner_all);
    }

    [[nodiscard]] std::string answer(const std::string& question, const std::string& name,
                                     const std::string& text) const {
        writeText(path(name), text);
        return fmt::format("'{}') cat '{}';;\n", question, path(name));
    }

    [[nodiscard]] Facts surveyed(const std::string& service) const {
        NetworkCard loopback; // the one card whose index a test can know
        loopback.bsdName = "lo";
        loopback.kind = NetworkCard::Kind::ethernet;
        loopback.mac = DHCPCore::MACAddress{};
        loopback.linkUp = true;
        return survey(service, {loopback}, places);
    }

    TemporaryDirectory folder;
    Places places;
    const std::vector<Card> cards{{.name = "lo", .isWired = true, .hasLink = true}};
};

TEST_F(SurveyedHost, HasOnlyCardsWithoutAnyManager) {
    EXPECT_EQ(surveyed("lo"), (Facts{.cards = cards, .networkManager = {}, .networkd = {}, .ifupdown = {}}));
}

TEST_F(SurveyedHost, TellsWhatNetworkManagerTells) {
    install("nmcli",
            answer("--terse --escape no --fields "
                   "GENERAL.DEVICE,GENERAL.HWADDR,GENERAL.STATE,GENERAL.CONNECTION,GENERAL.CON-UUID device show",
                   "devices",
                   "GENERAL.DEVICE:lo\nGENERAL.HWADDR:00:00:00:00:00:00\nGENERAL.STATE:100 (connected)\n"
                   "GENERAL.CONNECTION:Wired connection 1\nGENERAL.CON-UUID:0f3c0a5e-2f4f-4a9e-9f62-0d2b1b0a7d11\n") +
                answer("--terse --fields UUID connection show", "list", connectionList) +
                answer("--terse --escape no --fields "
                       "connection.uuid,connection.id,connection.type,connection.interface-name connection show"
                       " uuid 0f3c0a5e-2f4f-4a9e-9f62-0d2b1b0a7d11 uuid 7d1c6f0e-8a58-4a53-b0a3-5a0b7c3ad222",
                       "connections", connections));
    NetworkManagerFacts expected = recordedManager();
    expected.nmcli = path("bin/nmcli");
    expected.connections[0].card = "lo";
    expected.cards = {"lo"};

    EXPECT_EQ(surveyed("lo").networkManager, expected);
}

TEST_F(SurveyedHost, HasNoNetworkManagerWhileItDoesNotRun) {
    install("nmcli", "*) echo 'Error: NetworkManager is not running.'; exit 8;;\n");

    EXPECT_EQ(surveyed("lo").networkManager, std::nullopt);
}

TEST_F(SurveyedHost, TellsWhatSystemdNetworkdConfigures) {
    install("networkctl", "");
    install("systemctl", "'is-active --quiet systemd-networkd.service') exit 0;;\n");
    writeText(path("links/" + std::to_string(::if_nametoindex("lo"))), "NETWORK_FILE=/run/x.network\n");
    writeText(path("network/00-networksetup-lo.network"), "mine");

    EXPECT_EQ(surveyed("lo").networkd, (NetworkdFacts{.networkctl = path("bin/networkctl"),
                                                      .directory = path("network"),
                                                      .files = {{"lo", "/run/x.network"}},
                                                      .presentText = "mine"}));
}

TEST_F(SurveyedHost, DoesNotBelieveTheStateOfAStoppedSystemdNetworkd) {
    install("networkctl", "");
    install("systemctl", "'is-active --quiet systemd-networkd.service') exit 3;;\n");
    writeText(path("links/" + std::to_string(::if_nametoindex("lo"))), "NETWORK_FILE=/run/x.network\n");

    EXPECT_EQ(surveyed("lo").networkd, std::nullopt);
}

TEST_F(SurveyedHost, ReadsEveryFileThatIfupdownReads) {
    install("ifup", "");
    install("ifdown", "");
    writeText(path("interfaces"), "source interfaces.d/*\nsource-directory more.d\nsource interfaces\n");
    writeText(path("interfaces.d/b"), "b");
    writeText(path("interfaces.d/a"), "a");
    writeText(path("more.d/good-1"), "good");
    writeText(path("ifstate"), "en5=en5\n");

    EXPECT_EQ(surveyed("lo").ifupdown,
              (IfupdownFacts{.ifup = path("bin/ifup"),
                             .ifdown = path("bin/ifdown"),
                             .files = {{.path = path("interfaces"),
                                        .text = "source interfaces.d/*\nsource-directory more.d\nsource interfaces\n"},
                                       {.path = path("interfaces.d/a"), .text = "a"},
                                       {.path = path("interfaces.d/b"), .text = "b"},
                                       {.path = path("more.d/good-1"), .text = "good"}},
                             .upCards = {"en5"}}));
}

TEST_F(SurveyedHost, TellsWhereALinkedFileOfIfupdownReallyLies) {
    install("ifup", "");
    install("ifdown", "");
    writeText(path("real"), "source interfaces.d/*\n");
    writeText(path("interfaces.d/a"), "a");
    fs::create_symlink("real", path("interfaces"));
    fs::create_symlink("a", path("interfaces.d/b"));

    EXPECT_EQ(surveyed("lo").ifupdown->files,
              (std::vector<IfupdownFacts::File>{{.path = path("real"), .text = "source interfaces.d/*\n"},
                                                {.path = path("interfaces.d/a"), .text = "a"}}));
}

TEST_F(SurveyedHost, HasNoIfupdownWithoutItsPrograms) {
    install("ifup", "");
    writeText(path("interfaces"), "iface lo inet loopback\n");

    EXPECT_EQ(surveyed("lo").ifupdown, std::nullopt);
}

} // namespace
} // namespace NetworkSetup
