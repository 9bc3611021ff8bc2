#pragma once

#include "DHCPCore/FileDescriptor.hpp"
#include "Support/TemporaryDirectory.hpp"

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace Tarnwick {

/// How long a test waits for something that should happen at once.
inline constexpr std::chrono::seconds patience{20};

/// The built tool, run as a user would run it, with a home folder of its own. Killed when it still runs at the end.
class ToolProcess {
  public:
    struct Setting {
        std::vector<std::string> arguments;
        bool outputClosed = false; ///< Start without a standard output at all.
        std::optional<std::filesystem::path> outputFile =
            std::nullopt; ///< Where standard output goes instead of to the test.
    };

    explicit ToolProcess(std::vector<std::string> arguments)
        : ToolProcess(Setting{.arguments = std::move(arguments)}) {}
    explicit ToolProcess(const Setting& setting);
    ToolProcess(const ToolProcess&) = delete;
    ToolProcess& operator=(const ToolProcess&) = delete;
    ToolProcess(ToolProcess&&) = delete;
    ToolProcess& operator=(ToolProcess&&) = delete;
    ~ToolProcess();

    /// The next line of standard output, without its line feed; nothing at its end, or when none came in time.
    [[nodiscard]] std::optional<std::string> line();

    /// Reads lines up to the first one that contains the text. @return all of them; fails the test when none came.
    std::vector<std::string> linesThrough(const std::string& text);

    /// Everything up to the end of standard output.
    [[nodiscard]] std::string rest();

    /// Everything on standard error; call it after `wait`.
    [[nodiscard]] std::string errors();

    void signal(int number) const;

    /// Reads no more of standard output, and closes the test's end of it.
    void closeOutput() { output_.close(); }

    /// The exit status, or 128 and the number of the signal that ended it; -1 when it did not end in time.
    int wait();

    /// The home folder that the tool sees.
    [[nodiscard]] const std::filesystem::path& home() const { return home_.path(); }

    /// The names of what the tool put there, beside the file that holds its standard error.
    [[nodiscard]] std::vector<std::string> homeNames() const { return home_.names(); }

    [[nodiscard]] pid_t pid() const { return pid_; }

  private:
    [[nodiscard]] bool readMore();

    DHCPCore::TestSupport::TemporaryDirectory home_;
    pid_t pid_ = -1;
    DHCPCore::FileDescriptor output_;
    std::string unread_;
    std::optional<int> status_;
};

/// What a finished run of the tool left.
struct Finished {
    int status = -1;
    std::string output;
    std::string errors;

    bool operator==(const Finished&) const = default;
};

/// Runs the tool to its end.
[[nodiscard]] Finished runTool(std::vector<std::string> arguments);

/// The text without its time: what follows "13:04:05.007  ". Fails the test when there is no such time.
[[nodiscard]] std::string withoutTime(const std::string& line);

} // namespace Tarnwick
