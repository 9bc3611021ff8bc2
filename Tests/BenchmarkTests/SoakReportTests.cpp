// What the report about a long run calls a fault.
#include "SoakReport.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

namespace DHCPLoad {
namespace {

using namespace DHCPCore;
using std::chrono::seconds;

Hold holdOf(std::string holder, std::uint8_t last, int from, int until) {
    return {.holder = std::move(holder),
            .ip = IPv4Address{10, 0, 0, last},
            .from = Date{seconds{from}},
            .until = Date{seconds{until}}};
}

TEST(DoubleHoldsTest, AreNoneWhereHoldersFollowEachOther) {
    EXPECT_EQ(doubleHolds({holdOf("b", 1, 20, 30), holdOf("a", 1, 10, 20), holdOf("c", 2, 0, 99)}),
              std::vector<std::string>{});
}

TEST(DoubleHoldsTest, AreNoneOfOneHolderAlone) {
    EXPECT_EQ(doubleHolds({holdOf("a", 1, 10, 20), holdOf("a", 1, 15, 25)}), std::vector<std::string>{});
}

TEST(DoubleHoldsTest, AreFoundHoweverManyLieBetween) {
    EXPECT_EQ(doubleHolds({holdOf("a", 1, 10, 50), holdOf("a", 1, 12, 13), holdOf("b", 1, 49, 60)}),
              std::vector<std::string>{"a and b had 10.0.0.1 at once"});
}

TEST(DoubleHoldsTest, AreFoundAtOneInstant) {
    EXPECT_EQ(doubleHolds({holdOf("a", 1, 10, 50), holdOf("b", 1, 20, 20)}),
              std::vector<std::string>{"a and b had 10.0.0.1 at once"});
}

TEST(WellFormedTest, IsALineOfTextOrJSONAndNothingElse) {
    for (const std::string_view line :
         {"13:04:05.007  RX DISCOVER  02:00:00:00:00:01 host=x", "13:04:05.007  RX ?         - host=-",
          "13:04:05.007  STOP         server stopped", "✓ Wired adapter", "⚠ serve0 may do",
          R"({"event":"stopped","text":"server stopped"})"}) {
        EXPECT_TRUE(isWellFormed(line)) << line;
    }
    for (const std::string_view line :
         {"", "server stopped", "13:04:05.07  STOP         server stopped", "13:04:05.007  STOP        server stopped",
          "13:04:05.007  STOP         ", "13:04:05.007  stop         server stopped",
          "13:04:05.007  STOP         server \x1b[2J", "13:04:05.007  STOP         server \xff",
          "13:04:05.007  STOP         server \xc2\x9b", R"({"event":"stopped")", R"({"event":1})", R"({"text":"x"})"}) {
        EXPECT_FALSE(isWellFormed(line)) << line;
    }
}

/// A hundred samples of a first, short life, then so many of a second one, with one more of everything each `growth`.
std::vector<Sample> samplesGrowing(int growth) {
    std::vector<Sample> samples;
    for (int number = 0; number < 500; ++number) {
        const int more = number / growth;
        samples.push_back({.seconds = 2.0 * number,
                           .life = number < 100 ? 1 : 2,
                           .residentMiB = 6.0 + more,
                           .descriptors = 14.0 + more,
                           .threads = 4.0 + more});
    }
    return samples;
}

std::vector<bool> flatness(const std::vector<Sample>& samples) {
    std::vector<bool> flat;
    for (const Trend& trend : trends(samples)) {
        flat.push_back(trend.isFlat());
    }
    return flat;
}

TEST(TrendsTest, AreFlatWhereNothingGrows) {
    EXPECT_EQ(flatness(samplesGrowing(1000)), (std::vector<bool>{true, true, true}));
}

TEST(TrendsTest, AreNotFlatWhereEverythingGrowsByOne) {
    EXPECT_EQ(flatness(samplesGrowing(300)), (std::vector<bool>{false, false, false}));
}

TEST(TrendsTest, AreUnknownWithoutSamples) { EXPECT_TRUE(trends({}).empty()); }

} // namespace
} // namespace DHCPLoad
