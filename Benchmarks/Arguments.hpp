#pragma once

#include "DHCPCore/Addresses.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace DHCPLoad {

/// What a benchmark program can't make sense of, as in "--window needs a number from 1 to 64".
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// The options of a benchmark program's command line, read by name; what stands after "--" is left as it is.
class Arguments {
  public:
    /// @throws UsageError for a word that is none of those names, or that lacks its value.
    Arguments(std::span<const std::string> words, const std::set<std::string_view>& flags,
              const std::set<std::string_view>& options);

    [[nodiscard]] bool has(std::string_view flag) const { return flags_.contains(std::string(flag)); }
    [[nodiscard]] std::optional<std::string> text(std::string_view option) const;
    /// @throws UsageError where the option is missing.
    [[nodiscard]] std::string requiredText(std::string_view option) const;
    /// @throws UsageError for what is no number between those, both included.
    [[nodiscard]] std::uint32_t number(std::string_view option, std::uint32_t otherwise, std::uint32_t least,
                                       std::uint32_t most) const;
    /// @throws UsageError for what is no address.
    [[nodiscard]] DHCPCore::IPv4Address address(std::string_view option, DHCPCore::IPv4Address otherwise) const;

    [[nodiscard]] const std::vector<std::string>& rest() const { return rest_; }

  private:
    std::set<std::string> flags_;
    std::map<std::string, std::string, std::less<>> values_;
    std::vector<std::string> rest_;
};

} // namespace DHCPLoad
