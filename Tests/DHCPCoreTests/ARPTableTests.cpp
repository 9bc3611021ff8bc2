#include "DHCPCore/Presence.hpp"
#include "Support/LittleEndianBytes.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <span>
#include <tuple>

namespace DHCPCore {
namespace {

using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;
using TestSupport::joined;
using TestSupport::littleEndian;
using TestSupport::padded;

constexpr IPv4Address firstIP{192, 168, 0, 100};
constexpr IPv4Address secondIP{192, 168, 0, 101};
constexpr MACAddress firstMAC{{0x00, 0x1C, 0x42, 0xAB, 0xCD, 0xEF}};
constexpr MACAddress secondMAC{{0x02, 0x00, 0x5E, 0x10, 0x00, 0x01}};

Bytes internetAddress(IPv4Address ip, std::uint8_t length = 16, std::uint8_t family = 2) {
    const auto four = ip.bytes();
    Bytes address = joined({length, family, 0, 0}, Bytes(four.begin(), four.end()));
    address.resize(std::max<std::size_t>(address.size(), length));
    return padded(address);
}

struct LinkAddress {
    Bytes name{0x65, 0x6E, 0x35}; // "en5"
    Bytes hardware{firstMAC.bytes.begin(), firstMAC.bytes.end()};
    std::uint8_t family = 18;
    std::uint8_t length = 20;
};

Bytes linkAddress(const LinkAddress& parts) {
    const Bytes header{parts.length,
                       parts.family,
                       0x0B,
                       0x00,
                       6,
                       static_cast<std::uint8_t>(parts.name.size()),
                       static_cast<std::uint8_t>(parts.hardware.size()),
                       0};
    Bytes address = joined(joined(header, parts.name), parts.hardware);
    address.resize(std::max<std::size_t>(address.size(), parts.length));
    return padded(address);
}

Bytes linkAddress(const MACAddress& mac) {
    LinkAddress parts;
    parts.hardware.assign(mac.bytes.begin(), mac.bytes.end());
    return linkAddress(parts);
}

/// A routing message: 92 bytes of header, of which only the length matters here, and the addresses.
Bytes message(const Bytes& addresses) {
    Bytes header = littleEndian(92 + addresses.size(), 2);
    header.resize(92, 0x55);
    return joined(header, addresses);
}

Bytes entry(IPv4Address ip, const MACAddress& mac) { return message(joined(internetAddress(ip), linkAddress(mac))); }

TEST(ARPTableTest, ReadsThePairOfEachMessage) {
    const Bytes dump = joined(entry(firstIP, firstMAC), entry(secondIP, secondMAC));
    EXPECT_THAT(ARPTable::parse(dump), UnorderedElementsAre(Pair(firstIP, firstMAC), Pair(secondIP, secondMAC)));
}

TEST(ARPTableTest, ReadsTheBytesWhereTheSystemPutsThem) {
    Bytes dump(128, 0);
    const auto put = [&dump](std::size_t offset, const Bytes& bytes) {
        std::ranges::copy(bytes, dump.begin() + static_cast<std::ptrdiff_t>(offset));
    };
    put(0, {128, 0});
    put(92, {16, 2, 0, 0, 192, 168, 0, 100});
    put(108, {20, 18, 0x0B, 0x00, 6, 3, 6, 0, 0x65, 0x6E, 0x35, 0x00, 0x1C, 0x42, 0xAB, 0xCD, 0xEF});
    EXPECT_THAT(ARPTable::parse(dump), UnorderedElementsAre(Pair(firstIP, firstMAC)));
}

TEST(ARPTableTest, IsEmptyForAnEmptyDump) { EXPECT_THAT(ARPTable::parse({}), IsEmpty()); }

TEST(ARPTableTest, LetsALaterEntryReplaceAnEarlierOne) {
    const Bytes dump = joined(entry(firstIP, firstMAC), entry(firstIP, secondMAC));
    EXPECT_THAT(ARPTable::parse(dump), UnorderedElementsAre(Pair(firstIP, secondMAC)));
}

TEST(ARPTableTest, FindsTheLinkLayerAddressBehindThePaddedLengthOfTheFirst) {
    for (const std::uint8_t length : {std::uint8_t{13}, std::uint8_t{16}, std::uint8_t{17}, std::uint8_t{28}}) {
        SCOPED_TRACE(length);
        const Bytes dump = message(joined(internetAddress(firstIP, length), linkAddress(firstMAC)));
        EXPECT_THAT(ARPTable::parse(dump), UnorderedElementsAre(Pair(firstIP, firstMAC)));
    }
}

TEST(ARPTableTest, FindsTheHardwareAddressBehindANameOfAnyLength) {
    for (const std::size_t length : {0U, 1U, 3U, 15U, 200U}) {
        SCOPED_TRACE(length);
        const LinkAddress parts{.name = Bytes(length, 0x65)};
        const Bytes dump = message(joined(internetAddress(firstIP), linkAddress(parts)));
        EXPECT_THAT(ARPTable::parse(dump), UnorderedElementsAre(Pair(firstIP, firstMAC)));
    }
}

TEST(ARPTableTest, SkipsOtherMessagesAndReadsOn) {
    const Bytes otherFamily = message(joined(internetAddress(firstIP, 16, 30), linkAddress(firstMAC)));
    const Bytes noLinkLayer = message(joined(internetAddress(firstIP), linkAddress({.family = 2})));
    const Bytes incomplete = message(joined(internetAddress(firstIP), linkAddress({.hardware = {}})));
    const Bytes fiveBytes = message(joined(internetAddress(firstIP), linkAddress({.hardware = Bytes(5, 1)})));
    const Bytes eightBytes = message(joined(internetAddress(firstIP), linkAddress({.hardware = Bytes(8, 1)})));
    const Bytes withoutSecond = message(internetAddress(firstIP));
    const Bytes headerOnly = message({});
    const Bytes shorterThanHeader{4, 0, 5, 5};
    for (const Bytes& other :
         {otherFamily, noLinkLayer, incomplete, fiveBytes, eightBytes, withoutSecond, headerOnly, shorterThanHeader}) {
        EXPECT_THAT(ARPTable::parse(other), IsEmpty());
        EXPECT_THAT(ARPTable::parse(joined(other, entry(secondIP, secondMAC))),
                    UnorderedElementsAre(Pair(secondIP, secondMAC)));
    }
}

TEST(ARPTableTest, EndsAtALengthOfZero) {
    const Bytes dump = joined(joined(entry(firstIP, firstMAC), Bytes(92)), entry(secondIP, secondMAC));
    EXPECT_THAT(ARPTable::parse(dump), UnorderedElementsAre(Pair(firstIP, firstMAC)));
}

TEST(ARPTableTest, EndsAtAMessageThatRunsPastTheBuffer) {
    const Bytes dump = joined(entry(firstIP, firstMAC), entry(secondIP, secondMAC));
    for (std::size_t length = 0; length < dump.size(); ++length) {
        SCOPED_TRACE(length);
        const auto table = ARPTable::parse(std::span(dump).first(length));
        EXPECT_EQ(table.size(), length < dump.size() / 2 ? 0U : 1U);
    }
}

TEST(ARPTableTest, SkipsAMessageCutAnywhereWithinItsAddresses) {
    const Bytes whole = entry(firstIP, firstMAC);
    const std::size_t lastByteOfMAC = 92 + 16 + 8 + 3 + 6;
    for (std::size_t length = 2; length < whole.size(); ++length) {
        SCOPED_TRACE(length);
        Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        std::ranges::copy(littleEndian(length, 2), cut.begin());
        EXPECT_EQ(ARPTable::parse(cut).size(), length < lastByteOfMAC ? 0U : 1U);
    }
}

TEST(ARPTableTest, SurvivesAnyBytes) {
    std::mt19937 random(826);
    std::uniform_int_distribution<unsigned> byte(0, 255);
    const Bytes good = entry(firstIP, firstMAC);
    for (int round = 0; round < 10'000; ++round) {
        Bytes dump = joined(good, good);
        for (int change = 0; change < 4; ++change) {
            dump[random() % dump.size()] = static_cast<std::uint8_t>(byte(random));
        }
        std::ignore = ARPTable::parse(dump);
    }
}

} // namespace
} // namespace DHCPCore
