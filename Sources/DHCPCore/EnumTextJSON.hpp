#pragma once

#include "DHCPCore/EnumText.hpp"
#include "DHCPCore/Error.hpp"

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>

namespace DHCPCore {

/// Reads a named enumeration from its raw value. For `.cpp` files only: it brings the whole JSON library.
/// @throws DecodingError "Not a WHAT: TEXT" for any other text.
template <NamedEnum E>
[[nodiscard]] E enumFromJSON(const nlohmann::json& json, std::string_view what) {
    const auto text = json.get<std::string>();
    const auto value = fromRawValue<E>(text);
    if (!value) {
        throw DecodingError("Not a " + std::string(what) + ": " + text);
    }
    return *value;
}

} // namespace DHCPCore
