// Loads a DHCP server with the traffic of many devices, and prints what came of it as one line of JSON.
#include "Load.hpp"

#include "Arguments.hpp"
#include "Flood.hpp"
#include "LeaseFiles.hpp"
#include "Start.hpp"
#include "Wire.hpp"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace DHCPCore;
using namespace DHCPLoad;
using nlohmann::json;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr std::string_view usage = R"(usage:
  dhcp-load offers|handshakes|renewals WHERE [--clients 100] [--window 1] [--milliseconds 1000] [--patience 5000]
            [--pid SERVER]
  dhcp-load flood WHERE [--kind malformed|garbage|discovers|declines|names|oversized] [--rate 5000] [--most N]
            [--milliseconds 5000] [--renew] [--every 20] [--pid SERVER]
  dhcp-load start WHERE [--network NAMESPACE] [--patience 60000] [-- SERVER ARGUMENTS...]
  dhcp-load leases --format tarnwick|kea|dnsmasq --file FILE [--clients 100] [--first 10.77.1.0]
WHERE: --iface CARD, or --loopback [--port 6767] [--client-port 6868]
A rate of 0 is as high as it can be; --patience, and --every of the honest device's questions, are in milliseconds.)";

constexpr std::uint32_t longestWait = 600'000; // milliseconds

Wire openWire(const Arguments& arguments) {
    constexpr std::uint32_t highest = std::numeric_limits<std::uint16_t>::max();
    if (arguments.has("--loopback")) {
        return Wire::onLoopback(static_cast<std::uint16_t>(arguments.number("--port", 6767, 1, highest)),
                                static_cast<std::uint16_t>(arguments.number("--client-port", 6868, 1, highest)));
    }
    return Wire::onCard(arguments.requiredText("--iface"));
}

std::chrono::milliseconds milliseconds(const Arguments& arguments, std::string_view option, std::uint32_t otherwise) {
    return std::chrono::milliseconds{arguments.number(option, otherwise, 1, longestWait)};
}

/// Percentiles in microseconds; null where nothing was measured.
json percentiles(std::vector<std::chrono::nanoseconds> times) {
    if (times.empty()) {
        return nullptr;
    }
    std::ranges::sort(times);
    const auto at = [&times](std::size_t percent) {
        const auto time = times[std::min(times.size() - 1, times.size() * percent / 100)];
        return std::chrono::duration<double, std::micro>(time).count();
    };
    return {{"p50", at(50)}, {"p95", at(95)}, {"p99", at(99)}};
}

double perSecond(std::size_t count, std::chrono::nanoseconds span) {
    return static_cast<double>(count) / std::chrono::duration<double>(span).count();
}

std::optional<pid_t> serverProcess(const Arguments& arguments) {
    constexpr std::uint32_t highest = std::numeric_limits<pid_t>::max();
    if (!arguments.text("--pid")) {
        return std::nullopt;
    }
    return static_cast<pid_t>(arguments.number("--pid", 0, 1, highest));
}

json load(LoadKind kind, const Arguments& arguments) {
    Wire wire = openWire(arguments);
    LoadPlan plan{.kind = kind,
                  .clients = arguments.number("--clients", 100, 1, mostClients),
                  .window = arguments.number("--window", 1, 1, mostClients),
                  .duration = milliseconds(arguments, "--milliseconds", 1000),
                  .patience = milliseconds(arguments, "--patience", 5000),
                  .server = serverProcess(arguments)};
    LoadResult result = Load(wire, plan).run();
    json report{{"clients", plan.clients},
                {"window", plan.window},
                {"milliseconds", Milliseconds(result.span).count()},
                {"completed", result.completed},
                {"perSecond", perSecond(result.completed, result.span)},
                {"lost", result.lost},
                {"refused", result.refused},
                {"invalid", result.invalid},
                {"late", result.late},
                {"offerMicroseconds", percentiles(std::move(result.offerTimes))},
                {"ackMicroseconds", percentiles(std::move(result.ackTimes))}};
    if (result.processorTimePerExchange) {
        constexpr int thousand = 1000;
        report["processorMillisecondsPerThousand"] = Milliseconds(*result.processorTimePerExchange).count() * thousand;
    }
    if (result.residentKiB) {
        report["residentKiB"] = *result.residentKiB;
    }
    return report;
}

