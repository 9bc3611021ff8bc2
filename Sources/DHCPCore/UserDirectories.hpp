#pragma once

#include <filesystem>
#include <optional>

namespace DHCPCore::UserDirectories {

/// The user's home directory: `$HOME` when it is an absolute path, else the system's own record.
/// @throws Error when there is none.
[[nodiscard]] std::filesystem::path home();

/// An environment variable that holds an absolute path; nothing when it is missing or holds anything else.
[[nodiscard]] std::optional<std::filesystem::path> absolutePathFrom(const char* variable);

/// Where the user's programs keep data: `~/Library/Application Support` on macOS; elsewhere `$XDG_DATA_HOME` when it
/// is an absolute path, else `~/.local/share`. Nothing is created. (Linux/, Darwin/)
/// @throws Error when the user has no home directory.
[[nodiscard]] std::filesystem::path applicationSupport();

/// Where the user's programs keep logs: `~/Library/Logs` on macOS; elsewhere `$XDG_STATE_HOME` when it is an absolute
/// path, else `~/.local/state`. Nothing is created. (Linux/, Darwin/)
/// @throws Error when the user has no home directory.
[[nodiscard]] std::filesystem::path logs();

} // namespace DHCPCore::UserDirectories
