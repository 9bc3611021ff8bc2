#pragma once

#include <string>
#include <string_view>

namespace NetworkSetup {

/// The text as it may be shown on a terminal: UTF-8 without control characters (C0, DEL and C1).
[[nodiscard]] std::string printable(std::string_view text);

} // namespace NetworkSetup
