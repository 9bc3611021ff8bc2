#pragma once

#include <chrono>

namespace DHCPCore::TestSupport {

/// How long a test waits for what must come; reached only by a test that fails.
inline constexpr std::chrono::seconds patience{20};

} // namespace DHCPCore::TestSupport
