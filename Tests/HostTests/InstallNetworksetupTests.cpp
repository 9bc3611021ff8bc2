// scripts/install-networksetup, with a place in a folder of the test instead of the system's.
#include "DHCPCore/ProcessRunner.hpp"
#include "Support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace DHCPCore {
namespace {

using ProcessRunner::Output;
using TestSupport::readText;
using TestSupport::TemporaryDirectory;
using TestSupport::writeText;
namespace fs = std::filesystem;

class InstallNetworksetupTest : public testing::Test {
  protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "only root installs programs";
        }
    }

    [[nodiscard]] std::string place() const { return folder / "networksetup"; }

    [[nodiscard]] Output install(const std::string& built = NETWORKSETUP_PATH) const {
        return ProcessRunner::run("/usr/bin/env", {"bash", INSTALL_NETWORKSETUP_PATH, built, place()});
    }

    /// Puts a program in place that answers to everything with this text.
    void putProgram(const std::string& text) const {
        writeText(place(), "#!/bin/sh\necho '" + text + "'\n");
        fs::permissions(place(), fs::perms::owner_all);
    }

    [[nodiscard]] bool holdsTheBuiltProgram() const {
        return ProcessRunner::run("/usr/bin/cmp", {NETWORKSETUP_PATH, place()}).status == 0;
    }

    [[nodiscard]] Output said(int status, const std::string& text) const {
        return {.status = status, .text = "install-networksetup: " + text + "\n"};
    }

    TemporaryDirectory folder;
};

TEST_F(InstallNetworksetupTest, InstallsWhereNothingIs) {
    EXPECT_EQ(install(), said(0, "installed " + place()));

    EXPECT_TRUE(holdsTheBuiltProgram());
    EXPECT_EQ(fs::status(place()).permissions(), static_cast<fs::perms>(0755));
    EXPECT_EQ(folder.names(), std::vector<std::string>{"networksetup"});
}

TEST_F(InstallNetworksetupTest, LeavesTheSameProgramAlone) {
    ASSERT_EQ(install().status, 0);

    EXPECT_EQ(install(), said(0, place() + " is up to date"));
}

TEST_F(InstallNetworksetupTest, RefreshesAnOlderOne) {
    putProgram("tarnwick networksetup 0.2.0");

    EXPECT_EQ(install(), said(0, "refreshed " + place()));

    EXPECT_TRUE(holdsTheBuiltProgram());
}

TEST_F(InstallNetworksetupTest, NeverReplacesAnotherProgram) {
    putProgram("networksetup 1.0");
    const std::string before = readText(place());

    EXPECT_EQ(install(), said(1, place() + " belongs to somebody else and stays as it is"));

    EXPECT_EQ(readText(place()), before);
}

TEST_F(InstallNetworksetupTest, NeverReplacesALinkOrAFolder) {
    writeText(folder / "other", "#!/bin/sh\necho tarnwick networksetup 0.2.0\n");
    fs::permissions(folder / "other", fs::perms::owner_all);
    fs::create_symlink(folder / "other", place());
    EXPECT_EQ(install(), said(1, place() + " belongs to somebody else and stays as it is"));
    EXPECT_TRUE(fs::is_symlink(place()));

    fs::remove(place());
    fs::create_directory(place());
    EXPECT_EQ(install(), said(1, place() + " belongs to somebody else and stays as it is"));
    EXPECT_TRUE(fs::is_directory(place()));
}

TEST_F(InstallNetworksetupTest, TellsThatNothingIsBuilt) {
    EXPECT_EQ(install(folder / "none"), said(1, (folder / "none").string() + " is not built"));

    EXPECT_EQ(folder.names(), std::vector<std::string>{});
}

} // namespace
} // namespace DHCPCore
