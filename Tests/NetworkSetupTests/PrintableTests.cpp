#include "networksetup/Printable.hpp"

#include <gtest/gtest.h>

namespace NetworkSetup {
namespace {

TEST(PrintableTest, KeepsText) {
    EXPECT_EQ(printable(""), "");
    EXPECT_EQ(printable(" ~Büro \xC2\xA0\\\"'"), " ~Büro \xC2\xA0\\\"'");
}

TEST(PrintableTest, DropsControlCharacters) {
    EXPECT_EQ(printable("a\x1b[2J\r\n\tb\x1f\x7f"), "a[2Jb");
    EXPECT_EQ(printable("a\xC2\x80\xC2\x9F\xC2\xA0z"), "a\xC2\xA0z");
}

TEST(PrintableTest, RepairsWhatIsNoUTF8) { EXPECT_EQ(printable("a\xFFz\xC2"), "a\uFFFDz\uFFFD"); }

} // namespace
} // namespace NetworkSetup
