#include "tarnwick/Output.hpp"

#include "DHCPCore/FileDescriptor.hpp"

#include <cerrno>
#include <fcntl.h>
#include <string>
#include <tuple>
#include <unistd.h>

namespace Tarnwick {

void openMissingStandardDescriptors() {
    // A new descriptor gets the lowest free number, so that going upwards fills each gap with itself.
    for (int number = STDIN_FILENO; number <= STDERR_FILENO; ++number) {
        if (::fcntl(number, F_GETFD) == -1 && errno == EBADF) {
            std::ignore = ::open("/dev/null", O_RDWR);
        }
    }
}

int printLine(std::string_view text) { return DHCPCore::writeAll(STDOUT_FILENO, std::string(text) + "\n"); }

void printError(std::string_view text) {
    std::ignore =
        DHCPCore::writeAll(STDERR_FILENO, "tarnwick: " + std::string(text) + "\n"); // nowhere left to report to
}

} // namespace Tarnwick
