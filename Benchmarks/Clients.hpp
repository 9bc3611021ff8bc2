#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/Packet.hpp"

#include <cstdint>
#include <optional>
#include <string>

/// The load generator, the echoes that it is held against, and the report of a comparison.
namespace DHCPLoad {

/// The devices that a server is loaded with: device `number`, from 0, has a hardware address, a client identifier and a
/// name of its own. The lease files of `LeaseFiles.hpp` know the same devices.
[[nodiscard]] DHCPCore::MACAddress macOfClient(std::uint32_t number);

/// Which device has that hardware address; nothing when it is no such device's.
[[nodiscard]] std::optional<std::uint32_t> clientOfMAC(const DHCPCore::MACAddress& mac);

/// All names have one length.
[[nodiscard]] std::string nameOfClient(std::uint32_t number);

/// The messages of the devices, as usual devices send them; the answer is wanted as a broadcast, because no device has
/// an address where the load comes from. Making one message reuses the last one's memory.
class Messages {
  public:
    Messages();

    [[nodiscard]] DHCPCore::Bytes discover(std::uint32_t client, std::uint32_t xid);
    /// SELECTING (RFC 2131, section 4.3.2).
    [[nodiscard]] DHCPCore::Bytes request(std::uint32_t client, std::uint32_t xid, DHCPCore::IPv4Address ip,
                                          DHCPCore::IPv4Address server);
    /// RENEWING (RFC 2131, section 4.3.2).
    [[nodiscard]] DHCPCore::Bytes renewal(std::uint32_t client, std::uint32_t xid, DHCPCore::IPv4Address ip);
    /// INIT-REBOOT (RFC 2131, section 4.3.2).
    [[nodiscard]] DHCPCore::Bytes reboot(std::uint32_t client, std::uint32_t xid, DHCPCore::IPv4Address ip);
    [[nodiscard]] DHCPCore::Bytes release(std::uint32_t client, std::uint32_t xid, DHCPCore::IPv4Address ip,
                                          DHCPCore::IPv4Address server);
    [[nodiscard]] DHCPCore::Bytes decline(std::uint32_t client, std::uint32_t xid, DHCPCore::IPv4Address ip,
                                          DHCPCore::IPv4Address server);

  private:
    [[nodiscard]] static DHCPCore::DHCPPacket message(DHCPCore::DHCPMessageType type);

    DHCPCore::DHCPPacket discover_;
    DHCPCore::DHCPPacket request_;
    DHCPCore::DHCPPacket renewal_;
    DHCPCore::DHCPPacket reboot_;
    DHCPCore::DHCPPacket release_;
    DHCPCore::DHCPPacket decline_;
};

} // namespace DHCPLoad
