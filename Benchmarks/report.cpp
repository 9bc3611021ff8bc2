// Reads the records of a comparison, one JSON object a line, and prints its tables; draws its plot.
#include "Arguments.hpp"
#include "Drawing.hpp"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace {

using namespace DHCPLoad;
using nlohmann::json;

constexpr std::string_view usage = "usage: dhcp-report --records FILE [--plot FILE.svg]";
constexpr std::string_view ours = "tarnwick";

/// One number of a record, as a table shows it.
struct Figure {
    std::string_view name;
    std::string_view cell;    ///< Which measurement it is of.
    std::string_view pointer; ///< Where it stands in that measurement's record.
    double scale = 1;
    int digits = 0;
};

constexpr double kibibytes = 1024;
constexpr Figure one{"handshakes/s, one at a time", "handshakes-1", "/perSecond"};
constexpr Figure sixteen{"handshakes/s, 16 in flight", "handshakes-16", "/perSecond"};
constexpr Figure sixtyFour{"handshakes/s, 64 in flight", "handshakes-64", "/perSecond"};
constexpr Figure offers{"OFFERs/s, 64 in flight", "offers-64", "/perSecond"};
constexpr Figure offerTime{"DISCOVER to OFFER, p50, µs", "offers-1", "/offerMicroseconds/p50", 1, 1};
constexpr Figure processor{"processor ms per 1,000 handshakes, 16 in flight", "handshakes-16",
                           "/processorMillisecondsPerThousand", 1, 1};
constexpr Figure memory{"resident memory, MiB", "handshakes-64", "/residentKiB", 1 / kibibytes, 1};
constexpr Figure start{"start to first OFFER, ms", "start", "/startMilliseconds", 1, 1};
constexpr std::array figures{
    one,
    sixteen,
    sixtyFour,
    offers,
    offerTime,
    Figure{"DISCOVER to OFFER in a handshake, p50, µs", "handshakes-1", "/offerMicroseconds/p50", 1, 1},
    Figure{"REQUEST to ACK, p50, µs", "handshakes-1", "/ackMicroseconds/p50", 1, 1},
    Figure{"REQUEST to ACK, p99, 64 in flight, µs", "handshakes-64", "/ackMicroseconds/p99", 1, 1},
    Figure{"lost, 64 in flight", "handshakes-64", "/lost"},
    processor,
    memory,
    start,
    Figure{"OFFERs within 100 ms, of 1, flood of 5,000/s", "flood-5000", "/promptShare", 1, 3},
    Figure{"OFFERs within 100 ms, of 1, highest flood", "flood-0", "/promptShare", 1, 3},
    Figure{"malformed packets/s, highest flood", "flood-0", "/floodedPerSecond"},
};

/// A target: our figure, or its ratio to a peer's, against one bound for each pool.
struct Target {
    Figure figure;
    std::string_view peer;        ///< Empty where our own figure counts.
    bool isLeast;                 ///< Otherwise the bounds are the highest that will do.
    std::array<double, 4> bounds; ///< By pool; 0 where there is none.
};

