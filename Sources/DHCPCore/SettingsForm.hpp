#pragma once

#include "DHCPCore/Config.hpp"
#include "DHCPCore/EnumText.hpp"

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace DHCPCore {

/// A lease time that a form offers.
enum class LeasePreset { oneHour, eightHours, oneDay, sevenDays, custom };

template <>
struct EnumText<LeasePreset> {
    static constexpr std::array<std::string_view, 5> names{"oneHour", "eightHours", "oneDay", "sevenDays", "custom"};
};

/// What the user reads, as "24 h".
[[nodiscard]] std::string_view label(LeasePreset preset);

/// The lease time that it stands for; nothing for `custom`.
[[nodiscard]] std::optional<std::uint32_t> seconds(LeasePreset preset);

/// A configuration as the texts of a form, each as the user typed it. Blanks around a text don't matter.
struct SettingsForm {
    /// What errors are reported under.
    enum class Field { server, range, lease, gateway, dns };
    /// The sentences for the user; a field without errors has no entry.
    using Errors = std::map<Field, std::vector<std::string>>;

    std::string serverIP;
    std::string prefix; ///< The number alone, without "/".
    std::string rangeStart;
    std::string rangeEnd;
    LeasePreset leasePreset = LeasePreset::oneHour;
    std::string customLease; ///< Counts when the preset is `custom`; as "90m".
    std::string router;      ///< Empty: none.
    std::string dns;         ///< Separated by commas; empty: none.

    SettingsForm() = default;
    explicit SettingsForm(const ServerConfig& config);

    /// The configuration that the texts describe; nothing when there is any error.
    [[nodiscard]] std::optional<ServerConfig> config() const;

    /// What is wrong with the texts; where each can be read, what is wrong with the configuration.
    [[nodiscard]] Errors errors() const;

    [[nodiscard]] std::optional<std::uint32_t> leaseSeconds() const;

    /// The number of addresses in the pool; nothing when an end can't be read, or the range is reversed.
    [[nodiscard]] std::optional<std::int64_t> rangeCount() const;

    bool operator==(const SettingsForm&) const = default;

  private:
    struct Evaluation;

    [[nodiscard]] Evaluation evaluate() const;
};

} // namespace DHCPCore
