#include "DHCPCore/UserDirectories.hpp"
#include "Support/EnvironmentVariable.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace DHCPCore {
namespace {

using TestSupport::EnvironmentVariable;

TEST(UserDirectoriesTest, LieInTheHomeDirectory) {
    const EnvironmentVariable home("HOME", "/Users/lab");
    EXPECT_EQ(UserDirectories::applicationSupport(), "/Users/lab/Library/Application Support");
    EXPECT_EQ(UserDirectories::logs(), "/Users/lab/Library/Logs");
}

TEST(UserDirectoriesTest, LieInTheUsersRecordedHomeWhereTheEnvironmentNamesNone) {
    for (const std::optional<std::string>& value :
         {std::optional<std::string>(), std::optional<std::string>(""), std::optional<std::string>("relative/path")}) {
        const EnvironmentVariable home("HOME", value);
        EXPECT_TRUE(UserDirectories::home().is_absolute());
    }
}

} // namespace
} // namespace DHCPCore
