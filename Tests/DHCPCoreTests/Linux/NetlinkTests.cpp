#include "DHCPCore/Linux/Netlink.hpp"
#include "Support/FreshNetwork.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <utility>
#include <vector>

namespace DHCPCore {
namespace {

using Netlink::Address;
using Netlink::Link;
using Netlink::Neighbour;

/// Bytes from hexadecimal digits; blanks are for the reader.
Bytes bytesOf(std::string_view digits) {
    std::string packed;
    for (const char digit : digits) {
        if (digit != ' ') {
            packed += digit;
        }
    }
    Bytes bytes(packed.size() / 2);
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        const char* const pair = packed.data() + 2 * index;
        std::from_chars(pair, pair + 2, bytes[index], 16);
    }
    return bytes;
}

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes littleEndian(std::uint32_t value, std::size_t size) {
    Bytes bytes;
    for (std::size_t index = 0; index < size; ++index) {
        bytes.push_back(static_cast<std::uint8_t>(value >> 8U * index));
    }
    return bytes;
}

Bytes padded(Bytes bytes) {
    bytes.resize((bytes.size() + 3) / 4 * 4);
    return bytes;
}

Bytes attribute(std::uint16_t type, const Bytes& value) {
    const auto length = static_cast<std::uint32_t>(4 + value.size());
    return padded(littleEndian(length, 2) + littleEndian(type, 2) + value);
}

Bytes message(std::uint16_t type, const Bytes& content) {
    const auto length = static_cast<std::uint32_t>(16 + content.size());
    return littleEndian(length, 4) + littleEndian(type, 2) + bytesOf("0200 01000000 3f180000") + content;
}

Bytes text(std::string_view value) { return Bytes(value.begin(), value.end()) + Bytes{0}; }

Bytes addressBytes(IPv4Address ip) {
    const auto bytes = ip.bytes();
    return {bytes.begin(), bytes.end()};
}

Bytes done() { return message(NLMSG_DONE, bytesOf("00000000")); }

/// Recorded: 127.0.0.1 on lo, 10.0.0.7/24 for 600 seconds on en6, 192.168.0.1/24 without end on en5.
Bytes recordedAddresses() {
    return bytesOf("4c00000014000200010000003f180000 020880fe01000000 080001007f000001 080002007f000001 "
                   "070003006c6f0000 0800080080000000 14000600ffffffffffffffff5202030052020300"
                   "4c00000014000200010000003f180000 0218000002000000 080001000a000007 080002000a000007 "
                   "08000300656e3600 0800080080000000 14000600 2c010000 58020000 5402030054020300"
                   "4c00000014000200010000003f180000 0218800003000000 08000100c0a80001 08000200c0a80001 "
                   "08000300656e3500 0800080080000000 14000600ffffffffffffffff5402030054020300"
                   "1400000003000200010000003f18000000000000");
}

/// Recorded: two default routes, by 192.168.0.9 on index 3 with metric 50, by 10.0.0.1 on index 2 with metric 100, and
/// some of the routes that the kernel makes itself.
Bytes recordedRoutes() {
    return bytesOf("3c00000018000200010000003f180000 02000000fe030001 00000000 08000f00fe000000 0800060032000000 "
                   "08000500c0a80009 0800040003000000"
                   "3c00000018000200010000003f180000 02000000fe030001 00000000 08000f00fe000000 0800060064000000 "
                   "080005000a000001 0800040002000000"
                   "3c00000018000200010000003f180000 02180000fe02fd01 00000000 08000f00fe000000 080001000a000000 "
                   "080007000a000007 0800040002000000"
                   "3c00000018000200010000003f180000 02200000ff02fe02 00000000 08000f00ff000000 080001000a000007 "
                   "080007000a000007 0800040002000000"
                   "1400000003000200010000003f18000000000000");
}

/// Recorded: 192.168.0.2 set by hand on index 3.
Bytes recordedNeighbours() {
    return bytesOf("4c0000001c00020001000000f4210000 02000000 03000000 8000 00 01 08000100c0a80002 "
                   "0a000200 0200000000020000 08000400 00000000 14000300 22000000220000002200000000000000"
                   "140000000300020001000000f421000000000000");
}

const MACAddress cardMAC{{0x02, 0, 0, 0, 0, 0x05}};

Bytes linkMessage(std::uint32_t index, std::uint16_t hardwareType, std::uint32_t flags, const Bytes& attributes) {
    return message(RTM_NEWLINK, Bytes{0, 0} + littleEndian(hardwareType, 2) + littleEndian(index, 4) +
                                    littleEndian(flags, 4) + Bytes(4) + attributes);
}

Bytes madeLinks() {
    const Bytes kind = attribute(IFLA_INFO_KIND, text("bridge")) + attribute(IFLA_INFO_DATA, Bytes(8));
    return linkMessage(7, ARPHRD_ETHER, IFF_UP,
                       attribute(IFLA_IFNAME, text("br0")) + attribute(IFLA_LINKINFO, kind) +
                           attribute(IFLA_ADDRESS, Bytes(6))) +
           linkMessage(2, ARPHRD_ETHER, IFF_UP | IFF_RUNNING,
                       attribute(IFLA_IFNAME, text("en5")) + attribute(IFLA_ADDRESS, bytesOf("020000000005"))) +
           linkMessage(3, ARPHRD_NONE, IFF_POINTOPOINT, attribute(IFLA_IFNAME, text("tun0"))) + done();
}

TEST(NetlinkTest, ReadsLinksInOrderOfTheirIndex) {
    const std::vector<Link> expected{
        {.index = 2,
         .hardwareType = ARPHRD_ETHER,
         .flags = IFF_UP | IFF_RUNNING,
         .name = "en5",
         .kind = "",
         .mac = cardMAC},
        {.index = 3, .hardwareType = ARPHRD_NONE, .flags = IFF_POINTOPOINT, .name = "tun0", .kind = "", .mac = {}},
        {.index = 7,
         .hardwareType = ARPHRD_ETHER,
         .flags = IFF_UP,
         .name = "br0",
         .kind = "bridge",
         .mac = MACAddress{}},
    };
    EXPECT_EQ(Netlink::parseLinks(madeLinks()), expected);
}

TEST(NetlinkTest, ReadsAMACOfExactlySixBytes) {
    for (const std::size_t size : {0U, 4U, 5U, 7U, 20U}) {
        const auto links = Netlink::parseLinks(linkMessage(2, ARPHRD_ETHER, 0, attribute(IFLA_ADDRESS, Bytes(size))));
        ASSERT_EQ(links.size(), 1U);
        EXPECT_EQ(links[0].mac, std::nullopt) << size;
    }
}

TEST(NetlinkTest, ReadsANameWithoutItsClosingZero) {
    const auto links = Netlink::parseLinks(linkMessage(2, ARPHRD_ETHER, 0, attribute(IFLA_IFNAME, {'e', 'n', '5'})));
    ASSERT_EQ(links.size(), 1U);
    EXPECT_EQ(links[0].name, "en5");
}

TEST(NetlinkTest, ReadsAddressesWithTheirLifetimes) {
    const std::vector<Address> expected{
        {.interfaceIndex = 1, .subnet = {.address = IPv4Address::loopback, .prefixLength = 8}, .isPermanent = true},
        {.interfaceIndex = 2,
         .subnet = {.address = IPv4Address{10, 0, 0, 7}, .prefixLength = 24},
         .isPermanent = false},
        {.interfaceIndex = 3,
         .subnet = {.address = IPv4Address{192, 168, 0, 1}, .prefixLength = 24},
         .isPermanent = true},
    };
    EXPECT_EQ(Netlink::parseAddresses(recordedAddresses()), expected);
}

Bytes addressMessage(std::uint8_t family, std::uint8_t prefix, std::uint8_t flags, const Bytes& attributes) {
    return message(RTM_NEWADDR, Bytes{family, prefix, flags, 0, 4, 0, 0, 0} + attributes);
}

TEST(NetlinkTest, ReadsTheOwnAddressOfALinkWithAPeer) {
    const Bytes dump = addressMessage(AF_INET, 32, IFA_F_PERMANENT,
                                      attribute(IFA_ADDRESS, addressBytes(IPv4Address{10, 8, 0, 2})) +
                                          attribute(IFA_LOCAL, addressBytes(IPv4Address{10, 8, 0, 1})));
    EXPECT_EQ(Netlink::parseAddresses(dump),
              (std::vector<Address>{{.interfaceIndex = 4,
                                     .subnet = {.address = IPv4Address{10, 8, 0, 1}, .prefixLength = 32},
                                     .isPermanent = true}}));
}

TEST(NetlinkTest, GoesByTheFlagWhereAnAddressHasNoLifetimes) {
    const Bytes own = attribute(IFA_LOCAL, addressBytes(IPv4Address{10, 8, 0, 1}));
    EXPECT_TRUE(Netlink::parseAddresses(addressMessage(AF_INET, 24, IFA_F_PERMANENT, own)).at(0).isPermanent);
    EXPECT_FALSE(Netlink::parseAddresses(addressMessage(AF_INET, 24, 0, own)).at(0).isPermanent);
}

TEST(NetlinkTest, TakesALifetimeOneShortOfForeverAsFinite) {
    const Bytes own = attribute(IFA_LOCAL, addressBytes(IPv4Address{10, 8, 0, 1}));
    for (const auto& [valid, isPermanent] : {std::pair{0xFFFFFFFEU, false}, std::pair{0xFFFFFFFFU, true}}) {
        const Bytes times = Bytes(4) + littleEndian(valid, 4) + Bytes(8);
        const Bytes dump = addressMessage(AF_INET, 24, IFA_F_PERMANENT, own + attribute(IFA_CACHEINFO, times));
        EXPECT_EQ(Netlink::parseAddresses(dump).at(0).isPermanent, isPermanent);
    }
}

TEST(NetlinkTest, SkipsAddressesThatAreNone) {
    const Bytes own = attribute(IFA_LOCAL, addressBytes(IPv4Address{10, 8, 0, 1}));
    EXPECT_EQ(Netlink::parseAddresses(addressMessage(AF_INET, 32, 0, own)).size(), 1U);
    EXPECT_TRUE(Netlink::parseAddresses(addressMessage(AF_INET, 33, 0, own)).empty());
    EXPECT_TRUE(Netlink::parseAddresses(addressMessage(AF_INET6, 24, 0, own)).empty());
    EXPECT_TRUE(Netlink::parseAddresses(addressMessage(AF_INET, 24, 0, {})).empty());
    EXPECT_TRUE(Netlink::parseAddresses(addressMessage(AF_INET, 24, 0, attribute(IFA_LOCAL, Bytes(3)))).empty());
}

TEST(NetlinkTest, FindsTheDefaultRouteWithTheLowestMetric) {
    EXPECT_EQ(Netlink::parseDefaultInterface(recordedRoutes()), 3U);
}

/// A default route in the main table, unless told otherwise.
struct RouteFields {
    std::uint8_t family = AF_INET;
    std::uint8_t prefix = 0;
    std::uint8_t table = RT_TABLE_MAIN;
    std::uint8_t type = RTN_UNICAST;
};

Bytes routeMessage(RouteFields fields, const Bytes& attributes) {
    return message(RTM_NEWROUTE,
                   Bytes{fields.family, fields.prefix, 0, 0, fields.table, 3, 0, fields.type, 0, 0, 0, 0} + attributes);
}

Bytes by(std::uint32_t index) { return attribute(RTA_OIF, littleEndian(index, 4)); }
Bytes metric(std::uint32_t value) { return attribute(RTA_PRIORITY, littleEndian(value, 4)); }

TEST(NetlinkTest, TakesARouteWithoutMetricAsTheBest) {
    EXPECT_EQ(Netlink::parseDefaultInterface(routeMessage({}, by(2) + metric(1)) + routeMessage({}, by(5))), 5U);
}

TEST(NetlinkTest, TakesTheFirstOfRoutesWithTheSameMetric) {
    EXPECT_EQ(Netlink::parseDefaultInterface(routeMessage({}, by(5) + metric(9)) + routeMessage({}, by(2) + metric(9))),
              5U);
}

TEST(NetlinkTest, TakesTheFirstHopOfAMultipathRoute) {
    const Bytes hops = bytesOf("0800 00 00 06000000 0800 00 00 07000000");
    EXPECT_EQ(Netlink::parseDefaultInterface(routeMessage({}, attribute(RTA_MULTIPATH, hops))), 6U);
}

TEST(NetlinkTest, SkipsRoutesThatAreNotTheHostsDefault) {
    EXPECT_EQ(Netlink::parseDefaultInterface(routeMessage({}, by(2))), 2U);
    for (const RouteFields fields : {RouteFields{.family = AF_INET6}, RouteFields{.prefix = 1},
                                     RouteFields{.table = RT_TABLE_LOCAL}, RouteFields{.type = RTN_UNREACHABLE}}) {
        EXPECT_EQ(Netlink::parseDefaultInterface(routeMessage(fields, by(2))), std::nullopt);
    }
    const Bytes elsewhere = by(2) + attribute(RTA_TABLE, littleEndian(51820, 4));
    EXPECT_EQ(Netlink::parseDefaultInterface(routeMessage({}, elsewhere)), std::nullopt);
    EXPECT_EQ(Netlink::parseDefaultInterface(routeMessage({}, metric(1))), std::nullopt) << "leads nowhere";
    EXPECT_EQ(Netlink::parseDefaultInterface(done()), std::nullopt);
}

TEST(NetlinkTest, ReadsNeighbours) {
    EXPECT_EQ(
        Netlink::parseNeighbours(recordedNeighbours()),
        (std::vector<Neighbour>{{.ip = IPv4Address{192, 168, 0, 2}, .mac = MACAddress{{0x02, 0, 0, 0, 0, 0x02}}}}));
}

Bytes neighbourMessage(std::uint8_t family, int state, const Bytes& attributes) {
    return message(RTM_NEWNEIGH, Bytes{family, 0, 0, 0, 3, 0, 0, 0} +
                                     littleEndian(static_cast<std::uint32_t>(state), 2) + Bytes{0, 1} + attributes);
}

TEST(NetlinkTest, ReadsNeighboursInEveryStateButWithoutAnAnswer) {
    const Bytes pair =
        attribute(NDA_DST, addressBytes(IPv4Address{192, 168, 0, 2})) + attribute(NDA_LLADDR, bytesOf("020000000005"));
    for (const int state : {NUD_REACHABLE, NUD_STALE, NUD_DELAY, NUD_PROBE, NUD_PERMANENT, NUD_NONE}) {
        EXPECT_EQ(Netlink::parseNeighbours(neighbourMessage(AF_INET, state, pair)).size(), 1U) << state;
    }
    for (const int state : {NUD_FAILED, NUD_INCOMPLETE, NUD_NOARP}) {
        EXPECT_TRUE(Netlink::parseNeighbours(neighbourMessage(AF_INET, state, pair)).empty()) << state;
    }
    EXPECT_TRUE(Netlink::parseNeighbours(neighbourMessage(AF_INET6, NUD_REACHABLE, pair)).empty());
}

TEST(NetlinkTest, SkipsNeighboursWithoutAnAddressOfTheRightSize) {
    const Bytes ip = attribute(NDA_DST, addressBytes(IPv4Address{192, 168, 0, 2}));
    const Bytes mac = attribute(NDA_LLADDR, Bytes(6));
    for (const Bytes& attributes : {ip, mac, ip + attribute(NDA_LLADDR, Bytes(5)), ip + attribute(NDA_LLADDR, Bytes(8)),
                                    mac + attribute(NDA_DST, Bytes(16)), mac + attribute(NDA_DST, Bytes(3))}) {
        EXPECT_TRUE(Netlink::parseNeighbours(neighbourMessage(AF_INET, NUD_REACHABLE, attributes)).empty());
    }
}

TEST(NetlinkTest, ReadsNothingButWholeMessages) {
    const Bytes addresses = recordedAddresses();
    const Bytes links = madeLinks();
    const Bytes routes = recordedRoutes();
    const Bytes neighbours = recordedNeighbours();
    // Copies of exactly the cut size, so that a sanitizer sees a read beyond them.
    for (std::size_t size = 0; size < addresses.size(); ++size) {
        const Bytes cut(addresses.begin(), addresses.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(Netlink::parseAddresses(cut).size(), std::min<std::size_t>(size / 0x4C, 3)) << size;
    }
    for (std::size_t size = 0; size < links.size(); ++size) {
        const Bytes cut(links.begin(), links.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_LE(Netlink::parseLinks(cut).size(), 3U);
    }
    for (std::size_t size = 0; size < routes.size(); ++size) {
        const Bytes cut(routes.begin(), routes.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(Netlink::parseDefaultInterface(cut).has_value(), size >= 0x3C) << size;
    }
    for (std::size_t size = 0; size < neighbours.size(); ++size) {
        const Bytes cut(neighbours.begin(), neighbours.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(Netlink::parseNeighbours(cut).size(), size >= 0x4C ? 1U : 0U) << size;
    }
}

TEST(NetlinkTest, StopsAtLengthsThatCannotBe) {
    Bytes dump = recordedAddresses();
    for (const int length : {0, 1, 15}) {
        dump[0] = static_cast<std::uint8_t>(length);
        EXPECT_TRUE(Netlink::parseAddresses(dump).empty());
    }
    dump = recordedAddresses();
    for (const int length : {0, 3, 255}) { // of the first attribute: the address behind it is not read
        dump[24] = static_cast<std::uint8_t>(length);
        EXPECT_EQ(Netlink::parseAddresses(dump).size(), 2U);
    }
}

TEST(NetlinkTest, SurvivesEveryOverwrittenByte) {
    for (const Bytes& dump : {madeLinks(), recordedAddresses(), recordedRoutes(), recordedNeighbours()}) {
        for (std::size_t index = 0; index < dump.size(); ++index) {
            for (const std::uint8_t value : Bytes{0x00, 0x01, 0x7F, 0xFF}) {
                Bytes damaged = dump;
                damaged[index] = value;
                EXPECT_LE(Netlink::parseLinks(damaged).size(), 4U);
                EXPECT_LE(Netlink::parseAddresses(damaged).size(), 4U);
                EXPECT_LE(Netlink::parseDefaultInterface(damaged).value_or(0), 0xFFFFFFFFU);
                EXPECT_LE(Netlink::parseNeighbours(damaged).size(), 4U);
            }
        }
    }
}

TEST(NetlinkTest, AsksTheKernelForEverything) {
    for (const auto question : {Netlink::Question::links, Netlink::Question::addresses, Netlink::Question::routes,
                                Netlink::Question::neighbours}) {
        EXPECT_TRUE(Netlink::ask(question).has_value());
    }
    const auto links = Netlink::parseLinks(Netlink::ask(Netlink::Question::links).value());
    ASSERT_FALSE(links.empty());
    EXPECT_EQ(links[0].name, "lo");
    EXPECT_EQ(links[0].hardwareType, ARPHRD_LOOPBACK);
}

TEST(NetlinkTest, TellsTheStateOfANetworkMadeForTheTest) {
    const bool made = TestSupport::inFreshNetwork([] {
        ASSERT_TRUE(TestSupport::ip("link add en5 address 02:00:00:00:00:05 type veth peer name en6"));
        ASSERT_TRUE(TestSupport::ip("link add br0 type bridge"));
        ASSERT_TRUE(TestSupport::ip("link set en5 up"));
        ASSERT_TRUE(TestSupport::ip("link set en6 up"));
        ASSERT_TRUE(TestSupport::ip("addr add 192.168.0.1/24 dev en5"));
        ASSERT_TRUE(TestSupport::ip("addr add 10.0.0.7/8 dev en6 valid_lft 600 preferred_lft 300"));
        ASSERT_TRUE(TestSupport::ip("route add default via 192.168.0.9 metric 50"));
        ASSERT_TRUE(TestSupport::ip("route add default via 10.0.0.1 metric 20"));
        ASSERT_TRUE(TestSupport::ip("neigh add 192.168.0.2 lladdr 02:00:00:00:00:02 dev en5"));

        const auto links = Netlink::parseLinks(Netlink::ask(Netlink::Question::links).value());
        std::uint32_t en5 = 0;
        std::uint32_t en6 = 0;
        for (const Link& link : links) {
            if (link.name == "en5") {
                en5 = link.index;
                EXPECT_EQ(link.kind, "veth");
                EXPECT_EQ(link.mac, cardMAC);
            } else if (link.name == "en6") {
                en6 = link.index;
            } else if (link.name == "br0") {
                EXPECT_EQ(link.kind, "bridge");
            }
        }
        const auto addresses = Netlink::parseAddresses(Netlink::ask(Netlink::Question::addresses).value());
        const Address manual{.interfaceIndex = en5,
                             .subnet = {.address = IPv4Address{192, 168, 0, 1}, .prefixLength = 24},
                             .isPermanent = true};
        const Address leased{.interfaceIndex = en6,
                             .subnet = {.address = IPv4Address{10, 0, 0, 7}, .prefixLength = 8},
                             .isPermanent = false};
        EXPECT_EQ(std::ranges::count(addresses, manual), 1);
        EXPECT_EQ(std::ranges::count(addresses, leased), 1);
        EXPECT_EQ(Netlink::parseDefaultInterface(Netlink::ask(Netlink::Question::routes).value()), en6);
        const auto neighbours = Netlink::parseNeighbours(Netlink::ask(Netlink::Question::neighbours).value());
        EXPECT_EQ(neighbours, (std::vector<Neighbour>{
                                  {.ip = IPv4Address{192, 168, 0, 2}, .mac = MACAddress{{0x02, 0, 0, 0, 0, 0x02}}}}));
    });
    if (!made) {
        GTEST_SKIP() << "this process may not make a network namespace";
    }
}

/// How many changes the socket tells of until it has nothing more.
int noticesOn(const FileDescriptor& socket) {
    int count = 0;
    while (Netlink::takeNotice(socket)) {
        ++count;
    }
    return count;
}

TEST(NetlinkNoticesTest, TellOfEachChangeOfALinkOrAnIPv4Address) {
    const bool made = TestSupport::inFreshNetwork([] {
        const FileDescriptor socket = Netlink::openNotices();
        ASSERT_TRUE(socket.isOpen());
        EXPECT_EQ(noticesOn(socket), 0);
        ASSERT_TRUE(TestSupport::ip("addr add 10.0.0.1/32 dev lo"));
        EXPECT_EQ(noticesOn(socket), 1);
        ASSERT_TRUE(TestSupport::ip("addr del 10.0.0.1/32 dev lo"));
        EXPECT_EQ(noticesOn(socket), 1);
        ASSERT_TRUE(TestSupport::ip("link set lo mtu 1400"));
        EXPECT_EQ(noticesOn(socket), 1);
        ASSERT_TRUE(TestSupport::ip("addr add fd00::1/128 dev lo"));
        EXPECT_EQ(noticesOn(socket), 0) << "IPv6";
        ASSERT_TRUE(TestSupport::ip("route add 10.9.0.0/16 dev lo"));
        EXPECT_EQ(noticesOn(socket), 0) << "a route";
    });
    if (!made) {
        GTEST_SKIP() << "this process may not make a network namespace";
    }
}

/// A socket that has room for hardly anything.
FileDescriptor openCrampedNotices() {
    FileDescriptor socket = Netlink::openNotices();
    const int room = 1; // the kernel makes it its smallest
    EXPECT_EQ(::setsockopt(socket.number(), SOL_SOCKET, SO_RCVBUF, &room, sizeof room), 0);
    return socket;
}

TEST(NetlinkNoticesTest, TellOfLostOnesAsOfOneChange) {
    const bool made = TestSupport::inFreshNetwork([] {
        const FileDescriptor socket = openCrampedNotices();
        const FileDescriptor twin = openCrampedNotices();
        for (int last = 1; last <= 20; ++last) {
            ASSERT_TRUE(TestSupport::ip("addr add 10.0.0." + std::to_string(last) + "/32 dev lo"));
        }
        std::uint8_t byte = 0;
        ASSERT_EQ(::recv(twin.number(), &byte, 1, 0), -1);
        ASSERT_EQ(errno, ENOBUFS);
        const int kept = noticesOn(twin);
        EXPECT_LT(kept, 20);
        EXPECT_EQ(noticesOn(socket), kept + 1);
        ASSERT_TRUE(TestSupport::ip("addr del 10.0.0.1/32 dev lo"));
        EXPECT_EQ(noticesOn(socket), 1) << "and it goes on";
    });
    if (!made) {
        GTEST_SKIP() << "this process may not make a network namespace";
    }
}

TEST(NetlinkNoticesTest, IgnoreWhatComesFromAnybodyElseThanTheKernel) {
    const bool made = TestSupport::inFreshNetwork([] {
        const FileDescriptor socket = Netlink::openNotices();
        sockaddr_nl address{};
        socklen_t length = sizeof address;
        ASSERT_EQ(::getsockname(socket.number(), reinterpret_cast<sockaddr*>(&address), &length), 0);
        address.nl_groups = 0;
        const FileDescriptor stranger{::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)};
        const nlmsghdr message{
            .nlmsg_len = sizeof(nlmsghdr), .nlmsg_type = RTM_NEWLINK, .nlmsg_flags = 0, .nlmsg_seq = 0, .nlmsg_pid = 0};
        ASSERT_EQ(::sendto(stranger.number(), &message, sizeof message, 0, reinterpret_cast<const sockaddr*>(&address),
                           length),
                  static_cast<ssize_t>(sizeof message));
        EXPECT_FALSE(Netlink::takeNotice(socket));
        std::uint8_t byte = 0;
        EXPECT_EQ(::recv(socket.number(), &byte, 1, 0), -1) << "it was taken";
    });
    if (!made) {
        GTEST_SKIP() << "this process may not make a network namespace";
    }
}

TEST(NetlinkNoticesTest, AreNoneOnASocketThatIsNotOpen) { EXPECT_FALSE(Netlink::takeNotice(FileDescriptor{})); }

} // namespace
} // namespace DHCPCore
