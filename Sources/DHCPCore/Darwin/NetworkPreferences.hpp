#pragma once

#include "DHCPCore/NetworkServices.hpp"

#include <vector>

namespace DHCPCore::NetworkPreferences {

/// All services of the host, in the system's order, read anew from its network preferences; empty on any failure.
[[nodiscard]] std::vector<NetworkService> services();

} // namespace DHCPCore::NetworkPreferences
