// The card under a serving tool, deleted, made anew, renamed, switched off and on, cut from its cable and robbed of its
// address, again and again, while devices ask.
#include "HostTests/HostTest.hpp"
#include "HostTests/Wire.hpp"
#include "Support/Settled.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <random>
#include <thread>

namespace Tarnwick {
namespace {

using namespace DHCPCore;
using namespace DHCPCore::TestSupport;

/// How often something is done to the card: TARNWICK_CARD_CYCLES, or enough to do everything a few times.
int cycles() {
    const char* const asked = std::getenv("TARNWICK_CARD_CYCLES");
    constexpr int usual = 20;
    return asked == nullptr ? usual : std::stoi(asked);
}

class CardLifeTest : public HostTest {
  protected:
    /// Does one thing to the card, and undoes it. The card has its name, its link and its address afterwards.
    void disturb(int cycle) const {
        const Network& host = lab().host();
        switch (cycle % 6) {
        case 0:
            lab().unplugCard("en5");
            pause();
            plugIn(Lab::cardMAC);
            break;
        case 1: // another adapter takes the name for a while
            lab().unplugCard("en5");
            plugIn(mac(55));
            pause();
            lab().unplugCard("en5");
            plugIn(Lab::cardMAC);
            break;
        case 2:
            rename("en5", "en7");
            pause();
            rename("en7", "en5");
            break;
        case 3:
            host.ip("link set en5 down");
            pause();
            host.ip("link set en5 up");
            break;
        case 4:
            lab().cutCable();
            pause();
            lab().mendCable();
            break;
        default:
            lab().removeAddress("en5");
            pause();
            lab().setAddress("en5");
        }
    }

    /// Has the device ask, again and again, until it is answered. Fails the test when that is never.
    static void awaitService(const Wire& wire, const MACAddress& device) {
        constexpr int tries = 30;
        for (int attempt = 0; attempt < tries; ++attempt) {
            ClientMessage message = discover(device);
            message.xid = nextNumber();
            wire.send(message);
            const auto end = std::chrono::steady_clock::now() + std::chrono::seconds{1};
            while (std::chrono::steady_clock::now() < end) {
                const auto reply = wire.nextReply(std::chrono::milliseconds{100});
                if (reply && messageIn(*reply).xid == message.xid) {
                    return;
                }
            }
        }
        FAIL() << "the server does not answer any more";
    }

    static std::uint32_t nextNumber() {
        static std::atomic<std::uint32_t> number = 0x7700'0000;
        return ++number;
    }

  private:
    void plugIn(const MACAddress& mac) const {
        lab().plugCard("en5", mac);
        lab().setAddress("en5");
    }

    void rename(const std::string& from, const std::string& to) const {
        const Network& host = lab().host();
        host.ip(fmt::format("link set {} down", from));
        host.ip(fmt::format("link set {} name {}", from, to));
        host.ip(fmt::format("link set {} up", to));
    }

    /// So long that the server, which looks once a second, sees some of it and misses some.
    static void pause() {
        static std::mt19937 random{1};
        std::this_thread::sleep_for(std::chrono::milliseconds{random() % 1200});
    }
};

/// Devices that ask without end, whoever answers.
class Traffic {
  public:
    explicit Traffic(const Device& device) : wire_(device.network(), "eth0"), thread_([this] { run(); }) {}
    Traffic(const Traffic&) = delete;
    Traffic& operator=(const Traffic&) = delete;
    Traffic(Traffic&&) = delete;
    Traffic& operator=(Traffic&&) = delete;
    ~Traffic() {
        isOver_ = true;
        thread_.join();
    }

  private:
    void run() {
        for (std::uint8_t number = 0; !isOver_; ++number) {
            const MACAddress device{{0x02, 0, 0, 0, 2, static_cast<std::uint8_t>(number % 50)}};
            wire_.send(discover(device));
            wire_.send(request(device).requesting("192.168.0.150"_ip));
            std::this_thread::sleep_for(std::chrono::milliseconds{5});
        }
    }

    Wire wire_;
    std::atomic<bool> isOver_ = false;
    std::thread thread_;
};

TEST_F(CardLifeTest, OutlivesWhateverHappensToTheCardUnderTraffic) {
    const Device device(lab(), 1);
    const Device others(lab(), 2);
    const Wire wire(device.network(), "eth0");
    ToolProcess::Setting setting = serving();
    writeText(folder() / "output", "");
    setting.outputFile = folder() / "output"; // nobody would read a pipe meanwhile
    ToolProcess tool(setting);
    awaitService(wire, device.mac());
    // From its first save on the server has its lease file open.
    const DHCPPacket answer = messageIn(wire.ask(request(device.mac()).requesting("192.168.0.149"_ip)));
    EXPECT_EQ(answer.messageType(), DHCPMessageType::ack);
    const auto descriptors = entries(tool, "fd");

    constexpr int cyclesBetweenLooks = 10;
    {
        const Traffic traffic(others);
        for (int cycle = 0; cycle < cycles(); ++cycle) {
            disturb(cycle);
            if (cycle % cyclesBetweenLooks == cyclesBetweenLooks - 1) {
                awaitService(wire, device.mac());
            }
        }
    }
    awaitService(wire, device.mac());
    const auto left = settled([&tool] { return entries(tool, "fd"); }, descriptors);
    EXPECT_LE(left, descriptors);
    RecordProperty("descriptors", static_cast<int>(left));
    RecordProperty("threads", static_cast<int>(entries(tool, "task")));
    tool.signal(SIGINT);
    EXPECT_EQ(tool.wait(), 0);
    EXPECT_EQ(tool.errors(), "");
    const std::string output = readText(folder() / "output");
    constexpr std::string_view last = "STOP         server stopped\n";
    EXPECT_EQ(output.substr(output.size() - std::min(output.size(), last.size())), last);
}

} // namespace
} // namespace Tarnwick
