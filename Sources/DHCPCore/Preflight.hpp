#pragma once

#include "DHCPCore/Config.hpp"
#include "DHCPCore/EnumText.hpp"
#include "DHCPCore/Interfaces.hpp"

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace DHCPCore {

/// One thing examined before serving.
struct PreflightCheck {
    enum class ID { wired, foreignDHCP, adapterConfigured, subnetOverlap, vpnOverlap, port67, link, vmware };
    enum class Status { pass, warn, fail };

    /// What the program can mend itself.
    struct Fix {
        /// Give the named service the server's address manually.
        struct ConfigureAdapter {
            std::string service;
            bool operator==(const ConfigureAdapter&) const = default;
        };
        std::variant<ConfigureAdapter> value;

        bool operator==(const Fix&) const = default;
    };

    ID id = ID::wired;
    Status status = Status::pass;
    std::string message;
    std::optional<Fix> fix;

    bool operator==(const PreflightCheck&) const = default;
};

template <>
struct EnumText<PreflightCheck::ID> {
    static constexpr std::array<std::string_view, 8> names{
        "wired", "foreignDHCP", "adapterConfigured", "subnetOverlap", "vpnOverlap", "port67", "link", "vmware"};
};

/// Whether UDP port 67 can be had.
struct Port67State {
    struct InUse {
        std::optional<std::string> holder; ///< As "dnsmasq:812", when found.
        bool operator==(const InUse&) const = default;
    };
    struct Error {
        std::string text; ///< The system's.
        bool operator==(const Error&) const = default;
    };
    struct Free {
        bool operator==(const Free&) const = default;
    };
    std::variant<InUse, Error, Free> value;

    bool operator==(const Port67State&) const = default;
};

/// What the checks rest on.
struct PreflightInput {
    NetworkCard card;
    std::vector<InterfaceAddress> otherAddresses; ///< All IPv4 addresses of the host, the card's own included.
    ServerConfig config;
    Port67State port67;
    bool vmwareRunning = false;

    bool operator==(const PreflightInput&) const = default;
};

/// Examines the host before serving on a card.
namespace Preflight {

/// Asks the host. Blocks while other programs run.
[[nodiscard]] PreflightInput gather(const NetworkCard& card, const ServerConfig& config);

/// The checks in their fixed order, six to eight of them. Pure.
[[nodiscard]] std::vector<PreflightCheck> evaluate(const PreflightInput& input);

/// No check failed; warnings do not count.
[[nodiscard]] bool canStart(const std::vector<PreflightCheck>& checks);

/// Whether a test bind of port 67 works.
[[nodiscard]] Port67State port67State();

/// Who holds UDP port 67, as "name:pid". (Linux/, Darwin/)
[[nodiscard]] std::optional<std::string> port67Holder();

/// The holder of a port from the output of `netstat -anv -p udp`. Pure.
[[nodiscard]] std::optional<std::string> holderInNetstat(std::string_view output, int port);

/// Whether VMware's services run, which may grab the adapter. (Linux/, Darwin/)
[[nodiscard]] bool vmwareRunning();

} // namespace Preflight
} // namespace DHCPCore
