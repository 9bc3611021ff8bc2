#include "SoakReport.hpp"

#include "DHCPCore/TextPieces.hpp"
#include "DHCPCore/UTF8.hpp"
#include "Drawing.hpp"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <map>
#include <stdexcept>

namespace DHCPLoad {

using namespace DHCPCore;

namespace {

constexpr double kibibytes = 1024;
constexpr double secondsPerMinute = 60;

/// The lines of a file, split at commas into so many pieces each.
std::vector<std::vector<std::string>> readTable(const std::string& path, std::size_t columns) {
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error("can't read " + path);
    }
    std::vector<std::vector<std::string>> rows;
    for (std::string line; std::getline(file, line);) {
        const auto pieces = splitKeepingEmpty(line, ',');
        if (pieces.size() != columns) {
            throw std::runtime_error(fmt::format("{}: not {} columns: {}", path, columns, line));
        }
        rows.emplace_back(pieces.begin(), pieces.end());
    }
    return rows;
}

Date dateOf(const std::string& seconds) {
    return Date{
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::duration<double>(std::stod(seconds)))};
}

double secondsOf(Date date) { return std::chrono::duration<double>(date.time_since_epoch()).count(); }

bool hasControlCharacter(std::string_view text) {
    while (!text.empty()) {
        const std::string_view character = text.substr(0, characterLength(text));
        const auto first = static_cast<unsigned char>(text.front());
        if (character.empty() || first < 0x20 || first == 0x7F ||
            (first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0)) {
            return true;
        }
        text.remove_prefix(character.size());
    }
    return false;
}

bool isObjectOfTexts(std::string_view line) {
    const auto object = nlohmann::json::parse(line, nullptr, false);
    return object.is_object() && object.contains("event") &&
           std::ranges::all_of(object, [](const auto& value) { return value.is_string(); });
}

/// As in "13:04:05.007  RX DISCOVER  02:00:00:00:00:01 ...": time, label of twelve columns, text.
bool isEvent(std::string_view line) {
    constexpr std::string_view time = "00:00:00.000  ";
    constexpr std::size_t labelLength = 12;
    constexpr std::string_view inLabels = "ABCDEFGHIJKLMNOPQRSTUVWXYZ? ";
    if (line.size() <= time.size() + labelLength + 1) {
        return false;
    }
    const auto isTime = std::ranges::equal(line.substr(0, time.size()), time, [](char found, char pattern) {
        return pattern == '0' ? isDecimalDigit(found) : found == pattern;
    });
    const std::string_view label = line.substr(time.size(), labelLength);
    const std::string_view text = line.substr(time.size() + labelLength);
    return isTime && label.front() != ' ' && label.find_first_not_of(inLabels) == std::string_view::npos &&
           text[0] == ' ' && text[1] != ' ';
}

/// The samples of the server's longest life, without the time in which it warmed up.
std::span<const Sample> longestLife(std::span<const Sample> samples) {
    std::span<const Sample> longest;
    for (auto start = samples.begin(); start != samples.end();) {
        const auto end = std::find_if(start, samples.end(),
                                      [life = start->life](const Sample& sample) { return sample.life != life; });
        if (static_cast<std::size_t>(end - start) > longest.size()) {
            longest = {start, end};
        }
        start = end;
    }
    constexpr std::size_t tenths = 10;
    return longest.subspan(longest.size() / tenths);
}

std::vector<double> valuesOf(std::span<const Sample> samples, double Sample::*figure) {
    std::vector<double> values;
    std::ranges::transform(samples, std::back_inserter(values),
                           [figure](const Sample& sample) { return sample.*figure; });
    std::ranges::sort(values);
    return values;
}

double median(std::span<const Sample> samples, double Sample::*figure) {
    const auto values = valuesOf(samples, figure);
    return values[values.size() / 2];
}

double least(std::span<const Sample> samples, double Sample::*figure) { return valuesOf(samples, figure).front(); }

/// One figure against time. Each column of the plot shows the least and the highest value of its samples.
class Panel {
  public:
    static constexpr double left = 70;
    static constexpr double right = 790;
    static constexpr double height = 170;
    static constexpr double headRoom = 40;

    Panel(Drawing& drawing, std::span<const Sample> samples, double top)
        : drawing_(drawing), samples_(samples), top_(top + headRoom), bottom_(top + height),
          span_(std::max(samples.back().seconds, 1.0)) {}

    void draw(std::string_view title, double Sample::*figure, std::size_t number) {
        constexpr int steps = 4;
        const double highest = roundedUp(valuesOf(samples_, figure).back());
        drawing_.text({left, top_ - 12}, title, Drawing::Anchor::start, Drawing::colour(number));
        for (int step = 0; step <= steps; ++step) {
            const double value = highest * step / steps;
            drawing_.gridAcross(left, right, up(value, highest), fmt::format("{:g}", value));
            const double seconds = span_ * step / steps;
            drawing_.gridUp(across(seconds), top_, bottom_, fmt::format("{:.3g} min", seconds / secondsPerMinute));
        }
        std::map<int, std::pair<double, double>> columns;
        for (const Sample& sample : samples_) {
            const double value = sample.*figure;
            const auto [column, isNew] =
                columns.try_emplace(static_cast<int>(across(sample.seconds) / 2), value, value);
            column->second = {std::min(column->second.first, value), std::max(column->second.second, value)};
        }
        std::vector<Point> lower;
        std::vector<Point> upper;
        for (const auto& [column, values] : columns) {
            lower.push_back({2.0 * column, up(values.first, highest)});
            upper.push_back({2.0 * column, up(values.second, highest)});
        }
        drawing_.band(upper, lower, Drawing::colour(number));
    }

