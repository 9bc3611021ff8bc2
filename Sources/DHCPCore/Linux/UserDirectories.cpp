#include "DHCPCore/UserDirectories.hpp"

namespace DHCPCore::UserDirectories {

// The XDG base directory rules ask to ignore a relative path.

std::filesystem::path applicationSupport() {
    const auto path = absolutePathFrom("XDG_DATA_HOME");
    return path ? *path : home() / ".local" / "share";
}

std::filesystem::path logs() {
    const auto path = absolutePathFrom("XDG_STATE_HOME");
    return path ? *path : home() / ".local" / "state";
}

} // namespace DHCPCore::UserDirectories
