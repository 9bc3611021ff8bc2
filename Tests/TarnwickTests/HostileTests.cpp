// Somebody who means it no good, over loopback, beside an honest device that renews its lease.
#include "DHCPCore/LeaseFile.hpp"
#include "Support/HostileTexts.hpp"
#include "TarnwickTests/LoopbackClient.hpp"
#include "TarnwickTests/ToolProcess.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <csignal>
#include <random>
#include <string>
#include <vector>

namespace Tarnwick {
namespace {

using namespace DHCPCore;
using namespace DHCPCore::TestSupport;

constexpr IPv4Address server{192, 168, 0, 1};
constexpr std::uint8_t honestDevice = 1;

/// A server with an honest device that has an address.
class HostileTest : public testing::Test {
  protected:
    [[nodiscard]] std::vector<std::string> arguments(bool json) const {
        std::vector<std::string> all = client.serveArguments({"--leases", (folder / "leases.json").string()});
        if (json) {
            all.emplace_back("--json");
        }
        return all;
    }

    void getAddress() {
        const DHCPPacket offer = client.ask(message(DHCPMessageType::discover, honestDevice));
        address =
            client
                .ask(with(with(message(DHCPMessageType::request, honestDevice), OptionCode::requestedIP, offer.yiaddr),
                          OptionCode::serverID, server))
                .yiaddr;
    }

    /// Renews; the answer shows that all that was sent before has been read. What others were answered is skipped.
    [[nodiscard]] bool isRenewed() {
        DHCPPacket renewal = message(DHCPMessageType::request, honestDevice);
        renewal.ciaddr = address;
        renewal.xid = ++lastXID;
        client.send(renewal);
        while (const auto bytes = client.receiveBytes()) {
            const DHCPPacket answer = DHCPPacket::parse(*bytes);
            if (answer.xid == lastXID && answer.mac() == deviceMAC(honestDevice)) {
                return answer.messageType() == DHCPMessageType::ack && answer.yiaddr == address;
            }
        }
        return false;
    }

    /// Stops the server, and looks at every line that it has written.
    void stop(ToolProcess& tool) {
        tool.signal(SIGINT);
        std::string last;
        while (auto line = tool.line()) {
            EXPECT_TRUE(isOneLine(*line)) << *line;
            last = *std::move(line);
        }
        EXPECT_EQ(withoutTime(last), "STOP         server stopped");
        EXPECT_EQ(tool.wait(), 0);
        EXPECT_EQ(tool.errors(), "");
    }

    /// Sends so many, in bursts that a socket can hold, and has the honest device renew after each.
    template <class Make>
    void flood(std::size_t count, const Make& make) {
        constexpr std::size_t burst = 50;
        for (std::size_t number = 0; number < count; ++number) {
            client.send(make(number));
            if (number % burst == burst - 1) {
                ASSERT_TRUE(isRenewed()) << "after " << number + 1;
            }
        }
    }

    [[nodiscard]] LeaseTable savedTable() const {
        return LeaseFile{.url = folder / "leases.json"}.load(currentDate()).table;
    }

