#include "DHCPCore/UTF8.hpp"

#include <cstddef>
#include <cstdint>

namespace DHCPCore {

namespace {

/// What may follow the first byte of a character.
struct Tail {
    std::size_t length = 0; ///< Of the whole character; 0 when no character begins so.
    std::uint8_t lowest = 0x80;
    std::uint8_t highest = 0xBF; ///< Both of the second byte alone: they keep out overlong forms and surrogates.
};

Tail tailOf(std::uint8_t first) {
    if (first < 0x80) {
        return {.length = 1};
    }
    if (first < 0xC2 || first > 0xF4) {
        return {};
    }
    if (first < 0xE0) {
        return {.length = 2};
    }
    if (first < 0xF0) {
        return {.length = 3,
                .lowest = first == 0xE0 ? std::uint8_t{0xA0} : std::uint8_t{0x80},
                .highest = first == 0xED ? std::uint8_t{0x9F} : std::uint8_t{0xBF}};
    }
    return {.length = 4,
            .lowest = first == 0xF0 ? std::uint8_t{0x90} : std::uint8_t{0x80},
            .highest = first == 0xF4 ? std::uint8_t{0x8F} : std::uint8_t{0xBF}};
}

/// How many bytes at the front of a text, which is not empty, belong to the character that its first byte begins.
std::size_t fittingBytes(std::string_view bytes, Tail tail) {
    std::size_t count = 1;
    while (count < tail.length && count < bytes.size()) {
        const auto byte = static_cast<std::uint8_t>(bytes[count]);
        if (byte < tail.lowest || byte > tail.highest) {
            break;
        }
        tail.lowest = 0x80;
        tail.highest = 0xBF;
        ++count;
    }
    return count;
}

} // namespace

std::string repairedUTF8(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size());
    while (!bytes.empty()) {
        const Tail tail = tailOf(static_cast<std::uint8_t>(bytes.front()));
        const std::size_t count = fittingBytes(bytes, tail);
        text += count == tail.length ? bytes.substr(0, count) : std::string_view{"\xEF\xBF\xBD"};
        bytes.remove_prefix(count);
    }
    return text;
}

} // namespace DHCPCore
