#include "DHCPCore/ControlMessages.hpp"
#include "Support/LittleEndianBytes.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <span>
#include <tuple>

namespace DHCPCore {
namespace {

using ControlMessages::arrivalInterface;
using TestSupport::joined;
using TestSupport::littleEndian;
using TestSupport::padded;

constexpr std::uint32_t internetProtocol = 0;
constexpr std::uint32_t socketLevel = 0xFFFF;
constexpr std::uint32_t receivedInterface = 20;
constexpr std::uint32_t receivedTTL = 24;

Bytes messageOfLength(std::uint32_t length, std::uint32_t level, std::uint32_t type, const Bytes& data) {
    return padded(joined(joined(littleEndian(length, 4), littleEndian(level, 4)), joined(littleEndian(type, 4), data)));
}

Bytes message(std::uint32_t level, std::uint32_t type, const Bytes& data) {
    return messageOfLength(static_cast<std::uint32_t>(12 + data.size()), level, type, data);
}

/// What macOS attaches to a datagram that came in on "en5": the card's link-layer socket address.
Bytes arrivedOn(std::uint16_t index) {
    const Bytes address{20, 18, static_cast<std::uint8_t>(index), static_cast<std::uint8_t>(index >> 8U), 6, 3, 6, 0,
                        // "en5", the hardware address, and what fills the structure
                        0x65, 0x6E, 0x35, 0x00, 0x1C, 0x42, 0xAB, 0xCD, 0xEF, 0, 0, 0};
    return message(internetProtocol, receivedInterface, address);
}

TEST(ControlMessagesTest, ReadsTheIndexOfTheArrivalCard) {
    const Bytes recorded{0x20, 0, 0, 0, 0,    0,    0,    0,    0x14, 0,    0,    0,    20,   18, 0x0B, 0x00,
                         6,    3, 6, 0, 0x65, 0x6E, 0x35, 0x00, 0x1C, 0x42, 0xAB, 0xCD, 0xEF, 0,  0,    0};
    EXPECT_EQ(arrivedOn(11), recorded);
    EXPECT_EQ(arrivalInterface(recorded), 11U);
    for (const unsigned index : {0U, 1U, 255U, 256U, 65535U}) {
        EXPECT_EQ(arrivalInterface(arrivedOn(static_cast<std::uint16_t>(index))), index);
    }
}

TEST(ControlMessagesTest, TellsNothingWithoutControlBytes) { EXPECT_EQ(arrivalInterface({}), std::nullopt); }

TEST(ControlMessagesTest, SkipsMessagesOfAnotherLevelOrType) {
    const Bytes data{9, 9, 9, 9};
    const Bytes oddlyLong{9, 9, 9, 9, 9}; // padded behind its data
    for (const Bytes& other :
         {message(socketLevel, receivedInterface, data), message(internetProtocol, receivedTTL, data),
          message(internetProtocol, receivedTTL, oddlyLong), message(internetProtocol, receivedTTL, {}),
          message(internetProtocol, receivedInterface + 0x100, data)}) {
        EXPECT_EQ(arrivalInterface(other), std::nullopt);
        EXPECT_EQ(arrivalInterface(joined(other, arrivedOn(7))), 7U);
        EXPECT_EQ(arrivalInterface(joined(arrivedOn(7), other)), 7U);
    }
}

TEST(ControlMessagesTest, TakesTheFirstOfTwo) { EXPECT_EQ(arrivalInterface(joined(arrivedOn(7), arrivedOn(8))), 7U); }

TEST(ControlMessagesTest, NeedsFourBytesBehindTheHeader) {
    const Bytes whole = arrivedOn(7);
    for (std::size_t length = 0; length < whole.size(); ++length) {
        SCOPED_TRACE(length);
        const auto expected = length < 16 ? std::nullopt : std::optional<std::uint32_t>(7);
        EXPECT_EQ(arrivalInterface(std::span(whole).first(length)), expected);
    }
}

TEST(ControlMessagesTest, EndsTheWalkAtALengthBelowThatOfTheHeader) {
    for (const std::uint32_t length : {0U, 1U, 11U}) {
        SCOPED_TRACE(length);
        const Bytes tooShort = messageOfLength(length, internetProtocol, receivedTTL, {1, 2, 3, 4});
        EXPECT_EQ(arrivalInterface(joined(tooShort, arrivedOn(7))), std::nullopt);
        const Bytes wouldFit = messageOfLength(length, internetProtocol, receivedInterface, {20, 18, 7, 0});
        EXPECT_EQ(arrivalInterface(wouldFit), std::nullopt);
    }
    const Bytes headerOnly = messageOfLength(12, internetProtocol, receivedTTL, {});
    EXPECT_EQ(arrivalInterface(joined(headerOnly, arrivedOn(7))), 7U);
}

TEST(ControlMessagesTest, EndsTheWalkAtALengthBeyondWhatCame) {
    for (const std::uint32_t length : {17U, 300U, 0x7FFFFFFFU, 0xFFFFFFFCU, 0xFFFFFFFDU, 0xFFFFFFFFU}) {
        SCOPED_TRACE(length);
        EXPECT_EQ(arrivalInterface(messageOfLength(length, internetProtocol, receivedTTL, {1, 2, 3, 4})), std::nullopt);
    }
}

TEST(ControlMessagesTest, SurvivesAnyBytes) {
    std::mt19937 random(2131);
    std::uniform_int_distribution<unsigned> byte(0, 255);
    for (int round = 0; round < 10'000; ++round) {
        Bytes control(random() % 256);
        std::ranges::generate(control, [&] { return static_cast<std::uint8_t>(byte(random)); });
        if (control.size() >= 4 && round % 2 == 0) { // else hardly a length is plausible
            std::ranges::copy(littleEndian(random() % 300, 4), control.begin());
        }
        std::ignore = arrivalInterface(control);
    }
}

} // namespace
} // namespace DHCPCore