constexpr std::array<std::size_t, 4> boundedPools{100, 1'000, 10'000, 60'000};
constexpr std::array targets{
    Target{one, "replace", true, {0.9, 0.9, 0.8, 0.8}},
    Target{sixteen, "kea", true, {2, 1.5, 0.4, 0.1}},
    Target{sixtyFour, "kea", true, {3.5, 3, 1.2, 0.3}},
    Target{offers, "kea", true, {6, 6, 6, 6}},
    Target{offerTime, "echo", false, {1.3, 1.3, 1.4, 1.5}},
    Target{processor, "kea", false, {0.4, 0.5, 1.5, 0}},
    Target{memory, "", false, {7, 8, 20, 80}},
    Target{start, "", false, {15, 20, 100, 600}},
};

class Records {
  public:
    /// @throws std::runtime_error for a file that can't be read, a json exception for one that is none of ours.
    explicit Records(const std::string& path) {
        std::ifstream file(path);
        if (!file) {
            throw std::runtime_error("can't read " + path);
        }
        for (std::string line; std::getline(file, line);) {
            const json record = json::parse(line);
            const auto server = record.at("server").get<std::string>();
            const auto pool = record.at("pool").get<std::size_t>();
            servers_.insert(server);
            pools_.insert(pool);
            results_[{server, pool, record.at("cell").get<std::string>()}].push_back(record.at("result"));
        }
    }

    /// The median of all rounds; nothing where it was not measured.
    [[nodiscard]] std::optional<double> median(std::string_view server, std::size_t pool, const Figure& figure) const {
        const auto found = results_.find({std::string(server), pool, std::string(figure.cell)});
        if (found == results_.end()) {
            return std::nullopt;
        }
        std::vector<double> values;
        for (const json& result : found->second) {
            const json::json_pointer pointer{std::string(figure.pointer)};
            if (result.contains(pointer) && result.at(pointer).is_number()) {
                values.push_back(result.at(pointer).get<double>() * figure.scale);
            }
        }
        if (values.empty()) {
            return std::nullopt;
        }
        std::ranges::sort(values);
        return (values[(values.size() - 1) / 2] + values[values.size() / 2]) / 2;
    }

    [[nodiscard]] const std::set<std::string>& servers() const { return servers_; }
    [[nodiscard]] const std::set<std::size_t>& pools() const { return pools_; }

  private:
    std::map<std::tuple<std::string, std::size_t, std::string>, std::vector<json>> results_;
    std::set<std::string> servers_;
    std::set<std::size_t> pools_;
};

std::string tableHead(std::string_view first, const std::set<std::size_t>& pools) {
    std::string head = fmt::format("| {} |", first);
    std::string rule = "|---|";
    for (const std::size_t pool : pools) {
        head += fmt::format(" {} |", pool);
        rule += "---|";
    }
    return head + "\n" + rule + "\n";
}

std::string valueText(std::optional<double> value, int digits) {
    return value ? fmt::format("{:.{}f}", *value, digits) : "-";
}

/// Our figure against its bound, as in "2.31 ≥ 2 ok (6930 / 3000)".
std::string targetText(const Records& records, const Target& target, std::size_t pool) {
    const auto own = records.median(ours, pool, target.figure);
    const auto peer = target.peer.empty() ? std::optional(1.0) : records.median(target.peer, pool, target.figure);
    if (!own || !peer || *peer == 0) {
        return "-";
    }
    const double ratio = *own / *peer;
    std::string text = fmt::format("{:.2f}", ratio);
    const auto* const place = std::ranges::find(boundedPools, pool);
    const double bound =
        place == boundedPools.end() ? 0 : target.bounds.at(static_cast<std::size_t>(place - boundedPools.begin()));
    if (bound > 0) {
        const bool isMet = target.isLeast ? ratio >= bound : ratio <= bound;
        text += fmt::format(" {} {} {}", target.isLeast ? "≥" : "≤", bound, isMet ? "ok" : "MISSED");
    }
    if (!target.peer.empty()) {
        text += fmt::format(" ({:.{}f} / {:.{}f})", *own, target.figure.digits, *peer, target.figure.digits);
    }
    return text;
}

void printTargets(const Records& records) {
    std::string text = "## Against the targets\n\n" + tableHead("pool", records.pools());
    for (const Target& target : targets) {
        text += fmt::format("| {}{}{} |", target.figure.name, target.peer.empty() ? "" : ", over ", target.peer);
        for (const std::size_t pool : records.pools()) {
            text += fmt::format(" {} |", targetText(records, target, pool));
        }
        text += '\n';
    }
    fmt::print("{}\n", text);
}

void printFigures(const Records& records) {
    for (const Figure& figure : figures) {
        std::string rows;
        for (const std::string& server : records.servers()) {
            std::string row = fmt::format("| {} |", server);
            bool isMeasured = false;
            for (const std::size_t pool : records.pools()) {
                const auto value = records.median(server, pool, figure);
                isMeasured = isMeasured || value;
                row += fmt::format(" {} |", valueText(value, figure.digits));
            }
            rows += isMeasured ? row + "\n" : "";
        }
        if (!rows.empty()) {
            fmt::print("## {}\n\n{}{}\n", figure.name, tableHead("pool", records.pools()), rows);
        }
    }
}

/// Handshakes a second against the size of the pool, both by powers of ten.
class Plot {
  public:
    explicit Plot(const Records& records) : records_(records) {}

    [[nodiscard]] std::string draw() {
        drawAxes();
        std::size_t index = 0;
        for (const std::string& server : records_.servers()) {
            drawServer(server, index++);
        }
        return drawing_.finished();
    }

  private:
    static constexpr double margin = 60;
    static constexpr double right = 560;
    static constexpr double bottom = 400;
    static constexpr double legend = 120;
    static constexpr double fewest = 1; ///< Handshakes a second at the bottom; the top is 5 powers of ten above.
    static constexpr int powersUp = 5;
    static constexpr double smallest = 10; ///< The pool at the left; the right end is 4 powers of ten above.
    static constexpr int powersRight = 4;

    [[nodiscard]] static double across(double pool) {
        return margin + (right - margin) * std::log10(pool / smallest) / powersRight;
    }
    [[nodiscard]] static double up(double rate) {
        return bottom - (bottom - margin) * std::log10(std::max(rate, fewest) / fewest) / powersUp;
    }

    void drawAxes() {
        for (int power = 0; power <= powersUp; ++power) {
            const double rate = fewest * std::pow(10, power);
            drawing_.gridAcross(margin, right, up(rate), fmt::format("{:.0f}", rate));
        }
        for (int power = 0; power <= powersRight; ++power) {
            const double pool = smallest * std::pow(10, power);
            drawing_.gridUp(across(pool), margin, bottom, fmt::format("{:.0f}", pool));
        }
        drawing_.text({margin, margin / 2}, "Handshakes a second, 16 in flight");
        drawing_.text({(margin + right) / 2, bottom + 40}, "leases in the pool", Drawing::Anchor::middle);
    }

    void drawServer(const std::string& server, std::size_t index) {
        const std::string_view colour = Drawing::colour(index);
        std::vector<Point> points;
        for (const std::size_t pool : records_.pools()) {
            if (const auto rate = records_.median(server, pool, sixteen)) {
                points.push_back({across(static_cast<double>(pool)), up(*rate)});
                drawing_.dot(points.back(), colour);
            }
        }
        drawing_.line(points, colour);
        drawing_.text({right + 12, margin + 20 * static_cast<double>(index)}, server, Drawing::Anchor::start, colour);
    }

    const Records& records_;
    Drawing drawing_{right + legend, bottom + margin};
};

void run(const Arguments& arguments) {
    const Records records(arguments.requiredText("--records"));
    printTargets(records);
    printFigures(records);
    if (const auto path = arguments.text("--plot")) {
        std::ofstream file(*path);
        file << Plot(records).draw() << std::flush;
        if (!file) {
            throw std::runtime_error("can't write " + *path);
        }
    }
}

} // namespace

int main(int argumentCount, char** arguments) {
    try {
        const std::vector<std::string> words(arguments + 1, arguments + argumentCount);
        run({words, {}, {"--records", "--plot"}});
        return EXIT_SUCCESS;
    } catch (const UsageError& error) {
        fmt::print(stderr, "dhcp-report: {}\n{}\n", error.what(), usage);
        return 2;
    } catch (const std::exception& error) {
        fmt::print(stderr, "dhcp-report: {}\n", error.what());
        return EXIT_FAILURE;
    }
}
