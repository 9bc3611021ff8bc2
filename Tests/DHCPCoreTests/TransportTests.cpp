#include "DHCPCore/Error.hpp"
#include "DHCPCore/Sockets.hpp"
#include "DHCPCore/Transport.hpp"
#include "Support/LoopbackSocket.hpp"
#include "Support/OpenDescriptors.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <iterator>
#include <memory>
#include <net/if.h>
#include <numeric>
#include <string>
#include <tuple>
#include <vector>

namespace DHCPCore {
namespace {

using TestSupport::freePort;
using TestSupport::LoopbackSocket;
using TestSupport::openDescriptors;
using TestSupport::waitUntilReadable;

constexpr IPv4Address device{192, 168, 0, 100};

TransportMode loopback(std::uint16_t serverPort, std::uint16_t clientPort) {
    return {TransportMode::Loopback{.serverPort = serverPort, .clientPort = clientPort}};
}

TransportMode card(std::string name) { return {TransportMode::Interface{std::move(name)}}; }

ReplyDestination unicast(IPv4Address ip) { return {ReplyDestination::Unicast{ip}}; }
ReplyDestination broadcast() { return {ReplyDestination::Broadcast{}}; }

Bytes numbered(std::size_t count) {
    Bytes bytes(count);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{0});
    return bytes;
}

/// What the call throws as a `TransportError`; nothing when it returns.
template <class Call>
std::optional<TransportError> failureOf(Call call) {
    try {
        call();
    } catch (const TransportError& error) {
        return error;
    }
    return std::nullopt;
}

int socketOption(int fd, int level, int option) {
    int value = -1;
    socklen_t length = sizeof value;
    ::getsockopt(fd, level, option, &value, &length);
    return value;
}

/// An open transport in loopback mode, and the client that it answers to.
class LoopbackTransportTest : public testing::Test {
  protected:
    LoopbackTransportTest() { transport.open(); }

