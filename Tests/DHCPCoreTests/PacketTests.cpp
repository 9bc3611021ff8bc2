#include "DHCPCore/Packet.hpp"
#include "Support/Printing.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace DHCPCore {
namespace {

/// The bytes of a text of hexadecimal pairs; blanks are for the reader.
Bytes fromHex(std::string_view text) {
    std::string digits;
    std::ranges::remove_copy(text, std::back_inserter(digits), ' ');
    Bytes bytes;
    for (std::size_t index = 0; index < digits.size(); index += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits.substr(index, 2), nullptr, 16)));
    }
    return bytes;
}

Bytes fromText(std::string_view text) { return {text.begin(), text.end()}; }

Bytes joined(const std::vector<Bytes>& pieces) {
    Bytes bytes;
    for (const Bytes& piece : pieces) {
        bytes.insert(bytes.end(), piece.begin(), piece.end());
    }
    return bytes;
}

const Bytes namesArea(192);

/// What a laptop sends first: 240 bytes of fixed part, then options without padding.
Bytes discoverBytes() {
    return joined({fromHex("01 01 06 00  39 03 f3 26  00 05 80 00"), // op to hops, xid, secs, flags
                   fromHex("00 00 00 00  00 00 00 00  00 00 00 00  00 00 00 00"),
                   fromHex("00 1c 42 ab cd ef 00 00  00 00 00 00 00 00 00 00"), // chaddr
                   namesArea, fromHex("63 82 53 63"),
                   fromHex("35 01 01"),                   // message type
                   fromHex("3d 07 01 00 1c 42 ab cd ef"), // client identifier
                   fromHex("32 04 c0 a8 00 64"),          // requested address
                   fromHex("0c 06 64 65 76 69 63 65"),    // host name
                   fromHex("3c 08 4d 53 46 54 20 35 2e 30"), fromHex("37 04 01 03 06 0f"), fromHex("ff")});
}

DHCPPacket discoverPacket() {
    return {
        .op = 1,
        .htype = 1,
        .hlen = 6,
        .hops = 0,
        .xid = 0x3903F326,
        .secs = 5,
        .flags = 0x8000,
        .chaddr = {0x00, 0x1C, 0x42, 0xAB, 0xCD, 0xEF},
        .options = {{.code = OptionCode::messageType, .data = {1}},
                    {.code = OptionCode::clientID, .data = {0x01, 0x00, 0x1C, 0x42, 0xAB, 0xCD, 0xEF}},
                    {.code = OptionCode::requestedIP, .data = {192, 168, 0, 100}},
                    {.code = OptionCode::hostname, .data = fromText("device")},
                    {.code = OptionCode::vendorClass, .data = fromText("MSFT 5.0")},
                    {.code = OptionCode::parameterList, .data = {1, 3, 6, 15}}},
    };
}

/// A server's answer with every field of the fixed part in use, padded to 300 bytes.
Bytes offerBytes() {
    return joined({fromHex("02 06 10 03  01 02 03 04  05 06 07 08"),
                   fromHex("0a 00 00 01  0a 00 00 02  0a 00 00 03  0a 00 00 04"), // ciaddr to giaddr
                   fromHex("10 11 12 13 14 15 16 17  18 19 1a 1b 1c 1d 1e 1f"),   // chaddr
                   namesArea, fromHex("63 82 53 63"), fromHex("35 01 02  36 04 c0 a8 00 01  33 04 00 01 51 80"),
                   fromHex("50 00"), // an option without data
                   fromHex("ff"), Bytes(300 - 258)});
}

DHCPPacket offerPacket() {
    return {
        .op = 2,
        .htype = 6,
        .hlen = 16,
        .hops = 3,
        .xid = 0x01020304,
        .secs = 0x0506,
        .flags = 0x0708,
        .ciaddr = IPv4Address{10, 0, 0, 1},
        .yiaddr = IPv4Address{10, 0, 0, 2},
        .siaddr = IPv4Address{10, 0, 0, 3},
        .giaddr = IPv4Address{10, 0, 0, 4},
        .chaddr = {0x10, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18, 0x19, 0x1A, 0x1B, 0x1C, 0x1D, 0x1E, 0x1F},
        .options = {{.code = OptionCode::messageType, .data = {2}},
                    {.code = OptionCode::serverID, .data = {192, 168, 0, 1}},
                    {.code = OptionCode::leaseTime, .data = {0x00, 0x01, 0x51, 0x80}},
                    {.code = 80, .data = {}}},
    };
}

