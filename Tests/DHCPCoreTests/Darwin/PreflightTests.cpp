#include "DHCPCore/Preflight.hpp"
#include "DHCPCore/ProcessRunner.hpp"

#include <gtest/gtest.h>

namespace DHCPCore {
namespace {

TEST(DarwinPreflightTest, FindsTheProgramsThatItAsks) {
    EXPECT_EQ(ProcessRunner::run("/usr/sbin/netstat", {"-anv", "-p", "udp"}).status, 0);
    EXPECT_EQ(ProcessRunner::run("/usr/bin/pgrep", {"-f", "no such program can be running"}).status, 1);
}

TEST(DarwinPreflightTest, NamesAHolderOfThePortOnlyWhileItIsInUse) {
    if (Preflight::port67State() == Port67State{Port67State::Free{}}) {
        EXPECT_EQ(Preflight::port67Holder(), std::nullopt);
    }
}

} // namespace
} // namespace DHCPCore
