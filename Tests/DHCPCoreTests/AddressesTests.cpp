#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/Error.hpp"
#include "Support/Printing.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

namespace DHCPCore {
namespace {

std::optional<std::string> roundTrip(std::string_view address) {
    const auto parsed = IPv4Address::parse(address);
    return parsed ? std::optional(parsed->description()) : std::nullopt;
}

Subnet subnet(std::string_view cidr) { return Subnet::parse(cidr).value(); }

template <class T>
std::string decodingFault(const char* json) {
    try {
        static_cast<void>(nlohmann::json::parse(json).get<T>());
    } catch (const DecodingError& error) {
        return error.description();
    }
    return "decoded without a fault";
}

TEST(BigEndianBytesTest, PutsTheMostSignificantByteFirst) {
    EXPECT_EQ(bigEndianBytes(std::uint8_t{0x12}), (std::array<std::uint8_t, 1>{0x12}));
    EXPECT_EQ(bigEndianBytes(std::uint16_t{0x1234}), (std::array<std::uint8_t, 2>{0x12, 0x34}));
    EXPECT_EQ(bigEndianBytes(std::uint32_t{0x12345678}), (std::array<std::uint8_t, 4>{0x12, 0x34, 0x56, 0x78}));
    EXPECT_EQ(bigEndianBytes(std::uint64_t{0x0123456789ABCDEF}),
              (std::array<std::uint8_t, 8>{0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}));
}

TEST(BigEndianBytesTest, TakesASignedNumberAsItsTwosComplement) {
    EXPECT_EQ(bigEndianBytes(std::int8_t{-2}), (std::array<std::uint8_t, 1>{0xFE}));
    EXPECT_EQ(bigEndianBytes(std::int16_t{0x1234}), (std::array<std::uint8_t, 2>{0x12, 0x34}));
    EXPECT_EQ(bigEndianBytes(std::int32_t{-2}), (std::array<std::uint8_t, 4>{0xFF, 0xFF, 0xFF, 0xFE}));
    EXPECT_EQ(bigEndianBytes(std::numeric_limits<std::int64_t>::min()), (std::array<std::uint8_t, 8>{0x80}));
}

TEST(IPv4AddressTest, HoldsTheFirstOctetInTheMostSignificantByte) {
    EXPECT_EQ((IPv4Address{10, 1, 2, 3}), IPv4Address{0x0A010203});
    EXPECT_EQ((IPv4Address{10, 1, 2, 3}.bytes()), (std::array<std::uint8_t, 4>{10, 1, 2, 3}));
    EXPECT_EQ((IPv4Address{255, 254, 253, 252}), IPv4Address{0xFFFEFDFC});
}

TEST(IPv4AddressTest, NamesTheWellKnownAddresses) {
    EXPECT_EQ(IPv4Address::zero.description(), "0.0.0.0");
    EXPECT_EQ(IPv4Address::broadcast.description(), "255.255.255.255");
    EXPECT_EQ(IPv4Address::loopback.description(), "127.0.0.1");
}

TEST(IPv4AddressTest, OrdersByNumberAndNotByText) {
    const IPv4Address two{10, 0, 0, 2};
    const IPv4Address ten{10, 0, 0, 10};
    EXPECT_LT(two, ten);
    EXPECT_LE(two, ten);
    EXPECT_LE(two, two);
    EXPECT_GT(ten, two);
    EXPECT_GE(ten, two);
    EXPECT_GE(ten, ten);
    EXPECT_LT((IPv4Address{127, 255, 255, 255}), (IPv4Address{128, 0, 0, 0})) << "the number has no sign";
}

TEST(IPv4AddressTest, ReadsFourDecimalOctets) {
    for (const auto& [text, printed] : std::vector<std::pair<std::string_view, std::string_view>>{
             {"0.0.0.0", "0.0.0.0"},
             {"255.255.255.255", "255.255.255.255"},
             {"192.168.0.1", "192.168.0.1"},
             {"00.0.0.0", "0.0.0.0"},
             {"010.001.000.009", "10.1.0.9"}, // decimal, never octal
         }) {
        SCOPED_TRACE(text);
        EXPECT_EQ(roundTrip(text), printed);
    }
}

TEST(IPv4AddressTest, RefusesTextThatIsNotFourDecimalOctets) {
    using namespace std::string_view_literals;
    for (const std::string_view text :
         {""sv,          "1.2.3"sv,      "1.2.3.4.5"sv, "1..3.4"sv,    ".1.2.3"sv,    "1.2.3."sv,    "1.2.3.4 "sv,
          " 1.2.3.4"sv,  "1.2.3.0004"sv, "256.0.0.1"sv, "1.2.3.256"sv, "1.2.3.999"sv, "+1.2.3.4"sv,  "-1.2.3.4"sv,
          "0x1.2.3.4"sv, "a.b.c.d"sv,    "1.2.3.4\n"sv, "1.2.3.4\0"sv, "1.2.3.٤"sv,   "1,2.3.4.5"sv, "1.2.3.4/24"sv}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(IPv4Address::parse(text), std::nullopt);
    }
}

TEST(IPv4AddressTest, ReadsExactlyFourBytes) {
    EXPECT_EQ(IPv4Address::fromBytes(Bytes{10, 1, 2, 3}), (IPv4Address{10, 1, 2, 3}));
    EXPECT_EQ(IPv4Address::fromBytes(Bytes{}), std::nullopt);
    EXPECT_EQ(IPv4Address::fromBytes(Bytes{10, 1, 2}), std::nullopt);
    EXPECT_EQ(IPv4Address::fromBytes(Bytes{10, 1, 2, 3, 4}), std::nullopt);
}

TEST(IPv4AddressTest, KnowsLinkLocalAddresses) {
    EXPECT_FALSE((IPv4Address{169, 253, 255, 255}.isLinkLocal()));
    EXPECT_TRUE((IPv4Address{169, 254, 0, 0}.isLinkLocal()));
    EXPECT_TRUE((IPv4Address{169, 254, 255, 255}.isLinkLocal()));
    EXPECT_FALSE((IPv4Address{169, 255, 0, 0}.isLinkLocal()));
}

TEST(IPv4AddressTest, TravelsInJSONAsItsPrintedForm) {
    const nlohmann::json json = IPv4Address{192, 168, 0, 1};
    EXPECT_EQ(json.dump(), R"("192.168.0.1")");
    EXPECT_EQ(json.get<IPv4Address>(), (IPv4Address{192, 168, 0, 1}));
}

TEST(IPv4AddressTest, NamesTheTextThatDoesNotDecode) {
    EXPECT_EQ(decodingFault<IPv4Address>(R"("1.2.3")"), "Not an IPv4 address: 1.2.3");
    EXPECT_THROW(static_cast<void>(nlohmann::json(7).get<IPv4Address>()), nlohmann::json::exception);
}

TEST(IPv4AddressTest, HashesByItsValue) {
    const std::unordered_set<IPv4Address> set{IPv4Address{1}, IPv4Address{2}, IPv4Address{1}};
    EXPECT_EQ(set.size(), 2U);
}

TEST(AddressRangeTest, ContainsBothEnds) {
    const AddressRange range{.lower = IPv4Address{10}, .upper = IPv4Address{20}};
    EXPECT_FALSE(range.contains(IPv4Address{9}));
    EXPECT_TRUE(range.contains(IPv4Address{10}));
    EXPECT_TRUE(range.contains(IPv4Address{20}));
    EXPECT_FALSE(range.contains(IPv4Address{21}));
}

TEST(AddressRangeTest, IsEmptyWhenReversed) {
    const AddressRange range{.lower = IPv4Address{20}, .upper = IPv4Address{10}};
    EXPECT_FALSE(range.contains(IPv4Address{10}));
    EXPECT_FALSE(range.contains(IPv4Address{15}));
    EXPECT_FALSE(range.contains(IPv4Address{20}));
}

TEST(MACAddressTest, ReadsEitherCaseAndPrintsLowerCase) {
    const MACAddress mac{.bytes = {0x00, 0x1C, 0x42, 0xAB, 0xCD, 0xEF}};
    EXPECT_EQ(MACAddress::parse("00:1c:42:ab:cd:ef"), mac);
    EXPECT_EQ(MACAddress::parse("00:1C:42:AB:CD:EF"), mac);
    EXPECT_EQ(mac.description(), "00:1c:42:ab:cd:ef");
}

TEST(MACAddressTest, RefusesTextThatIsNotSixPairs) {
    for (const std::string_view text :
         {"", "00:1c:42:ab:cd", "00:1c:42:ab:cd:ef:01", "00-1c-42-ab-cd-ef", "001c.42ab.cdef", "001c42abcdef",
          "0:1c:42:ab:cd:ef", "000:1c:42:ab:cd:ef", "00:1c:42:ab:cd:eg", "00:1c:42:ab:cd:", "00:1c:42:ab:cd:ef ",
          "+0:1c:42:ab:cd:ef", "-1:1c:42:ab:cd:ef", "0x:1c:42:ab:cd:ef", "00::42:ab:cd:ef"}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(MACAddress::parse(text), std::nullopt);
    }
}

TEST(MACAddressTest, ReadsExactlySixBytes) {
    EXPECT_EQ(MACAddress::fromBytes(Bytes{0, 1, 2, 3, 4}), std::nullopt);
    EXPECT_EQ(MACAddress::fromBytes(Bytes{0, 1, 2, 3, 4, 5}), (MACAddress{.bytes = {0, 1, 2, 3, 4, 5}}));
    EXPECT_EQ(MACAddress::fromBytes(Bytes{0, 1, 2, 3, 4, 5, 6}), std::nullopt);
}

TEST(MACAddressTest, TravelsInJSONAsItsPrintedForm) {
    const MACAddress mac{.bytes = {0x00, 0x1C, 0x42, 0xAB, 0xCD, 0xEF}};
    const nlohmann::json json = mac;
    EXPECT_EQ(json.dump(), R"("00:1c:42:ab:cd:ef")");
    EXPECT_EQ(json.get<MACAddress>(), mac);
}

TEST(MACAddressTest, NamesTheTextThatDoesNotDecode) {
    EXPECT_EQ(decodingFault<MACAddress>(R"("aa:bb")"), "Not a MAC address: aa:bb");
    EXPECT_THROW(static_cast<void>(nlohmann::json(nullptr).get<MACAddress>()), nlohmann::json::exception);
}

TEST(MACAddressTest, HashesEveryByte) {
    std::unordered_set<MACAddress> set;
    std::unordered_set<std::size_t> hashes;
    for (std::size_t index = 0; index < 6; ++index) {
        MACAddress mac;
        mac.bytes.at(index) = 1;
        set.insert(mac);
        hashes.insert(std::hash<MACAddress>{}(mac));
    }
    EXPECT_EQ(set.size(), 6U);
    EXPECT_EQ(hashes.size(), 6U);
    EXPECT_TRUE(set.contains(MACAddress{.bytes = {0, 0, 0, 0, 0, 1}}));
}

/// A table of a standard library may have a prime number of places and take the remainder.
TEST(MACAddressTest, DoNotMeetInOnePlaceHoweverTheyAreChosen) {
    constexpr std::uint64_t places = 10'273;
    constexpr std::uint64_t count = 1000;
    std::unordered_set<std::uint64_t> taken;
    for (std::uint64_t number = 0; number < count; ++number) {
        MACAddress mac;
        const auto bytes = bigEndianBytes(number * places);
        std::ranges::reverse_copy(std::span(bytes).last<6>(), mac.bytes.begin());
        taken.insert(std::hash<MACAddress>{}(mac) % places);
    }
    EXPECT_GT(taken.size(), count / 2);
}

TEST(IPv4AddressTest, DoNotMeetInOnePlaceHoweverTheyAreChosen) {
    constexpr std::uint32_t places = 10'273;
    constexpr std::uint32_t count = 1000;
    std::unordered_set<std::uint64_t> taken;
    for (std::uint32_t number = 0; number < count; ++number) {
        taken.insert(std::hash<IPv4Address>{}(IPv4Address{number * places}) % places);
    }
    EXPECT_GT(taken.size(), count / 2);
}

TEST(SubnetTest, TakesPrefixLengthsFrom0To32) {
    const IPv4Address address{10, 0, 0, 1};
    EXPECT_EQ(Subnet::make(address, -1), std::nullopt);
    EXPECT_EQ(Subnet::make(address, 0), (Subnet{.address = address, .prefixLength = 0}));
    EXPECT_EQ(Subnet::make(address, 32), (Subnet{.address = address, .prefixLength = 32}));
    EXPECT_EQ(Subnet::make(address, 33), std::nullopt);
}

TEST(SubnetTest, ReadsAnAddressAndAPrefixLength) {
    const IPv4Address address{10, 0, 0, 1};
    for (const auto& [text, prefixLength] : std::vector<std::pair<std::string_view, int>>{
             {"10.0.0.1/24", 24},
             {"10.0.0.1//24", 24}, // empty pieces are dropped
             {"/10.0.0.1/24", 24},
             {"10.0.0.1/24/", 24},
             {"10.0.0.1/+24", 24},
             {"10.0.0.1/024", 24},
             {"10.0.0.1/0", 0},
             {"10.0.0.1/-0", 0},
             {"10.0.0.1/32", 32},
         }) {
        SCOPED_TRACE(text);
        EXPECT_EQ(Subnet::parse(text), (Subnet{.address = address, .prefixLength = prefixLength}));
    }
}

TEST(SubnetTest, RefusesOtherText) {
    for (const std::string_view text :
         {"", "/", "10.0.0.1", "10.0.0.1/", "/24", "10.0.0.1/24/24", "10.0.0.1/-1", "10.0.0.1/33", "10.0.0.1/24a",
          "10.0.0.1/a", "10.0.0.1/ 24", "10.0.0.1/24 ", "10.0.0.1 /24", "10.0.0/24", "10.0.0.1/++24", "10.0.0.1/+",
          "10.0.0.1/4294967320", "10.0.0.1/99999999999999999999", "10.0.0.1/255.255.255.0"}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(Subnet::parse(text), std::nullopt);
    }
}

TEST(SubnetTest, KeepsTheHostBitsAndPrintsTheNetwork) {
    const Subnet given = subnet("192.168.0.77/24");
    EXPECT_EQ(given.address, (IPv4Address{192, 168, 0, 77}));
    EXPECT_EQ(given.description(), "192.168.0.0/24");
    EXPECT_NE(given, subnet("192.168.0.0/24"));
    EXPECT_EQ(given.network(), subnet("192.168.0.0/24").network());
}

TEST(SubnetTest, DerivesMaskNetworkAndBroadcast) {
    struct Row {
        std::string_view cidr;
        std::string_view mask;
        std::string_view network;
        std::string_view broadcast;
    };
    for (const Row& row : {
             Row{"192.168.0.77/24", "255.255.255.0", "192.168.0.0", "192.168.0.255"},
             Row{"10.1.2.3/32", "255.255.255.255", "10.1.2.3", "10.1.2.3"},
             Row{"10.1.2.3/31", "255.255.255.254", "10.1.2.2", "10.1.2.3"},
             Row{"10.1.2.3/8", "255.0.0.0", "10.0.0.0", "10.255.255.255"},
             Row{"200.1.2.3/1", "128.0.0.0", "128.0.0.0", "255.255.255.255"},
             Row{"10.1.2.3/0", "0.0.0.0", "0.0.0.0", "255.255.255.255"},
         }) {
        SCOPED_TRACE(row.cidr);
        const Subnet given = subnet(row.cidr);
        EXPECT_EQ(given.mask().description(), row.mask);
        EXPECT_EQ(given.network().description(), row.network);
        EXPECT_EQ(given.broadcast().description(), row.broadcast);
    }
}

TEST(SubnetTest, ContainsTheAddressesOfItsNetwork) {
    const Subnet given = subnet("10.0.1.9/24");
    EXPECT_FALSE(given.contains(IPv4Address{10, 0, 0, 255}));
    EXPECT_TRUE(given.contains(IPv4Address{10, 0, 1, 0}));
    EXPECT_TRUE(given.contains(IPv4Address{10, 0, 1, 255}));
    EXPECT_FALSE(given.contains(IPv4Address{10, 0, 2, 0}));
    EXPECT_TRUE(subnet("10.0.1.9/0").contains(IPv4Address::broadcast));
    EXPECT_FALSE(subnet("10.0.1.9/32").contains(IPv4Address{10, 0, 1, 8}));
}

TEST(SubnetTest, OverlapsWhatItHoldsOrIsHeldBy) {
    struct Row {
        std::string_view one;
        std::string_view other;
        bool overlap;
    };
    for (const Row& row : {
             Row{"10.0.0.0/8", "10.1.2.0/24", true},
             Row{"10.0.0.0/24", "10.0.1.0/24", false},
             Row{"10.0.0.0/23", "10.0.1.0/24", true},
             Row{"10.0.0.0/24", "10.0.0.128/25", true},
             Row{"0.0.0.0/0", "203.0.113.9/32", true},
             Row{"203.0.113.8/32", "203.0.113.9/32", false},
         }) {
        SCOPED_TRACE(std::string(row.one) + " and " + std::string(row.other));
        EXPECT_EQ(subnet(row.one).overlaps(subnet(row.other)), row.overlap);
        EXPECT_EQ(subnet(row.other).overlaps(subnet(row.one)), row.overlap);
    }
}

TEST(SubnetTest, CountsTheLeadingOnesOfAMask) {
    for (int length = 0; length <= 32; ++length) {
        EXPECT_EQ(Subnet::prefixLengthOfMask(Subnet{.address = {}, .prefixLength = length}.mask()), length);
    }
    EXPECT_EQ(Subnet::prefixLengthOfMask(IPv4Address{255, 255, 255, 0}), 24);
}

TEST(SubnetTest, RefusesAMaskWithAGap) {
    EXPECT_EQ(Subnet::prefixLengthOfMask(IPv4Address{255, 0, 255, 0}), std::nullopt);
    EXPECT_EQ(Subnet::prefixLengthOfMask(IPv4Address{255, 255, 0, 255}), std::nullopt);
    EXPECT_EQ(Subnet::prefixLengthOfMask(IPv4Address{0, 0, 0, 1}), std::nullopt);
    EXPECT_EQ(Subnet::prefixLengthOfMask(IPv4Address{127, 255, 255, 255}), std::nullopt);
}

TEST(SubnetTest, HashesBothFields) {
    const std::unordered_set<Subnet> set{subnet("10.0.0.1/24"), subnet("10.0.0.1/24"), subnet("10.0.0.1/25"),
                                         subnet("10.0.0.2/24")};
    EXPECT_EQ(set.size(), 3U);
}

} // namespace
} // namespace DHCPCore