/// A packet's fixed part with the cookie, all fields zero, and these bytes as options area.
Bytes withOptions(std::string_view hex) { return joined({Bytes(236), fromHex("63 82 53 63"), fromHex(hex)}); }

std::optional<PacketError> parseFault(const Bytes& datagram) {
    try {
        static_cast<void>(DHCPPacket::parse(datagram));
    } catch (const PacketError& error) {
        return error;
    }
    return std::nullopt;
}

DHCPPacket packetWith(std::uint8_t code, const Bytes& data) {
    DHCPPacket packet;
    packet.setOption(code, data);
    return packet;
}

TEST(PacketParseTest, ReadsEveryFieldOfADiscover) { EXPECT_EQ(DHCPPacket::parse(discoverBytes()), discoverPacket()); }

TEST(PacketParseTest, ReadsEveryFieldOfAnOffer) { EXPECT_EQ(DHCPPacket::parse(offerBytes()), offerPacket()); }

TEST(PacketParseTest, IgnoresTheNamesArea) {
    Bytes bytes = discoverBytes();
    std::fill(bytes.begin() + 44, bytes.begin() + 236, std::uint8_t{0x35});
    EXPECT_EQ(DHCPPacket::parse(bytes), discoverPacket());
}

TEST(PacketParseTest, RefusesFewerThan240Bytes) {
    EXPECT_EQ(parseFault(Bytes(239)), PacketError{PacketError::TooShort{239}});
    EXPECT_EQ(parseFault({}), PacketError{PacketError::TooShort{0}});
}

TEST(PacketParseTest, ReadsAPacketWithoutOptions) {
    const Bytes bytes = withOptions("");
    ASSERT_EQ(bytes.size(), 240U);
    EXPECT_EQ(DHCPPacket::parse(bytes), (DHCPPacket{.op = 0, .htype = 0, .hlen = 0}));
}

TEST(PacketParseTest, RefusesAWrongCookieInEveryByte) {
    for (std::size_t position = 236; position < 240; ++position) {
        SCOPED_TRACE(position);
        Bytes bytes = discoverBytes();
        ++bytes.at(position);
        EXPECT_EQ(parseFault(bytes), PacketError{PacketError::BadMagicCookie{}});
    }
}

TEST(PacketParseTest, AcceptsOptionsThatEndWithTheLastByte) {
    const DHCPPacket packet = DHCPPacket::parse(withOptions("35 01 03"));
    EXPECT_EQ(packet.options, (std::vector<DHCPOptionField>{{.code = 53, .data = {3}}}));
}

TEST(PacketParseTest, RefusesAnOptionWithoutItsLengthByte) {
    EXPECT_EQ(parseFault(withOptions("35 01 03 0c")), PacketError{PacketError::OptionOverrun{12}});
}

TEST(PacketParseTest, RefusesDataThatRunsOneBytePastTheEnd) {
    EXPECT_EQ(parseFault(withOptions("0c 03 61 62 63")), std::nullopt);
    EXPECT_EQ(parseFault(withOptions("0c 03 61 62")), PacketError{PacketError::OptionOverrun{12}});
    EXPECT_EQ(parseFault(withOptions("0c ff 61 62")), PacketError{PacketError::OptionOverrun{12}});
}

TEST(PacketParseTest, SkipsPadding) {
    const DHCPPacket packet = DHCPPacket::parse(withOptions("00 00 35 01 03 00 0c 01 61 00 ff 00 00"));
    EXPECT_EQ(packet.options,
              (std::vector<DHCPOptionField>{{.code = 53, .data = {3}}, {.code = 12, .data = fromText("a")}}));
}

TEST(PacketParseTest, NeverReadsBehindTheEndOption) {
    const DHCPPacket packet = DHCPPacket::parse(withOptions("35 01 03 ff 0c 05 61"));
    EXPECT_EQ(packet.options, (std::vector<DHCPOptionField>{{.code = 53, .data = {3}}}));
}

