#include "DHCPCore/ProcessRunner.hpp"

#include <array>
#include <crt_externs.h>
#include <fcntl.h>
#include <spawn.h>
#include <tuple>
#include <unistd.h>

namespace DHCPCore::ProcessRunner {

Pipe openPipe() {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) {
        return {};
    }
    for (const int end : ends) {
        std::ignore = ::fcntl(end, F_SETFD, FD_CLOEXEC); // not refused to an open descriptor
    }
    return {.reading = FileDescriptor{ends[0]}, .writing = FileDescriptor{ends[1]}};
}

// A pipe is close-on-exec a moment after it was opened: a child that another thread launches meanwhile must not inherit
// it, or the pipe's reader would wait for that child's end.
short systemLaunchFlags() { return POSIX_SPAWN_CLOEXEC_DEFAULT; }

char** environment() { return *::_NSGetEnviron(); }

} // namespace DHCPCore::ProcessRunner
