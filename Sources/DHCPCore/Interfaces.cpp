#include "DHCPCore/Interfaces.hpp"

#include "DHCPCore/HashCombine.hpp"
#include "DHCPCore/Overloaded.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <variant>

namespace DHCPCore {

namespace {

// The media word is that of BSD's <net/if_media.h>; other systems translate what they know into it.
constexpr std::uint32_t mediaTypeMask = 0xE0;
constexpr std::uint32_t mediaTypeEthernet = 0x20;
constexpr std::uint32_t mediaSubtypeMask = 0xF001F;
constexpr std::uint32_t mediaFullDuplex = 1U << 20U;
constexpr std::uint32_t mediaHalfDuplex = 1U << 21U;
constexpr std::uint32_t mediaStatusValid = 1;  // IFM_AVALID
constexpr std::uint32_t mediaStatusActive = 2; // IFM_ACTIVE

std::string mediaSubtypeText(std::uint32_t subtype) {
    switch (subtype) {
    case 3:
        return "10baseT";
    case 6:
        return "100baseTX";
    case 16:
        return "1000baseT";
    case 21:
        return "10GBase-T";
    case 22:
        return "2500Base-T";
    case 23:
        return "5000Base-T";
    default:
        return fmt::format("media {}", subtype);
    }
}

} // namespace

std::string NetworkCard::addressSummary() const {
    if (addresses.empty()) {
        return "no address";
    }
    const IPv4Address first = addresses.front().address;
    if (first.isLinkLocal()) {
        return first.description() + " (self-assigned)";
    }
    const std::string_view origin =
        std::visit(Overloaded{[](const ConfigMethod::Manual&) -> std::string_view { return " (manual)"; },
                              [](const ConfigMethod::Other&) -> std::string_view { return ""; },
                              [](const ConfigMethod::DHCP&) -> std::string_view { return " (DHCP)"; },
                              [](const ConfigMethod::None&) -> std::string_view { return ""; }},
                   configMethod.value);
    return fmt::format("{}{}", first.description(), origin);
}

namespace Interfaces {

std::vector<NetworkCard> offered(std::vector<NetworkCard> cards, bool showDisconnected) {
    std::erase_if(cards, [showDisconnected](const NetworkCard& card) {
        // A Thunderbolt bridge is no port for a device, whatever its kind says.
        return card.kind != NetworkCard::Kind::ethernet || !card.bsdName.starts_with("en") ||
               card.displayName.starts_with("Thunderbolt") || (!showDisconnected && !card.linkUp);
    });
    std::ranges::stable_sort(cards, [](const NetworkCard& left, const NetworkCard& right) {
        return left.linkUp != right.linkUp ? left.linkUp : left.displayName < right.displayName;
    });
    return cards;
}

std::optional<std::string> preferredCardID(const std::vector<NetworkCard>& cards,
                                           const std::optional<std::string>& current,
                                           const std::optional<MACAddress>& remembered, bool isRunning) {
    if (isRunning) {
        return current;
    }
    const std::vector<NetworkCard> candidates = offered(cards, true);
    auto choice = std::ranges::find_if(candidates, [&](const NetworkCard& card) { return card.bsdName == current; });
    if (choice == candidates.end() && remembered) {
        choice = std::ranges::find(candidates, remembered, &NetworkCard::mac);
    }
    if (choice == candidates.end()) {
        choice = std::ranges::find_if(candidates, &NetworkCard::linkUp);
    }
    return choice == candidates.end() ? std::nullopt : std::optional(choice->bsdName);
}

std::optional<std::string> describeMedia(std::int32_t mediaWord) {
    const auto word = static_cast<std::uint32_t>(mediaWord);
    if ((word & mediaTypeMask) != mediaTypeEthernet) {
        return std::nullopt;
    }
    std::string text = mediaSubtypeText(word & mediaSubtypeMask);
    if ((word & mediaFullDuplex) != 0) {
        text += " full-duplex";
    } else if ((word & mediaHalfDuplex) != 0) {
        text += " half-duplex";
    }
    return text;
}

MediaStatus mediaStatusOf(std::int32_t statusWord, std::int32_t mediaWord) {
    constexpr std::uint32_t wanted = mediaStatusValid | mediaStatusActive;
    if ((static_cast<std::uint32_t>(statusWord) & wanted) != wanted) {
        return {};
    }
    return {.linkUp = true, .description = describeMedia(mediaWord)};
}

IPv4Address maskOfSocketAddress(std::span<const std::uint8_t> socketAddress) {
    constexpr std::size_t addressOffset = 4;
    const auto written = socketAddress.subspan(std::min(addressOffset, socketAddress.size()));
    std::array<std::uint8_t, 4> bytes{};
    std::ranges::copy(written.first(std::min(bytes.size(), written.size())), bytes.begin());
    return IPv4Address{bytes[0], bytes[1], bytes[2], bytes[3]};
}

} // namespace Interfaces
} // namespace DHCPCore

std::size_t std::hash<DHCPCore::NetworkCard::ConfigMethod>::operator()(
    const DHCPCore::NetworkCard::ConfigMethod& method) const noexcept {
    using ConfigMethod = DHCPCore::NetworkCard::ConfigMethod;
    std::size_t seed = method.value.index();
    std::visit(
        DHCPCore::Overloaded{[&seed](const ConfigMethod::Manual& manual) {
                                 DHCPCore::hashCombine(seed, manual.ip);
                                 DHCPCore::hashCombine(seed, manual.mask);
                             },
                             [&seed](const ConfigMethod::Other& other) { DHCPCore::hashCombine(seed, other.method); },
                             [](const ConfigMethod::DHCP&) {}, [](const ConfigMethod::None&) {}},
        method.value);
    return seed;
}

std::size_t std::hash<DHCPCore::NetworkCard>::operator()(const DHCPCore::NetworkCard& card) const noexcept {
    std::size_t seed = 0;
    DHCPCore::hashCombine(seed, card.bsdName);
    DHCPCore::hashCombine(seed, card.displayName);
    DHCPCore::hashCombine(seed, card.serviceName);
    DHCPCore::hashCombine(seed, card.kind);
    DHCPCore::hashCombine(seed, card.mac);
    DHCPCore::hashCombine(seed, card.linkUp);
    DHCPCore::hashCombine(seed, card.media);
    for (const DHCPCore::Subnet& subnet : card.addresses) {
        DHCPCore::hashCombine(seed, subnet);
    }
    DHCPCore::hashCombine(seed, card.configMethod);
    DHCPCore::hashCombine(seed, card.isPrimary);
    return seed;
}

std::size_t
std::hash<DHCPCore::InterfaceAddress>::operator()(const DHCPCore::InterfaceAddress& address) const noexcept {
    std::size_t seed = 0;
    DHCPCore::hashCombine(seed, address.name);
    DHCPCore::hashCombine(seed, address.subnet);
    DHCPCore::hashCombine(seed, address.isPointToPoint);
    return seed;
}
