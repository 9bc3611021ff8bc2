#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>

namespace DHCPCore {

/// An unsigned integer, least significant byte first, as the kernels of all Macs keep it. The caller has checked that
/// its bytes are there.
template <std::unsigned_integral Integer>
[[nodiscard]] constexpr Integer littleEndianAt(std::span<const std::uint8_t> bytes, std::size_t offset) {
    Integer value = 0;
    for (std::size_t index = sizeof(Integer); index > 0; --index) {
        value = static_cast<Integer>(value << 8U | bytes[offset + index - 1]);
    }
    return value;
}

} // namespace DHCPCore
