#include "DHCPCore/Events.hpp"

#include "DHCPCore/EnumTextJSON.hpp"
#include "DHCPCore/Overloaded.hpp"

#include <fmt/format.h>

#include <utility>

namespace DHCPCore {

PacketSummary::PacketSummary(const DHCPPacket& packet, std::optional<std::string> arrival)
    : type(packet.messageType()), mac(packet.mac()), xid(packet.xid), hostname(packet.hostname()),
      vendorClass(packet.vendorClass()), clientID(packet.clientID()), requestedIP(packet.requestedIP()),
      serverID(packet.serverID()), ciaddr(packet.ciaddr), interface(std::move(arrival)) {}

std::string ReplyDestination::description() const {
    const IPv4Address address = std::visit(Overloaded{[](const Unicast& unicast) { return unicast.ip; },
                                                      [](const Broadcast&) { return IPv4Address::broadcast; }},
                                           value);
    return fmt::format("{}:68", address.description());
}

void to_json(nlohmann::json& json, NoticeKind kind) { json = rawValue(kind); }

void from_json(const nlohmann::json& json, NoticeKind& kind) { kind = enumFromJSON<NoticeKind>(json, "notice kind"); }

Notice Notice::leaseFileSetAside(const std::filesystem::path& url) {
    return {.kind = NoticeKind::leaseFileSetAside,
            .message = fmt::format("The lease file could not be read and was moved to {}. Starting with no leases.",
                                   url.filename().string())};
}

} // namespace DHCPCore
