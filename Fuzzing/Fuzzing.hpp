#pragma once

#include "DHCPCore/Addresses.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>

/// What the fuzz targets share.
namespace DHCPCore::Fuzzing {

/// Ends the process, so that the fuzzer keeps the input, when a promise is broken.
inline void require(bool holds, std::string_view promise) {
    if (!holds) {
        static_cast<void>(std::fprintf(stderr, "broken: %.*s\n", static_cast<int>(promise.size()), promise.data()));
        std::abort();
    }
}

/// An input, taken piece by piece from its front; what is missing is zero or empty.
class Input {
  public:
    Input(const std::uint8_t* data, std::size_t size) : rest_(data, size) {}

    [[nodiscard]] bool isEmpty() const { return rest_.empty(); }

    std::uint8_t byte() {
        const auto piece = bytes(1);
        return piece.empty() ? std::uint8_t{0} : piece[0];
    }
    /// Most significant byte first.
    std::uint32_t number(std::size_t size) {
        std::uint32_t value = 0;
        for (std::size_t index = 0; index < size; ++index) {
            value = value << 8U | byte();
        }
        return value;
    }
    std::span<const std::uint8_t> bytes(std::size_t count) {
        const auto piece = rest_.first(std::min(count, rest_.size()));
        rest_ = rest_.subspan(piece.size());
        return piece;
    }
    std::string text() {
        const auto piece = bytes(rest_.size());
        return {piece.begin(), piece.end()};
    }

  private:
    std::span<const std::uint8_t> rest_;
};

/// Whether a terminal would only show the text: no control character of ASCII.
inline bool isOneCleanLine(std::string_view text) {
    return std::ranges::none_of(text, [](char character) {
        const auto byte = static_cast<std::uint8_t>(character);
        return byte < 0x20 || byte == 0x7F;
    });
}

} // namespace DHCPCore::Fuzzing

/// What the fuzzer calls. @return 0.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size); // NOLINT(readability-identifier-naming): libFuzzer
