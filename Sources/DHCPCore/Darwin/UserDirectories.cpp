#include "DHCPCore/UserDirectories.hpp"

namespace DHCPCore::UserDirectories {

std::filesystem::path applicationSupport() { return home() / "Library" / "Application Support"; }

std::filesystem::path logs() { return home() / "Library" / "Logs"; }

} // namespace DHCPCore::UserDirectories
