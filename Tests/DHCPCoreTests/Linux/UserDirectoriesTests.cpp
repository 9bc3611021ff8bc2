#include "DHCPCore/UserDirectories.hpp"
#include "Support/EnvironmentVariable.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace DHCPCore {
namespace {

using TestSupport::EnvironmentVariable;

TEST(UserDirectoriesTest, AreThoseOfTheEnvironment) {
    const EnvironmentVariable data("XDG_DATA_HOME", "/somewhere/data");
    const EnvironmentVariable state("XDG_STATE_HOME", "/somewhere/state");
    EXPECT_EQ(UserDirectories::applicationSupport(), "/somewhere/data");
    EXPECT_EQ(UserDirectories::logs(), "/somewhere/state");
}

TEST(UserDirectoriesTest, LieInTheHomeDirectoryWhereTheEnvironmentNamesNone) {
    const EnvironmentVariable home("HOME", "/home/lab");
    for (const std::optional<std::string>& value :
         {std::optional<std::string>(), std::optional<std::string>(""), std::optional<std::string>("relative/path")}) {
        const EnvironmentVariable data("XDG_DATA_HOME", value);
        const EnvironmentVariable state("XDG_STATE_HOME", value);
        EXPECT_EQ(UserDirectories::applicationSupport(), "/home/lab/.local/share");
        EXPECT_EQ(UserDirectories::logs(), "/home/lab/.local/state");
    }
}

TEST(UserDirectoriesTest, LieInTheUsersRecordedHomeWhereTheEnvironmentNamesNoHome) {
    const EnvironmentVariable home("HOME", std::nullopt);
    EXPECT_TRUE(UserDirectories::home().is_absolute());
}

} // namespace
} // namespace DHCPCore
