#include "DHCPCore/UserDirectories.hpp"
#include "Support/Environment.hpp"

#include <gtest/gtest.h>

namespace DHCPCore {
namespace {

using TestSupport::Environment;

TEST(UserDirectoriesTest, AreThoseOfTheEnvironment) {
    const Environment data("XDG_DATA_HOME", "/somewhere/data");
    const Environment state("XDG_STATE_HOME", "/somewhere/state");
    EXPECT_EQ(UserDirectories::applicationSupport(), "/somewhere/data");
    EXPECT_EQ(UserDirectories::logs(), "/somewhere/state");
}

TEST(UserDirectoriesTest, LieInTheHomeDirectoryWhereTheEnvironmentNamesNone) {
    const Environment home("HOME", "/home/lab");
    for (const char* const value : {static_cast<const char*>(nullptr), "", "relative/path"}) {
        const Environment data("XDG_DATA_HOME", value);
        const Environment state("XDG_STATE_HOME", value);
        EXPECT_EQ(UserDirectories::applicationSupport(), "/home/lab/.local/share");
        EXPECT_EQ(UserDirectories::logs(), "/home/lab/.local/state");
    }
}

TEST(UserDirectoriesTest, LieInTheUsersRecordedHomeWhereTheEnvironmentNamesNoHome) {
    const Environment home("HOME", nullptr);
    EXPECT_TRUE(UserDirectories::home().is_absolute());
}

} // namespace
} // namespace DHCPCore
