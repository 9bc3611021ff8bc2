// The devices of a long run, and the report about it.
#include "Arguments.hpp"
#include "SoakDevices.hpp"
#include "SoakReport.hpp"
#include "Wire.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace DHCPLoad;

constexpr std::string_view usage = R"(usage:
  dhcp-soak devices --iface CARD --holds FILE [--clients 50] [--seconds 60]
  dhcp-soak lines --output FILE
  dhcp-soak report --samples FILE --holds FILE --output FILE --plot FILE.svg --first ADDRESS --last ADDRESS)";

void write(const std::string& path, const std::string& text) {
    std::ofstream file(path);
    file << text << std::flush;
    if (!file) {
        throw std::runtime_error("can't write " + path);
    }
}

/// Says one promise, and whether it was kept.
class Verdicts {
  public:
    void add(bool isKept, std::string_view text) {
        fmt::print("{} {}\n", isKept ? "pass" : "FAIL", text);
        allKept_ = allKept_ && isKept;
    }
    [[nodiscard]] bool allKept() const { return allKept_; }

  private:
    bool allKept_ = true;
};

bool runDevices(const Arguments& arguments) {
    constexpr std::uint32_t longest = 7 * 24 * 3600;
    constexpr std::chrono::seconds longestWait{30};
    Wire wire = Wire::onCard(arguments.requiredText("--iface"));
    const SoakPlan plan{.devices = arguments.number("--clients", 50, 1, 1000),
                        .duration = std::chrono::seconds{arguments.number("--seconds", 60, 1, longest)}};
    const SoakResult result = SoakDevices(wire, plan).run();
    std::string lines;
    for (const Hold& hold : result.holds) {
        lines += lineFor(hold) + "\n";
    }
    write(arguments.requiredText("--holds"), lines);
    fmt::print("{} simulated devices: {} addresses got, {} got again at switching on, {} renewals, {} releases, {} "
               "declines, {} times switched off, {} refusals, {} messages sent again\n",
               plan.devices, result.acquired, result.rebooted, result.renewed, result.released, result.declined,
               result.switchedOff, result.refused, result.unanswered);
    Verdicts verdicts;
    verdicts.add(result.withoutAddress == 0, fmt::format("{} devices never got an address", result.withoutAddress));
    verdicts.add(result.longestWait <= longestWait,
                 fmt::format("the longest wait for an address was {:.1f} s (at most {} s)",
                             std::chrono::duration<double>(result.longestWait).count(), longestWait.count()));
    verdicts.add(result.expired == 0, fmt::format("{} leases ended because no renewal was answered", result.expired));
    verdicts.add(result.invalid == 0, fmt::format("{} answers that no device could use", result.invalid));
    return verdicts.allKept();
}

void judgeHolds(const Arguments& arguments, Verdicts& verdicts) {
    const std::vector<Hold> holds = readHolds(arguments.requiredText("--holds"));
    const auto first = arguments.address("--first", {});
    const auto last = arguments.address("--last", {});
    const auto outside =
        std::ranges::count_if(holds, [&](const Hold& hold) { return hold.ip < first || hold.ip > last; });
    verdicts.add(!holds.empty() && outside == 0,
                 fmt::format("{} of {} times, an address outside the pool was held", outside, holds.size()));
    const std::vector<std::string> faults = doubleHolds(holds);
    verdicts.add(faults.empty(), fmt::format("{} times, two clients held one address at once", faults.size()));
    for (const std::string& fault : faults) {
        fmt::print("     {}\n", fault);
    }
}

void judgeOutput(const Arguments& arguments, Verdicts& verdicts) {
    std::ifstream file(arguments.requiredText("--output"));
    constexpr std::size_t shown = 10;
    std::size_t lines = 0;
    std::size_t malformed = 0;
    for (std::string line; std::getline(file, line); ++lines) {
        if (!isWellFormed(line) && malformed++ < shown) {
            fmt::print("     line {}: {}\n", lines + 1, line);
        }
    }
    verdicts.add(lines > 0 && malformed == 0, fmt::format("{} of {} lines of output malformed", malformed, lines));
}

bool report(const Arguments& arguments) {
    Verdicts verdicts;
    judgeHolds(arguments, verdicts);
    judgeOutput(arguments, verdicts);
    const std::vector<Sample> samples = readSamples(arguments.requiredText("--samples"));
    const std::vector<Trend> figures = trends(samples);
    verdicts.add(!figures.empty(), fmt::format("{} samples of the server", samples.size()));
    for (const Trend& trend : figures) {
        verdicts.add(trend.isFlat(), fmt::format("{}: {:.2f} early, {:.2f} late (at most {:.2f})", trend.name,
                                                 trend.early, trend.late, trend.bound));
    }
    write(arguments.requiredText("--plot"), plot(samples));
    return verdicts.allKept();
}

bool run(std::span<const std::string> words) {
    if (words.empty()) {
        throw UsageError("what to do?");
    }
    const Arguments arguments(
        words.subspan(1), {},
        {"--iface", "--holds", "--clients", "--seconds", "--samples", "--output", "--plot", "--first", "--last"});
    if (words.front() == "devices") {
        return runDevices(arguments);
    }
    if (words.front() == "lines") {
        Verdicts verdicts;
        judgeOutput(arguments, verdicts);
        return verdicts.allKept();
    }
    if (words.front() == "report") {
        return report(arguments);
    }
    throw UsageError("no such thing to do: " + words.front());
}

} // namespace

int main(int argumentCount, char** arguments) {
    try {
        const std::vector<std::string> words(arguments + 1, arguments + argumentCount);
        return run(words) ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const UsageError& error) {
        fmt::print(stderr, "dhcp-soak: {}\n{}\n", error.what(), usage);
        return 2;
    } catch (const std::exception& error) {
        fmt::print(stderr, "dhcp-soak: {}\n", error.what());
        return EXIT_FAILURE;
    }
}
