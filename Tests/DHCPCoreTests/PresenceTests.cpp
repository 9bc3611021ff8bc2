#include "DHCPCore/FileDescriptor.hpp"
#include "DHCPCore/Presence.hpp"
#include "DHCPCore/SocketAddress.hpp"
#include "DHCPCore/Sockets.hpp"
#include "Support/DescriptorLimit.hpp"
#include "Support/OpenDescriptors.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <tuple>
#include <vector>

namespace DHCPCore {
namespace {

using namespace std::chrono_literals;
using ::testing::AnyOf;
using ::testing::MatchesRegex;

constexpr MACAddress leaseMAC{{0x00, 0x1C, 0x42, 0x00, 0x00, 0x01}};
constexpr MACAddress otherMAC{{0x00, 0x1C, 0x42, 0x00, 0x00, 0x02}};
const ProbeResult answered{.answered = true, .detail = "tcp 80 refused"};
const ProbeResult silent{.answered = false, .detail = "no answer"};

TEST(PresenceClassifierTest, FollowsTheTable) {
    using State = PresenceState;
    const std::vector<std::tuple<std::optional<ProbeResult>, std::optional<MACAddress>, State>> table{
        {std::nullopt, std::nullopt, State::unknown}, {std::nullopt, leaseMAC, State::unknown},
        {std::nullopt, otherMAC, State::unknown},     {silent, std::nullopt, State::offline},
        {silent, leaseMAC, State::offline},           {silent, otherMAC, State::offline},
        {answered, std::nullopt, State::online},      {answered, leaseMAC, State::online},
        {answered, otherMAC, State::conflict}};
    for (const auto& [probe, arpMAC, state] : table) {
        EXPECT_EQ(PresenceClassifier::classify(probe, arpMAC, leaseMAC, true), state);
    }
}

TEST(PresenceClassifierTest, CallsEveryDeviceOfflineWhileTheLinkIsDown) {
    for (const std::optional<ProbeResult>& probe : {std::optional(answered), std::optional(silent), {}}) {
        for (const std::optional<MACAddress>& arpMAC : {std::optional(leaseMAC), std::optional(otherMAC), {}}) {
            EXPECT_EQ(PresenceClassifier::classify(probe, arpMAC, leaseMAC, false), PresenceState::offline);
        }
    }
}

/// The sum of a message's 16-bit words with its checksum in place: all ones when the checksum is right (RFC 1071).
std::uint32_t onesComplementSum(const Bytes& bytes) {
    std::uint32_t sum = 0;
    for (std::size_t index = 0; index < bytes.size(); index += 2) {
        const std::uint32_t low = index + 1 < bytes.size() ? bytes[index + 1] : 0;
        sum += std::uint32_t{bytes[index]} << 8U | low;
    }
    while (sum > 0xFFFF) {
        sum = (sum & 0xFFFFU) + (sum >> 16U);
    }
    return sum;
}

TEST(EchoRequestTest, IsAnICMPMessageWithNineBytesOfText) {
    const Bytes message = Prober::echoRequest(0x1234, 0x0102);
    ASSERT_EQ(message.size(), 17U);
    EXPECT_EQ(Bytes(message.begin(), message.begin() + 2), (Bytes{8, 0}));
    EXPECT_EQ(Bytes(message.begin() + 4, message.begin() + 8), (Bytes{0x12, 0x34, 0x01, 0x02}));
    EXPECT_EQ(std::string(message.begin() + 8, message.end()), "tarnwick?");
    EXPECT_EQ(Bytes(message.begin() + 2, message.begin() + 4), (Bytes{0xE4, 0x24}));
}

TEST(EchoRequestTest, CarriesAChecksumThatHoldsWhateverTheNumbers) {
    for (const std::uint16_t identifier : std::vector<std::uint16_t>{0, 1, 0x7FFF, 0x8000, 0xFFFE, 0xFFFF}) {
        for (const std::uint16_t sequence : std::vector<std::uint16_t>{0, 1, 0xFFFF}) {
            EXPECT_EQ(onesComplementSum(Prober::echoRequest(identifier, sequence)), 0xFFFFU);
        }
    }
}

Bytes replyTo(Bytes request) {
    request[0] = 0;
    return request;
}

Bytes withHeader(std::size_t words, const Bytes& message) {
    Bytes datagram(words * 4 + message.size());
    datagram[0] = static_cast<std::uint8_t>(0x40U | words);
    std::ranges::copy(message, datagram.begin() + static_cast<std::ptrdiff_t>(words * 4));
    return datagram;
}

const Bytes request = Prober::echoRequest(0x1234, 1);

TEST(EchoReplyTest, IsKnownByItsTypeWithAndWithoutIPv4Header) {
    EXPECT_TRUE(Prober::isEchoReply(replyTo(request)));
    EXPECT_TRUE(Prober::isEchoReply(Bytes{0}));
    EXPECT_TRUE(Prober::isEchoReply(withHeader(5, replyTo(request))));
    EXPECT_TRUE(Prober::isEchoReply(withHeader(15, replyTo(request))));
}

TEST(EchoReplyTest, IsNoOtherMessage) {
    EXPECT_FALSE(Prober::isEchoReply({}));
    EXPECT_FALSE(Prober::isEchoReply(request));
    EXPECT_FALSE(Prober::isEchoReply(withHeader(5, request)));
    EXPECT_FALSE(Prober::isEchoReply(Bytes{3, 1, 0, 0})) << "destination unreachable";
}

TEST(EchoReplyTest, IsNothingWhenNothingFollowsTheHeader) {
    for (std::size_t size = 1; size <= 20; ++size) {
        Bytes datagram(size);
        datagram[0] = 0x45;
        EXPECT_FALSE(Prober::isEchoReply(datagram)) << size;
    }
    EXPECT_TRUE(Prober::isEchoReply(withHeader(5, {0})));
    EXPECT_FALSE(Prober::isEchoReply(Bytes{0x40})) << "a header without length";
}

TEST(EchoReplyTest, MatchesIdentifierAndSequenceOfTheRequest) {
    const Bytes header = withHeader(5, replyTo(request));
    EXPECT_TRUE(Prober::isEchoReply(header, request));
    EXPECT_TRUE(Prober::isEchoReply(replyTo(request), request));
    EXPECT_FALSE(Prober::isEchoReply(withHeader(5, replyTo(Prober::echoRequest(0x1235, 1))), request));
    EXPECT_FALSE(Prober::isEchoReply(withHeader(5, replyTo(Prober::echoRequest(0x1234, 2))), request));
}

TEST(EchoReplyTest, IsTooShortToMatchWithoutItsNumbers) {
    const Bytes whole = withHeader(5, replyTo(request));
    for (std::size_t size = 0; size < 28; ++size) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_FALSE(Prober::isEchoReply(cut, request)) << size;
    }
    const Bytes justEnough(whole.begin(), whole.begin() + 28);
    EXPECT_TRUE(Prober::isEchoReply(justEnough, request));
}

/// A TCP port of 127.0.0.1 that somebody listens on as long as this lives.
class Listener {
  public:
    Listener() : socket_(Sockets::open(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address = socketAddress(IPv4Address::loopback, 0);
        socklen_t length = sizeof address;
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        if (::bind(socket_.number(), generic, length) != 0 || ::listen(socket_.number(), 16) != 0 ||
            ::getsockname(socket_.number(), generic, &length) != 0) {
            throw std::runtime_error("no listener on 127.0.0.1");
        }
        port_ = ntohs(address.sin_port);
    }

    [[nodiscard]] std::uint16_t port() const { return port_; }
    void stop() { socket_.close(); }

  private:
    FileDescriptor socket_;
    std::uint16_t port_ = 0;
};

// Loopback answers pings where the host allows any, so an answer may come from either side of the race.
constexpr const char* icmpAnswer = R"(icmp [0-9]+\.[0-9] ms)";

TEST(ProberTest, FindsAHostByARefusedConnect) {
    Listener listener;
    const std::uint16_t port = listener.port();
    listener.stop();
    const ProbeResult result = Prober{.interfaceName = "none", .tcpPorts = {port}}.probe(IPv4Address::loopback, 5s);
    EXPECT_TRUE(result.answered);
    EXPECT_THAT(result.detail, AnyOf("tcp " + std::to_string(port) + " refused", MatchesRegex(icmpAnswer)));
}

TEST(ProberTest, FindsAHostByAnOpenPort) {
    const Listener listener;
    const Prober prober{.interfaceName = "none", .tcpPorts = {listener.port()}};
    const ProbeResult result = prober.probe(IPv4Address::loopback, 5s);
    EXPECT_TRUE(result.answered);
    EXPECT_THAT(result.detail, AnyOf("tcp " + std::to_string(listener.port()) + " open", MatchesRegex(icmpAnswer)));
}

TEST(ProberTest, FindsNothingWhenThereIsNoTimeToWait) {
    // A connect to a broadcast address is refused at once, and so is an echo request.
    const ProbeResult result = Prober{.interfaceName = "none", .tcpPorts = {80}}.probe(IPv4Address::broadcast, 0s);
    EXPECT_EQ(result, silent);
}

TEST(ProberTest, FindsNothingWithoutADescriptorToAskWith) {
    const TestSupport::DescriptorLimit limit(0);
    EXPECT_EQ((Prober{.interfaceName = "none", .tcpPorts = {80, 443}}.probe(IPv4Address::loopback, 5s)), silent);
}

TEST(ProberTest, ClosesItsSocketsHoweverItEnds) {
    const Listener listener;
    const auto before = TestSupport::openDescriptors();
    for (const IPv4Address ip : {IPv4Address::loopback, IPv4Address::broadcast}) {
        for (const std::uint16_t port : {std::uint16_t{1}, listener.port()}) {
            std::ignore = Prober{.interfaceName = "none", .tcpPorts = {port, port, port}}.probe(ip, 5s);
        }
    }
    EXPECT_EQ(TestSupport::openDescriptors(), before);
}

TEST(ProberTest, NeedsThreeDescriptorsForTheServersProbeHoweverOftenItRuns) {
    const TestSupport::DescriptorLimit limit(3);
    for (int round = 0; round < 100; ++round) {
        EXPECT_TRUE((Prober{.interfaceName = "none", .tcpPorts = {80, 443}}.probe(IPv4Address::loopback, 5s).answered));
    }
}

TEST(ProberTest, RunsOnManyThreadsAtOnce) {
    std::vector<ProbeResult> results(32);
    std::vector<std::thread> threads;
    threads.reserve(results.size());
    for (ProbeResult& result : results) {
        threads.emplace_back([&result] {
            result = Prober{.interfaceName = "none", .tcpPorts = {80, 443}}.probe(IPv4Address::loopback, 5s);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const ProbeResult& result : results) {
        EXPECT_TRUE(result.answered) << result.detail;
    }
}

} // namespace
} // namespace DHCPCore
