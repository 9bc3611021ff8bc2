#pragma once

#include "DHCPCore/Error.hpp"
#include "DHCPCore/FileDescriptor.hpp"

#include <filesystem>
#include <span>
#include <string_view>

namespace DHCPCore {

/// A file could not be replaced, as in "Could not replace leases.json: Is a directory".
class FileReplacementError : public Error {
  public:
    using Error::Error;
    bool operator==(const FileReplacementError& other) const { return description() == other.description(); }
};

/// Replaces a file as a whole, so that a reader finds the old or the new content: writes a hidden file beside it and
/// renames that. Missing directories are made with mode 0755, a new file gets 0644, both less the umask. A regular
/// file that is replaced keeps its permissions and, where the process may, its owner; a link is replaced, not followed.
/// @return what keeps the new content once it is replaced in its turn, as far as the system grants one. To clear away
/// what nobody keeps takes the system a good part of the time of a replacement: who is in a hurry lets go later.
/// @throws FileReplacementError when that fails; the old file is then untouched and nothing is left beside it.
FileDescriptor replaceFile(const std::filesystem::path& file, std::string_view content);
/// The same for content in pieces.
FileDescriptor replaceFile(const std::filesystem::path& file, std::span<const std::string_view> pieces);

/// Removes the hidden files that a process left beside this one when it was killed while it replaced it. A hidden file
/// that is being written, one of another user and whatever has another name stay; what can't be removed stays too.
void removeLeftovers(const std::filesystem::path& file);

} // namespace DHCPCore
