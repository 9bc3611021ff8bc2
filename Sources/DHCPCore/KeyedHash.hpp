#pragma once

#include <cstddef>
#include <cstdint>

namespace DHCPCore {

/// A hash that is another in every process: who may choose the values, as any device may its hardware address, could
/// otherwise have them all meet in one place of a table.
[[nodiscard]] std::size_t keyedHash(std::uint64_t value) noexcept;

} // namespace DHCPCore
