// The built tool run by a user who is not root.
#include "DHCPCore/ProcessRunner.hpp"
#include "HostTests/Clients.hpp"
#include "HostTests/HostTest.hpp"
#include "HostTests/Wire.hpp"

#include <filesystem>

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
    if (!isInstalled("setcap")) {
        GTEST_SKIP() << "setcap is not installed";
    }
    const auto output = ProcessRunner::run("/usr/bin/env", {"setcap", "cap_net_bind_service=ep", tool().string()});
    if (output.status != 0) {
        GTEST_SKIP() << "no capability can be set on a file here: " << output.text;
    }
    expectFullService();
}

TEST_F(PrivilegeTest, ServesWhereTheSystemGivesThePortToEverybody) {
    givePortToEverybody();
    expectFullService();
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