json figures(const ProcessFigures& process) {
    return {{"residentKiB", process.residentKiB}, {"descriptors", process.descriptors}, {"threads", process.threads}};
}

json floodServer(const Arguments& arguments) {
    constexpr std::uint32_t highest = 10'000'000;
    const auto kind = hostilityNamed(arguments.text("--kind").value_or("malformed"));
    if (!kind) {
        throw UsageError("--kind must be malformed, garbage, discovers, declines, names or oversized");
    }
    Wire wire = openWire(arguments);
    FloodResult result = flood(wire, {.kind = *kind,
                                      .rate = arguments.number("--rate", 5000, 0, highest),
                                      .most = arguments.number("--most", std::numeric_limits<std::uint32_t>::max(), 1,
                                                               std::numeric_limits<std::uint32_t>::max()),
                                      .duration = milliseconds(arguments, "--milliseconds", 5000),
                                      .interval = milliseconds(arguments, "--every", 20),
                                      .renews = arguments.has("--renew"),
                                      .server = serverProcess(arguments)});
    json report{{"milliseconds", Milliseconds(result.span).count()},
                {"flooded", result.flooded},
                {"floodedPerSecond", perSecond(result.flooded, result.span)},
                {"asked", result.asked},
                {"answered", result.answered},
                {"answeredWithin100ms", result.promptly},
                {"promptShare", static_cast<double>(result.promptly) / static_cast<double>(result.asked)},
                {"answerMicroseconds", percentiles(std::move(result.answerTimes))}};
    if (result.before && result.worst && result.after) {
        report["before"] = figures(*result.before);
        report["worst"] = figures(*result.worst);
        report["after"] = figures(*result.after);
    }
    return report;
}

json start(const Arguments& arguments) {
    Wire wire = openWire(arguments);
    const StartResult result = measureStart(wire, arguments.rest(), arguments.text("--network").value_or(""),
                                            milliseconds(arguments, "--patience", 60'000));
    json report{{"startMilliseconds", Milliseconds(result.time).count()}};
    if (result.residentKiB) {
        report["residentKiB"] = *result.residentKiB;
    }
    return report;
}

json leases(const Arguments& arguments) {
    const auto format = leaseFormat(arguments.requiredText("--format"));
    if (!format) {
        throw UsageError("--format must be tarnwick, kea or dnsmasq");
    }
    const std::uint32_t count = arguments.number("--clients", 100, 1, mostClients);
    writeLeases(*format, arguments.requiredText("--file"), count, arguments.address("--first", {10, 77, 1, 0}));
    return {{"clients", count}};
}

json run(std::span<const std::string> words) {
    if (words.empty()) {
        throw UsageError("what to do?");
    }
    const std::string& deed = words.front();
    const Arguments arguments(words.subspan(1), {"--loopback", "--renew"},
                              {"--iface", "--port", "--client-port", "--clients", "--window", "--milliseconds",
                               "--patience", "--pid", "--rate", "--kind", "--most", "--every", "--network", "--format",
                               "--file", "--first"});
    if (deed == "offers") {
        return load(LoadKind::offers, arguments);
    }
    if (deed == "handshakes") {
        return load(LoadKind::handshakes, arguments);
    }
    if (deed == "renewals") {
        return load(LoadKind::renewals, arguments);
    }
    if (deed == "flood") {
        return floodServer(arguments);
    }
    if (deed == "start") {
        return start(arguments);
    }
    if (deed == "leases") {
        return leases(arguments);
    }
    throw UsageError("no such thing to do: " + deed);
}

} // namespace

int main(int argumentCount, char** arguments) {
    try {
        const std::vector<std::string> words(arguments + 1, arguments + argumentCount);
        fmt::print("{}\n", run(words).dump());
        return EXIT_SUCCESS;
    } catch (const UsageError& error) {
        fmt::print(stderr, "dhcp-load: {}\n{}\n", error.what(), usage);
        return 2;
    } catch (const std::exception& error) {
        fmt::print(stderr, "dhcp-load: {}\n", error.what());
        return EXIT_FAILURE;
    }
}
