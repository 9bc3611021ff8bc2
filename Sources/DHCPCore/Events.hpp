#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/Config.hpp"
#include "DHCPCore/EnumText.hpp"
#include "DHCPCore/LeaseStore.hpp"
#include "DHCPCore/Packet.hpp"
#include "DHCPCore/PresenceState.hpp"

#include <nlohmann/json_fwd.hpp>

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace DHCPCore {

/// What one received DHCP message says of itself.
struct PacketSummary {
    std::optional<DHCPMessageType> type;
    std::optional<MACAddress> mac;
    std::uint32_t xid = 0;
    std::optional<std::string> hostname;
    std::optional<std::string> vendorClass;
    std::optional<std::string> clientID;
    std::optional<IPv4Address> requestedIP;
    std::optional<IPv4Address> serverID;
    IPv4Address ciaddr;
    std::optional<std::string> interface; ///< The card on which it arrived, when known.

    PacketSummary() = default;
    PacketSummary(const DHCPPacket& packet, std::optional<std::string> arrival);

    bool operator==(const PacketSummary&) const = default;
};

/// Where a reply goes.
struct ReplyDestination {
    struct Unicast {
        IPv4Address ip;
        bool operator==(const Unicast&) const = default;
    };
    struct Broadcast {
        bool operator==(const Broadcast&) const = default;
    };
    std::variant<Unicast, Broadcast> value;

    /// With the client port, as in "192.168.0.100:68".
    [[nodiscard]] std::string description() const;

    bool operator==(const ReplyDestination&) const = default;
};

/// One reply that was sent.
struct SentSummary {
    DHCPMessageType type = DHCPMessageType::offer;
    IPv4Address ip;
    MACAddress mac;
    ReplyDestination destination;
    std::string interface; ///< The card through which it was sent.
    std::optional<std::string> note;

    bool operator==(const SentSummary&) const = default;
};

/// The conditions that a user should see as long as they last. The critical ones come first: the order matters.
enum class NoticeKind {
    localNetworkDenied,
    otherServer,
    portInUse,
    leaseSaveFailed,
    linkDown,
    adapterUnplugged,
    leaseFileSetAside,
};

template <>
struct EnumText<NoticeKind> {
    static constexpr std::array<std::string_view, 7> names{"localNetworkDenied", "otherServer", "portInUse",
                                                           "leaseSaveFailed",    "linkDown",    "adapterUnplugged",
                                                           "leaseFileSetAside"};
};

/// Whether serving fails while the condition lasts.
[[nodiscard]] constexpr bool isCritical(NoticeKind kind) { return kind <= NoticeKind::leaseSaveFailed; }

/// Travels as its raw value. @throws DecodingError for any other text.
void to_json(nlohmann::json& json, NoticeKind kind);
void from_json(const nlohmann::json& json, NoticeKind& kind);

/// A condition with its sentence for the user; at most one of each kind is active at a time.
struct Notice {
    NoticeKind kind = NoticeKind::localNetworkDenied;
    std::string message;

    /// The lease file was moved to that place because it could not be used.
    [[nodiscard]] static Notice leaseFileSetAside(const std::filesystem::path& url);

    [[nodiscard]] NoticeKind id() const { return kind; }
    [[nodiscard]] bool isCritical() const { return DHCPCore::isCritical(kind); }

    bool operator==(const Notice&) const = default;
};

/// Everything that the server does or notices. In one run `started` comes first, but for what loading the lease file
/// has to report, and `stopped` last.
struct ServerEvent {
    struct Started {
        std::string interface;
        ServerConfig config;
        bool operator==(const Started&) const = default;
    };
    struct Received {
        PacketSummary summary;
        bool operator==(const Received&) const = default;
    };
    struct Sent {
        SentSummary summary;
        bool operator==(const Sent&) const = default;
    };
    struct Dropped {
        std::string reason;
        std::optional<MACAddress> mac;
        bool operator==(const Dropped&) const = default;
    };
    struct LeaseChanged {
        Lease lease;
        bool operator==(const LeaseChanged&) const = default;
    };
    struct LeaseRemoved {
        MACAddress mac;
        bool operator==(const LeaseRemoved&) const = default;
    };
    struct Presence {
        IPv4Address ip;
        MACAddress mac;
        PresenceState state;
        std::string detail;
        bool operator==(const Presence&) const = default;
    };
    struct Link {
        bool up;
        std::optional<std::string> media;
        bool operator==(const Link&) const = default;
    };
    struct NoticeRaised {
        Notice notice;
        bool operator==(const NoticeRaised&) const = default;
    };
    struct NoticeCleared {
        NoticeKind kind;
        bool operator==(const NoticeCleared&) const = default;
    };
    struct Info {
        std::string text;
        bool operator==(const Info&) const = default;
    };
    struct Stopped {
        bool operator==(const Stopped&) const = default;
    };
    std::variant<Started, Received, Sent, Dropped, LeaseChanged, LeaseRemoved, Presence, Link, NoticeRaised,
                 NoticeCleared, Info, Stopped>
        value;

    bool operator==(const ServerEvent&) const = default;
};

} // namespace DHCPCore
