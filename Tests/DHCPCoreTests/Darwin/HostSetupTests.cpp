#include "DHCPCore/HostSetup.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace DHCPCore {
namespace {

using testing::Each;
using testing::IsEmpty;
using testing::Not;

TEST(DarwinHostSetupTest, KnowsNoServiceWithoutAName) {
    EXPECT_THAT(HostSetup::knownServiceNames(), Each(Not(IsEmpty())));
}

TEST(DarwinHostSetupTest, RunsNoPartOfACommand) {
    try {
        HostSetup::runAsAdministrator(std::string("true\0 false", 11));
        FAIL() << "it was run";
    } catch (const HostSetupError& error) {
        EXPECT_EQ(error, HostSetup::noAdministratorDialog());
    }
}

} // namespace
} // namespace DHCPCore
