#pragma once

#include "DHCPCore/Addresses.hpp"
#include "SoakDevices.hpp"

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace DHCPLoad {

/// What the server's process had at one instant of a long run.
struct Sample {
    double seconds = 0; ///< Since the run began.
    int life = 0;       ///< How often the server had been started by then.
    double residentMiB = 0;
    double descriptors = 0;
    double threads = 0;
};

/// One figure of the samples, early and late in the longest life of the server.
struct Trend {
    std::string_view name;
    double early = 0;
    double late = 0;
    double bound = 0; ///< The highest late value that counts as flat.

    [[nodiscard]] bool isFlat() const { return late <= bound; }
};

/// The samples in a file of lines "seconds,life,residentKiB,descriptors,threads". @throws std::runtime_error
[[nodiscard]] std::vector<Sample> readSamples(const std::string& path);

/// The holds in a file of lines "holder,address,from,until", in seconds since 1970. @throws std::runtime_error
[[nodiscard]] std::vector<Hold> readHolds(const std::string& path);
[[nodiscard]] std::string lineFor(const Hold& hold);

/// A sentence for each two holders that had one address at once.
[[nodiscard]] std::vector<std::string> doubleHolds(std::vector<Hold> holds);

/// Whether a line of the server's output is what a reader of it may expect: one JSON object of texts, a check before
/// the start, or time, label and text; in UTF-8, without control characters.
[[nodiscard]] bool isWellFormed(std::string_view line);

/// Memory (the median), descriptors and threads (the least: probes come and go, what leaks stays) in the first and the
/// last quarter of the server's longest life, without the first tenth of it, in which it warms up. Empty when there are
/// too few samples to tell.
[[nodiscard]] std::vector<Trend> trends(std::span<const Sample> samples);

/// Memory, descriptors and threads against time, as an SVG file.
[[nodiscard]] std::string plot(std::span<const Sample> samples);

} // namespace DHCPLoad