  private:
    [[nodiscard]] double across(double seconds) const { return left + (right - left) * seconds / span_; }
    [[nodiscard]] double up(double value, double highest) const { return bottom_ - (bottom_ - top_) * value / highest; }

    /// To a number that is read easily at four steps: 4, 8, 12, 20, 40 and so on.
    [[nodiscard]] static double roundedUp(double value) {
        for (double power = 1;; power *= 10) {
            for (const double step : {1.0, 2.0, 3.0, 5.0}) {
                if (4 * step * power >= value) {
                    return 4 * step * power;
                }
            }
        }
    }

    Drawing& drawing_;
    std::span<const Sample> samples_;
    double top_;
    double bottom_;
    double span_;
};

} // namespace

std::vector<Sample> readSamples(const std::string& path) {
    std::vector<Sample> samples;
    for (const auto& row : readTable(path, 5)) {
        samples.push_back({.seconds = std::stod(row[0]),
                           .life = std::stoi(row[1]),
                           .residentMiB = std::stod(row[2]) / kibibytes,
                           .descriptors = std::stod(row[3]),
                           .threads = std::stod(row[4])});
    }
    return samples;
}

std::vector<Hold> readHolds(const std::string& path) {
    std::vector<Hold> holds;
    for (const auto& row : readTable(path, 4)) {
        const auto ip = IPv4Address::parse(row[1]);
        if (!ip) {
            throw std::runtime_error(fmt::format("{}: no address: {}", path, row[1]));
        }
        holds.push_back({.holder = row[0], .ip = *ip, .from = dateOf(row[2]), .until = dateOf(row[3])});
    }
    return holds;
}

std::string lineFor(const Hold& hold) {
    return fmt::format("{},{},{:.3f},{:.3f}", hold.holder, hold.ip.description(), secondsOf(hold.from),
                       secondsOf(hold.until));
}

std::vector<std::string> doubleHolds(std::vector<Hold> holds) {
    std::ranges::sort(holds, {}, [](const Hold& hold) { return std::pair(hold.ip, hold.from); });
    std::vector<std::string> faults;
    const Hold* last = nullptr; // the one that lasts longest of those before, at the same address
    for (const Hold& hold : holds) {
        if (last != nullptr && last->ip == hold.ip && last->holder != hold.holder && hold.from < last->until) {
            faults.push_back(fmt::format("{} and {} had {} at once", last->holder, hold.holder, hold.ip.description()));
        }
        if (last == nullptr || last->ip != hold.ip || hold.until > last->until) {
            last = &hold;
        }
    }
    return faults;
}

bool isWellFormed(std::string_view line) {
    if (hasControlCharacter(line)) {
        return false;
    }
    if (line.starts_with('{')) {
        return isObjectOfTexts(line);
    }
    return line.starts_with("✓ ") || line.starts_with("⚠ ") || isEvent(line);
}

std::vector<Trend> trends(std::span<const Sample> samples) {
    constexpr std::size_t quarters = 4;
    constexpr double growth = 1.05; // of what an allocator may take up and keep, beside the half MiB
    constexpr double halfMiB = 0.5;
    const auto life = longestLife(samples);
    const std::size_t count = life.size() / quarters;
    if (count == 0) {
        return {};
    }
    const auto early = life.first(count);
    const auto late = life.last(count);
    const double memory = median(early, &Sample::residentMiB);
    const double descriptors = least(early, &Sample::descriptors);
    const double threads = least(early, &Sample::threads);
    return {{.name = "resident memory, MiB, median",
             .early = memory,
             .late = median(late, &Sample::residentMiB),
             .bound = memory * growth + halfMiB},
            {.name = "descriptors, least",
             .early = descriptors,
             .late = least(late, &Sample::descriptors),
             .bound = descriptors},
            {.name = "threads, least", .early = threads, .late = least(late, &Sample::threads), .bound = threads}};
}

std::string plot(std::span<const Sample> samples) {
    constexpr double gap = 30;
    Drawing drawing(Panel::right + gap, 3 * (Panel::height + gap) + gap);
    if (samples.empty()) {
        return drawing.finished();
    }
    constexpr std::array<std::pair<std::string_view, double Sample::*>, 3> panels{
        {{"resident memory of the server, MiB", &Sample::residentMiB},
         {"descriptors", &Sample::descriptors},
         {"threads", &Sample::threads}}};
    for (std::size_t number = 0; number < panels.size(); ++number) {
        const auto& [title, figure] = panels.at(number);
        Panel(drawing, samples, static_cast<double>(number) * (Panel::height + gap)).draw(title, figure, number);
    }
    return drawing.finished();
}

} // namespace DHCPLoad
