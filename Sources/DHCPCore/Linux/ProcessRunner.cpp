#include "DHCPCore/ProcessRunner.hpp"

#include <array>
#include <fcntl.h>
#include <unistd.h>

namespace DHCPCore::ProcessRunner {

Pipe openPipe() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        return {};
    }
    return {.reading = FileDescriptor{ends[0]}, .writing = FileDescriptor{ends[1]}};
}

short systemLaunchFlags() { return 0; }

char** environment() { return environ; }

} // namespace DHCPCore::ProcessRunner
