#pragma once

#include <cstdint>
#include <optional>
#include <span>

/// What BSD systems tell about a datagram beside its bytes (recvmsg(2), ip(4)).
namespace DHCPCore::ControlMessages {

/// The index of the card on which a datagram arrived, from the IP_RECVIF message among its control bytes; nothing when
/// there is none. Any bytes are welcome. Pure.
[[nodiscard]] std::optional<std::uint32_t> arrivalInterface(std::span<const std::uint8_t> control);

} // namespace DHCPCore::ControlMessages
