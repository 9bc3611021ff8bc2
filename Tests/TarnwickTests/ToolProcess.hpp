#pragma once

#include "Support/ChildProcess.hpp"

#include <filesystem>
#include <optional>
#include <ostream>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace Tarnwick {

using DHCPCore::TestSupport::patience;

/// The built tool, run as a user would run it.
class ToolProcess : public DHCPCore::TestSupport::ChildProcess {
  public:
    struct Setting {
        std::vector<std::string> arguments{};
        std::vector<std::string> prefix{}; ///< What runs the tool, as in "ip netns exec lab".
        std::filesystem::path tool = TARNWICK_TOOL;
        bool outputClosed = false;                         ///< Start without a standard output at all.
        std::optional<std::filesystem::path> outputFile{}; ///< Where standard output goes instead of to the test.
        std::optional<uid_t> homeOwner{}; ///< Who may write in the home folder, when not the test's user.
    };

    explicit ToolProcess(std::vector<std::string> arguments)
        : ToolProcess(Setting{.arguments = std::move(arguments)}) {}
    explicit ToolProcess(const Setting& setting);
};

/// What a finished run of the tool left.
struct Finished {
    int status = -1;
    std::string output;
    std::string errors;

    bool operator==(const Finished&) const = default;
};

inline void PrintTo(const Finished& finished, std::ostream* out) {
    *out << "status " << finished.status << "\noutput: " << finished.output << "\nerrors: " << finished.errors;
}

/// Waits for the tool's end.
[[nodiscard]] Finished finish(ToolProcess& tool);

/// Runs the tool to its end.
[[nodiscard]] Finished runTool(std::vector<std::string> arguments);

/// The text without its time: what follows "13:04:05.007  ". Fails the test when there is no such time.
[[nodiscard]] std::string withoutTime(const std::string& line);

} // namespace Tarnwick
