#include "DHCPCore/UserDirectories.hpp"

#include "DHCPCore/Error.hpp"

#include <cstdlib>
#include <pwd.h>
#include <unistd.h>
#include <vector>

namespace DHCPCore::UserDirectories {

std::filesystem::path home() {
    if (const auto path = absolutePathFrom("HOME")) {
        return *path;
    }
    std::vector<char> buffer(16384); // well above the systems' own limits for a user's record
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) {
        throw Error("The user has no home directory.");
    }
    return entry.pw_dir;
}

std::optional<std::filesystem::path> absolutePathFrom(const char* variable) {
    const char* const value = std::getenv(variable);
    if (value == nullptr || !std::filesystem::path(value).is_absolute()) {
        return std::nullopt;
    }
    return std::filesystem::path(value);
}

} // namespace DHCPCore::UserDirectories
