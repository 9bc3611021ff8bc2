#pragma once

#include <filesystem>

namespace DHCPCore::UserDirectories {

/// Where the user's programs keep data: `~/Library/Application Support` on macOS; elsewhere `$XDG_DATA_HOME` when it
/// is an absolute path, else `~/.local/share`. Nothing is created. (Linux/, Darwin/)
/// @throws Error when the user has no home directory.
[[nodiscard]] std::filesystem::path applicationSupport();

/// Where the user's programs keep logs: `~/Library/Logs` on macOS; elsewhere `$XDG_STATE_HOME` when it is an absolute
/// path, else `~/.local/state`. Nothing is created. (Linux/, Darwin/)
/// @throws Error when the user has no home directory.
[[nodiscard]] std::filesystem::path logs();

} // namespace DHCPCore::UserDirectories
