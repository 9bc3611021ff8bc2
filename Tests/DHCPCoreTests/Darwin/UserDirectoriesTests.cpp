#include "DHCPCore/UserDirectories.hpp"
#include "Support/Environment.hpp"

#include <gtest/gtest.h>

namespace DHCPCore {
namespace {

using TestSupport::Environment;

TEST(UserDirectoriesTest, LieInTheHomeDirectory) {
    const Environment home("HOME", "/Users/lab");
    EXPECT_EQ(UserDirectories::applicationSupport(), "/Users/lab/Library/Application Support");
    EXPECT_EQ(UserDirectories::logs(), "/Users/lab/Library/Logs");
}

TEST(UserDirectoriesTest, LieInTheUsersRecordedHomeWhereTheEnvironmentNamesNone) {
    for (const char* const value : {static_cast<const char*>(nullptr), "", "relative/path"}) {
        const Environment home("HOME", value);
        EXPECT_TRUE(UserDirectories::home().is_absolute());
    }
}

} // namespace
} // namespace DHCPCore
