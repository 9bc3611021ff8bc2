#pragma once

#include "DHCPCore/FileDescriptor.hpp"

#include <string>
#include <vector>

/// Runs other programs. Blocks.
namespace DHCPCore::ProcessRunner {

/// The status of a program that could not be launched.
constexpr int notLaunched = -1;
/// The status of a program that ran, and whose end is not known: somebody else in this process took it.
constexpr int unknownEnd = -2;

struct Output {
    int status = notLaunched; ///< The exit status, 128 and its number after a signal, or one of the two above.
    std::string text;         ///< Standard output and standard error together; why it could not be launched.

    bool operator==(const Output&) const = default;
};

/// Runs the program at that path, without a shell and with nothing to read, and waits for its end. Bytes that are no
/// UTF-8 come out replaced.
[[nodiscard]] Output run(const std::string& path, const std::vector<std::string>& arguments);

/// The two ends of a pipe.
struct Pipe {
    FileDescriptor reading;
    FileDescriptor writing;
};

/// Opens a pipe that is close-on-exec; its ends are not open on failure, with `errno` saying why. (Linux/, Darwin/)
[[nodiscard]] Pipe openPipe();

/// What `posix_spawn` is told on this system beyond what it is told on all. (Linux/, Darwin/)
[[nodiscard]] short systemLaunchFlags();

/// The variables that a child inherits. (Linux/, Darwin/)
[[nodiscard]] char** environment();

} // namespace DHCPCore::ProcessRunner
