#pragma once

#include "DHCPCore/Addresses.hpp"

#include <string>

/// The IPv4 addresses of a card in the kernel, in the network of the calling thread. Changing them needs root.
namespace NetworkSetup::CardAddresses {

/// Whether the address stands on the card, with this prefix length.
/// @throws Error with the reason, as all of these do: no such card, or what the kernel says.
[[nodiscard]] bool has(const std::string& card, const DHCPCore::Subnet& address);

/// Leaves exactly this address on the card, for good, and switches the card on. An address that stands stays.
void set(const std::string& card, const DHCPCore::Subnet& address);

/// Takes the permanent addresses away, and with `all` the others too.
void remove(const std::string& card, bool all);

} // namespace NetworkSetup::CardAddresses
