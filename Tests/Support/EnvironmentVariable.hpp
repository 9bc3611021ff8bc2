#pragma once

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

namespace DHCPCore::TestSupport {

/// A variable of the environment with another value, or none, for as long as this lives.
class EnvironmentVariable {
  public:
    EnvironmentVariable(std::string name, const std::optional<std::string>& value) : name_(std::move(name)) {
        if (const char* const former = std::getenv(name_.c_str())) { // NOLINT(concurrency-mt-unsafe): one thread tests
            former_ = former;
        }
        set(value);
    }
    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;
    EnvironmentVariable(EnvironmentVariable&&) = delete;
    EnvironmentVariable& operator=(EnvironmentVariable&&) = delete;
    ~EnvironmentVariable() { set(former_); }

  private:
    void set(const std::optional<std::string>& value) const {
        if (value) {
            ::setenv(name_.c_str(), value->c_str(), 1); // NOLINT(concurrency-mt-unsafe): likewise
        } else {
            ::unsetenv(name_.c_str()); // NOLINT(concurrency-mt-unsafe): likewise
        }
    }

    std::string name_;
    std::optional<std::string> former_;
};

} // namespace DHCPCore::TestSupport
