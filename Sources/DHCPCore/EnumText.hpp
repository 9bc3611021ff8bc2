#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

namespace DHCPCore {

/// The names of an enumeration whose values travel in files, JSON or texts: a specialisation holds an array
/// `names` whose element i is the text of enumerator i.
template <class E>
struct EnumText;

/// An enumeration that has its names in `EnumText`.
template <class E>
concept NamedEnum = requires {
    EnumText<E>::names;
};

/// The text of a value, as written in files and JSON.
template <NamedEnum E>
[[nodiscard]] constexpr std::string_view rawValue(E value) {
    return EnumText<E>::names.at(static_cast<std::size_t>(value));
}

/// The value with that text, compared exactly; nothing for any other text.
template <NamedEnum E>
[[nodiscard]] constexpr std::optional<E> fromRawValue(std::string_view text) {
    for (std::size_t index = 0; index < EnumText<E>::names.size(); ++index) {
        if (EnumText<E>::names.at(index) == text) {
            return static_cast<E>(index);
        }
    }
    return std::nullopt;
}

/// Every value, in declaration order.
template <NamedEnum E>
[[nodiscard]] constexpr auto allCases() {
    std::array<E, EnumText<E>::names.size()> cases{};
    for (std::size_t index = 0; index < cases.size(); ++index) {
        cases.at(index) = static_cast<E>(index);
    }
    return cases;
}

} // namespace DHCPCore
