// The built tool run by a user who is not root.
#include "DHCPCore/Date.hpp"
#include "DHCPCore/LeaseFile.hpp"
#include "DHCPCore/ProcessRunner.hpp"
#include "HostTests/Clients.hpp"
#include "HostTests/HostTest.hpp"
#include "HostTests/Wire.hpp"

#include <fmt/format.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <ostream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace Tarnwick {
namespace {

using namespace DHCPCore;
using namespace DHCPCore::TestSupport;

constexpr uid_t nobody = 65534;

class PrivilegeTest : public HostTest {
  protected:
    void SetUp() override {
        HostTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        // Everything that the user needs lies in the test's folder, which is theirs.
        ASSERT_EQ(::chown(folder().path().c_str(), nobody, nobody), 0);
        std::filesystem::copy_file(TARNWICK_TOOL, tool());
    }

    [[nodiscard]] std::filesystem::path tool() const { return folder() / "tarnwick"; }

    /// The copy of the tool on the host, run by that user.
    [[nodiscard]] ToolProcess::Setting servingAsNobody() const {
        ToolProcess::Setting setting = serving();
        // What a leak checker does to a program is not allowed for one with rights of its own.
        setting.prefix.insert(setting.prefix.end(), {"env", "ASAN_OPTIONS=detect_leaks=0", "setpriv", "--reuid=65534",
                                                     "--regid=65534", "--clear-groups"});
        setting.tool = tool();
        setting.homeOwner = nobody;
        return setting;
    }

    /// Gives the tool file capabilities. @return why it can't.
    [[nodiscard]] std::optional<std::string> give(const std::string& capabilities) const {
        if (!isInstalled("setcap")) {
            return "setcap is not installed";
        }
        const auto output = ProcessRunner::run("/usr/bin/env", {"setcap", capabilities, tool().string()});
        return output.status == 0 ? std::nullopt
                                  : std::optional("no capability can be set on a file here: " + output.text);
    }

    void givePortToEverybody() const { lab().host().set("net.ipv4.ip_unprivileged_port_start=67"); }

    /// Has a device get an address, and requires that the server finds it online.
    void expectFullService() const {
        const Device device(lab(), 1);
        device.setAddress("192.168.0.100/24");
        ToolProcess server(servingAsNobody());
        started(server);
        const Wire wire(device.network(), "eth0");
        const Frame offer = wire.ask(discover(device.mac()));
        EXPECT_EQ(offer.source, Lab::serverIP);
        const auto taking = request(device.mac()).requesting("192.168.0.100"_ip).selecting(Lab::serverIP);
        EXPECT_EQ(messageIn(wire.ask(taking)).messageType(), DHCPMessageType::ack);
        const std::string online = "ONLINE       192.168.0.100 02:00:00:00:00:01 tcp ";
        EXPECT_TRUE(tells(eventsThrough(server, online), online));
        stop(server);
        EXPECT_TRUE(std::filesystem::exists(leases()));
        EXPECT_TRUE(std::filesystem::exists(server.home() / ".local/state/Tarnwick"));
    }
};

TEST_F(PrivilegeTest, IsRefusedThePortWithoutTheCapability) {
    ToolProcess server(servingAsNobody());
    const Finished finished = finish(server);
    EXPECT_EQ(finished, (Finished{.status = 1,
                                  .output = "✓ Wired card, not the Mac's internet route\n"
                                            "✓ No other DHCP server has configured this card\n"
                                            "✓ en5 is set to 192.168.0.1/24\n"
                                            "✓ No overlap with other networks\n"
                                            "✗ Port 67 can't be opened: Permission denied\n"
                                            "✓ Link up · 10GBase-T full-duplex\n",
                                  .errors = ""}));
}

TEST_F(PrivilegeTest, ServesWithTheCapability) {
    if (const auto reason = give("cap_net_bind_service=ep")) {
        GTEST_SKIP() << *reason;
    }
    expectFullService();
}

TEST_F(PrivilegeTest, OpensACardAgainWithTheCapability) {
    if (const auto reason = give("cap_net_bind_service=ep")) {
        GTEST_SKIP() << *reason;
    }
    ToolProcess server(servingAsNobody());
    started(server);
    lab().unplugCard("en5");
    eventsThrough(server, "NOTICE       The adapter was unplugged.");
    lab().plugCard("en9", Lab::cardMAC);
    lab().setAddress("en9");
    EXPECT_EQ(eventsThrough(server, "INFO").back(), "INFO         en9 is back");
    const Device device(lab(), 1);
    EXPECT_EQ(Wire(device.network(), "eth0").ask(discover(device.mac())).source, Lab::serverIP);
}

TEST_F(PrivilegeTest, ServesWhereTheSystemGivesThePortToEverybody) {
    givePortToEverybody();
    expectFullService();
}

// What is lost without each of the rights: the port, above; the echo probe of a device that says nothing to TCP.

class EchoPrivilegeTest : public PrivilegeTest {
  protected:
    /// What the server says of a device that answers echo requests and nothing else.
    [[nodiscard]] std::string presenceOfADeviceWithoutTCP() const {
        const Device device(lab(), 1);
        device.setAddress("192.168.0.100/24");
        device.network().ip("rule add preference 1 ipproto tcp blackhole");
        keepLeases({keptLease(device.mac(), "192.168.0.100"_ip)});
        ToolProcess server(servingAsNobody());
        started(server);
        const std::string event = eventsThrough(server, "O").back(); // ONLINE or OFFLINE
        return event.substr(0, event.find(" 02:00:00:00:00:01 ") + std::string(" 02:00:00:00:00:01 icmp").size());
    }

