// A list whose records stay where they are when others are taken out.
#include "DHCPCore/Records.hpp"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace DHCPCore {
namespace {

using Texts = std::vector<std::string>;

TEST(RecordsTest, KeepTheOrderOfTheirInsertionOverGaps) {
    Records<std::string> records(Texts{"a", "b", "c"});
    EXPECT_EQ(records.take(0), "a");
    records.append("d");
    EXPECT_EQ(records.take(2), "c");
    EXPECT_EQ(records.all(), (Texts{"b", "d"}));
    EXPECT_EQ(records.size(), 2U);
    EXPECT_FALSE(records.empty());
}

TEST(RecordsTest, StayAtTheirPositionsWhenOthersAreTakenOut) {
    Records<std::string> records(Texts{"a", "b", "c"});
    records.take(1);
    EXPECT_TRUE(records.isAt(0));
    EXPECT_FALSE(records.isAt(1));
    EXPECT_EQ(records[2], "c");
    EXPECT_EQ(records.endPosition(), 3U);
}

TEST(RecordsTest, AreNoneWhenAllAreTakenOut) {
    Records<std::string> records(Texts{"a"});
    records.take(0);
    EXPECT_TRUE(records.empty());
    EXPECT_EQ(records.begin(), records.end());
    EXPECT_EQ(records.all(), Texts{});
}

TEST(RecordsTest, StandSideBySideOncePacked) {
    Records<std::string> records(Texts{"a", "b", "c", "d"});
    const auto serials = records.serials();
    records.take(0);
    records.take(2);
    EXPECT_FALSE(records.isSparse());
    records.take(3);
    EXPECT_TRUE(records.isSparse());
    records.pack();
    EXPECT_FALSE(records.isSparse());
    EXPECT_EQ(records.endPosition(), 1U);
    EXPECT_EQ(records[0], "b");
    EXPECT_EQ(records.serials().at(0), serials.at(1)) << "it is the same record";
}

TEST(RecordsTest, LoseThoseThatMeetAPredicateAndArePacked) {
    Records<std::string> records(Texts{"a", "bb", "c", "dd", "ee"});
    records.take(2);
    EXPECT_EQ(records.eraseIf([](const std::string& text) { return text.front() < 'd' && text.size() == 2; }), 1U);
    EXPECT_EQ(records.all(), (Texts{"a", "dd", "ee"}));
    EXPECT_EQ(records.endPosition(), 3U);
}

TEST(RecordsTest, HaveANewSerialWhenReplacedAndThatOfAGapWhenTakenOut) {
    Records<std::string> records(Texts{"a", "b"});
    const auto before = records.serials();
    EXPECT_NE(before.at(0), before.at(1));
    records.replace(0, "c");
    EXPECT_EQ(records[0], "c");
    EXPECT_NE(records.serials().at(0), before.at(0));
    EXPECT_EQ(records.serials().at(1), before.at(1));
    records.take(1);
    EXPECT_EQ(records.serials().at(1), Records<std::string>::gap);
}

TEST(RecordsTest, AreNoneOnceTheyAreMovedElsewhere) {
    Records<std::string> records(Texts{"a", "b", "c"});
    records.take(1);
    Records<std::string> others = std::move(records);
    EXPECT_EQ(others.all(), (Texts{"a", "c"}));
    EXPECT_EQ(others.size(), 2U);
    EXPECT_TRUE(records.empty()); // NOLINT(bugprone-use-after-move): that is the question
    records = std::move(others);
    EXPECT_EQ(records.size(), 2U);
    EXPECT_TRUE(others.empty()); // NOLINT(bugprone-use-after-move): likewise
}

TEST(RecordsTest, AreEqualWhateverGapsTheyHave) {
    Records<std::string> some(Texts{"a", "b", "c"});
    some.take(1);
    EXPECT_EQ(some, Records<std::string>(Texts{"a", "c"}));
    EXPECT_EQ(some, (Texts{"a", "c"}));
    EXPECT_NE(some, (Texts{"a", "b", "c"}));
    EXPECT_NE(some, Texts{"a"});
}

} // namespace
} // namespace DHCPCore
