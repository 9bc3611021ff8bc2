#pragma once

#include <fcntl.h>
#include <stdexcept>
#include <sys/resource.h>

namespace DHCPCore::TestSupport {

/// As long as it lives, the process can open only so many more descriptors.
class DescriptorLimit {
  public:
    explicit DescriptorLimit(int more) {
        if (::getrlimit(RLIMIT_NOFILE, &previous_) != 0) {
            throw std::runtime_error("getrlimit");
        }
        // The limit is on the number of a descriptor, so the free numbers below it are what is left.
        rlim_t lowest = 0;
        for (int left = more; ::fcntl(static_cast<int>(lowest), F_GETFD) != -1 || left-- > 0; ++lowest) {
        }
        const rlimit limit{.rlim_cur = lowest, .rlim_max = previous_.rlim_max};
        if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) {
            throw std::runtime_error("setrlimit");
        }
    }
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;
    DescriptorLimit(DescriptorLimit&&) = delete;
    DescriptorLimit& operator=(DescriptorLimit&&) = delete;
    ~DescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &previous_); }

  private:
    rlimit previous_{};
};

} // namespace DHCPCore::TestSupport
