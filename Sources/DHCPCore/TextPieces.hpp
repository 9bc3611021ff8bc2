#pragma once

#include <charconv>
#include <concepts>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace DHCPCore {

/// Whether the character is one of the ASCII digits 0 to 9, whatever the locale.
[[nodiscard]] constexpr bool isDecimalDigit(char character) { return character >= '0' && character <= '9'; }

/// Each byte as two lower-case hexadecimal digits, joined by ":".
[[nodiscard]] std::string hexadecimal(std::span<const std::uint8_t> bytes);

/// The pieces of a text between separators, empty ones included: "a..b" has three, "" has one.
[[nodiscard]] std::vector<std::string_view> splitKeepingEmpty(std::string_view text, char separator);

/// The pieces of a text between separators, without the empty ones.
[[nodiscard]] std::vector<std::string_view> splitDroppingEmpty(std::string_view text, char separator);

/// Reads a whole text as a decimal integer: an optional single "+" or "-", then digits only.
/// @return nothing for any other text and for a number that the type can't hold; "-0" is 0 for every type.
template <std::integral Integer>
[[nodiscard]] std::optional<Integer> parseDecimal(std::string_view text) {
    const bool negative = text.starts_with('-');
    std::string_view digits = text;
    if (negative || text.starts_with('+')) {
        digits.remove_prefix(1);
    }
    if (digits.empty() || !isDecimalDigit(digits.front())) {
        return std::nullopt;
    }
    // Signed types are read with their sign, so that their lowest number is in reach; an unsigned one is 0 at most.
    const std::string_view number = negative && std::signed_integral<Integer> ? text : digits;
    Integer value = 0;
    const char* const end = number.data() + number.size();
    const auto [stop, error] = std::from_chars(number.data(), end, value);
    if (error != std::errc{} || stop != end || (negative && value > 0)) {
        return std::nullopt;
    }
    return value;
}

} // namespace DHCPCore
