#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

/// Small text files in which a Linux host says what it is like.
namespace DHCPCore::SystemFiles {

/// The first MiB of a file; nothing when it can't be read.
[[nodiscard]] std::optional<std::string> read(const std::filesystem::path& file);

/// The first line of a file, without what ends it.
[[nodiscard]] std::optional<std::string> readLine(const std::filesystem::path& file);

/// A text without the blanks around it.
[[nodiscard]] std::string_view trimmed(std::string_view text);

} // namespace DHCPCore::SystemFiles
