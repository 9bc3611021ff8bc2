#include "DHCPCore/ServerHost.hpp"

#include "DHCPCore/Config.hpp"
#include "DHCPCore/LocalNetwork.hpp"
#include "DHCPCore/Sockets.hpp"

#include <utility>

namespace DHCPCore {

ServerHost ServerHost::system() {
    return {
        .makeTransport = [](const TransportMode& mode,
                            IPv4Address serverIP) { return std::make_unique<UDPTransport>(mode, serverIP); },
        .indexOfInterface = Sockets::indexOfInterface,
        .nameOfInterface = Sockets::nameOfInterface,
        .mediaStatus = Interfaces::mediaStatus,
        .interfaceAddresses = Interfaces::interfaceAddresses,
        .bsdNameForMAC = Interfaces::bsdNameForMAC,
        .triggerAlert = LocalNetwork::triggerAlert,
        .probe =
            [](const std::string& name, IPv4Address ip) {
                return Prober{.interfaceName = name, .tcpPorts = {80, 443}}.probe(ip, Timing::probeTimeout);
            },
        .readARPTable = ARPTable::read,
        .every = [](SerialQueue& queue, std::chrono::seconds first, std::chrono::seconds interval,
                    SerialQueue::Work work) { return queue.every(first, interval, std::move(work)); },
        .after = [](SerialQueue& queue, SerialQueue::Duration delay,
                    SerialQueue::Work work) { queue.after(delay, std::move(work)); },
    };
}

} // namespace DHCPCore
