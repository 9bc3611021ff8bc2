#pragma once

#include "DHCPCore/Addresses.hpp"
#include "networksetup/Facts.hpp"

#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace NetworkSetup {

/// One thing to do.
struct Step {
    struct RunProgram {
        std::string path;
        std::vector<std::string> arguments;
        bool operator==(const RunProgram&) const = default;
    };
    /// Put this file in place of what is there, as a whole.
    struct WriteFile {
        std::string path;
        std::string text;
        bool operator==(const WriteFile&) const = default;
    };
    /// Leave this IPv4 address alone on the card, for good, and switch the card on.
    struct SetAddress {
        std::string card;
        DHCPCore::Subnet address;
        bool operator==(const SetAddress&) const = default;
    };
    /// Take the card's permanent IPv4 addresses away; those with a lifetime too when `all` says so.
    struct RemoveAddresses {
        std::string card;
        bool all = false;
        bool operator==(const RemoveAddresses&) const = default;
    };
    /// Wait, not for long, until the address stands on the card.
    struct AwaitAddress {
        std::string card;
        DHCPCore::Subnet address;
        bool operator==(const AwaitAddress&) const = default;
    };

    std::variant<RunProgram, WriteFile, SetAddress, RemoveAddresses, AwaitAddress> value;
    std::string failure; ///< The sentence for a step that fails, without its end: ": " and the reason follow.

    bool operator==(const Step&) const = default;
};

/// All there is to do, in order; the first step that fails ends it.
struct Plan {
    std::vector<Step> steps;
    std::string done; ///< The sentence for the user when all is done.

    bool operator==(const Plan&) const = default;
};

/// The file that this program keeps in a card's name for systemd-networkd; it stands before all others.
[[nodiscard]] std::string networkdFile(const std::string& directory, const std::string& card);

/// Finds the service and who owns it, and says what is to be done: with the service's address set to the given one, or
/// to DHCP without one.
/// @throws Refusal when there is no such service, or when what owns it can't be changed safely.
[[nodiscard]] Plan makePlan(const std::string& service, const std::optional<DHCPCore::Subnet>& address,
                            const Facts& facts);

} // namespace NetworkSetup
