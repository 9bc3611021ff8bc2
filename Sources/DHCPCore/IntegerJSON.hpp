#pragma once

#include "DHCPCore/Error.hpp"

#include <nlohmann/json.hpp>

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace DHCPCore {

/// Reads an integer that fits its field; the library's own reading would cut it silently. For `.cpp` files only: it
/// brings the whole JSON library.
/// @throws DecodingError "Not a WHAT: VALUE" for a number out of the type's bounds, a fraction and any other value.
template <std::integral Integer>
[[nodiscard]] Integer integerFromJSON(const nlohmann::json& json, std::string_view what) {
    if (json.is_number_unsigned()) {
        const auto number = json.get<std::uint64_t>();
        if (std::in_range<Integer>(number)) {
            return static_cast<Integer>(number);
        }
    } else if (json.is_number_integer()) {
        const auto number = json.get<std::int64_t>();
        if (std::in_range<Integer>(number)) {
            return static_cast<Integer>(number);
        }
    }
    throw DecodingError("Not a " + std::string(what) + ": " +
                        json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
}

} // namespace DHCPCore
