// The built tool whose log folder somebody takes away.
#include "HostTests/HostTest.hpp"
#include "HostTests/Wire.hpp"

#include <filesystem>

namespace Tarnwick {
namespace {

using namespace DHCPCore;
using namespace DHCPCore::TestSupport;

constexpr const char* offered = "  TX OFFER     192.168.0.100 -> 255.255.255.255:68 via en5\n";

class LogFolderTest : public HostTest {
  protected:
    void expectOffer(ToolProcess& tool) const {
        EXPECT_EQ(messageIn(wire_->ask(discover(device_->mac()))).messageType(), DHCPMessageType::offer);
        eventsThrough(tool, "TX OFFER ");
    }

    void SetUp() override {
        HostTest::SetUp();
        if (!IsSkipped()) {
            device_.emplace(lab(), std::uint8_t{1});
            wire_.emplace(device_->network(), "eth0");
        }
    }

    void TearDown() override {
        wire_.reset();
        device_.reset();
        HostTest::TearDown();
    }

  private:
    std::optional<Device> device_;
    std::optional<Wire> wire_;
};

TEST_F(LogFolderTest, IsMadeAgainWhenItWasRemoved) {
    ToolProcess tool(serving());
    started(tool);
    awaitLogged(tool, "LINK ");
    std::filesystem::remove_all(logFolder(tool));
    expectOffer(tool);
    stop(tool);
    const std::string log = logged(tool);
    EXPECT_NE(log.find(offered), std::string::npos) << log;
    EXPECT_TRUE(log.ends_with("  STOP         server stopped\n")) << log;
}

TEST_F(LogFolderTest, DoesNotKeepTheServerFromServingWhileItCanNotBeMade) {
    ToolProcess tool(serving());
    started(tool);
    awaitLogged(tool, "LINK ");
    std::filesystem::remove_all(logFolder(tool));
    writeText(logFolder(tool), "in the way");
    expectOffer(tool);
    EXPECT_EQ(readText(logFolder(tool)), "in the way");
    std::filesystem::remove(logFolder(tool));
    expectOffer(tool);
    stop(tool);
    EXPECT_NE(logged(tool).find(offered), std::string::npos);
}

TEST_F(LogFolderTest, IsNotEnteredThroughALinkToNothing) {
    ToolProcess tool(serving());
    started(tool);
    awaitLogged(tool, "LINK ");
    std::filesystem::remove_all(logFolder(tool));
    std::filesystem::create_directory_symlink(tool.home() / "elsewhere", logFolder(tool));
    expectOffer(tool);
    stop(tool);
    EXPECT_FALSE(std::filesystem::exists(tool.home() / "elsewhere"));
}

} // namespace
} // namespace Tarnwick
