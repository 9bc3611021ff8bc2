#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

/// The programs that run on this host (proc(5)).
namespace DHCPCore::Processes {

/// The ids of all processes that this one can see, in ascending order.
[[nodiscard]] std::vector<int> ids();

/// Where the kernel tells about a process.
[[nodiscard]] std::filesystem::path folder(int id);

/// A process's short name, at most 15 bytes; empty when it has ended.
[[nodiscard]] std::string name(int id);

/// Whether a process runs one of VMware's services. Only the program counts, not what else stands on its command line:
/// that may be a search for the service. Pure.
/// @param name the short name.
/// @param commandLine the words, each with a zero byte at its end.
[[nodiscard]] bool isVMwareService(std::string_view name, std::string_view commandLine);

} // namespace DHCPCore::Processes
