#include "DHCPCore/Sockets.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <net/if.h>
#include <netinet/in.h>
#include <random>
#include <sys/socket.h>
#include <tuple>

namespace DHCPCore {
namespace {

/// One control message as the kernel lays it out, padded to the next one.
Bytes controlMessage(int level, int type, const Bytes& data) {
    cmsghdr header{};
    header.cmsg_len = CMSG_LEN(data.size());
    header.cmsg_level = level;
    header.cmsg_type = type;
    Bytes message(CMSG_SPACE(data.size()));
    std::memcpy(message.data(), &header, sizeof header);
    std::ranges::copy(data, message.begin() + static_cast<std::ptrdiff_t>(CMSG_LEN(0)));
    return message;
}

Bytes packetInfo(std::uint32_t index) {
    in_pktinfo info{};
    info.ipi_ifindex = static_cast<int>(index);
    Bytes data(sizeof info);
    std::memcpy(data.data(), &info, sizeof info);
    return controlMessage(IPPROTO_IP, IP_PKTINFO, data);
}

Bytes joined(Bytes first, const Bytes& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

/// The message with another length in its header.
Bytes withLength(Bytes message, std::size_t length) {
    cmsghdr header{};
    std::memcpy(&header, message.data(), sizeof header);
    header.cmsg_len = length;
    std::memcpy(message.data(), &header, sizeof header);
    return message;
}

TEST(ArrivalInterfaceTest, ReadsTheIndexOfTheCard) {
    for (const std::uint32_t index : {1U, 2U, 300U, 70000U, 0x7FFFFFFFU}) {
        EXPECT_EQ(Sockets::arrivalInterface(packetInfo(index)), index);
    }
}

TEST(ArrivalInterfaceTest, IsAbsentWithoutControlBytes) { EXPECT_EQ(Sockets::arrivalInterface({}), std::nullopt); }

TEST(ArrivalInterfaceTest, SkipsMessagesOfAnotherKind) {
    const Bytes otherLevel = controlMessage(SOL_SOCKET, IP_PKTINFO, Bytes(sizeof(in_pktinfo), 9));
    const Bytes otherType = controlMessage(IPPROTO_IP, IP_TTL, Bytes(4, 9));
    const Bytes oddSize = controlMessage(SOL_SOCKET, SCM_TIMESTAMP, Bytes(5, 9)); // padded behind its data
    for (const Bytes& other : {otherLevel, otherType, oddSize}) {
        EXPECT_EQ(Sockets::arrivalInterface(other), std::nullopt);
        EXPECT_EQ(Sockets::arrivalInterface(joined(other, packetInfo(7))), 7U);
    }
}

TEST(ArrivalInterfaceTest, TakesTheFirstOfTwo) {
    EXPECT_EQ(Sockets::arrivalInterface(joined(packetInfo(7), packetInfo(8))), 7U);
}

TEST(ArrivalInterfaceTest, IsAbsentWhenTheMessageIsCutAtAnyLength) {
    const Bytes whole = packetInfo(7);
    for (std::size_t length = 0; length < CMSG_LEN(sizeof(in_pktinfo)); ++length) {
        SCOPED_TRACE(length);
        EXPECT_EQ(Sockets::arrivalInterface(std::span(whole).first(length)), std::nullopt);
    }
    EXPECT_EQ(Sockets::arrivalInterface(std::span(whole).first(CMSG_LEN(sizeof(in_pktinfo)))), 7U)
        << "the padding at the end may be missing";
}

TEST(ArrivalInterfaceTest, IsAbsentWhenALengthIsImpossible) {
    const Bytes whole = packetInfo(7);
    constexpr std::size_t most = std::numeric_limits<std::size_t>::max();
    for (const std::size_t length : {std::size_t{0}, std::size_t{1}, CMSG_LEN(0) - 1, CMSG_LEN(0),
                                     CMSG_LEN(sizeof(in_pktinfo)) - 1, whole.size() + 1, most / 2, most - 7, most}) {
        SCOPED_TRACE(length);
        EXPECT_EQ(Sockets::arrivalInterface(withLength(whole, length)), std::nullopt);
        const Bytes other = controlMessage(IPPROTO_IP, IP_TTL, Bytes(4, 9));
        EXPECT_EQ(Sockets::arrivalInterface(withLength(other, length)), std::nullopt);
    }
}

TEST(ArrivalInterfaceTest, EndsTheWalkAtALengthTooShortForItsHeader) {
    const Bytes other = controlMessage(IPPROTO_IP, IP_TTL, Bytes(4, 9));
    for (const std::size_t length : {std::size_t{0}, CMSG_LEN(0) - 1}) {
        SCOPED_TRACE(length);
        EXPECT_EQ(Sockets::arrivalInterface(joined(withLength(other, length), packetInfo(7))), std::nullopt);
    }
}

TEST(ArrivalInterfaceTest, SurvivesAnyBytes) {
    std::mt19937 random(2131);
    std::uniform_int_distribution<unsigned> byte(0, 255);
    for (int round = 0; round < 10'000; ++round) {
        Bytes control(random() % 256);
        std::ranges::generate(control, [&] { return static_cast<std::uint8_t>(byte(random)); });
        if (control.size() >= sizeof(cmsghdr) && round % 2 == 0) { // else hardly a length is plausible
            control = withLength(std::move(control), random() % 300);
        }
        std::ignore = Sockets::arrivalInterface(control);
    }
}

TEST(SocketsTest, KnowsTheLoopbackDeviceByNameAndIndex) {
    const std::uint32_t index = Sockets::indexOfInterface(Sockets::loopbackDevice());
    EXPECT_NE(index, 0U);
    EXPECT_EQ(Sockets::nameOfInterface(index), Sockets::loopbackDevice());
}

TEST(SocketsTest, KnowsNoCardOfAnImpossibleNameOrIndex) {
    EXPECT_EQ(Sockets::indexOfInterface("nosuchcard0"), 0U);
    EXPECT_EQ(Sockets::nameOfInterface(0), std::nullopt);
    EXPECT_EQ(Sockets::nameOfInterface(std::numeric_limits<std::uint32_t>::max()), std::nullopt);
}

TEST(SocketsTest, CannotTieASocketToACardThatDoesNotExist) {
    const FileDescriptor socket = Sockets::open(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    ASSERT_TRUE(socket.isOpen());
    EXPECT_EQ(Sockets::tieToInterface(socket, std::numeric_limits<std::uint32_t>::max()), ENXIO);
}

TEST(SocketsTest, SaysWhyADescriptorIsRefused) {
    const FileDescriptor closed;
    EXPECT_EQ(Sockets::setNonBlocking(closed), EBADF);
    EXPECT_EQ(Sockets::reportArrivalInterface(closed), EBADF);
    EXPECT_EQ(Sockets::tieToInterface(closed, Sockets::indexOfInterface(Sockets::loopbackDevice())), EBADF);
    EXPECT_EQ(
        Sockets::send(closed, Bytes(1), {.destination = IPv4Address::loopback, .port = 9, .source = std::nullopt}),
        EBADF);
}

} // namespace
} // namespace DHCPCore
