#include "DHCPCore/UserDirectories.hpp"

#include "DHCPCore/Error.hpp"

#include <cstdlib>
#include <optional>
#include <pwd.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace DHCPCore::UserDirectories {

namespace {

/// An environment variable that holds an absolute path; the XDG rules ask to ignore a relative one.
std::optional<std::filesystem::path> absolutePathFrom(const char* variable) {
    const char* const value = std::getenv(variable);
    if (value == nullptr || !std::filesystem::path(value).is_absolute()) {
        return std::nullopt;
    }
    return std::filesystem::path(value);
}

std::filesystem::path home() {
    if (const auto path = absolutePathFrom("HOME")) {
        return *path;
    }
    std::vector<char> buffer(16384); // what glibc's own limit for a passwd line is well below
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) {
        throw Error("The user has no home directory.");
    }
    return entry.pw_dir;
}

} // namespace

std::filesystem::path applicationSupport() {
    const auto path = absolutePathFrom("XDG_DATA_HOME");
    return path ? *path : home() / ".local" / "share";
}

std::filesystem::path logs() {
    const auto path = absolutePathFrom("XDG_STATE_HOME");
    return path ? *path : home() / ".local" / "state";
}

} // namespace DHCPCore::UserDirectories