    static constexpr const char* heard = "ONLINE       192.168.0.100 02:00:00:00:00:01 icmp";
    static constexpr const char* notHeard = "OFFLINE      192.168.0.100 02:00:00:00:00:01 no a";
};

TEST_F(EchoPrivilegeTest, IsLostWithoutTheRightToRawSockets) {
    if (const auto reason = give("cap_net_bind_service=ep")) {
        GTEST_SKIP() << *reason;
    }
    EXPECT_EQ(presenceOfADeviceWithoutTCP(), notHeard);
}

TEST_F(EchoPrivilegeTest, IsThereWithTheRightToRawSockets) {
    if (const auto reason = give("cap_net_bind_service,cap_net_raw=ep")) {
        GTEST_SKIP() << *reason;
    }
    EXPECT_EQ(presenceOfADeviceWithoutTCP(), heard);
}

TEST_F(EchoPrivilegeTest, IsThereWhereTheSystemLetsTheGroupPing) {
    if (const auto reason = give("cap_net_bind_service=ep")) {
        GTEST_SKIP() << *reason;
    }
    lab().host().set("net.ipv4.ping_group_range=65534 65534");
    EXPECT_EQ(presenceOfADeviceWithoutTCP(), heard);
}

// What a server has left of its rights once it serves.

/// The rights of a thread, as the kernel shows them.
struct Rights {
    std::uint64_t permitted = 0;
    std::uint64_t effective = 0;
    std::uint64_t inheritable = 0;
    std::uint64_t ambient = 0;
    bool canGainNone = false;
    bool operator==(const Rights&) const = default;
};

void PrintTo(const Rights& rights, std::ostream* out) {
    *out << fmt::format("permitted {:x}, effective {:x}, inheritable {:x}, ambient {:x}, can gain none: {}",
                        rights.permitted, rights.effective, rights.inheritable, rights.ambient, rights.canGainNone);
}

/// A line of the kernel's account of a thread, as in "CapPrm:\t00000000000000c0", read as a hexadecimal number.
std::uint64_t entry(const std::filesystem::path& status, const std::string& name) {
    const std::string text = readText(status);
    const auto start = text.find("\n" + name + ":\t");
    return start == std::string::npos ? ~std::uint64_t{0}
                                      : std::stoull(text.substr(start + name.size() + 3), nullptr, 16);
}

Rights rightsOf(const std::filesystem::path& status) {
    return {.permitted = entry(status, "CapPrm"),
            .effective = entry(status, "CapEff"),
            .inheritable = entry(status, "CapInh"),
            .ambient = entry(status, "CapAmb"),
            .canGainNone = entry(status, "NoNewPrivs") == 1};
}

/// The accounts of the server's threads; a sanitizer's own thread is older than the program and none of ours.
std::vector<std::filesystem::path> threadsOf(const ToolProcess& server) {
    const auto process = std::filesystem::path("/proc") / std::to_string(server.pid());
    std::vector<std::filesystem::path> accounts{process / "status"};
    for (const auto& thread : std::filesystem::directory_iterator(process / "task")) {
        if (readText(thread.path() / "comm").starts_with("tarnwick.")) {
            accounts.push_back(thread.path() / "status");
        }
    }
    return accounts;
}

constexpr std::uint64_t bindService = 1U << 10U;
constexpr std::uint64_t rawSockets = 1U << 13U;
constexpr std::uint64_t filesOfOthers = 0b1011; // changing owners, overriding modes, acting as the owner

constexpr Rights only(std::uint64_t rights) {
    return {.permitted = rights, .effective = rights, .inheritable = 0, .ambient = 0, .canGainNone = true};
}

TEST_F(PrivilegeTest, KeepsAsRootTheRightsOfServingAndOfItsFiles) {
    constexpr std::uint64_t kept = bindService | rawSockets | filesOfOthers;
    const std::uint64_t own = rightsOf("/proc/self/status").permitted; // in a container, less than all
    ToolProcess server(serving());
    started(server);
    const auto threads = threadsOf(server);
    ASSERT_GE(threads.size(), 4U); // the server, its log file and its events beside the first
    for (const auto& thread : threads) {
        EXPECT_EQ(rightsOf(thread), only(kept & own));
        EXPECT_EQ(entry(thread, "CapBnd"), kept & entry("/proc/self/status", "CapBnd"));
    }
    stop(server);
}

TEST_F(PrivilegeTest, KeepsAsAUserNothingButTheRightsOfServing) {
    if (const auto reason = give("cap_net_bind_service,cap_net_raw,cap_net_admin,cap_dac_override=eip")) {
        GTEST_SKIP() << *reason;
    }
    ToolProcess server(servingAsNobody());
    started(server);
    for (const auto& thread : threadsOf(server)) {
        EXPECT_EQ(rightsOf(thread), only(bindService | rawSockets));
    }
    stop(server);
}

TEST_F(PrivilegeTest, KeepsAsRootALeaseFileInTheFolderOfAnotherUser) {
    keepLeases({keptLease(mac(77), "192.168.0.150"_ip)});
    ASSERT_EQ(::chown(leases().c_str(), nobody, nobody), 0);
    ASSERT_EQ(::chmod(leases().c_str(), 0600), 0);
    ASSERT_EQ(::chmod(folder().path().c_str(), 0500), 0);
    const Device device(lab(), 1);
    ToolProcess server(serving());
    started(server);
    const auto taking = request(device.mac()).requesting("192.168.0.100"_ip);
    EXPECT_EQ(messageIn(Wire(device.network(), "eth0").ask(taking)).messageType(), DHCPMessageType::ack);
    EXPECT_FALSE(tells(eventsThrough(server, "TX ACK"), "NOTICE"));
    stop(server);
    EXPECT_EQ(LeaseFile{.url = leases()}.load(currentDate()).table.leases().size(), 2U);
    struct stat status {};
    ASSERT_EQ(::stat(leases().c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, nobody);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(PrivilegeTest, ServesAUserWhoMayNotWriteTheLogFolder) {
    givePortToEverybody();
    ToolProcess server(servingAsNobody());
    started(server);
    awaitLogged(server, "LINK ");
    const std::string log = logged(server);
    std::filesystem::permissions(logFolder(server), std::filesystem::perms{0500});
    for (const auto& file : std::filesystem::directory_iterator(logFolder(server))) {
        std::filesystem::permissions(file, std::filesystem::perms{0400});
    }
    const Device device(lab(), 1);
    EXPECT_EQ(Wire(device.network(), "eth0").ask(discover(device.mac())).source, Lab::serverIP);
    stop(server);
    EXPECT_EQ(logged(server), log);
}

TEST_F(PrivilegeTest, CanNotNameTheProcessOfAnotherUserThatHoldsThePort) {
    givePortToEverybody();
    ToolProcess first(serving());
    started(first);
    ToolProcess second(servingAsNobody());
    const std::string output = finish(second).output;
    EXPECT_NE(output.find("✗ Port 67 is in use by another program. Turn off Internet Sharing or stop the VM's shared "
                          "network.\n"),
              std::string::npos)
        << output;
}

} // namespace
} // namespace Tarnwick
