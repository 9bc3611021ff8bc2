#pragma once

#include "DHCPCore/Addresses.hpp"

#include <cstdint>
#include <netinet/in.h>

namespace DHCPCore {

/// An address and port as the system's calls take them. For `.cpp` files only: it brings system headers.
[[nodiscard]] inline sockaddr_in socketAddress(IPv4Address address, std::uint16_t port) {
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(port);
    result.sin_addr.s_addr = htonl(address.value);
    return result;
}

} // namespace DHCPCore
