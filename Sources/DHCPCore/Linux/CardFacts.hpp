#pragma once

#include "DHCPCore/Interfaces.hpp"
#include "DHCPCore/Linux/Netlink.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What the facts that Linux gives about a card mean. Pure.
namespace DHCPCore::CardFacts {

/// The kind of a link; whether it is wireless is not in the kernel's message.
[[nodiscard]] NetworkCard::Kind kind(const Netlink::Link& link, bool isWireless);

/// Speed (in Mbit/s) and duplex as the ethtool interface gives them, as the media word that `describeMedia` reads; 0,
/// which is not Ethernet, for a speed that has no word.
[[nodiscard]] std::int32_t mediaWord(std::uint32_t speed, std::uint8_t duplex);

/// How a card that holds these addresses is configured; what its owner says counts where they don't tell.
[[nodiscard]] NetworkCard::ConfigMethod configMethod(const std::vector<Netlink::Address>& addresses,
                                                     const NetworkCard::ConfigMethod& ownersMethod);

/// A name that a device gives itself, fit to be shown: one line of UTF-8 without control characters; nothing when
/// nothing is left.
[[nodiscard]] std::optional<std::string> productName(std::string_view text);

/// The model in what a query of the hardware database printed.
[[nodiscard]] std::optional<std::string> modelInHardwareDatabase(std::string_view output);

} // namespace DHCPCore::CardFacts
