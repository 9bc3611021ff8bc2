#pragma once

#include <cstddef>
#include <functional>

namespace DHCPCore {

/// Mixes a further value into a hash, so that the order of the values matters.
template <class T>
void hashCombine(std::size_t& seed, const T& value) {
    constexpr std::size_t goldenRatio = 0x9E3779B97F4A7C15U;
    seed ^= std::hash<T>{}(value) + goldenRatio + (seed << 6U) + (seed >> 2U);
}

} // namespace DHCPCore