    LoopbackSocket client;
    std::uint16_t serverPort = freePort();
    UDPTransport transport{loopback(serverPort, client.port())};
};

TEST(TransportModeTest, NamesItsInterface) {
    EXPECT_EQ(card("en5").interfaceName(), "en5");
    EXPECT_EQ(loopback(6767, 6868).interfaceName(), "lo0");
}

TEST(TransportModeTest, ComparesKindAndPayload) {
    EXPECT_EQ(card("en5"), card("en5"));
    EXPECT_NE(card("en5"), card("en6"));
    EXPECT_NE(card("lo0"), loopback(6767, 6868));
    EXPECT_NE(loopback(6767, 6868), loopback(6767, 6869));
    EXPECT_NE(loopback(6767, 6868), loopback(6766, 6868));
}

TEST(TransportErrorTest, TellsOperationSystemTextAndNumber) {
    const TransportError error("bind 0.0.0.0:67", EADDRINUSE);
    EXPECT_EQ(error.description(),
              "bind 0.0.0.0:67 failed: Address already in use (errno " + std::to_string(EADDRINUSE) + ")");
    EXPECT_EQ(error.what(), error.description());
    EXPECT_EQ(error.operation, "bind 0.0.0.0:67");
    EXPECT_EQ(error.code, EADDRINUSE);
}

TEST(TransportErrorTest, ComparesOperationAndCode) {
    EXPECT_EQ(TransportError("socket", EMFILE), TransportError("socket", EMFILE));
    EXPECT_NE(TransportError("socket", EMFILE), TransportError("socket", ENFILE));
    EXPECT_NE(TransportError("socket", EMFILE), TransportError("recvmsg", EMFILE));
}

TEST(UDPTransportTest, OpensNothingWhenItIsMade) {
    const auto before = openDescriptors();
    const UDPTransport transport(card("en5"));
    EXPECT_EQ(transport.fd(), -1);
    EXPECT_EQ(transport.interfaceIndex(), 0U);
    EXPECT_EQ(transport.mode(), card("en5"));
    EXPECT_EQ(transport.interfaceName(), "en5");
    EXPECT_EQ(openDescriptors(), before);
}

TEST(UDPTransportTest, NamesACardThatDoesNotExistAndLeavesNothingOpen) {
    for (const std::string& name : {std::string("nosuchcard0"), std::string(), std::string(1000, 'x')}) {
        SCOPED_TRACE(name);
        const auto before = openDescriptors();
        UDPTransport transport(card(name));
        const auto failure = failureOf([&] { transport.open(); });
        EXPECT_EQ(failure, TransportError("find interface " + name, 6));
        EXPECT_EQ(failure->description(), "find interface " + name + " failed: " + systemText(ENXIO) + " (errno 6)");
        EXPECT_EQ(transport.fd(), -1);
        EXPECT_EQ(transport.interfaceIndex(), 0U);
        EXPECT_EQ(openDescriptors(), before);
    }
}

TEST(UDPTransportTest, SaysWhichPortIsTakenAndLeavesNothingOpen) {
    const LoopbackSocket holder;
    const std::string operation = "bind 127.0.0.1:" + std::to_string(holder.port());
    const auto before = openDescriptors();
    UDPTransport transport(loopback(holder.port(), 6868));
    const auto failure = failureOf([&] { transport.open(); });
    EXPECT_EQ(failure, TransportError(operation, EADDRINUSE));
    EXPECT_EQ(failure->description(),
              operation + " failed: Address already in use (errno " + std::to_string(EADDRINUSE) + ")");
    EXPECT_EQ(transport.fd(), -1);
    EXPECT_EQ(transport.interfaceIndex(), 0U);
    EXPECT_EQ(openDescriptors(), before);
}

TEST(UDPTransportTest, OpensAgainAfterAFailure) {
    auto holder = std::make_unique<LoopbackSocket>();
    UDPTransport transport(loopback(holder->port(), 6868));
    EXPECT_THROW(transport.open(), TransportError);
    holder.reset();
    transport.open();
    EXPECT_GE(transport.fd(), 0);
}

TEST(UDPTransportTest, SaysThatTheProcessHasNoDescriptorLeft) {
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none{.rlim_cur = 0, .rlim_max = limit.rlim_max};
    UDPTransport transport(loopback(freePort(), 6868));
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    const auto failure = failureOf([&] { transport.open(); });
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(failure, TransportError("socket", EMFILE));
}

TEST(UDPTransportTest, ClosesItsSocketWhenItIsDestroyed) {
    const auto before = openDescriptors();
    {
        UDPTransport transport(loopback(freePort(), 6868));
        transport.open();
        EXPECT_EQ(openDescriptors().size(), before.size() + 1);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(UDPTransportTest, CannotReceiveWhileClosed) {
    UDPTransport transport(loopback(6767, 6868));
    const auto failure = failureOf([&] { std::ignore = transport.receive(); });
    EXPECT_EQ(failure, TransportError("recvmsg", EBADF));
}

TEST(UDPTransportTest, AddressesRepliesOnACardToTheClientPort) {
    UDPTransport transport(card("en5"));
    EXPECT_EQ(failureOf([&] { transport.send(numbered(300), broadcast()); }),
              TransportError("send to 255.255.255.255:68", EBADF));
    EXPECT_EQ(failureOf([&] { transport.send(numbered(300), unicast(device)); }),
              TransportError("send to 192.168.0.100:68", EBADF));
}

TEST(UDPTransportTest, AddressesEveryReplyInLoopbackModeToTheTestClient) {
    UDPTransport transport(loopback(6767, 6868));
    for (const ReplyDestination& destination : {broadcast(), unicast(device)}) {
        EXPECT_EQ(failureOf([&] { transport.send(numbered(300), destination); }),
                  TransportError("send to 127.0.0.1:6868", EBADF));
    }
}

TEST_F(LoopbackTransportTest, ListensOnItsPortOfTheLoopbackAddress) {
    sockaddr_in own{};
    socklen_t length = sizeof own;
    ASSERT_EQ(::getsockname(transport.fd(), reinterpret_cast<sockaddr*>(&own), &length), 0);
    EXPECT_EQ(IPv4Address{ntohl(own.sin_addr.s_addr)}, IPv4Address::loopback);
    EXPECT_EQ(ntohs(own.sin_port), serverPort);
}

TEST_F(LoopbackTransportTest, IsTiedToTheLoopbackDevice) {
    EXPECT_EQ(transport.interfaceIndex(), ::if_nametoindex(Sockets::loopbackDevice().c_str()));
    EXPECT_EQ(transport.interfaceName(), "lo0");
}

TEST_F(LoopbackTransportTest, NeverWaitsAndIsNotHandedToChildren) {
    EXPECT_NE(::fcntl(transport.fd(), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_NE(::fcntl(transport.fd(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(LoopbackTransportTest, MayBroadcastAndDoesNotShareItsPort) {
    EXPECT_EQ(socketOption(transport.fd(), SOL_SOCKET, SO_BROADCAST), 1);
    EXPECT_EQ(socketOption(transport.fd(), SOL_SOCKET, SO_REUSEADDR), 0);
    EXPECT_EQ(socketOption(transport.fd(), SOL_SOCKET, SO_REUSEPORT), 0);
}

TEST_F(LoopbackTransportTest, ReceivesNothingWhenNothingIsWaiting) { EXPECT_EQ(transport.receive(), std::nullopt); }

TEST_F(LoopbackTransportTest, TellsBytesSourceAndArrivalCardOfADatagram) {
    client.send(numbered(300), serverPort);
    ASSERT_TRUE(waitUntilReadable(transport.fd()));
    EXPECT_EQ(transport.receive(), (Datagram{.bytes = numbered(300),
                                             .interfaceIndex = transport.interfaceIndex(),
                                             .source = IPv4Address::loopback,
                                             .sourcePort = client.port()}));
    EXPECT_EQ(transport.receive(), std::nullopt);
}

TEST_F(LoopbackTransportTest, ReceivesOneDatagramAtATimeInTheirOrder) {
    for (const std::size_t size : {1U, 2U, 3U}) {
        client.send(numbered(size), serverPort);
    }
    for (const std::size_t size : {1U, 2U, 3U}) {
        ASSERT_TRUE(waitUntilReadable(transport.fd()));
        const auto datagram = transport.receive();
        ASSERT_TRUE(datagram);
        EXPECT_EQ(datagram->bytes, numbered(size));
    }
}

TEST_F(LoopbackTransportTest, ReceivesWhatWaitsInItsOrderAndEachWithItsOwn) {
    constexpr std::size_t count = 50;
    const LoopbackSocket other;
    for (std::size_t size = 0; size < count; ++size) {
        (size % 2 == 0 ? client : other).send(numbered(size), serverPort);
    }
    std::vector<Datagram> received;
    while (received.size() < count) {
        ASSERT_TRUE(waitUntilReadable(transport.fd()));
        std::ranges::move(transport.receiveSome(count), std::back_inserter(received));
    }
    for (std::size_t size = 0; size < count; ++size) {
        EXPECT_EQ(received.at(size), (Datagram{.bytes = numbered(size),
                                               .interfaceIndex = transport.interfaceIndex(),
                                               .source = IPv4Address::loopback,
                                               .sourcePort = (size % 2 == 0 ? client : other).port()}));
    }
    EXPECT_TRUE(transport.receiveSome(count).empty());
}

TEST_F(LoopbackTransportTest, ReceivesNoMoreThanItIsAskedFor) {
    for (const std::size_t size : {1U, 2U, 3U}) {
        client.send(numbered(size), serverPort);
    }
    ASSERT_TRUE(waitUntilReadable(transport.fd()));
    EXPECT_LE(transport.receiveSome(2).size(), 2U);
    EXPECT_TRUE(waitUntilReadable(transport.fd())) << "the last one still waits";
}

TEST_F(LoopbackTransportTest, ReceivesAnEmptyDatagramAsOne) {
    client.send({}, serverPort);
    ASSERT_TRUE(waitUntilReadable(transport.fd()));
    const auto datagram = transport.receive();
    ASSERT_TRUE(datagram);
    EXPECT_EQ(datagram->bytes, Bytes{});
    EXPECT_EQ(datagram->sourcePort, client.port());
}

TEST_F(LoopbackTransportTest, CutsADatagramAt2048Bytes) {
    for (const std::size_t size : {2047U, 2048U, 2049U, 9000U}) {
        SCOPED_TRACE(size);
        client.send(numbered(size), serverPort);
        ASSERT_TRUE(waitUntilReadable(transport.fd()));
        const auto datagram = transport.receive();
        ASSERT_TRUE(datagram);
        EXPECT_EQ(datagram->bytes, numbered(std::min<std::size_t>(size, 2048)));
    }
    EXPECT_EQ(transport.receive(), std::nullopt) << "what was cut off is gone";
}

TEST_F(LoopbackTransportTest, SendsEveryReplyToTheTestClient) {
    for (const ReplyDestination& destination : {broadcast(), unicast(device)}) {
        transport.send(numbered(300), destination);
        EXPECT_EQ(client.receive(),
                  (LoopbackSocket::Message{
                      .bytes = numbered(300), .source = IPv4Address::loopback, .sourcePort = serverPort}));
    }
}

TEST_F(LoopbackTransportTest, SaysWhereASendFailed) {
    const auto failure = failureOf([&] { transport.send(Bytes(70000), broadcast()); });
    const std::string operation = "send to 127.0.0.1:" + std::to_string(client.port());
    EXPECT_EQ(failure, TransportError(operation, EMSGSIZE));
    EXPECT_EQ(failure->description(), operation + " failed: Message too long (errno " + std::to_string(EMSGSIZE) + ")");
}

TEST_F(LoopbackTransportTest, ClosesOnceAndKeepsItsIndex) {
    const std::uint32_t index = transport.interfaceIndex();
    const auto open = openDescriptors();
    transport.close();
    EXPECT_EQ(transport.fd(), -1);
    EXPECT_EQ(transport.interfaceIndex(), index);
    EXPECT_EQ(openDescriptors().size(), open.size() - 1);

    const LoopbackSocket next; // takes the number that was given back
    const auto withNext = openDescriptors();
    transport.close();
    EXPECT_EQ(openDescriptors(), withNext) << "a second close must not close somebody else's descriptor";
}

TEST_F(LoopbackTransportTest, OpensAgainAfterClosing) {
    transport.close();
    transport.open();
    client.send(numbered(5), serverPort);
    ASSERT_TRUE(waitUntilReadable(transport.fd()));
    EXPECT_EQ(transport.receive()->bytes, numbered(5));
}

} // namespace
} // namespace DHCPCore
