#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <vector>

namespace DHCPCore::TestSupport {

/// The descriptors that this process has open, in numeric order.
[[nodiscard]] inline std::vector<int> openDescriptors() {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    constexpr rlim_t highest = 4096; // tests open few, and the lowest free number is always given first
    std::vector<int> open;
    for (int fd = 0; fd < static_cast<int>(limit.rlim_cur < highest ? limit.rlim_cur : highest); ++fd) {
        if (::fcntl(fd, F_GETFD) != -1) {
            open.push_back(fd);
        }
    }
    return open;
}

} // namespace DHCPCore::TestSupport
