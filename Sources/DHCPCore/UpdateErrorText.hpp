#pragma once

#include <exception>
#include <optional>
#include <string>
#include <vector>

namespace DHCPCore {

/// An error as a platform describes it to the user, with the error beneath it that led to it, and so on to any depth.
class PlatformError {
  public:
    explicit PlatformError(std::string localizedDescription);
    PlatformError(std::string localizedDescription, PlatformError underlyingError);

    /// Takes over the text of the exception and of those nested in it (`std::throw_with_nested`). What is nested but no
    /// `std::exception` ends the chain.
    explicit PlatformError(const std::exception& error);

    [[nodiscard]] const std::string& localizedDescription() const { return descriptions_.back(); }
    [[nodiscard]] std::optional<PlatformError> underlyingError() const;

    /// The descriptions of the whole chain, from the deepest error up to this one.
    [[nodiscard]] const std::vector<std::string>& descriptions() const { return descriptions_; }

    bool operator==(const PlatformError&) const = default;

  private:
    std::vector<std::string> descriptions_; // flat, so that no depth of the chain is a depth of calls
};

namespace UpdateErrorText {

/// Why a look for a newer version failed: the error's own description and, in parentheses, the deepest one beneath it
/// that tells more.
[[nodiscard]] std::string describe(const PlatformError& error);

} // namespace UpdateErrorText
} // namespace DHCPCore
