#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Who holds a UDP port of this host, from the files in which the kernel tells it (proc(5)).
namespace DHCPCore::PortHolder {

/// The inodes of the sockets bound to that port, whatever their address, in the order of /proc/net/udp or udp6. Lines
/// that are none of a socket are skipped. Pure.
[[nodiscard]] std::vector<std::uint64_t> inodesOfPort(std::string_view table, std::uint16_t port);

/// The socket that a descriptor's link in /proc names, as in "socket:[4711]". Pure.
[[nodiscard]] std::optional<std::uint64_t> inodeOfLink(std::string_view link);

/// The process, as "name:pid", that holds one of the sockets bound to that port. Nothing when there is none, or when
/// this process may not see into it.
[[nodiscard]] std::optional<std::string> find(std::uint16_t port);

} // namespace DHCPCore::PortHolder
