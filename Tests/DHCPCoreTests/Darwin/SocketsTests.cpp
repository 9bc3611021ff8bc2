#include "DHCPCore/Sockets.hpp"
#include "Support/LoopbackSocket.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <netinet/in.h>
#include <span>
#include <sys/socket.h>

namespace DHCPCore {
namespace {

using TestSupport::LoopbackSocket;

TEST(SocketsTest, KnowsTheLoopbackDeviceByNameAndIndex) {
    const std::uint32_t index = Sockets::indexOfInterface("lo0");
    EXPECT_NE(index, 0U);
    EXPECT_EQ(Sockets::nameOfInterface(index), "lo0");
    EXPECT_EQ(Sockets::loopbackDevice(), "lo0");
}

TEST(SocketsTest, KnowsNoCardOfAnImpossibleNameOrIndex) {
    EXPECT_EQ(Sockets::indexOfInterface("nosuchcard0"), 0U);
    EXPECT_EQ(Sockets::nameOfInterface(0), std::nullopt);
}

TEST(SocketsTest, OpensSocketsThatAreCloseOnExecAndRaiseNoSignal) {
    const FileDescriptor socket = Sockets::open(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    ASSERT_TRUE(socket.isOpen());
    EXPECT_EQ(::fcntl(socket.number(), F_GETFD), FD_CLOEXEC);
    int value = 0;
    socklen_t length = sizeof value;
    EXPECT_EQ(::getsockopt(socket.number(), SOL_SOCKET, SO_NOSIGPIPE, &value, &length), 0);
    EXPECT_NE(value, 0);
}

TEST(SocketsTest, SaysWhyADescriptorIsRefused) {
    const FileDescriptor closed;
    EXPECT_EQ(Sockets::setNonBlocking(closed), EBADF);
    EXPECT_EQ(Sockets::reportArrivalInterface(closed), EBADF);
    EXPECT_EQ(Sockets::tieToInterface(closed, Sockets::indexOfInterface("lo0")), EBADF);
    EXPECT_EQ(
        Sockets::send(closed, Bytes(1), {.destination = IPv4Address::loopback, .port = 9, .source = std::nullopt}),
        EBADF);
}

TEST(SocketsTest, KnowsWhichAddressesACardHolds) {
    const FileDescriptor socket = Sockets::open(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    const std::uint32_t index = Sockets::indexOfInterface("lo0");
    EXPECT_TRUE(Sockets::holdsAddress(socket, index, IPv4Address::loopback));
    EXPECT_FALSE(Sockets::holdsAddress(socket, index, IPv4Address{192, 0, 2, 1}));
    EXPECT_FALSE(Sockets::holdsAddress(socket, 0, IPv4Address::loopback));
}

TEST(SocketsTest, TellsTheArrivalCardOfADatagramOnLoopback) {
    const LoopbackSocket receiver;
    const FileDescriptor sender = Sockets::open(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    const FileDescriptor receiving{::dup(receiver.fd())};
    ASSERT_EQ(Sockets::reportArrivalInterface(receiving), 0);
    ASSERT_EQ(Sockets::send(sender, Bytes{1},
                            {.destination = IPv4Address::loopback, .port = receiver.port(), .source = std::nullopt}),
              0);
    ASSERT_TRUE(TestSupport::waitUntilReadable(receiving.number()));
    alignas(cmsghdr) std::array<std::uint8_t, 256> control{};
    std::array<std::uint8_t, 16> payload{};
    iovec piece{.iov_base = payload.data(), .iov_len = payload.size()};
    msghdr message{};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = static_cast<socklen_t>(control.size());
    ASSERT_EQ(::recvmsg(receiving.number(), &message, 0), 1);
    EXPECT_EQ(Sockets::arrivalInterface(std::span(control).first(message.msg_controllen)),
              Sockets::indexOfInterface("lo0"));
}

} // namespace
} // namespace DHCPCore
