#include "TarnwickTests/ToolProcess.hpp"

#include <gtest/gtest.h>

namespace Tarnwick {
namespace {

TEST(CardTest, RefusesACardThatDoesNotExist) {
    const Finished expected{
        .status = 1, .output = "", .errors = "tarnwick: no network card named nosuchcard0; run `tarnwick list`\n"};
    EXPECT_EQ(runTool({"serve", "--iface", "nosuchcard0"}), expected);
}

} // namespace
} // namespace Tarnwick
