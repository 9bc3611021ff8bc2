#pragma once

#include "DHCPCore/Addresses.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>

namespace DHCPCore {

/// The bytes of an option, taken from whatever holds bytes. Most options have a few: they stand in the object itself,
/// and ask for no memory.
class OptionData {
  public:
    OptionData() = default;
    OptionData(std::span<const std::uint8_t> bytes) {
        if (bytes.size() <= few_.size()) {
            std::ranges::copy(bytes, few_.begin());
            fewCount_ = bytes.size();
        } else {
            many_.assign(bytes.begin(), bytes.end());
        }
    }
    OptionData(const Bytes& bytes) : OptionData(std::span(bytes)) {}
    OptionData(std::initializer_list<std::uint8_t> bytes) : OptionData(std::span(bytes.begin(), bytes.size())) {}

    [[nodiscard]] const std::uint8_t* data() const { return many_.empty() ? few_.data() : many_.data(); }
    [[nodiscard]] std::size_t size() const { return many_.empty() ? fewCount_ : many_.size(); }
    [[nodiscard]] const std::uint8_t* begin() const { return data(); }
    [[nodiscard]] const std::uint8_t* end() const { return data() + size(); }

    bool operator==(const OptionData& other) const { return std::ranges::equal(*this, other); }

  private:
    static constexpr std::size_t most = 16; ///< Four addresses.

    std::array<std::uint8_t, most> few_{};
    std::size_t fewCount_ = 0;
    Bytes many_; ///< Where they are more; else empty.
};

} // namespace DHCPCore
