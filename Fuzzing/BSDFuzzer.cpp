#include "DHCPCore/ControlMessages.hpp"
#include "DHCPCore/Interfaces.hpp"
#include "DHCPCore/Presence.hpp"
#include "Fuzzing/Fuzzing.hpp"

#include <array>
#include <span>

using namespace DHCPCore; // NOLINT(google-build-using-namespace): a program of small functions

namespace {

using Fuzzing::require;

void checkControlMessages(std::span<const std::uint8_t> bytes) {
    constexpr std::size_t shortest = 16; // a header, and an address up to its index
    constexpr std::uint32_t largest = 0xFFFF;
    if (const auto index = ControlMessages::arrivalInterface(bytes)) {
        require(bytes.size() >= shortest, "an index was read");
        require(*index <= largest, "an index has two bytes");
    }
}

void checkARPTable(std::span<const std::uint8_t> bytes) {
    constexpr std::size_t shortest = 92; // an entry's header
    const auto table = ARPTable::parse(bytes);
    require(table.size() * shortest <= bytes.size(), "no entry comes from nowhere");
}

void checkMedia(std::span<const std::uint8_t> bytes) {
    Fuzzing::Input input{bytes.data(), bytes.size()};
    const auto status = static_cast<std::int32_t>(input.number(4));
    const auto media = static_cast<std::int32_t>(input.number(4));
    const auto described = Interfaces::describeMedia(media);
    require(!described || (!described->empty() && Fuzzing::isOneCleanLine(*described)), "a medium can be shown");
    const auto found = Interfaces::mediaStatusOf(status, media);
    require(!found.description || found.description == described, "a medium has one description");
}

void checkMask(std::span<const std::uint8_t> bytes) {
    constexpr std::size_t head = 4; // what stands before the mask itself
    const IPv4Address mask = Interfaces::maskOfSocketAddress(bytes);
    require(bytes.size() > head || mask == IPv4Address::zero, "what is cut off is zero");
}

constexpr std::array checks{checkControlMessages, checkARPTable, checkMedia, checkMask};

} // namespace

/// A letter that says who reads it, "a" for the first of the checks; then the bytes of a BSD kernel.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Fuzzing::Input input{data, size};
    const std::size_t reader = input.byte() % 32U;
    if (reader >= 1 && reader <= checks.size()) {
        checks.at(reader - 1)(input.bytes(size));
    }
    return 0;
}
