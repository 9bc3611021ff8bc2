#pragma once

#include <string_view>

/// What this library is.
namespace DHCPCore::DHCPCoreInfo {

/// The version of library and tool.
inline constexpr std::string_view version = "0.2.1";

} // namespace DHCPCore::DHCPCoreInfo
