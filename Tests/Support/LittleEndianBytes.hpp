#pragma once

#include "DHCPCore/Addresses.hpp"

#include <cstddef>
#include <cstdint>

/// Short ways to the records of kernels.
namespace DHCPCore::TestSupport {

/// A number in so many bytes, least significant first.
[[nodiscard]] inline Bytes littleEndian(std::uint64_t value, std::size_t size) {
    Bytes bytes;
    for (std::size_t index = 0; index < size; ++index) {
        bytes.push_back(static_cast<std::uint8_t>(value >> 8U * index));
    }
    return bytes;
}

[[nodiscard]] inline Bytes joined(Bytes first, const Bytes& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

/// With zeros behind it up to a multiple of 4.
[[nodiscard]] inline Bytes padded(Bytes bytes) {
    bytes.resize((bytes.size() + 3) / 4 * 4);
    return bytes;
}

} // namespace DHCPCore::TestSupport
