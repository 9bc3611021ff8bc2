#include "Clients.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <span>
#include <string_view>

namespace DHCPLoad {

using namespace DHCPCore;

namespace {

constexpr std::array<std::uint8_t, 2> macStart{0x02, 0x5E}; // a locally administered address
constexpr std::uint16_t broadcastFlag = 0x8000;             // RFC 2131, section 2

void setText(DHCPPacket& packet, std::uint8_t code, std::string_view text) {
    packet.setOption(code, Bytes(text.begin(), text.end()));
}

Bytes bytesFor(DHCPPacket& packet, std::uint32_t client, std::uint32_t xid) {
    const MACAddress mac = macOfClient(client);
    packet.xid = xid;
    std::ranges::copy(mac.bytes, packet.chaddr.begin());
    std::array<std::uint8_t, 7> clientID{1}; // the hardware type, then the address
    std::ranges::copy(mac.bytes, clientID.begin() + 1);
    packet.setOption(OptionCode::clientID, clientID);
    setText(packet, OptionCode::hostname, nameOfClient(client));
    return packet.serialize(DHCPPacket::minimumReplyLength);
}

} // namespace

MACAddress macOfClient(std::uint32_t number) {
    const auto bytes = bigEndianBytes(number);
    return {{macStart[0], macStart[1], bytes[0], bytes[1], bytes[2], bytes[3]}};
}

std::optional<std::uint32_t> clientOfMAC(const MACAddress& mac) {
    if (!std::equal(macStart.begin(), macStart.end(), mac.bytes.begin())) {
        return std::nullopt;
    }
    return IPv4Address::fromBytes(std::span(mac.bytes).last(4))->value;
}

std::string nameOfClient(std::uint32_t number) { return fmt::format("device-{:06}", number); }

Messages::Messages()
    : discover_(message(DHCPMessageType::discover)), request_(message(DHCPMessageType::request)),
      renewal_(message(DHCPMessageType::request)), reboot_(message(DHCPMessageType::request)),
      release_(message(DHCPMessageType::release)), decline_(message(DHCPMessageType::decline)) {
    // No device has its address on a card, and so none could hear an answer sent to it, but for a renewal.
    discover_.flags = broadcastFlag;
    request_.flags = broadcastFlag;
    reboot_.flags = broadcastFlag;
}

Bytes Messages::discover(std::uint32_t client, std::uint32_t xid) { return bytesFor(discover_, client, xid); }

Bytes Messages::request(std::uint32_t client, std::uint32_t xid, IPv4Address ip, IPv4Address server) {
    request_.setOption(OptionCode::requestedIP, ip.bytes());
    request_.setOption(OptionCode::serverID, server.bytes());
    return bytesFor(request_, client, xid);
}

Bytes Messages::renewal(std::uint32_t client, std::uint32_t xid, IPv4Address ip) {
    renewal_.ciaddr = ip;
    return bytesFor(renewal_, client, xid);
}

Bytes Messages::reboot(std::uint32_t client, std::uint32_t xid, IPv4Address ip) {
    reboot_.setOption(OptionCode::requestedIP, ip.bytes());
    return bytesFor(reboot_, client, xid);
}

Bytes Messages::release(std::uint32_t client, std::uint32_t xid, IPv4Address ip, IPv4Address server) {
    release_.ciaddr = ip;
    release_.setOption(OptionCode::serverID, server.bytes());
    return bytesFor(release_, client, xid);
}

Bytes Messages::decline(std::uint32_t client, std::uint32_t xid, IPv4Address ip, IPv4Address server) {
    decline_.setOption(OptionCode::requestedIP, ip.bytes());
    decline_.setOption(OptionCode::serverID, server.bytes());
    return bytesFor(decline_, client, xid);
}

DHCPPacket Messages::message(DHCPMessageType type) {
    DHCPPacket packet;
    packet.setOption(OptionCode::messageType, std::array{static_cast<std::uint8_t>(type)});
    packet.setOption(OptionCode::clientID, {});
    packet.setOption(OptionCode::hostname, {});
    setText(packet, OptionCode::vendorClass, "device 1.0");
    packet.setOption(OptionCode::parameterList, std::array<std::uint8_t, 8>{1, 3, 6, 15, 28, 51, 58, 59});
    return packet;
}

} // namespace DHCPLoad
