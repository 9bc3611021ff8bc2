#include "DHCPCore/Preflight.hpp"

#include "DHCPCore/ProcessRunner.hpp"
#include "DHCPCore/Transport.hpp"

namespace DHCPCore::Preflight {

std::optional<std::string> port67Holder() {
    return holderInNetstat(ProcessRunner::run("/usr/sbin/netstat", {"-anv", "-p", "udp"}).text,
                           UDPTransport::serverPort);
}

bool vmwareRunning() {
    return ProcessRunner::run("/usr/bin/pgrep", {"-f", "vmware-usbarbitrator|vmnet-bridge"}).status == 0;
}

} // namespace DHCPCore::Preflight
