#include "DHCPCore/Preflight.hpp"

#include "DHCPCore/Linux/PortHolder.hpp"
#include "DHCPCore/Linux/Processes.hpp"
#include "DHCPCore/Linux/SystemFiles.hpp"
#include "DHCPCore/Transport.hpp"

#include <algorithm>

namespace DHCPCore::Preflight {

std::optional<std::string> port67Holder() { return PortHolder::find(UDPTransport::serverPort); }

bool vmwareRunning() {
    return std::ranges::any_of(Processes::ids(), [](int id) {
        const auto commandLine = SystemFiles::read(Processes::folder(id) / "cmdline");
        return Processes::isVMwareService(Processes::name(id), commandLine.value_or(""));
    });
}

} // namespace DHCPCore::Preflight
