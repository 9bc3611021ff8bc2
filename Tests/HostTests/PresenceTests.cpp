// Who of the leased devices is there, as the built tool sees it over a cable.
#include "DHCPCore/Addresses.hpp"
#include "HostTests/HostTest.hpp"
#include "Support/Settled.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <regex>

namespace Tarnwick {
namespace {

using namespace DHCPCore;
using namespace DHCPCore::TestSupport;

using PresenceTest = HostTest;

TEST_F(PresenceTest, TellsPresentAbsentAndUsurpedAddressesApart) {
    const Device present(lab(), 1);
    present.setAddress("192.168.0.100/24");
    const Device usurper(lab(), 2);
    usurper.setAddress("192.168.0.101/24");
    keepLeases({keptLease(mac(1), "192.168.0.100"_ip), keptLease(mac(77), "192.168.0.101"_ip),
                keptLease(mac(78), "192.168.0.102"_ip)});
    ToolProcess tool(serving());
    started(tool);

    auto events = eventsThrough(tool, "OFFLINE");
    std::ranges::sort(events);
    ASSERT_EQ(events.size(), 3U);
    const std::regex answer(R"(icmp \d+\.\d ms|tcp (80|443) refused)"); // whichever is quickest
    for (std::string& event : events) {
        event = std::regex_replace(event, answer, "ANSWER");
    }
    EXPECT_EQ(events, (std::vector<std::string>{"CONFLICT     192.168.0.101 02:00:00:00:00:4d ANSWER",
                                                "OFFLINE      192.168.0.102 02:00:00:00:00:4e no answer",
                                                "ONLINE       192.168.0.100 02:00:00:00:00:01 ANSWER"}));
}

TEST_F(PresenceTest, HearsADeviceThatAnswersNoEcho) {
    const Device device(lab(), 1);
    device.setAddress("192.168.0.100/24");
    device.network().set("net.ipv4.icmp_echo_ignore_all=1");
    keepLeases({keptLease(device.mac(), "192.168.0.100"_ip)});
    ToolProcess tool(serving());
    started(tool);
    const auto events = eventsThrough(tool, "ONLINE");
    EXPECT_TRUE(std::regex_match(events.back(),
                                 std::regex("ONLINE       192.168.0.100 02:00:00:00:00:01 tcp (80|443) refused")))
        << events.back();
}

/// A server of 250 devices that are all silent, which may open so many descriptors.
class CrowdTest : public HostTest, public testing::WithParamInterface<int> {
  protected:
    static constexpr int count = 250;

    [[nodiscard]] ToolProcess::Setting servingCrowd() const {
        std::vector<Lease> kept;
        for (std::uint32_t number = 0; number < count; ++number) {
            const auto last = static_cast<std::uint8_t>(number);
            kept.push_back(
                keptLease(MACAddress{{0x02, 0, 0, 0, 1, last}}, IPv4Address{"192.168.0.2"_ip.value + number}));
        }
        keepLeases(kept);
        ToolProcess::Setting setting = serving({"--range", "192.168.0.2-192.168.0.254"});
        setting.prefix.insert(setting.prefix.end(), {"prlimit", fmt::format("--nofile={}", GetParam())});
        return setting;
    }

    /// How many of the tool's threads probe.
    static std::ptrdiff_t probingThreads(const ToolProcess& tool) {
        std::ptrdiff_t number = 0;
        for (const auto& task : std::filesystem::directory_iterator(fmt::format("/proc/{}/task", tool.pid()))) {
            // A thread that is ending meanwhile has no name any more. The kernel keeps 15 characters of one.
            number += readText(task.path() / "comm") == std::string("tarnwick.presence").substr(0, 15) + "\n" ? 1 : 0;
        }
        return number;
    }
};

TEST_P(CrowdTest, IsAskedWithinOneCycleWithFewThreadsAndNothingLeftOpen) {
    ToolProcess tool(servingCrowd());
    started(tool);
    const auto open = entries(tool, "fd");
    const auto start = std::chrono::steady_clock::now();

    std::ptrdiff_t mostThreads = 0;
    for (int offline = 0; offline < count; ++offline) {
        const auto line = tool.line();
        ASSERT_TRUE(line);
        EXPECT_TRUE(withoutTime(*line).starts_with("OFFLINE      192.168.0.")) << *line;
        mostThreads = std::max(mostThreads, probingThreads(tool));
    }
    // The first cycle begins a second after the start, and the next one Timing::presenceInterval later.
    EXPECT_LT(std::chrono::steady_clock::now() - start, Timing::presenceInterval + std::chrono::seconds{1});
    EXPECT_GT(mostThreads, 1);
    EXPECT_LE(mostThreads, 64);

    // Fewer when a line of the log was just being written at the first count.
    EXPECT_LE(settled([&tool] { return entries(tool, "fd"); }, open), open);
    stop(tool);
}

INSTANTIATE_TEST_SUITE_P(With, CrowdTest, testing::Values(40, 1024));

} // namespace
} // namespace Tarnwick