    TemporaryDirectory folder;
    LoopbackClient client;
    IPv4Address address;
    std::uint32_t lastXID = 1000;
};

/// A message of a device that nobody has seen yet.
DHCPPacket messageOfStranger(DHCPMessageType type, std::size_t number) {
    DHCPPacket packet = message(type);
    const auto bytes = bigEndianBytes(static_cast<std::uint32_t>(number));
    std::ranges::copy(bytes, packet.chaddr.begin() + 2);
    packet.chaddr[1] = 0x66;
    return packet;
}

/// The parameter: whether the server writes JSON.
class HostileOutputTest : public HostileTest, public testing::WithParamInterface<bool> {};

TEST_P(HostileOutputTest, WritesOneLineForEachEventWhateverADeviceCallsItself) {
    ToolProcess tool(arguments(GetParam()));
    tool.linesThrough("START");
    for (const HostileText& text : hostileTexts()) {
        SCOPED_TRACE(text.shown);
        DHCPPacket discover = message(DHCPMessageType::discover);
        discover.setOption(OptionCode::hostname, text.bytes);
        discover.setOption(OptionCode::vendorClass, text.bytes);
        discover.setOption(OptionCode::clientID, text.bytes);
        client.send(discover);
        const std::vector<std::string> lines = tool.linesThrough("TX OFFER");
        EXPECT_EQ(lines.size(), 3U);
        for (const std::string& line : lines) {
            EXPECT_TRUE(isOneLine(line)) << line;
            EXPECT_TRUE(!GetParam() || nlohmann::json::parse(line).is_object());
        }
    }
    tool.signal(SIGINT);
    EXPECT_EQ(tool.wait(), 0);
}

INSTANTIATE_TEST_SUITE_P(AsTextAndJSON, HostileOutputTest, testing::Bool());

TEST_F(HostileTest, DropsADeviceWithAHundredNamesOf255Bytes) {
    ToolProcess tool(arguments(false));
    tool.linesThrough("START");
    DHCPPacket packet = message(DHCPMessageType::discover, 2);
    constexpr std::size_t names = 100;
    constexpr std::size_t longest = 255;
    for (std::size_t count = 0; count < names; ++count) {
        packet.options.push_back({.code = OptionCode::hostname, .data = Bytes(longest, 'x')});
    }
    client.send(packet);
    EXPECT_EQ(withoutTime(tool.line().value_or("")), "DROP         malformed (option 12 runs past the end)");
    getAddress();
    EXPECT_TRUE(isRenewed());
    stop(tool);
}

TEST_F(HostileTest, TakesTheFirstOfAsManyNamesAsADatagramHolds) {
    ToolProcess tool(arguments(false));
    tool.linesThrough("START");
    DHCPPacket packet = with(message(DHCPMessageType::discover, 2), OptionCode::hostname, "first");
    constexpr std::size_t names = 6; // 240 bytes, and 257 each: seven more would be cut off at 2048
    for (std::size_t count = 0; count < names; ++count) {
        packet.options.push_back({.code = OptionCode::hostname, .data = Bytes(255, 'x')});
    }
    client.send(packet);
    EXPECT_EQ(withoutTime(tool.line().value_or("")),
              "RX DISCOVER  02:00:00:00:00:02 host=first vendor=- req=- xid=0x00000001 if=lo0");
    tool.signal(SIGINT);
    EXPECT_EQ(tool.wait(), 0);
}

TEST_F(HostileTest, AnswersAnHonestDeviceAmongDatagramsAtRandom) {
    ToolProcess tool(arguments(false));
    tool.linesThrough("START");
    getAddress();
    std::mt19937 random{1}; // the same datagrams each time
    const auto below = [&random](std::size_t end) { return random() % end; };
    const Bytes good = with(message(DHCPMessageType::discover, 77), OptionCode::hostname, "device").serialize(300);
    flood(5000, [&](std::size_t number) {
        Bytes bytes = number % 2 == 0 ? good : Bytes(below(600));
        const std::size_t changes = number % 2 == 0 ? below(8) : bytes.size();
        for (std::size_t change = 0; change < changes; ++change) {
            bytes[number % 2 == 0 ? below(bytes.size()) : change] = static_cast<std::uint8_t>(below(256));
        }
        return bytes;
    });
    stop(tool);
}

TEST_F(HostileTest, AnswersAnHonestDeviceAmongStrangersThatEmptyThePool) {
    ToolProcess tool(arguments(false));
    tool.linesThrough("START");
    getAddress();
    flood(3000, [](std::size_t number) { return messageOfStranger(DHCPMessageType::discover, number).serialize(0); });
    stop(tool);
    EXPECT_LE(savedTable().leases().size(), 101U) << "one record for each address of the pool";
}

TEST_F(HostileTest, AnswersAnHonestDeviceWhileTheWholeWorldIsDeclined) {
    ToolProcess tool(arguments(false));
    tool.linesThrough("START");
    getAddress();
    constexpr std::size_t count = 2000;
    flood(count, [](std::size_t number) {
        const IPv4Address somewhere{static_cast<std::uint32_t>(number * 2'654'435'761U)};
        return with(messageOfStranger(DHCPMessageType::decline, number), OptionCode::requestedIP, somewhere)
            .serialize(0);
    });
    stop(tool);
    EXPECT_EQ(savedTable().quarantine().size(), count);
    EXPECT_EQ(savedTable().lease(deviceMAC(honestDevice))->ip, address);
}

} // namespace
} // namespace Tarnwick
