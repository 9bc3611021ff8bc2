#include "DHCPCore/FileDescriptor.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <poll.h>
#include <sys/uio.h>
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

namespace {

/// After a write that failed. @return whether it may be tried again.
bool mayGoOn(int descriptor) {
    if (errno == EAGAIN) { // somebody who shares the terminal or pipe made it non-blocking
        pollfd waiting{.fd = descriptor, .events = POLLOUT, .revents = 0};
        ::poll(&waiting, 1, -1);
        return true;
    }
    return errno == EINTR;
}

} // namespace

int writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const iovec whole{.iov_base = const_cast<char*>(text.data()), .iov_len = text.size()};
        const ssize_t result = ::writev(descriptor, &whole, 1); // one way of writing, for whoever looks on
        if (result < 0 && !mayGoOn(descriptor)) {
            return errno;
        }
        text.remove_prefix(result < 0 ? 0 : static_cast<std::size_t>(result));
    }
    return 0;
}

int writeAll(int descriptor, std::span<const std::string_view> pieces) {
    constexpr std::size_t mostAtOnce = 512; // every system takes so many
    std::array<iovec, mostAtOnce> vectors{};
    std::size_t written = 0; // of the first piece
    while (!pieces.empty()) {
        const std::size_t count = std::min(pieces.size(), mostAtOnce);
        for (std::size_t place = 0; place < count; ++place) {
            const std::string_view piece = pieces[place].substr(place == 0 ? written : 0);
            vectors[place] = {.iov_base = const_cast<char*>(piece.data()), .iov_len = piece.size()};
        }
        const ssize_t result = ::writev(descriptor, vectors.data(), static_cast<int>(count));
        if (result < 0 && !mayGoOn(descriptor)) {
            return errno;
        }
        written += result < 0 ? 0 : static_cast<std::size_t>(result);
        while (!pieces.empty() && written >= pieces.front().size()) {
            written -= pieces.front().size();
            pieces = pieces.subspan(1);
        }
    }
    return 0;
}

} // namespace DHCPCore
