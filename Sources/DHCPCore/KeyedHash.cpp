#include "DHCPCore/KeyedHash.hpp"

#include <chrono>
#include <exception>
#include <random>

namespace DHCPCore {

namespace {

struct Key {
    std::uint64_t mask;
    std::uint64_t factor; ///< Odd, so that no two values become one.
};

std::uint64_t randomNumber(std::random_device& source) {
    return std::uint64_t{source()} << 32U | std::uint64_t{source()};
}

Key makeKey() {
    try {
        std::random_device source;
        return {.mask = randomNumber(source), .factor = randomNumber(source) | 1U};
    } catch (const std::exception&) { // a system without a source of random numbers
        std::mt19937_64 source(static_cast<std::uint64_t>(std::chrono::system_clock::now().time_since_epoch().count()));
        return {.mask = source(), .factor = source() | 1U};
    }
}

} // namespace

std::size_t keyedHash(std::uint64_t value) noexcept {
    static const Key key = makeKey();
    const std::uint64_t product = (value ^ key.mask) * key.factor;
    return static_cast<std::size_t>(product ^ product >> 32U); // its low bits depend on the low bits of the value alone
}

} // namespace DHCPCore
