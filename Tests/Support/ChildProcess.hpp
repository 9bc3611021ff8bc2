#pragma once

#include "DHCPCore/FileDescriptor.hpp"
#include "Support/Patience.hpp"
#include "Support/TemporaryDirectory.hpp"

#include <filesystem>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace DHCPCore::TestSupport {

/// A program that runs beside the test, with a home folder of its own. Killed when it still runs at the end, and when
/// the test dies.
class ChildProcess {
  public:
    struct Setting {
        std::vector<std::string> words; ///< The program, looked up as a shell does, and its arguments.
        bool errorsInOutput = false;    ///< Standard error goes where standard output goes.
        bool outputClosed = false;      ///< Start without a standard output at all.
        std::optional<std::filesystem::path> outputFile{}; ///< Where standard output goes instead of to the test.
        std::optional<uid_t> homeOwner{}; ///< Who may write in the home folder, when not the test's user.
    };

    explicit ChildProcess(const Setting& setting);
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ChildProcess(ChildProcess&&) = delete;
    ChildProcess& operator=(ChildProcess&&) = delete;
    ~ChildProcess();

    /// The next line of standard output, without its line feed; nothing at its end, or when none came in time.
    [[nodiscard]] std::optional<std::string> line();

    /// Reads lines up to the first one that contains the text. @return all of them, at least one; fails the test when
    /// none came.
    std::vector<std::string> linesThrough(const std::string& text);

    /// Everything up to the end of standard output.
    [[nodiscard]] std::string rest();

    /// Everything on standard error; call it after `wait`.
    [[nodiscard]] std::string errors() const { return readText(home() / "stderr"); }

    void signal(int number) const;

    /// Reads no more of standard output, and closes the test's end of it.
    void closeOutput() { output_.close(); }

    /// The exit status, or 128 and the number of the signal that ended it; -1 when it did not end in time.
    int wait();

    /// The home folder that the program sees.
    [[nodiscard]] const std::filesystem::path& home() const { return home_.path(); }

    /// The names of what the program put there, beside the file that holds its standard error.
    [[nodiscard]] std::vector<std::string> homeNames() const { return home_.names(); }

    [[nodiscard]] pid_t pid() const { return pid_; }

  private:
    [[nodiscard]] bool readMore();

    TemporaryDirectory home_;
    pid_t pid_ = -1;
    FileDescriptor output_;
    std::string unread_;
    std::optional<int> status_;
};

} // namespace DHCPCore::TestSupport
