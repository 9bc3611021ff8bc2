#include "DHCPCore/Reply.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cstddef>
#include <utility>
#include <vector>

namespace DHCPCore {

namespace {

constexpr std::uint8_t bootReply = 2; // RFC 2131, section 2
constexpr std::size_t longestOption = 255;
constexpr std::size_t usualOptionCount = 10;

DHCPPacket baseReply(const ReplyBuilder& builder, DHCPMessageType type, IPv4Address yiaddr) {
    const DHCPPacket& request = builder.request;
    DHCPPacket packet;
    packet.options.reserve(usualOptionCount);
    packet.op = bootReply;
    packet.htype = request.htype;
    packet.hlen = request.hlen;
    packet.xid = request.xid;
    packet.flags = request.flags;
    packet.ciaddr = type == DHCPMessageType::ack ? request.ciaddr : IPv4Address::zero;
    packet.yiaddr = yiaddr;
    packet.giaddr = request.giaddr;
    packet.chaddr = request.chaddr;
    packet.setOption(OptionCode::messageType, std::array{static_cast<std::uint8_t>(type)});
    packet.setOption(OptionCode::serverID, builder.config.serverIP.bytes());
    return packet;
}

void addLeaseTimes(DHCPPacket& packet, const ServerConfig& config) {
    packet.setOption(OptionCode::leaseTime, bigEndianBytes(config.leaseSeconds));
    packet.setOption(OptionCode::renewalTime, bigEndianBytes(config.renewalSeconds()));
    packet.setOption(OptionCode::rebindingTime, bigEndianBytes(config.rebindingSeconds()));
}

void addNetwork(DHCPPacket& packet, const ServerConfig& config) {
    packet.setOption(OptionCode::subnetMask, config.mask().bytes());
    packet.setOption(OptionCode::broadcastAddress, config.subnet().broadcast().bytes());
    if (config.router) {
        packet.setOption(OptionCode::router, config.router->bytes());
    }
    if (!config.dns.empty()) {
        Bytes servers;
        for (const IPv4Address server : config.dns) {
            const auto bytes = server.bytes();
            servers.insert(servers.end(), bytes.begin(), bytes.end());
        }
        packet.setOption(OptionCode::dns, servers);
    }
}

/// What OFFER and ACK end with, whether they are about a lease or not.
Reply finish(const ReplyBuilder& builder, DHCPPacket packet, DHCPMessageType type, IPv4Address ip,
             std::vector<std::string> notes) {
    addNetwork(packet, builder.config);
    const auto vendorClass = builder.request.vendorClass();
    if (vendorClass && vendorClass->starts_with("APC")) {
        packet.setOption(OptionCode::vendorSpecific, ReplyBuilder::apcCookie);
        notes.emplace_back("+APC cookie");
    }
    // A client that has an address is told there; every other one hears a broadcast, whatever its broadcast flag says.
    const IPv4Address ciaddr = builder.request.ciaddr;
    ReplyDestination destination{.value = ReplyDestination::Broadcast{}};
    if (ciaddr != IPv4Address::zero) {
        destination.value = ReplyDestination::Unicast{.ip = ciaddr};
    }
    std::optional<std::string> note;
    if (!notes.empty()) {
        note = fmt::format("{}", fmt::join(notes, ", "));
    }
    return {.packet = std::move(packet),
            .destination = destination,
            .type = type,
            .ip = ip,
            .mac = builder.mac,
            .note = std::move(note)};
}

} // namespace

Reply ReplyBuilder::offer(IPv4Address ip) const {
    DHCPPacket packet = baseReply(*this, DHCPMessageType::offer, ip);
    addLeaseTimes(packet, config);
    return finish(*this, std::move(packet), DHCPMessageType::offer, ip, {});
}

Reply ReplyBuilder::ack(IPv4Address ip) const {
    DHCPPacket packet = baseReply(*this, DHCPMessageType::ack, ip);
    addLeaseTimes(packet, config);
    return finish(*this, std::move(packet), DHCPMessageType::ack, ip,
                  {fmt::format("lease {}", formatDuration(config.leaseSeconds))});
}

Reply ReplyBuilder::optionsOnly() const {
    return finish(*this, baseReply(*this, DHCPMessageType::ack, IPv4Address::zero), DHCPMessageType::ack,
                  request.ciaddr, {});
}

Reply ReplyBuilder::nak(std::string_view reason) const {
    DHCPPacket packet = baseReply(*this, DHCPMessageType::nak, IPv4Address::zero);
    const std::string_view message = reason.substr(0, longestOption);
    packet.setOption(OptionCode::message, Bytes{message.begin(), message.end()});
    return {.packet = std::move(packet),
            .destination = {.value = ReplyDestination::Broadcast{}},
            .type = DHCPMessageType::nak,
            .ip = request.requestedIP().value_or(request.ciaddr),
            .mac = mac,
            .note = std::string(reason)};
}

} // namespace DHCPCore
