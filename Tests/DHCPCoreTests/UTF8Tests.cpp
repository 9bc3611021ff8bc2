#include "DHCPCore/UTF8.hpp"

#include <gtest/gtest.h>

#include <string>

namespace DHCPCore {
namespace {

TEST(UTF8Test, KeepsCharactersOfEveryLength) {
    for (const std::string text : {"", "plain\n", "\x7F", "\xC2\x80 \xDF\xBF", "\xE0\xA0\x80 \xED\x9F\xBF \xEF\xBF\xBF",
                                   "\xF0\x90\x80\x80 \xF4\x8F\xBF\xBF"}) {
        EXPECT_EQ(repairedUTF8(text), text);
    }
}

TEST(UTF8Test, KeepsAZeroByte) { EXPECT_EQ(repairedUTF8(std::string("a\0b", 3)), std::string("a\0b", 3)); }

TEST(UTF8Test, ReplacesEachByteThatBeginsNoCharacter) {
    for (const std::string byte : {"\x80", "\xBF", "\xC0", "\xC1", "\xF5", "\xFF"}) {
        EXPECT_EQ(repairedUTF8("a" + byte + "b"), "a\uFFFDb");
        EXPECT_EQ(repairedUTF8(byte + byte), "\uFFFD\uFFFD");
    }
}

TEST(UTF8Test, ReplacesTheBeginningOfACharacterThatDoesNotGoOnAsOnePiece) {
    EXPECT_EQ(repairedUTF8("\xC3"), "\uFFFD");
    EXPECT_EQ(repairedUTF8("\xC3z"), "\uFFFDz");
    EXPECT_EQ(repairedUTF8("\xE2\x82"), "\uFFFD");
    EXPECT_EQ(repairedUTF8("\xE2\x82z"), "\uFFFDz");
    EXPECT_EQ(repairedUTF8("\xF0\x9F\x98z"), "\uFFFDz");
    EXPECT_EQ(repairedUTF8("\xF0\x9F\xC3\xA9"), "\uFFFD\u00E9");
}

TEST(UTF8Test, RefusesOverlongFormsSurrogatesAndWhatIsBeyondUnicode) {
    EXPECT_EQ(repairedUTF8("\xE0\x9F\xBF"), "\uFFFD\uFFFD\uFFFD");
    EXPECT_EQ(repairedUTF8("\xED\xA0\x80"), "\uFFFD\uFFFD\uFFFD");
    EXPECT_EQ(repairedUTF8("\xF0\x8F\xBF\xBF"), "\uFFFD\uFFFD\uFFFD\uFFFD");
    EXPECT_EQ(repairedUTF8("\xF4\x90\x80\x80"), "\uFFFD\uFFFD\uFFFD\uFFFD");
}

} // namespace
} // namespace DHCPCore
