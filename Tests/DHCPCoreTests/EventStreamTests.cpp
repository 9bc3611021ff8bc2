#include "DHCPCore/EventStream.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <future>
#include <memory>
#include <numeric>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace DHCPCore {
namespace {

using namespace std::chrono_literals;

constexpr auto patience = 10s;

TEST(EventStreamTest, DeliversValuesInTheirOrder) {
    EventStream<std::string> stream;
    stream.yield("one");
    stream.yield("two");
    EXPECT_EQ(stream.next(), "one");
    EXPECT_EQ(stream.next(), "two");
}

TEST(EventStreamTest, DeliversWhatWasYieldedBeforeItsEnd) {
    EventStream<int> stream;
    stream.yield(1);
    stream.finish();
    EXPECT_EQ(stream.next(), 1);
    EXPECT_EQ(stream.next(), std::nullopt);
    EXPECT_EQ(stream.next(), std::nullopt) << "an ended stream stays ended";
}

TEST(EventStreamTest, DeliversValuesThatCameTogetherInTheirOrder) {
    EventStream<int> stream;
    stream.yield(1);
    std::vector<int> values{2, 3};
    stream.yieldAll(values);
    EXPECT_TRUE(values.empty());
    stream.yieldAll(values);
    stream.yield(4);
    for (int expected = 1; expected <= 4; ++expected) {
        EXPECT_EQ(stream.next(), expected);
    }
}

TEST(EventStreamTest, DeliversManyInTheirOrderHoweverTheyCame) {
    EventStream<int> stream;
    int yielded = 0;
    int expected = 0;
    for (const std::size_t together : {100U, 3U, 64U, 1U, 200U}) {
        for (int count = 0; count < 70; ++count) {
            stream.yield(yielded++);
        }
        std::vector<int> values(together);
        std::iota(values.begin(), values.end(), yielded);
        yielded += static_cast<int>(together);
        stream.yieldAll(values);
        for (std::size_t count = 0; count < together; ++count) {
            EXPECT_EQ(stream.next(), expected++);
        }
    }
    while (expected < yielded) {
        EXPECT_EQ(stream.next(), expected++);
    }
    EXPECT_EQ(stream.waiting(), 0U);
}

TEST(EventStreamTest, GivesBackTheRoomOfWhatIsTaken) {
    EventStream<int> stream;
    std::vector<int> values(100, 1);
    stream.yieldAll(values);
    EXPECT_EQ(values.capacity(), 0U);
    while (stream.waiting() > 0) {
        std::ignore = stream.next();
    }
    values = {2};
    stream.yieldAll(values);
    EXPECT_GE(values.capacity(), 100U);
    EXPECT_TRUE(values.empty());
    EXPECT_EQ(stream.next(), 2);
}

TEST(EventStreamTest, CountsWhatIsYetToBeTaken) {
    EventStream<int> stream;
    EXPECT_EQ(stream.waiting(), 0U);
    std::vector<int> values{1, 2};
    stream.yieldAll(values);
    stream.yield(3);
    EXPECT_EQ(stream.waiting(), 3U);
    EXPECT_EQ(stream.next(), 1);
    EXPECT_EQ(stream.waiting(), 2U);
    EXPECT_EQ(stream.next(), 2);
    EXPECT_EQ(stream.next(), 3);
    EXPECT_EQ(stream.waiting(), 0U);
}

TEST(EventStreamTest, IgnoresValuesAfterItsEnd) {
    EventStream<int> stream;
    stream.finish();
    stream.yield(1);
    std::vector<int> values{2, 3};
    stream.yieldAll(values);
    EXPECT_TRUE(values.empty());
    EXPECT_EQ(stream.waiting(), 0U);
    EXPECT_EQ(stream.next(), std::nullopt);
}

TEST(EventStreamTest, MayBeFinishedTwice) {
    EventStream<int> stream;
    stream.yield(1);
    stream.finish();
    stream.finish();
    EXPECT_EQ(stream.next(), 1);
    EXPECT_EQ(stream.next(), std::nullopt);
}

TEST(EventStreamTest, WakesTheWaitingConsumerWithAValue) {
    EventStream<int> stream;
    auto consumer = std::async(std::launch::async, [&] { return stream.next(); });
    stream.yield(7);
    EXPECT_EQ(consumer.get(), 7);
}

TEST(EventStreamTest, WakesTheWaitingConsumerAtItsEnd) {
    EventStream<int> stream;
    auto consumer = std::async(std::launch::async, [&] { return stream.next(); });
    stream.finish();
    EXPECT_EQ(consumer.get(), std::nullopt);
}

TEST(EventStreamTest, GivesNothingWhenPatienceEnds) {
    EventStream<int> stream;
    EXPECT_EQ(stream.next(0ms), std::nullopt);
    stream.yield(1);
    EXPECT_EQ(stream.next(0ms), 1) << "an impatient question takes nothing away";
}

TEST(EventStreamTest, GivesAPatientConsumerItsValueAndItsEnd) {
    EventStream<int> stream;
    auto consumer = std::async(std::launch::async, [&] {
        const auto value = stream.next(patience);
        return std::pair(value, stream.next(patience));
    });
    stream.yield(1);
    stream.finish();
    EXPECT_EQ(consumer.get(), std::pair(std::optional(1), std::optional<int>()));
}

TEST(EventStreamTest, TakesValuesThatCanOnlyBeMoved) {
    EventStream<std::unique_ptr<int>> stream;
    stream.yield(std::make_unique<int>(5));
    const auto value = stream.next();
    ASSERT_TRUE(value.has_value());
    EXPECT_EQ(**value, 5);
}

TEST(EventStreamTest, LosesNothingBetweenTwoThreads) {
    constexpr int count = 10000;
    EventStream<int> stream;
    auto producer = std::async(std::launch::async, [&] {
        for (int number = 0; number < count; ++number) {
            stream.yield(number);
        }
        stream.finish();
    });
    int expected = 0;
    while (const auto number = stream.next()) {
        ASSERT_EQ(*number, expected);
        ++expected;
    }
    EXPECT_EQ(expected, count);
}

} // namespace
} // namespace DHCPCore
