#include "DHCPCore/Linux/CardFacts.hpp"

#include "DHCPCore/Linux/SystemFiles.hpp"
#include "DHCPCore/TextPieces.hpp"
#include "DHCPCore/UTF8.hpp"

#include <algorithm>
#include <array>
#include <linux/ethtool.h>
#include <net/if_arp.h>

namespace DHCPCore::CardFacts {

namespace {

/// Links that look like Ethernet but have no socket of their own that a device could be plugged into.
constexpr std::array<std::string_view, 8> kindsWithoutSocket{"tun",     "bond",    "team",   "vlan",
                                                             "macvlan", "macvtap", "ipvlan", "ipvtap"};

// BSD's <net/if_media.h>.
constexpr std::int32_t mediaEthernet = 0x20;
constexpr std::int32_t mediaFullDuplex = 1 << 20;
constexpr std::int32_t mediaHalfDuplex = 1 << 21;

std::int32_t mediaSubtype(std::uint32_t speed) {
    switch (speed) {
    case SPEED_10:
        return 3;
    case SPEED_100:
        return 6;
    case SPEED_1000:
        return 16;
    case SPEED_2500:
        return 22;
    case SPEED_5000:
        return 23;
    case SPEED_10000:
        return 21;
    default:
        return 0;
    }
}

/// Whether the text begins with a control character that takes two bytes in UTF-8: U+0080 to U+009F.
bool beginsWithLongControl(std::string_view text) {
    return text.size() > 1 && text[0] == '\xC2' && static_cast<std::uint8_t>(text[1]) < 0xA0;
}

bool isControl(char character) {
    const auto byte = static_cast<std::uint8_t>(character);
    return byte < 0x20 || byte == 0x7F;
}

} // namespace

NetworkCard::Kind kind(const Netlink::Link& link, bool isWireless) {
    if (isWireless) {
        return NetworkCard::Kind::wifi;
    }
    if (link.kind == "bridge") {
        return NetworkCard::Kind::bridge;
    }
    if (link.hardwareType != ARPHRD_ETHER ||
        std::ranges::find(kindsWithoutSocket, link.kind) != kindsWithoutSocket.end()) {
        return NetworkCard::Kind::other;
    }
    return NetworkCard::Kind::ethernet;
}

std::int32_t mediaWord(std::uint32_t speed, std::uint8_t duplex) {
    const std::int32_t subtype = mediaSubtype(speed);
    if (subtype == 0) {
        return 0;
    }
    if (duplex == DUPLEX_FULL) {
        return mediaEthernet | subtype | mediaFullDuplex;
    }
    return duplex == DUPLEX_HALF ? mediaEthernet | subtype | mediaHalfDuplex : mediaEthernet | subtype;
}

NetworkCard::ConfigMethod configMethod(const std::vector<Netlink::Address>& addresses,
                                       const NetworkCard::ConfigMethod& ownersMethod) {
    const bool isLeased = std::ranges::any_of(addresses, [](const Netlink::Address& address) {
        return !address.isPermanent && !address.subnet.address.isLinkLocal();
    });
    if (isLeased) {
        return {NetworkCard::ConfigMethod::DHCP{}};
    }
    const auto manual = std::ranges::find_if(addresses, &Netlink::Address::isPermanent);
    if (manual != addresses.end()) {
        return {NetworkCard::ConfigMethod::Manual{.ip = manual->subnet.address, .mask = manual->subnet.mask()}};
    }
    return ownersMethod;
}

std::optional<std::string> productName(std::string_view text) {
    const std::string repaired = repairedUTF8(text);
    std::string name;
    for (std::string_view rest = repaired; !rest.empty();) {
        if (beginsWithLongControl(rest)) {
            rest.remove_prefix(2);
            continue;
        }
        if (!isControl(rest.front())) {
            name += rest.front();
        }
        rest.remove_prefix(1);
    }
    const std::string_view shown = SystemFiles::trimmed(name);
    return shown.empty() ? std::nullopt : std::optional<std::string>(shown);
}

std::optional<std::string> modelInHardwareDatabase(std::string_view output) {
    constexpr std::string_view key = "ID_MODEL_FROM_DATABASE=";
    for (const std::string_view line : splitDroppingEmpty(output, '\n')) {
        if (line.starts_with(key)) {
            return productName(line.substr(key.size()));
        }
    }
    return std::nullopt;
}

} // namespace DHCPCore::CardFacts
