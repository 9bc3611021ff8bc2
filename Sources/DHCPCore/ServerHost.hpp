#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/Interfaces.hpp"
#include "DHCPCore/Presence.hpp"
#include "DHCPCore/Queue.hpp"
#include "DHCPCore/Transport.hpp"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace DHCPCore {

/// What the server asks of its host, one narrow function each. `system()` answers with the host itself.
struct ServerHost {
    std::function<std::unique_ptr<UDPTransport>(const TransportMode& mode, IPv4Address serverIP)> makeTransport;
    std::function<std::uint32_t(const std::string& name)> indexOfInterface;
    std::function<std::optional<std::string>(std::uint32_t index)> nameOfInterface;
    std::function<Interfaces::MediaStatus(const std::string& name)> mediaStatus;
    std::function<std::vector<InterfaceAddress>()> interfaceAddresses;
    std::function<std::optional<std::string>(const MACAddress& mac)> bsdNameForMAC;
    std::function<void(const std::string& name, IPv4Address nearby)> triggerAlert;
    /// Called on the presence queue.
    std::function<ProbeResult(const std::string& name, IPv4Address ip)> probe;
    /// Called on the presence queue.
    std::function<ARPTable::Map()> readARPTable;
    /// First after `first`, then at every further interval, until the subscription is destroyed.
    std::function<std::unique_ptr<Subscription>(SerialQueue&, std::chrono::seconds first, std::chrono::seconds interval,
                                                SerialQueue::Work)>
        every;
    /// Once, so much later.
    std::function<void(SerialQueue&, SerialQueue::Duration delay, SerialQueue::Work)> after;

    [[nodiscard]] static ServerHost system();
};

} // namespace DHCPCore