TEST(PacketParseTest, KeepsDuplicatesOverloadAndEmptyOptionsInWireOrder) {
    const DHCPPacket packet = DHCPPacket::parse(withOptions("35 01 03  34 01 03  0c 00  35 01 01  ff"));
    EXPECT_EQ(packet.options, (std::vector<DHCPOptionField>{{.code = 53, .data = {3}},
                                                            {.code = 52, .data = {3}},
                                                            {.code = 12, .data = {}},
                                                            {.code = 53, .data = {1}}}));
}

TEST(PacketParseTest, ReadsTheLongestOption) {
    const Bytes data(255, 0x61);
    const DHCPPacket packet = DHCPPacket::parse(joined({withOptions("0c ff"), data}));
    EXPECT_EQ(packet.options, (std::vector<DHCPOptionField>{{.code = 12, .data = data}}));
}

TEST(PacketParseTest, ReadsOrRefusesAGoodPacketCutAtEveryLength) {
    const Bytes whole = discoverBytes();
    const std::vector<DHCPOptionField> options = discoverPacket().options;
    // Behind the fixed part a cut between two options leaves a shorter good packet, and any other cut none.
    std::vector<std::size_t> ends{240};
    for (const DHCPOptionField& option : options) {
        ends.push_back(ends.back() + 2 + option.data.size());
    }
    for (std::size_t length = 0; length < whole.size(); ++length) {
        SCOPED_TRACE(length);
        const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        if (length < 240) {
            EXPECT_EQ(parseFault(cut), PacketError{PacketError::TooShort{length}});
            continue;
        }
        const auto complete = static_cast<std::size_t>(std::ranges::upper_bound(ends, length) - ends.begin()) - 1;
        if (ends.at(complete) == length) {
            DHCPPacket expected = discoverPacket();
            expected.options.resize(complete);
            EXPECT_EQ(DHCPPacket::parse(cut), expected);
        } else {
            EXPECT_EQ(parseFault(cut), PacketError{PacketError::OptionOverrun{options.at(complete).code}});
        }
    }
}

TEST(PacketErrorTest, SaysWhatIsWrong) {
    EXPECT_EQ(PacketError{PacketError::TooShort{239}}.description(), "too short (239 bytes)");
    EXPECT_EQ(PacketError{PacketError::OptionOverrun{12}}.description(), "option 12 runs past the end");
    EXPECT_EQ(PacketError{PacketError::BadMagicCookie{}}.description(), "bad magic cookie");
}

TEST(PacketErrorTest, ComparesItsPayload) {
    EXPECT_EQ(PacketError{PacketError::TooShort{1}}, PacketError{PacketError::TooShort{1}});
    EXPECT_FALSE(PacketError{PacketError::TooShort{1}} == PacketError{PacketError::TooShort{2}});
    EXPECT_FALSE(PacketError{PacketError::TooShort{1}} == PacketError{PacketError::OptionOverrun{1}});
}

TEST(PacketSerializeTest, WritesEveryFieldOfADiscover) { EXPECT_EQ(discoverPacket().serialize(0), discoverBytes()); }

TEST(PacketSerializeTest, WritesEveryFieldOfAnOffer) { EXPECT_EQ(offerPacket().serialize(300), offerBytes()); }

TEST(PacketSerializeTest, PadsAFreshPacketTo300Bytes) {
    EXPECT_EQ(DHCPPacket{}.serialize(DHCPPacket::minimumReplyLength),
              joined({fromHex("01 01 06 00"), Bytes(232), fromHex("63 82 53 63 ff"), Bytes(59)}));
}

TEST(PacketSerializeTest, PadsUpToTheMinimumAndNotBeyond) {
    const DHCPPacket packet; // 241 bytes without padding
    EXPECT_EQ(packet.serialize(0).size(), 241U);
    EXPECT_EQ(packet.serialize(240).size(), 241U);
    EXPECT_EQ(packet.serialize(241).size(), 241U);
    EXPECT_EQ(packet.serialize(242).size(), 242U);
    EXPECT_EQ(packet.serialize(576).size(), 576U);
}

TEST(PacketSerializeTest, LeavesALongPacketUnpadded) {
    const DHCPPacket packet = packetWith(OptionCode::message, Bytes(58, 0x61)); // 60 bytes on the wire
    const Bytes bytes = packet.serialize(DHCPPacket::minimumReplyLength);
    EXPECT_EQ(bytes.size(), 301U);
    EXPECT_EQ(bytes.back(), OptionCode::end);
}

