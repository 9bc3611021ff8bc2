// Strangers who want every address of a full pool at once, on a card, while the server may open few descriptors.
#include "HostTests/HostTest.hpp"
#include "HostTests/Wire.hpp"
#include "Support/Settled.hpp"

#include <fmt/format.h>

#include <cstddef>

namespace Tarnwick {
namespace {

using namespace DHCPCore;
using namespace DHCPCore::TestSupport;

/// A pool of 101 addresses: one of a device that is there, the others of devices that are not.
class FullPoolTest : public HostTest {
  protected:
    [[nodiscard]] ToolProcess::Setting servingFullPool(const MACAddress& present) const {
        constexpr std::uint8_t addresses = 101;
        std::vector<Lease> kept{keptLease(present, "192.168.0.100"_ip)};
        for (std::uint8_t number = 1; number < addresses; ++number) {
            kept.push_back(
                keptLease(MACAddress{{0x02, 0, 0, 0, 1, number}}, IPv4Address{"192.168.0.100"_ip.value + number}));
        }
        keepLeases(kept);
        ToolProcess::Setting setting = serving();
        setting.prefix.insert(setting.prefix.end(), {"prlimit", "--nofile=256"});
        return setting;
    }

    static ClientMessage strangersDiscover(std::uint32_t number) {
        const auto bytes = bigEndianBytes(number);
        ClientMessage message = discover(MACAddress{{0x02, 0x66, bytes[0], bytes[1], bytes[2], bytes[3]}});
        message.xid = number;
        return message;
    }
};

TEST_F(FullPoolTest, KeepsItsDeviceAndItsDescriptorsWhenAThousandStrangersAskAtOnce) {
    const Device device(lab(), 1);
    const Device strangers(lab(), 2);
    device.setAddress("192.168.0.100/24");
    const Wire wire(device.network(), "eth0");
    const Wire theirs(strangers.network(), "eth0");
    ToolProcess tool(servingFullPool(device.mac()));
    started(tool);
    // From its first save on the server has its lease file open.
    EXPECT_EQ(messageIn(wire.ask(request(device.mac()).from("192.168.0.100"_ip))).messageType(), DHCPMessageType::ack);
    const auto open = entries(tool, "fd");

    constexpr std::uint32_t count = 1000;
    constexpr std::uint32_t burst = 50; // what sockets can hold: all that is broadcast comes to the device as well
    for (std::uint32_t number = 1; number <= count; ++number) {
        theirs.send(strangersDiscover(number));
        if (number % burst == 0) {
            ClientMessage renewal = request(device.mac()).from("192.168.0.100"_ip);
            renewal.xid = count + number;
            const DHCPPacket answer = messageIn(wire.ask(renewal));
            EXPECT_EQ(answer.messageType(), DHCPMessageType::ack);
            EXPECT_EQ(answer.yiaddr, "192.168.0.100"_ip);
        }
    }
    const auto events = eventsThrough(tool, "INFO         range full: reclaimed ");
    EXPECT_FALSE(tells(events, "INFO         range full: reclaimed 192.168.0.100 "));

    EXPECT_LE(settled([&tool] { return entries(tool, "fd"); }, open), open);
    const auto rest = stop(tool);
    EXPECT_FALSE(tells(rest, "INFO         range full: reclaimed 192.168.0.100 "));
    EXPECT_EQ(rest.back(), "STOP         server stopped");
}

} // namespace
} // namespace Tarnwick
