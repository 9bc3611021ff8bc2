#include "DHCPCore/Packet.hpp"
#include "DHCPCore/Responder.hpp"
#include "Model/DecisionModel.hpp"
#include "Support/Builders.hpp"
#include "Support/Printing.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

/// Every small packet there is: each message type, with each of the options that the rules read missing or of every
/// length that means something else, each address field set or not, about each kind of address.
namespace DHCPCore {

namespace {

using TestSupport::ip;
using TestSupport::mac;
using TestSupport::now;

constexpr std::array<int, 7> lengths{-1, 0, 1, 3, 4, 5, 255}; ///< -1: the option is missing.
constexpr int another = 104;                                  ///< Length 4, of another server.
constexpr std::array<int, 8> serverLengths{-1, 0, 1, 3, 4, another, 5, 255};
constexpr std::array<int, 11> types{-1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9}; ///< -1: likewise; 0 and 9 mean nothing.
constexpr std::array<IPv4Address, 5> subjects{ip(10), ip(11), ip(12), ip(13), IPv4Address{192, 168, 7, 7}};

/// The address 10 is the client's own, 11 another's, 12 free, 13 quarantined; the last one is of another network.
Model::Circumstances circumstances() {
    return {.table = {.leases = {TestSupport::boundLease(mac(1), ip(10)), TestSupport::boundLease(mac(2), ip(11))},
                      .quarantine = {{.ip = ip(13), .until = now + Timing::quarantine, .reportedBy = mac(3)}}},
            .presence = {},
            .probes = {},
            .now = now};
}

ServerConfig config() {
    ServerConfig config = TestSupport::smallConfig();
    config.rangeEnd = ip(14);
    return config;
}

/// Which packet of the matrix.
struct Cell {
    int type;
    int requestedLength;
    int serverLength;
    std::array<int, 3> textLengths; ///< Of the options 12, 60 and 61.
    bool ciaddr;
    bool giaddr;
    IPv4Address subject;
};

void add(DHCPPacket& packet, std::uint8_t code, int length, const Bytes& beginning) {
    if (length < 0) {
        return;
    }
    Bytes data(static_cast<std::size_t>(length), 0xE7);
    std::copy_n(beginning.begin(), std::min(beginning.size(), data.size()), data.begin());
    packet.options.push_back({.code = code, .data = data});
}

Bytes bytesOf(IPv4Address address) {
    const auto bytes = address.bytes();
    return {bytes.begin(), bytes.end()};
}

DHCPPacket packetOf(const Cell& cell) {
    DHCPPacket packet;
    std::ranges::copy(mac(1).bytes, packet.chaddr.begin());
    packet.ciaddr = cell.ciaddr ? cell.subject : IPv4Address::zero;
    packet.giaddr = cell.giaddr ? ip(200) : IPv4Address::zero;
    if (cell.type >= 0) {
        packet.options.push_back({.code = OptionCode::messageType, .data = {static_cast<std::uint8_t>(cell.type)}});
    }
    add(packet, OptionCode::requestedIP, cell.requestedLength, bytesOf(cell.subject));
    const bool isAnother = cell.serverLength == another;
    add(packet, OptionCode::serverID, isAnother ? 4 : cell.serverLength, bytesOf(isAnother ? ip(2) : ip(1)));
    add(packet, OptionCode::hostname, cell.textLengths[0], {'n', '\n', 0x1B});
    add(packet, OptionCode::vendorClass, cell.textLengths[1], {'A', 'P', 'C', ' '});
    add(packet, OptionCode::clientID, cell.textLengths[2], {0x01});
    return packet;
}

/// @return whether the packet, sent over the wire, leads to what the plain rules say.
testing::AssertionResult check(const Cell& cell) {
    static const ServerConfig served = config();
    static const Model::Circumstances given = circumstances();
    const DHCPPacket packet = packetOf(cell);
    const DHCPPacket received = DHCPPacket::parse(packet.serialize(0));
    const Model::Outcome expected = Model::decide(served, packet, given);
    const Decision decision = Responder{served}.decide(received, {.table = {given.table.leases, given.table.quarantine},
                                                                  .presence = given.presence,
                                                                  .probes = given.probes,
                                                                  .now = given.now});
    if (received == packet && Model::agree(expected, decision)) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << testing::PrintToString(packet) << "\narrived as "
                                       << testing::PrintToString(received) << "\nled to "
                                       << testing::PrintToString(decision);
}

/// Checks every packet with those texts.
void checkAll(const std::array<int, 3>& textLengths) {
    for (const int type : types) {
        for (const int requestedLength : lengths) {
            for (const int serverLength : serverLengths) {
                for (unsigned bits = 0; bits < 4; ++bits) {
                    for (const IPv4Address subject : subjects) {
                        ASSERT_TRUE(check({.type = type,
                                           .requestedLength = requestedLength,
                                           .serverLength = serverLength,
                                           .textLengths = textLengths,
                                           .ciaddr = (bits & 1U) != 0,
                                           .giaddr = (bits & 2U) != 0,
                                           .subject = subject}));
                    }
                }
            }
        }
    }
}

/// The whole product, 4.2 million packets, takes too long for a build with sanitizers. Where the environment does not
/// ask for it by `TARNWICK_MATRIX_WHOLE`, the three texts are of one length.
bool isWanted(const std::array<int, 3>& textLengths) {
    static const bool whole =
        std::getenv("TARNWICK_MATRIX_WHOLE") != nullptr; // NOLINT(concurrency-mt-unsafe): nothing changes it
    const bool allEqual = textLengths[0] == textLengths[1] && textLengths[1] == textLengths[2];
    return whole || allEqual;
}

} // namespace

TEST(PacketMatrixTest, AnswersEverySmallPacketByThePlainRules) {
    for (const int hostname : lengths) {
        for (const int vendorClass : lengths) {
            for (const int clientID : lengths) {
                const std::array textLengths{hostname, vendorClass, clientID};
                if (isWanted(textLengths)) {
                    checkAll(textLengths);
                }
                ASSERT_FALSE(HasFailure());
            }
        }
    }
}

} // namespace DHCPCore
