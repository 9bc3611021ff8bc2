#include "DHCPCore/Linux/PortHolder.hpp"

#include "DHCPCore/Linux/Processes.hpp"
#include "DHCPCore/Linux/SystemFiles.hpp"
#include "DHCPCore/TextPieces.hpp"
#include "DHCPCore/UTF8.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <system_error>

namespace DHCPCore::PortHolder {

namespace {

constexpr std::size_t localAddressColumn = 1; // as in "00000000:0043", both parts hexadecimal
constexpr std::size_t inodeColumn = 9;

std::optional<std::uint16_t> portOf(std::string_view address) {
    const std::string_view digits = address.substr(address.rfind(':') + 1);
    std::uint16_t port = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, port, 16);
    return error == std::errc{} && stop == end ? std::optional(port) : std::nullopt;
}

bool holdsOneOf(const std::vector<std::uint64_t>& inodes, int process) {
    std::error_code error;
    const auto descriptors = Processes::folder(process) / "fd";
    for (std::filesystem::directory_iterator entry(descriptors, error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code gone; // the descriptor was closed meanwhile
        const auto inode = inodeOfLink(std::filesystem::read_symlink(entry->path(), gone).string());
        if (inode && std::ranges::find(inodes, *inode) != inodes.end()) {
            return true;
        }
    }
    return false;
}

} // namespace

std::vector<std::uint64_t> inodesOfPort(std::string_view table, std::uint16_t port) {
    std::vector<std::uint64_t> inodes;
    for (const std::string_view line : splitDroppingEmpty(table, '\n')) {
        const auto columns = splitDroppingEmpty(line, ' ');
        if (columns.size() <= inodeColumn || portOf(columns[localAddressColumn]) != port) {
            continue;
        }
        if (const auto inode = parseDecimal<std::uint64_t>(columns[inodeColumn])) {
            inodes.push_back(*inode);
        }
    }
    return inodes;
}

std::optional<std::uint64_t> inodeOfLink(std::string_view link) {
    constexpr std::string_view opening = "socket:[";
    if (!link.starts_with(opening) || !link.ends_with(']')) {
        return std::nullopt;
    }
    return parseDecimal<std::uint64_t>(link.substr(opening.size(), link.size() - opening.size() - 1));
}

std::optional<std::string> find(std::uint16_t port) {
    std::vector<std::uint64_t> inodes;
    // Of the calling thread, whose network may be another than the process's first thread's.
    for (const char* const table : {"/proc/thread-self/net/udp", "/proc/thread-self/net/udp6"}) {
        const auto more = inodesOfPort(SystemFiles::read(table).value_or(""), port);
        inodes.insert(inodes.end(), more.begin(), more.end());
    }
    if (inodes.empty()) {
        return std::nullopt;
    }
    for (const int process : Processes::ids()) {
        if (holdsOneOf(inodes, process)) {
            return fmt::format("{}:{}", repairedUTF8(Processes::name(process)), process);
        }
    }
    return std::nullopt;
}

} // namespace DHCPCore::PortHolder
