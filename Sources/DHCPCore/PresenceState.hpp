#pragma once

#include "DHCPCore/EnumText.hpp"

#include <nlohmann/json_fwd.hpp>

#include <array>
#include <string_view>

namespace DHCPCore {

/// The last known presence of a leased address.
enum class PresenceState { unknown, online, offline, conflict };

template <>
struct EnumText<PresenceState> {
    static constexpr std::array<std::string_view, 4> names{"unknown", "online", "offline", "conflict"};
};

/// Travels as its raw value. @throws DecodingError for any other text.
void to_json(nlohmann::json& json, PresenceState state);
void from_json(const nlohmann::json& json, PresenceState& state);

} // namespace DHCPCore
