#include "DHCPCore/PresenceState.hpp"

#include "DHCPCore/EnumTextJSON.hpp"

namespace DHCPCore {

void to_json(nlohmann::json& json, PresenceState state) { json = rawValue(state); }

void from_json(const nlohmann::json& json, PresenceState& state) {
    state = enumFromJSON<PresenceState>(json, "presence state");
}

} // namespace DHCPCore