TEST(PacketSerializeTest, WritesTheLongestOption) {
    const Bytes data(255, 0x61);
    const Bytes bytes = packetWith(OptionCode::message, data).serialize(0);
    EXPECT_EQ(Bytes(bytes.begin() + 240, bytes.end()), joined({fromHex("38 ff"), data, fromHex("ff")}));
}

TEST(PacketSerializeTest, ReservesRoomForANormalReplyAtOnce) {
    EXPECT_EQ(DHCPPacket{}.serialize(300).capacity(), 320U);
    EXPECT_EQ(DHCPPacket{}.serialize(576).capacity(), 576U);
}

/// A packet of any fields, with up to 20 options of any code that a packet holds and of any length.
DHCPPacket randomPacket(std::mt19937& random) {
    const auto number = [&random](std::uint32_t limit) {
        return std::uniform_int_distribution<std::uint32_t>(0, limit)(random);
    };
    const auto byte = [&number] { return static_cast<std::uint8_t>(number(255)); };
    DHCPPacket packet{
        .op = byte(),
        .htype = byte(),
        .hlen = byte(),
        .hops = byte(),
        .xid = number(0xFFFFFFFF),
        .secs = static_cast<std::uint16_t>(number(0xFFFF)),
        .flags = static_cast<std::uint16_t>(number(0xFFFF)),
        .ciaddr = IPv4Address{number(0xFFFFFFFF)},
        .yiaddr = IPv4Address{number(0xFFFFFFFF)},
        .siaddr = IPv4Address{number(0xFFFFFFFF)},
        .giaddr = IPv4Address{number(0xFFFFFFFF)},
    };
    std::ranges::generate(packet.chaddr, byte);
    packet.options.resize(number(20));
    for (DHCPOptionField& option : packet.options) {
        option.code = static_cast<std::uint8_t>(1 + number(253));
        Bytes data(number(255));
        std::ranges::generate(data, byte);
        option.data = data;
    }
    return packet;
}

TEST(PacketSerializeTest, WritesWhatParsingReadsBack) {
    std::mt19937 random(4711); // the same packets in every run
    for (int round = 0; round < 500; ++round) {
        SCOPED_TRACE(round);
        const DHCPPacket packet = randomPacket(random);
        EXPECT_EQ(DHCPPacket::parse(packet.serialize(0)), packet);
        EXPECT_EQ(DHCPPacket::parse(packet.serialize(300)), packet);
    }
}

TEST(PacketSerializeTest, ChangesNothingThatParsingKeeps) {
    for (const Bytes& datagram : {discoverBytes(), offerBytes(), withOptions(""), withOptions("00 00 35 01 03 00"),
                                  withOptions("35 01 03 35 01 01 34 01 03 0c 00 ff 35 05")}) {
        const DHCPPacket packet = DHCPPacket::parse(datagram);
        EXPECT_EQ(DHCPPacket::parse(packet.serialize(300)), packet);
    }
}

TEST(PacketOptionTest, FindsTheFirstOfItsCode) {
    const DHCPPacket packet = DHCPPacket::parse(withOptions("0c 01 61  0c 01 62  3c 00"));
    const auto hostname = packet.option(OptionCode::hostname);
    ASSERT_TRUE(hostname.has_value());
    EXPECT_EQ(Bytes(hostname->begin(), hostname->end()), fromText("a"));
    const auto vendorClass = packet.option(OptionCode::vendorClass);
    ASSERT_TRUE(vendorClass.has_value());
    EXPECT_TRUE(vendorClass->empty());
    EXPECT_FALSE(packet.option(OptionCode::clientID).has_value());
}

TEST(PacketOptionTest, IsAppendedWhenNew) {
    DHCPPacket packet;
    packet.setOption(OptionCode::messageType, Bytes{2});
    packet.setOption(OptionCode::serverID, Bytes{192, 168, 0, 1});
    EXPECT_EQ(packet.options,
              (std::vector<DHCPOptionField>{{.code = 53, .data = {2}}, {.code = 54, .data = {192, 168, 0, 1}}}));
}

