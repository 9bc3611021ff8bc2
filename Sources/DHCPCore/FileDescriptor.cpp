#include "DHCPCore/FileDescriptor.hpp"

#include <cerrno>
#include <cstddef>
#include <poll.h>
#include <unistd.h>
#include <utility>

namespace DHCPCore {

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
    if (this != &other) {
        close();
        number_ = other.release();
    }
    return *this;
}

void FileDescriptor::close() {
    if (isOpen()) {
        const int saved = errno;
        ::close(release());
        errno = saved;
    }
}

int FileDescriptor::release() { return std::exchange(number_, -1); }

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

} // namespace DHCPCore
