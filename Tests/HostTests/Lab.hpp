#pragma once

#include "DHCPCore/Addresses.hpp"
#include "HostTests/Network.hpp"

#include <string>
#include <vector>

namespace Tarnwick {

/// A host whose card en5 has the address 192.168.0.1/24 and a cable to a switch. Nothing else is there yet.
class Lab {
  public:
    static constexpr DHCPCore::IPv4Address serverIP{192, 168, 0, 1};
    static constexpr DHCPCore::MACAddress cardMAC{{0x02, 0, 0, 0, 0xFF, 5}};

    Lab();

    /// Where the server runs.
    [[nodiscard]] const Network& host() const { return host_; }

    /// Plugs one more card of the host into the switch: with link, without an address.
    void plugCard(const std::string& name, const DHCPCore::MACAddress& mac) const;
    /// Removes a card of the host, and its cable.
    void unplugCard(const std::string& name) const { host_.ip("link delete " + name); }

    /// Gives the card the server's address.
    void setAddress(const std::string& card) const { host_.ip("address add 192.168.0.1/24 dev " + card); }
    void removeAddress(const std::string& card) const { host_.ip("address delete 192.168.0.1/24 dev " + card); }

    /// Interrupts and mends the cable of the host's first card.
    void cutCable() const { switch_.ip("link set port-en5 down"); }
    void mendCable() const { switch_.ip("link set port-en5 up"); }

    /// Makes the card `name` of the network `at`, with a cable to the switch.
    void connect(const Network& at, const std::string& name, const std::string& port,
                 const DHCPCore::MACAddress& mac) const;

  private:
    Network host_{"host"};
    Network switch_{"switch"};
};

/// A device whose card eth0 has a cable to the lab's switch, and no address. Its MAC is 02:00:00:00:00 and its number.
class Device {
  public:
    Device(const Lab& lab, std::uint8_t number);

    [[nodiscard]] const Network& network() const { return network_; }
    [[nodiscard]] const DHCPCore::MACAddress& mac() const { return mac_; }

    /// Sets the address by hand, as in "192.168.0.100/24".
    void setAddress(const std::string& cidr) const { network_.ip("address add " + cidr + " dev eth0"); }
    /// Sends a datagram to the server's host, which learns where the device's address is.
    void speak() const;
    void removeAddresses() const { network_.ip("address flush dev eth0"); }

    /// Waits until the card has that address in the lab's subnet, and no other. Fails the test when it does not in
    /// time.
    void awaitAddress(DHCPCore::IPv4Address ip) const;
    /// The addresses that the card has now.
    [[nodiscard]] std::vector<DHCPCore::Subnet> addresses() const;

  private:
    Network network_;
    DHCPCore::MACAddress mac_;
};

} // namespace Tarnwick