TEST(PacketOptionTest, IsReplacedWhereTheFirstOneStands) {
    DHCPPacket packet = DHCPPacket::parse(withOptions("35 01 01  0c 01 61  35 01 03"));
    packet.setOption(OptionCode::messageType, Bytes{7, 8});
    EXPECT_EQ(packet.options,
              (std::vector<DHCPOptionField>{
                  {.code = 53, .data = {7, 8}}, {.code = 12, .data = fromText("a")}, {.code = 53, .data = {3}}}));
}

TEST(PacketOptionTest, MayBeSetFromThePacketsOwnData) {
    DHCPPacket packet = packetWith(OptionCode::clientID, fromText("own data"));
    packet.setOption(OptionCode::hostname, packet.option(OptionCode::clientID)->subspan(4));
    packet.setOption(OptionCode::clientID, packet.option(OptionCode::clientID)->first(3));
    EXPECT_EQ(packet.options, (std::vector<DHCPOptionField>{{.code = 61, .data = fromText("own")},
                                                            {.code = 12, .data = fromText("data")}}));
}

TEST(PacketAccessorTest, KnowsEveryMessageType) {
    for (std::uint8_t number = 1; number <= 8; ++number) {
        EXPECT_EQ(packetWith(OptionCode::messageType, {number}).messageType(), static_cast<DHCPMessageType>(number));
    }
}

TEST(PacketAccessorTest, KnowsNoOtherMessageType) {
    EXPECT_EQ(DHCPPacket{}.messageType(), std::nullopt);
    for (const Bytes& data : {Bytes{}, Bytes{0}, Bytes{9}, Bytes{255}, Bytes{1, 1}}) {
        EXPECT_EQ(packetWith(OptionCode::messageType, data).messageType(), std::nullopt);
    }
}

TEST(PacketAccessorTest, TakesTheFirstOfTwoMessageTypes) {
    EXPECT_EQ(DHCPPacket::parse(withOptions("35 01 03 35 01 01")).messageType(), DHCPMessageType::request);
    EXPECT_EQ(DHCPPacket::parse(withOptions("35 01 09 35 01 01")).messageType(), std::nullopt);
}

TEST(PacketAccessorTest, ReadsTheMACOfSixByteAddressesOnly) {
    DHCPPacket packet = discoverPacket();
    EXPECT_EQ(packet.mac(), MACAddress::parse("00:1c:42:ab:cd:ef"));
    packet.htype = 32;
    EXPECT_EQ(packet.mac(), MACAddress::parse("00:1c:42:ab:cd:ef")) << "the hardware type is not looked at";
    for (const std::uint8_t length : std::array<std::uint8_t, 4>{0, 5, 7, 16}) {
        packet.hlen = length;
        EXPECT_EQ(packet.mac(), std::nullopt);
    }
}

TEST(PacketAccessorTest, ReadsHostNameAndVendorClassAsText) {
    EXPECT_EQ(discoverPacket().hostname(), "device");
    EXPECT_EQ(discoverPacket().vendorClass(), "MSFT 5.0");
    EXPECT_EQ(packetWith(OptionCode::hostname, {'a', 0x1B, 'b'}).hostname(), "a\\x1bb");
}

TEST(PacketAccessorTest, TellsAMissingTextFromAnEmptyOne) {
    EXPECT_EQ(DHCPPacket{}.hostname(), std::nullopt);
    EXPECT_EQ(DHCPPacket{}.vendorClass(), std::nullopt);
    EXPECT_EQ(DHCPPacket{}.clientID(), std::nullopt);
    EXPECT_EQ(packetWith(OptionCode::hostname, {}).hostname(), "");
    EXPECT_EQ(packetWith(OptionCode::vendorClass, {}).vendorClass(), "");
    EXPECT_EQ(packetWith(OptionCode::clientID, {}).clientID(), "");
}

TEST(PacketAccessorTest, ShowsAtMost64CharactersOfAText) {
    const std::string longest(64, 'x');
    EXPECT_EQ(packetWith(OptionCode::hostname, fromText(longest)).hostname(), longest);
    EXPECT_EQ(packetWith(OptionCode::hostname, fromText(longest + "y")).hostname(), longest);
    EXPECT_EQ(packetWith(OptionCode::vendorClass, fromText(longest + "y")).vendorClass(), longest);
}

