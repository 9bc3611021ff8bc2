#include "tarnwick/Output.hpp"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
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

int writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::write(descriptor, text.data(), text.size());
        if (count >= 0) {
            text.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno == EAGAIN) { // somebody who shares the terminal or pipe made it non-blocking
            pollfd waiting{.fd = descriptor, .events = POLLOUT, .revents = 0};
            ::poll(&waiting, 1, -1);
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

int printLine(std::string_view text) { return writeAll(STDOUT_FILENO, std::string(text) + "\n"); }

void printError(std::string_view text) {
    std::ignore = writeAll(STDERR_FILENO, "tarnwick: " + std::string(text) + "\n"); // nowhere left to report to
}

} // namespace Tarnwick
