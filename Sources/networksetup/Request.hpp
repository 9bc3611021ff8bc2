#pragma once

#include "DHCPCore/Addresses.hpp"

#include <span>
#include <string>
#include <variant>

namespace NetworkSetup {

/// What the command line asks for.
struct Request {
    /// Give the service this address and mask, no router.
    struct SetManual {
        std::string service;
        DHCPCore::Subnet address;
        bool operator==(const SetManual&) const = default;
    };
    /// Let the service ask DHCP for its address.
    struct SetDHCP {
        std::string service;
        bool operator==(const SetDHCP&) const = default;
    };
    struct ShowVersion {
        bool operator==(const ShowVersion&) const = default;
    };
    std::variant<SetManual, SetDHCP, ShowVersion> value;

    bool operator==(const Request&) const = default;
};

/// Reads the words after the program's name: "-setmanual SERVICE IP MASK", "-setdhcp SERVICE" or "--version".
/// @throws Refusal for any other words, and for an address that can't stand on a card with that mask.
[[nodiscard]] Request parseRequest(std::span<const std::string> words);

} // namespace NetworkSetup
