#include "DHCPCore/UpdatePolicy.hpp"

#include <gtest/gtest.h>

#include <unordered_set>

namespace DHCPCore {
namespace {

TEST(UpdatePolicyTest, LetsTheUserAlwaysLook) {
    EXPECT_TRUE(UpdatePolicy::mayCheck(UpdateCheckKind::userInitiated, true));
    EXPECT_TRUE(UpdatePolicy::mayCheck(UpdateCheckKind::userInitiated, false));
}

TEST(UpdatePolicyTest, LetsAScheduleLookOnlyWhileTheServerIsStopped) {
    EXPECT_FALSE(UpdatePolicy::mayCheck(UpdateCheckKind::background, true));
    EXPECT_TRUE(UpdatePolicy::mayCheck(UpdateCheckKind::background, false));
}

TEST(UpdatePolicyTest, HasKindsThatCanBeHashed) {
    const std::unordered_set<UpdateCheckKind> kinds{UpdateCheckKind::userInitiated, UpdateCheckKind::background,
                                                    UpdateCheckKind::background};
    EXPECT_EQ(kinds.size(), 2U);
}

} // namespace
} // namespace DHCPCore
