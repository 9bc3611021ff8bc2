#pragma once

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

namespace DHCPCore::TestSupport {

/// Sets an environment variable, or unsets it, until the end of the test.
class Environment {
  public:
    Environment(std::string name, const char* value) : name_(std::move(name)) {
        if (const char* const before = std::getenv(name_.c_str())) {
            before_ = before;
        }
        set(value);
    }
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;
    Environment(Environment&&) = delete;
    Environment& operator=(Environment&&) = delete;
    ~Environment() { set(before_ ? before_->c_str() : nullptr); }

  private:
    void set(const char* value) const {
        if (value == nullptr) {
            ::unsetenv(name_.c_str());
        } else {
            ::setenv(name_.c_str(), value, 1);
        }
    }

    std::string name_;
    std::optional<std::string> before_;
};

} // namespace DHCPCore::TestSupport
