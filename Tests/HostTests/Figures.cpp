// Measures the built tool on a card: how quickly it answers, how much memory it takes, and what it does while idle and
// beside devices that are silent.
#include "DHCPCore/LeaseFile.hpp"
#include "DHCPCore/TextPieces.hpp"
#include "HostTests/Lab.hpp"
#include "HostTests/Wire.hpp"
#include "Support/Builders.hpp"
#include "Support/TemporaryDirectory.hpp"
#include "TarnwickTests/ToolProcess.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace Tarnwick {
namespace {

using namespace DHCPCore;
using namespace DHCPCore::TestSupport;
using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

/// The tool, serving the lab's card with a lease file of its own.
class Server {
  public:
    /// Starts with these leases.
    explicit Server(const Lab& lab, const LeaseTable& leases = {}) : tool_(setting(lab, leases)) { await("  LINK "); }

    void await(const std::string& text) {
        const std::vector<std::string> lines = tool_.linesThrough(text);
        offline_ += std::ranges::count_if(lines, [](const auto& line) { return line.find(offline) != line.npos; });
        if (lines.back().find(text) == std::string::npos) {
            throw std::runtime_error("the server did not say" + text);
        }
    }

    /// Waits until so many devices were found offline since the start.
    void awaitOffline(int count) {
        while (offline_ < count) {
            await(offline);
        }
    }

    /// What it has in memory now, in MiB.
    [[nodiscard]] double residentMemory() const {
        constexpr std::string_view label = "VmRSS:";
        constexpr double kibibytes = 1024;
        const std::string status = readText(fmt::format("/proc/{}/status", tool_.pid()));
        for (const std::string_view line : splitDroppingEmpty(status, '\n')) {
            if (line.starts_with(label)) {
                return std::stod(std::string(line.substr(label.size()))) / kibibytes;
            }
        }
        throw std::runtime_error("the system does not tell what memory the server has");
    }

    [[nodiscard]] std::ptrdiff_t threads() const {
        return std::distance(std::filesystem::directory_iterator(fmt::format("/proc/{}/task", tool_.pid())), {});
    }

    /// The processor time that it has taken so far.
    [[nodiscard]] Milliseconds processorTime() const {
        clockid_t clock{};
        timespec time{};
        if (::clock_getcpuclockid(tool_.pid(), &clock) != 0 || ::clock_gettime(clock, &time) != 0) {
            throw std::runtime_error("the system does not tell what time the server took");
        }
        return std::chrono::seconds{time.tv_sec} + std::chrono::nanoseconds{time.tv_nsec};
    }

  private:
    [[nodiscard]] ToolProcess::Setting setting(const Lab& lab, const LeaseTable& leases) const {
        const auto file = folder_ / "leases.json";
        LeaseFile{.url = file}.save(leases);
        return {
            .arguments = {"serve", "--iface", "en5", "--range", "192.168.0.2-192.168.0.254", "--leases", file.string()},
            .prefix = lab.host().prefix()};
    }

    static constexpr const char* offline = "  OFFLINE ";

    TemporaryDirectory folder_;
    ToolProcess tool_;
    std::ptrdiff_t offline_ = 0;
};

MACAddress deviceNumber(std::uint8_t number) { return {{0x02, 0, 0, 0, 1, number}}; }

void measureLatency(const Lab& lab, const Wire& wire) {
    constexpr std::size_t tries = 1000;
    Server server(lab);
    std::vector<Milliseconds> times;
    for (std::uint32_t attempt = 1; attempt <= tries; ++attempt) {
        ClientMessage message = discover(deviceNumber(1));
        message.xid = attempt;
        const auto start = Clock::now();
        const Frame offer = wire.ask(message);
        times.emplace_back(Clock::now() - start);
        if (messageIn(offer).messageType() != DHCPMessageType::offer) {
            throw std::runtime_error("the server answered no offer");
        }
        server.await("TX OFFER"); // only then it is idle again
    }
    std::ranges::sort(times);
    fmt::print("DISCOVER to OFFER, {} tries: median {:.3f} ms, 95th percentile {:.3f} ms\n", tries,
               times[tries / 2].count(), times[tries * 95 / 100].count());
}

void measureMemory(const Lab& lab, const Wire& wire) {
    constexpr std::uint8_t devices = 100;
    Server server(lab);
    for (std::uint8_t number = 1; number <= devices; ++number) {
        const MACAddress mac = deviceNumber(number);
        const DHCPPacket offer = messageIn(wire.ask(discover(mac)));
        ClientMessage taking = request(mac).requesting(offer.yiaddr).selecting(Lab::serverIP);
        taking.xid = number;
        if (messageIn(wire.ask(taking)).messageType() != DHCPMessageType::ack) {
            throw std::runtime_error("a device got no lease");
        }
        server.await("TX ACK");
    }
    fmt::print("Resident memory with {} leases: {:.1f} MiB\n", devices, server.residentMemory());
    server.awaitOffline(devices);
    fmt::print("Resident memory after all of them were probed: {:.1f} MiB\n", server.residentMemory());
}

void measureIdleness(const Lab& lab, std::chrono::seconds span) {
    const Server server(lab);
    const Milliseconds before = server.processorTime();
    std::this_thread::sleep_for(span);
    fmt::print("Processor time of {} s without devices: {:.1f} ms\n", span.count(),
               (server.processorTime() - before).count());
}

/// One presence cycle of devices that are known to be silent.
void measureSilentDevices(const Lab& lab) {
    constexpr std::uint8_t devices = 250;
    constexpr std::chrono::milliseconds step{10};
    LeaseTable leases;
    for (std::uint8_t number = 0; number < devices; ++number) {
        leases.upsert({.mac = deviceNumber(number),
                       .ip = IPv4Address{192, 168, 0, static_cast<std::uint8_t>(2 + number)},
                       .state = Lease::State::bound,
                       .expiresAt = currentDate() + std::chrono::hours{1},
                       .hostname = std::nullopt,
                       .vendorClass = std::nullopt,
                       .clientID = std::nullopt,
                       .firstSeen = currentDate(),
                       .lastSeen = currentDate()});
    }
    Server server(lab, leases);
    server.awaitOffline(devices);
    const auto end = Clock::now() + Timing::presenceInterval;
    const Milliseconds before = server.processorTime();
    std::ptrdiff_t mostThreads = 0;
    while (Clock::now() < end) {
        mostThreads = std::max(mostThreads, server.threads());
        std::this_thread::sleep_for(step);
    }
    fmt::print("Presence cycle of {} silent devices: {:.1f} ms of processor time, {} threads of the process\n", devices,
               (server.processorTime() - before).count(), mostThreads);
}

} // namespace
} // namespace Tarnwick

int main() {
    using namespace Tarnwick;
    try {
        if (const auto reason = whyNoNetworks()) {
            fmt::print(stderr, "nothing measured: {}\n", *reason);
            return EXIT_FAILURE;
        }
        const Lab lab;
        const Device device(lab, 1);
        const Wire wire(device.network(), "eth0");
        measureLatency(lab, wire);
        measureMemory(lab, wire);
        measureSilentDevices(lab);
        measureIdleness(lab, std::chrono::seconds{60});
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        fmt::print(stderr, "{}\n", error.what());
        return EXIT_FAILURE;
    }
}
