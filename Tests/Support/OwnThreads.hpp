#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>
#include <system_error>

namespace DHCPCore::TestSupport {

/// How many threads this process has; 0 where the system does not show them as files.
[[nodiscard]] inline std::ptrdiff_t ownThreads() {
    std::error_code error;
    return std::distance(std::filesystem::directory_iterator("/proc/self/task", error), {});
}

} // namespace DHCPCore::TestSupport
