#include "DHCPCore/Linux/Processes.hpp"

#include "DHCPCore/Linux/SystemFiles.hpp"
#include "DHCPCore/TextPieces.hpp"

#include <algorithm>
#include <array>
#include <system_error>

namespace DHCPCore::Processes {

std::vector<int> ids() {
    std::vector<int> ids;
    std::error_code error;
    for (std::filesystem::directory_iterator entry("/proc", error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string name = entry->path().filename();
        const auto id = isDecimalDigit(name.front()) ? parseDecimal<int>(name) : std::nullopt;
        if (id) {
            ids.push_back(*id);
        }
    }
    std::ranges::sort(ids);
    return ids;
}

std::filesystem::path folder(int id) { return std::filesystem::path("/proc") / std::to_string(id); }

std::string name(int id) { return SystemFiles::readLine(folder(id) / "comm").value_or(""); }

bool isVMwareService(std::string_view name, std::string_view commandLine) {
    constexpr std::size_t longestName = 15; // what the kernel keeps of it
    constexpr std::array<std::string_view, 2> services{"vmware-usbarbitrator", "vmnet-bridge"};
    const std::string_view program = commandLine.substr(0, commandLine.find('\0'));
    const std::string_view fileName = program.substr(program.rfind('/') + 1); // npos + 1 is 0
    return std::ranges::any_of(services, [&](std::string_view service) {
        return name == service.substr(0, longestName) || fileName == service;
    });
}

} // namespace DHCPCore::Processes
