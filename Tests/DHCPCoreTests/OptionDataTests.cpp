// The bytes of an option, few or many.
#include "DHCPCore/OptionData.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <numeric>
#include <utility>

namespace DHCPCore {
namespace {

Bytes numbered(std::size_t count) {
    Bytes bytes(count);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{1});
    return bytes;
}

Bytes bytesOf(const OptionData& data) { return {data.begin(), data.end()}; }

TEST(OptionDataTest, HoldsAnyCountOfBytesThatAnOptionMayHave) {
    for (std::size_t count = 0; count <= 255; ++count) {
        const OptionData data = numbered(count);
        EXPECT_EQ(data.size(), count);
        EXPECT_EQ(bytesOf(data), numbered(count));
    }
}

TEST(OptionDataTest, IsEqualToTheSameBytesOnly) {
    EXPECT_EQ(OptionData({1, 2}), OptionData(numbered(2)));
    EXPECT_NE(OptionData({1, 2}), OptionData({1, 2, 0}));
    EXPECT_NE(OptionData({1, 2}), OptionData({1, 3}));
    EXPECT_EQ(OptionData(numbered(17)), OptionData(numbered(17)));
    EXPECT_NE(OptionData(numbered(17)), OptionData(numbered(16)));
}

TEST(OptionDataTest, TakesOverFewBytesInPlaceOfManyAndManyInPlaceOfFew) {
    OptionData data = numbered(200);
    data = numbered(3);
    EXPECT_EQ(bytesOf(data), numbered(3));
    data = numbered(200);
    EXPECT_EQ(bytesOf(data), numbered(200));
    const OptionData copy = data;
    const OptionData moved = std::move(data);
    EXPECT_EQ(copy, moved);
}

} // namespace
} // namespace DHCPCore
