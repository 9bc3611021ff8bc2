#include "DHCPCore/ControlMessages.hpp"

#include "DHCPCore/LittleEndian.hpp"

#include <algorithm>
#include <cstddef>

namespace DHCPCore::ControlMessages {

namespace {

// A message's header: its length with the header, its level and its type, 32 bits each.
constexpr std::size_t headerSize = 12;
constexpr std::size_t levelOffset = 4;
constexpr std::size_t typeOffset = 8;
constexpr std::uint64_t alignment = 4;

constexpr std::uint32_t internetProtocolLevel = 0; // IPPROTO_IP
constexpr std::uint32_t arrivalInterfaceType = 20; // IP_RECVIF

// The data is a link-layer socket address; it may be longer than what is read of it.
constexpr std::size_t shortestData = 4;
constexpr std::size_t indexOffset = 2;

} // namespace

std::optional<std::uint32_t> arrivalInterface(std::span<const std::uint8_t> control) {
    while (control.size() >= headerSize) {
        const auto length = littleEndianAt<std::uint32_t>(control, 0);
        if (length < headerSize) {
            return std::nullopt;
        }
        if (littleEndianAt<std::uint32_t>(control, levelOffset) == internetProtocolLevel &&
            littleEndianAt<std::uint32_t>(control, typeOffset) == arrivalInterfaceType &&
            control.size() >= headerSize + shortestData) {
            return littleEndianAt<std::uint16_t>(control, headerSize + indexOffset);
        }
        const std::uint64_t padded = (length + alignment - 1) / alignment * alignment;
        control = control.subspan(static_cast<std::size_t>(std::min<std::uint64_t>(padded, control.size())));
    }
    return std::nullopt;
}

} // namespace DHCPCore::ControlMessages
