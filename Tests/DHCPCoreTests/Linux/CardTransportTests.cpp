// The transport on a card: every test makes itself a network of its own, with both ends of a cable in it.
#include "DHCPCore/LocalNetwork.hpp"
#include "DHCPCore/SocketAddress.hpp"
#include "DHCPCore/Sockets.hpp"
#include "DHCPCore/Transport.hpp"
#include "Support/FreshNetwork.hpp"
#include "Support/LoopbackSocket.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <iterator>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <string>

namespace DHCPCore {
namespace {

using TestSupport::inFreshNetwork;
using TestSupport::ip;
using TestSupport::waitUntilReadable;

constexpr IPv4Address serverIP{192, 168, 77, 1};
constexpr IPv4Address deviceIP{192, 168, 77, 100};

Bytes message() {
    Bytes bytes(300, 0x42);
    return bytes;
}

ReplyDestination toEverybody() { return {ReplyDestination::Broadcast{}}; }
ReplyDestination toDevice() { return {ReplyDestination::Unicast{deviceIP}}; }

/// Runs the test with a transport for the card "server0", whose cable ends in "device0"; a second cable runs from
/// "other0" to "stranger0". False when the process may not make a network.
bool onACable(const std::function<void(UDPTransport&)>& test) {
    return inFreshNetwork([&] {
        ASSERT_TRUE(ip("link add server0 type veth peer name device0"));
        ASSERT_TRUE(ip("link add other0 type veth peer name stranger0"));
        for (const std::string name : {"server0", "device0", "other0", "stranger0"}) {
            ASSERT_TRUE(ip("link set " + name + " up"));
        }
        ASSERT_TRUE(ip("address add 192.168.77.1/24 dev server0"));
        ASSERT_TRUE(ip("neighbour add 192.168.77.100 lladdr 02:00:00:00:00:64 dev server0"));
        UDPTransport transport({TransportMode::Interface{"server0"}}, serverIP);
        test(transport);
    });
}

/// Broadcasts as a client without an address does, from 0.0.0.0:68 to 255.255.255.255:67, out of that card. The headers
/// are written by hand: the kernel would fill in an address of the other end, which is on this host too.
void broadcastRequest(const std::string& card, const Bytes& payload) {
    const auto udpLength = static_cast<std::uint16_t>(8 + payload.size());
    Bytes packet;
    const auto append = [&packet](const auto& bytes) { packet.insert(packet.end(), bytes.begin(), bytes.end()); };
    append(Bytes{0x45, 0});
    append(bigEndianBytes(static_cast<std::uint16_t>(20 + udpLength)));
    append(Bytes{0, 0, 0, 0, 64, IPPROTO_UDP, 0, 0});
    append(IPv4Address::zero.bytes());
    append(IPv4Address::broadcast.bytes());
    std::uint32_t sum = 0;
    for (std::size_t at = 0; at < packet.size(); at += 2) {
        sum += static_cast<std::uint32_t>(packet[at] << 8U | packet[at + 1]);
    }
    const auto checksum = bigEndianBytes(static_cast<std::uint16_t>(~(sum + (sum >> 16U))));
    std::ranges::copy(checksum, packet.begin() + 10);
    append(bigEndianBytes(UDPTransport::clientPort));
    append(bigEndianBytes(UDPTransport::serverPort));
    append(bigEndianBytes(udpLength));
    append(Bytes{0, 0}); // no checksum
    append(payload);

    const FileDescriptor socket = Sockets::open(AF_PACKET, SOCK_DGRAM, 0);
    sockaddr_ll to{};
    to.sll_family = AF_PACKET;
    to.sll_protocol = htons(ETH_P_IP);
    to.sll_ifindex = static_cast<int>(::if_nametoindex(card.c_str()));
    to.sll_halen = ETH_ALEN;
    std::fill_n(std::begin(to.sll_addr), ETH_ALEN, std::uint8_t{0xFF});
    ASSERT_EQ(
        ::sendto(socket.number(), packet.data(), packet.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to),
        static_cast<ssize_t>(packet.size()));
}

/// One IPv4 datagram as it came out of the cable.
struct Seen {
    IPv4Address source;
    std::uint16_t sourcePort = 0;
    IPv4Address destination;
    std::uint16_t destinationPort = 0;
    Bytes payload;
    bool operator==(const Seen&) const = default;
};

/// Listens at the end of the cable.
class CableEnd {
  public:
    explicit CableEnd(const std::string& card) : socket_(Sockets::open(AF_PACKET, SOCK_DGRAM, htons(ETH_P_IP))) {
        sockaddr_ll address{};
        address.sll_family = AF_PACKET;
        address.sll_protocol = htons(ETH_P_IP);
        address.sll_ifindex = static_cast<int>(::if_nametoindex(card.c_str()));
        EXPECT_EQ(::bind(socket_.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }

    /// The next datagram; nothing when none came in time.
    [[nodiscard]] std::optional<Seen> next() const {
        constexpr std::size_t headers = 28; // IPv4 without options, UDP
        Bytes packet(2048);
        if (!waitUntilReadable(socket_.number())) {
            return std::nullopt;
        }
        const auto count = ::recv(socket_.number(), packet.data(), packet.size(), 0);
        if (count < static_cast<ssize_t>(headers)) {
            return std::nullopt;
        }
        packet.resize(static_cast<std::size_t>(count));
        const std::span<const std::uint8_t> bytes = packet;
        const auto port = [&](std::size_t at) { return static_cast<std::uint16_t>(bytes[at] << 8U | bytes[at + 1]); };
        return Seen{.source = *IPv4Address::fromBytes(bytes.subspan(12, 4)),
                    .sourcePort = port(20),
                    .destination = *IPv4Address::fromBytes(bytes.subspan(16, 4)),
                    .destinationPort = port(22),
                    .payload = {packet.begin() + headers, packet.end()}};
    }

    /// Nothing is waiting. Meaningful once something that was sent later has arrived elsewhere.
    [[nodiscard]] bool isSilent() const { return !waitUntilReadable(socket_.number(), std::chrono::milliseconds{0}); }

  private:
    FileDescriptor socket_;
};

/// How the server would explain the failure of a broadcast while it knows of no fault of the link; nothing on success.
std::optional<SendFailure> failureOfBroadcast(UDPTransport& transport, bool serverAddressPresent) {
    try {
        transport.send(message(), toEverybody());
    } catch (const TransportError& error) {
        EXPECT_EQ(error.operation, "send to 255.255.255.255:68");
        return LocalNetwork::classify(error, true, serverAddressPresent);
    }
    return std::nullopt;
}

/// The error number of a refused sending; nothing on success.
std::optional<int> sendingError(UDPTransport& transport, const ReplyDestination& destination) {
    try {
        transport.send(message(), destination);
    } catch (const TransportError& error) {
        return error.code;
    }
    return std::nullopt;
}

TEST(CardTransportTest, ListensOnTheServerPortOfEveryAddress) {
    if (!onACable([](UDPTransport& transport) {
            transport.open();
            EXPECT_EQ(transport.interfaceIndex(), ::if_nametoindex("server0"));
            sockaddr_in own{};
            socklen_t length = sizeof own;
            ASSERT_EQ(::getsockname(transport.fd(), reinterpret_cast<sockaddr*>(&own), &length), 0);
            EXPECT_EQ(IPv4Address{ntohl(own.sin_addr.s_addr)}, IPv4Address::zero);
            EXPECT_EQ(ntohs(own.sin_port), 67);
        })) {
        GTEST_SKIP() << "no right to make a network";
    }
}

TEST(CardTransportTest, SaysThatAnotherServerHoldsThePort) {
    if (!onACable([](UDPTransport& transport) {
            transport.open();
            UDPTransport second({TransportMode::Interface{"server0"}}, serverIP);
            try {
                second.open();
                ADD_FAILURE() << "opened";
            } catch (const TransportError& error) {
                EXPECT_EQ(error.description(), "bind 0.0.0.0:67 failed: Address already in use (errno 98)");
            }
        })) {
        GTEST_SKIP() << "no right to make a network";
    }
}

TEST(CardTransportTest, ReceivesTheBroadcastOfAClientWithoutAnAddress) {
    if (!onACable([](UDPTransport& transport) {
            transport.open();
            broadcastRequest("device0", message());
            ASSERT_TRUE(waitUntilReadable(transport.fd()));
            EXPECT_EQ(transport.receive(), (Datagram{.bytes = message(),
                                                     .interfaceIndex = ::if_nametoindex("server0"),
                                                     .source = IPv4Address::zero,
                                                     .sourcePort = 68}));
        })) {
        GTEST_SKIP() << "no right to make a network";
    }
}

TEST(CardTransportTest, HearsNothingOfAnotherCable) {
    if (!onACable([](UDPTransport& transport) {
            transport.open();
            broadcastRequest("stranger0", Bytes(300, 0x13));
            broadcastRequest("device0", message());
            ASSERT_TRUE(waitUntilReadable(transport.fd()));
            EXPECT_EQ(transport.receive()->bytes, message());
            EXPECT_EQ(transport.receive(), std::nullopt);
        })) {
        GTEST_SKIP() << "no right to make a network";
    }
}

TEST(CardTransportTest, RepliesFromTheServerAddressThroughItsCardOnly) {
    if (!onACable([](UDPTransport& transport) {
            transport.open();
            const CableEnd device("device0");
            const CableEnd stranger("stranger0");
            transport.send(message(), toEverybody());
            transport.send(message(), toDevice());
            EXPECT_EQ(device.next(), (Seen{serverIP, 67, IPv4Address::broadcast, 68, message()}));
            EXPECT_EQ(device.next(), (Seen{serverIP, 67, deviceIP, 68, message()}));
            EXPECT_TRUE(stranger.isSilent());
        })) {
        GTEST_SKIP() << "no right to make a network";
    }
}

TEST(CardTransportTest, SendsNothingWithoutTheServerAddress) {
    if (!onACable([](UDPTransport& transport) {
            transport.open();
            const CableEnd device("device0");
            ASSERT_TRUE(ip("address add 192.168.78.1/24 dev server0"));
            ASSERT_TRUE(ip("address delete 192.168.77.1/24 dev server0"));
            EXPECT_EQ(failureOfBroadcast(transport, false), SendFailure{SendFailure::AddressMissing{}});
            EXPECT_TRUE(device.isSilent());
            ASSERT_TRUE(ip("address add 192.168.77.1/24 dev server0"));
            EXPECT_EQ(failureOfBroadcast(transport, true), std::nullopt);
            EXPECT_EQ(device.next(), (Seen{serverIP, 67, IPv4Address::broadcast, 68, message()}));
        })) {
        GTEST_SKIP() << "no right to make a network";
    }
}

TEST(CardTransportTest, SendsNothingWhileAnotherCardHasTheServerAddress) {
    if (!onACable([](UDPTransport& transport) {
            transport.open();
            const CableEnd device("device0");
            ASSERT_TRUE(ip("address delete 192.168.77.1/24 dev server0"));
            ASSERT_TRUE(ip("address add 192.168.77.1/24 dev other0"));
            EXPECT_EQ(failureOfBroadcast(transport, false), SendFailure{SendFailure::AddressMissing{}});
            EXPECT_TRUE(device.isSilent());
        })) {
        GTEST_SKIP() << "no right to make a network";
    }
}

TEST(CardTransportTest, FindsTheServerAddressAmongManyAndUnderALabel) {
    if (!onACable([](UDPTransport& transport) {
            transport.open();
            const CableEnd device("device0");
            ASSERT_TRUE(ip("address delete 192.168.77.1/24 dev server0"));
            for (int number = 1; number <= 70; ++number) {
                ASSERT_TRUE(ip("address add 10.0.0." + std::to_string(number) + "/32 dev other0"));
            }
            ASSERT_TRUE(ip("address add 192.168.77.1/24 dev server0 label server0:1"));
            EXPECT_EQ(failureOfBroadcast(transport, true), std::nullopt);
            EXPECT_EQ(device.next(), (Seen{serverIP, 67, IPv4Address::broadcast, 68, message()}));
        })) {
        GTEST_SKIP() << "no right to make a network";
    }
}

TEST(CardTransportTest, KeepsRoomForOthersWhileItSendsToAddressesThatNobodyHas) {
    const bool isRun = onACable([](UDPTransport& transport) {
        transport.open();
        constexpr int datagrams = 2000; // far more than a socket may have waiting
        int refused = 0;
        for (int count = 0; count < datagrams; ++count) {
            const IPv4Address nobody{192, 168, 77, static_cast<std::uint8_t>(101 + count % 100)};
            refused += sendingError(transport, {ReplyDestination::Unicast{nobody}}) == EAGAIN ? 1 : 0;
        }
        EXPECT_GT(refused, 0);
        EXPECT_LT(refused, datagrams);
        EXPECT_EQ(sendingError(transport, toEverybody()), std::nullopt);
        EXPECT_EQ(sendingError(transport, toDevice()), std::nullopt);
    });
    if (!isRun) {
        GTEST_SKIP() << "no right to make a network";
    }
}

TEST(CardTransportTest, FailsWhileTheCardIsSwitchedOff) {
    if (!onACable([](UDPTransport& transport) {
            transport.open();
            ASSERT_TRUE(ip("link set server0 down"));
            EXPECT_EQ(failureOfBroadcast(transport, true), SendFailure{SendFailure::PossiblyDenied{}});
            ASSERT_TRUE(ip("link set server0 up"));
            const CableEnd device("device0");
            EXPECT_EQ(failureOfBroadcast(transport, true), std::nullopt);
            EXPECT_EQ(device.next(), (Seen{serverIP, 67, IPv4Address::broadcast, 68, message()}));
        })) {
        GTEST_SKIP() << "no right to make a network";
    }
}

TEST(CardTransportTest, FailsOnceTheCardIsGone) {
    if (!onACable([](UDPTransport& transport) {
            transport.open();
            ASSERT_TRUE(ip("link delete server0"));
            EXPECT_EQ(failureOfBroadcast(transport, false), SendFailure{SendFailure::AddressMissing{}});
            EXPECT_EQ(transport.receive(), std::nullopt);
        })) {
        GTEST_SKIP() << "no right to make a network";
    }
}

} // namespace
} // namespace DHCPCore
