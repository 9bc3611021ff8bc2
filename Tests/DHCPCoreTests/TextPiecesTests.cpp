#include "DHCPCore/TextPieces.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>
#include <vector>

namespace DHCPCore {
namespace {

using Pieces = std::vector<std::string_view>;

TEST(TextPiecesTest, SplitsKeepingEmptyPieces) {
    EXPECT_EQ(splitKeepingEmpty("a.b", '.'), (Pieces{"a", "b"}));
    EXPECT_EQ(splitKeepingEmpty("a..b", '.'), (Pieces{"a", "", "b"}));
    EXPECT_EQ(splitKeepingEmpty(".a.", '.'), (Pieces{"", "a", ""}));
    EXPECT_EQ(splitKeepingEmpty("", '.'), (Pieces{""}));
}

TEST(TextPiecesTest, SplitsDroppingEmptyPieces) {
    EXPECT_EQ(splitDroppingEmpty(".a..b.", '.'), (Pieces{"a", "b"}));
    EXPECT_EQ(splitDroppingEmpty("...", '.'), Pieces{});
    EXPECT_EQ(splitDroppingEmpty("", '.'), Pieces{});
}

TEST(TextPiecesTest, ReadsUnsignedNumbersUpToTheirBounds) {
    EXPECT_EQ(parseDecimal<std::uint16_t>("0"), 0);
    EXPECT_EQ(parseDecimal<std::uint16_t>("-0"), 0);
    EXPECT_EQ(parseDecimal<std::uint16_t>("+68"), 68);
    EXPECT_EQ(parseDecimal<std::uint16_t>("00068"), 68);
    EXPECT_EQ(parseDecimal<std::uint16_t>("65535"), 65535);
    EXPECT_EQ(parseDecimal<std::uint16_t>("65536"), std::nullopt);
    EXPECT_EQ(parseDecimal<std::uint16_t>("-1"), std::nullopt);
}

TEST(TextPiecesTest, ReadsSignedNumbersDownToTheirBounds) {
    EXPECT_EQ(parseDecimal<std::int32_t>("2147483647"), std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(parseDecimal<std::int32_t>("2147483648"), std::nullopt);
    EXPECT_EQ(parseDecimal<std::int32_t>("-2147483648"), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(parseDecimal<std::int32_t>("-2147483649"), std::nullopt);
    EXPECT_EQ(parseDecimal<std::int32_t>("-0"), 0);
}

TEST(TextPiecesTest, RefusesTextThatIsNoNumber) {
    for (const std::string_view text : {"", "+", "-", "+-1", "-+1", "--1", "++1", " 1", "1 ", "80a", "0x10", "1.0"}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(parseDecimal<int>(text), std::nullopt);
        EXPECT_EQ(parseDecimal<std::uint64_t>(text), std::nullopt);
    }
}

} // namespace
} // namespace DHCPCore
