#include "HostTests/Lab.hpp"

#include "DHCPCore/FileDescriptor.hpp"
#include "DHCPCore/Interfaces.hpp"
#include "DHCPCore/SocketAddress.hpp"
#include "Support/ChildProcess.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <sys/socket.h>
#include <system_error>
#include <thread>

namespace Tarnwick {

Lab::Lab() {
    switch_.ip("link add bridge type bridge");
    switch_.ip("link set bridge up");
    plugCard("en5", cardMAC);
    setAddress("en5");
}

void Lab::plugCard(const std::string& name, const DHCPCore::MACAddress& mac) const {
    connect(host_, name, "port-" + name, mac);
}

void Lab::connect(const Network& at, const std::string& name, const std::string& port,
                  const DHCPCore::MACAddress& mac) const {
    at.ip(fmt::format("link add {} address {} type veth peer name {} netns {}", name, mac.description(), port,
                      switch_.name()));
    switch_.ip(fmt::format("link set {} master bridge up", port));
    at.ip(fmt::format("link set {} up", name));
    at.awaitLink(name);
}

Device::Device(const Lab& lab, std::uint8_t number)
    : network_(fmt::format("device{}", number)), mac_{{0x02, 0, 0, 0, 0, number}} {
    lab.connect(network_, "eth0", fmt::format("port-device{}", number), mac_);
}

void Device::speak() const {
    network_.within([] {
        constexpr std::uint16_t discardPort = 9;
        const DHCPCore::FileDescriptor socket{::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
        const sockaddr_in address = DHCPCore::socketAddress(Lab::serverIP, discardPort);
        if (::sendto(socket.number(), "", 1, 0, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 1) {
            throw std::system_error(errno, std::generic_category(), "speaking");
        }
    });
}

void Device::awaitAddress(DHCPCore::IPv4Address ip) const {
    const std::vector<DHCPCore::Subnet> expected{{.address = ip, .prefixLength = 24}};
    const auto deadline = std::chrono::steady_clock::now() + DHCPCore::TestSupport::patience;
    while (addresses() != expected && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds{1});
    }
    EXPECT_EQ(addresses(), expected);
}

std::vector<DHCPCore::Subnet> Device::addresses() const {
    std::vector<DHCPCore::Subnet> subnets;
    network_.within([&subnets] {
        for (const DHCPCore::InterfaceAddress& address : DHCPCore::Interfaces::interfaceAddresses()) {
            if (address.name == "eth0") {
                subnets.push_back(address.subnet);
            }
        }
    });
    return subnets;
}

} // namespace Tarnwick
