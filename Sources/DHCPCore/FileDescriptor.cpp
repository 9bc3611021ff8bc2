#include "DHCPCore/FileDescriptor.hpp"

#include <cerrno>
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

} // namespace DHCPCore
