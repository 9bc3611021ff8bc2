#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/Transport.hpp"

#include <string>
#include <variant>

namespace DHCPCore {

/// Why a reply could not be sent.
struct SendFailure {
    struct Other {
        std::string text; ///< The error's description.
        bool operator==(const Other&) const = default;
    };
    struct LinkDown {
        bool operator==(const LinkDown&) const = default;
    };
    struct AddressMissing {
        bool operator==(const AddressMissing&) const = default;
    };
    /// The network looks usable: the system's own permission is the likely cause.
    struct PossiblyDenied {
        bool operator==(const PossiblyDenied&) const = default;
    };
    std::variant<Other, LinkDown, AddressMissing, PossiblyDenied> value;

    bool operator==(const SendFailure&) const = default;
};

namespace LocalNetwork {

/// Sorts a failed send into the causes that are reported. Pure.
[[nodiscard]] SendFailure classify(const TransportError& error, bool linkUp, bool serverAddressPresent);

/// Makes the system settle local-network permission for the card, by connecting a socket to an address nearby. Sends
/// nothing, and fails silently.
void triggerAlert(const std::string& interfaceName, IPv4Address nearby);

} // namespace LocalNetwork
} // namespace DHCPCore
