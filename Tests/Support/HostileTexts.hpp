#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/UTF8.hpp"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace DHCPCore::TestSupport {

/// Bytes that a device may call itself, and how they are shown.
struct HostileText {
    Bytes bytes;
    std::string shown;
};

inline HostileText hostileText(std::string_view bytes, std::string shown) {
    return {.bytes = {bytes.begin(), bytes.end()}, .shown = std::move(shown)};
}

/// Each byte alone between two letters, and words that would do something to a careless reader or terminal.
inline std::vector<HostileText> hostileTexts() {
    using namespace std::string_view_literals;
    constexpr std::string_view digits = "0123456789abcdef";
    std::vector<HostileText> texts;
    for (unsigned value = 0; value <= UINT8_MAX; ++value) {
        const char byte = static_cast<char>(value);
        const bool isPlain = value >= ' ' && value <= '~';
        const std::string escape{'\\', 'x', digits[value / 16], digits[value % 16]};
        texts.push_back({.bytes = {'a', static_cast<std::uint8_t>(value), 'z'},
                         .shown = "a" + (isPlain ? std::string{byte} : escape) + "z"});
    }
    texts.push_back(hostileText("%s%n%x{}{0}", "%s%n%x{}{0}"));
    texts.push_back(hostileText("x\n12:00:00.000  STOP         server stopped",
                                R"(x\x0a12:00:00.000  STOP         server stopped)"));
    texts.push_back(hostileText("\r\x1B[2J\x1B]0;title\x07", R"(\x0d\x1b[2J\x1b]0;title\x07)"));
    texts.push_back(hostileText("\"'`\\$(reboot)", R"("'`\$(reboot))"));
    texts.push_back(hostileText(R"(","event":"stopped)", R"(","event":"stopped)"));
    texts.push_back(hostileText("\xC3", R"(\xc3)"));                 // half of two bytes
    texts.push_back(hostileText("\xF0\x9F\x92", R"(\xf0\x9f\x92)")); // three of four
    texts.push_back(hostileText("\xC2\x9B"
                                "31m",
                                R"(\xc2\x9b31m)"));                                  // a terminal's other escape
    texts.push_back(hostileText("\xC0\x80\xED\xA0\x80", R"(\xc0\x80\xed\xa0\x80)")); // no UTF-8 at all
    return texts;
}

/// Whether a terminal takes the text for one line of characters and nothing else: UTF-8 without control characters.
inline bool isOneLine(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = characterLength(text);
        const auto first = static_cast<std::uint8_t>(text.front());
        const bool isControl = first < 0x20 || first == 0x7F ||
                               (first == 0xC2 && length == 2 && static_cast<std::uint8_t>(text[1]) < 0xA0);
        if (length == 0 || isControl) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

} // namespace DHCPCore::TestSupport
