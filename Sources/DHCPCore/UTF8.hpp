#pragma once

#include <string>
#include <string_view>

namespace DHCPCore {

/// The bytes as UTF-8 (RFC 3629, section 4), with U+FFFD in place of each longest piece that only begins a character,
/// and of each byte that does not even do that.
[[nodiscard]] std::string repairedUTF8(std::string_view bytes);

} // namespace DHCPCore