TEST(PacketAccessorTest, ShowsTheClientIdentifierInHexadecimalAtAnyLength) {
    EXPECT_EQ(discoverPacket().clientID(), "01:00:1c:42:ab:cd:ef");
    EXPECT_EQ(packetWith(OptionCode::clientID, {0xFF}).clientID(), "ff");
    EXPECT_EQ(packetWith(OptionCode::clientID, Bytes(255, 0xAB)).clientID()->size(), 255U * 3 - 1);
}

TEST(PacketAccessorTest, ReadsAddressesOfExactlyFourBytes) {
    EXPECT_EQ(discoverPacket().requestedIP(), (IPv4Address{192, 168, 0, 100}));
    EXPECT_EQ(offerPacket().serverID(), (IPv4Address{192, 168, 0, 1}));
    EXPECT_EQ(DHCPPacket{}.requestedIP(), std::nullopt);
    EXPECT_EQ(DHCPPacket{}.serverID(), std::nullopt);
    for (const Bytes& data : {Bytes{}, Bytes{10, 0, 0}, Bytes{10, 0, 0, 1, 2}}) {
        EXPECT_EQ(packetWith(OptionCode::requestedIP, data).requestedIP(), std::nullopt);
        EXPECT_EQ(packetWith(OptionCode::serverID, data).serverID(), std::nullopt);
    }
}

TEST(PacketPrintableTest, EscapesWhatIsNotPrintableASCII) {
    EXPECT_EQ(DHCPPacket::printable(Bytes{0x1F, 0x20, 0x7E, 0x7F, 0x0A, 0xC3, 0xFF}, 64),
              "\\x1f ~\\x7f\\x0a\\xc3\\xff");
    EXPECT_EQ(DHCPPacket::printable(Bytes{'h', 'i', 0x00}, 64), "hi\\x00");
    EXPECT_EQ(DHCPPacket::printable(Bytes{}, 64), "");
}

TEST(PacketPrintableTest, StopsBeforeThePieceThatDoesNotFit) {
    const Bytes bytes{'h', 'i', 0x00, '!'};
    EXPECT_EQ(DHCPPacket::printable(bytes, 0), "");
    EXPECT_EQ(DHCPPacket::printable(bytes, 1), "h");
    EXPECT_EQ(DHCPPacket::printable(bytes, 3), "hi") << "the shorter piece behind the escape does not jump ahead";
    EXPECT_EQ(DHCPPacket::printable(bytes, 5), "hi");
    EXPECT_EQ(DHCPPacket::printable(bytes, 6), "hi\\x00");
    EXPECT_EQ(DHCPPacket::printable(bytes, 7), "hi\\x00!");
}

TEST(DHCPMessageTypeTest, HasNumberAndName) {
    const std::vector<std::pair<int, std::string_view>> types{{1, "DISCOVER"}, {2, "OFFER"}, {3, "REQUEST"},
                                                              {4, "DECLINE"},  {5, "ACK"},   {6, "NAK"},
                                                              {7, "RELEASE"},  {8, "INFORM"}};
    for (const auto& [number, name] : types) {
        SCOPED_TRACE(name);
        const auto type = fromRawValue<DHCPMessageType>(static_cast<std::uint8_t>(number));
        ASSERT_TRUE(type.has_value());
        EXPECT_EQ(description(*type), name);
        EXPECT_EQ(nlohmann::json(*type).dump(), std::to_string(number));
        EXPECT_EQ(nlohmann::json(number).get<DHCPMessageType>(), *type);
    }
    EXPECT_EQ(fromRawValue<DHCPMessageType>(0), std::nullopt);
    EXPECT_EQ(fromRawValue<DHCPMessageType>(9), std::nullopt);
}

TEST(DHCPMessageTypeTest, DecodesNoOtherNumber) {
    for (const std::string_view text : {"0", "9", "255", "257", "-1", "1.0", "\"DISCOVER\"", "null"}) {
        SCOPED_TRACE(text);
        try {
            const auto type = nlohmann::json::parse(text).get<DHCPMessageType>();
            ADD_FAILURE() << "decoded as " << description(type);
        } catch (const DecodingError& error) {
            EXPECT_EQ(error.description(), "Not a DHCP message type: " + std::string(text));
        }
    }
}

} // namespace
} // namespace DHCPCore
