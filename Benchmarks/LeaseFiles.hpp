#pragma once

#include "DHCPCore/Addresses.hpp"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string_view>

namespace DHCPLoad {

/// Whose lease file.
enum class LeaseFormat { tarnwick, kea, dnsmasq };

[[nodiscard]] std::optional<LeaseFormat> leaseFormat(std::string_view name);

/// Writes a lease file in which the clients 0 to `count` - 1 have the addresses from `first` on, for the next day: what
/// a server starts with whose pool is full. @throws std::exception when it can't be written.
void writeLeases(LeaseFormat format, const std::filesystem::path& file, std::uint32_t count,
                 DHCPCore::IPv4Address first);

} // namespace DHCPLoad
