// The server on the host itself: real sockets on loopback, real queues and timers.
#include "DHCPCore/Server.hpp"
#include "DHCPCore/ServerHost.hpp"
#include "DHCPCore/Sockets.hpp"
#include "Support/Builders.hpp"
#include "Support/LoopbackSocket.hpp"
#include "Support/Printing.hpp"
#include "Support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <future>
#include <memory>

namespace DHCPCore {
namespace {

using namespace TestSupport; // NOLINT(*-build-using-namespace): the words of the tests
using namespace std::chrono_literals;

constexpr auto patience = 20s;

TEST(ServerHostTest, ServesALoopbackClient) {
    const TemporaryDirectory directory;
    const LoopbackSocket client;
    const std::uint16_t port = freePort();
    const auto server = std::make_shared<DHCPServer>(
        DHCPServer::Options{.config = smallConfig(),
                            .mode = {TransportMode::Loopback{.serverPort = port, .clientPort = client.port()}},
                            .cardMAC = std::nullopt,
                            .leaseFile = {.url = directory / "leases.json"},
                            .presenceEnabled = false});
    server->start();
    client.send(discover(mac(1)).serialize(0), port);
    const auto reply = client.receive();
    server->stop();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->sourcePort, port);
    const DHCPPacket offer = DHCPPacket::parse(reply->bytes);
    EXPECT_EQ(offer.messageType(), DHCPMessageType::offer);
    EXPECT_EQ(offer.yiaddr, ip(10));
}

TEST(ServerHostTest, SaysWhichLoopbackPortIsTaken) {
    const TemporaryDirectory directory;
    const LoopbackSocket holder;
    const auto server = std::make_shared<DHCPServer>(
        DHCPServer::Options{.config = smallConfig(),
                            .mode = {TransportMode::Loopback{.serverPort = holder.port(), .clientPort = 6868}},
                            .cardMAC = std::nullopt,
                            .leaseFile = {.url = directory / "leases.json"},
                            .presenceEnabled = false});
    try {
        server->start();
        ADD_FAILURE() << "started";
    } catch (const TransportError& error) {
        EXPECT_EQ(error, TransportError("bind 127.0.0.1:" + std::to_string(holder.port()), EADDRINUSE));
    }
}

TEST(ServerHostTest, RunsRepeatedAndDelayedWorkOnTheQueueThatItIsGiven) {
    const ServerHost host = ServerHost::system();
    SerialQueue queue("timers");
    std::promise<void> ticked;
    std::promise<void> passed;
    const auto timer = host.every(queue, 0s, 3600s, [&] { ticked.set_value(); }); // a second tick would throw
    host.after(queue, 0s, [&] { passed.set_value(); });
    EXPECT_EQ(ticked.get_future().wait_for(patience), std::future_status::ready);
    EXPECT_EQ(passed.get_future().wait_for(patience), std::future_status::ready);
}

TEST(ServerHostTest, KnowsItsCards) {
    const ServerHost host = ServerHost::system();
    const std::string name = Sockets::loopbackDevice();
    const std::uint32_t index = host.indexOfInterface(name);
    EXPECT_NE(index, 0U);
    EXPECT_EQ(host.nameOfInterface(index), name);
    EXPECT_EQ(host.indexOfInterface("nosuchcard0"), 0U);
    EXPECT_EQ(host.mediaStatus("nosuchcard0"), Interfaces::MediaStatus{});
    const auto addresses = host.interfaceAddresses();
    EXPECT_TRUE(std::ranges::any_of(
        addresses, [](const InterfaceAddress& entry) { return entry.subnet.address == IPv4Address::loopback; }));
    EXPECT_EQ(host.bsdNameForMAC(mac(77)), std::nullopt);
}

TEST(ServerHostTest, MakesTransportsOfTheMode) {
    const TransportMode mode{TransportMode::Loopback{.serverPort = 6767, .clientPort = 6868}};
    const auto transport = ServerHost::system().makeTransport(mode, ip(1));
    EXPECT_EQ(transport->mode(), mode);
    EXPECT_EQ(transport->fd(), -1);
}

TEST(ServerHostTest, ProbesThisHostAtItsLoopbackAddress) {
    EXPECT_TRUE(ServerHost::system().probe("nosuchcard0", IPv4Address::loopback).answered);
}

} // namespace
} // namespace DHCPCore
