#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace DHCPCore::Model {

/// Random numbers that are the same on every machine: the distributions of the standard library are not.
class Random {
  public:
    explicit Random(std::uint64_t seed) : engine_(seed) {}

    /// From 0 to `count` - 1.
    [[nodiscard]] std::uint64_t below(std::uint64_t count) { return engine_() % count; }
    [[nodiscard]] bool oneIn(std::uint64_t count) { return below(count) == 0; }
    [[nodiscard]] std::uint8_t byte() { return static_cast<std::uint8_t>(below(256)); }

    template <class T>
    [[nodiscard]] const T& oneOf(const std::vector<T>& values) {
        return values[static_cast<std::size_t>(below(values.size()))];
    }

  private:
    std::mt19937_64 engine_;
};

} // namespace DHCPCore::Model
