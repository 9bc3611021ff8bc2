#include "DHCPCore/TextPieces.hpp"

namespace DHCPCore {

std::string hexadecimal(std::span<const std::uint8_t> bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    text.reserve(3 * bytes.size());
    for (const std::uint8_t byte : bytes) {
        if (!text.empty()) {
            text += ':';
        }
        text += digits[byte >> 4U];
        text += digits[byte & 0xFU];
    }
    return text;
}

std::vector<std::string_view> splitKeepingEmpty(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    for (;;) {
        const auto position = text.find(separator);
        pieces.push_back(text.substr(0, position));
        if (position == std::string_view::npos) {
            return pieces;
        }
        text.remove_prefix(position + 1);
    }
}

std::vector<std::string_view> splitDroppingEmpty(std::string_view text, char separator) {
    auto pieces = splitKeepingEmpty(text, separator);
    std::erase_if(pieces, [](std::string_view piece) { return piece.empty(); });
    return pieces;
}

} // namespace DHCPCore
