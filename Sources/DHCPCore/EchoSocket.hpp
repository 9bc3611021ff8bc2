#pragma once

#include "DHCPCore/FileDescriptor.hpp"

#include <cstdint>
#include <optional>

namespace DHCPCore {

/// A socket for ICMP echo requests; it does not block.
struct EchoSocket {
    FileDescriptor socket;
    bool seesEveryReply = false; ///< Replies to other programs' requests arrive as well.
};

/// Opens an ICMP socket, tied to the card with that index unless it is 0.
/// @return nothing when the host lets this process have none. (Linux/, Darwin/)
[[nodiscard]] std::optional<EchoSocket> openEchoSocket(std::uint32_t interfaceIndex);

} // namespace DHCPCore
