#include "DHCPCore/Interfaces.hpp"

#include "DHCPCore/Darwin/CoreFoundation.hpp"
#include "DHCPCore/Darwin/NetworkPreferences.hpp"

#include <SystemConfiguration/SystemConfiguration.h>
#include <net/if.h>
#include <net/if_media.h>

namespace DHCPCore::Interfaces {

namespace {

using CoreFoundation::owned;

// What `describeMedia` and `mediaStatusOf` take for granted.
static_assert(IFM_NMASK == 0xE0 && IFM_ETHER == 0x20 && IFM_AVALID == 1 && IFM_ACTIVE == 2);
static_assert(IFM_FDX == 1 << 20 && IFM_HDX == 1 << 21);
static_assert(IFM_10_T == 3 && IFM_100_TX == 6 && IFM_1000_T == 16 && IFM_10G_T == 21);

std::optional<std::string> bsdNameOf(SCNetworkInterfaceRef card) {
    return CoreFoundation::text(SCNetworkInterfaceGetBSDName(card));
}

std::optional<MACAddress> macOf(SCNetworkInterfaceRef card) {
    const auto text = CoreFoundation::text(SCNetworkInterfaceGetHardwareAddressString(card));
    return text ? MACAddress::parse(*text) : std::nullopt;
}

NetworkCard::Kind kindOf(SCNetworkInterfaceRef card) {
    const CFStringRef type = SCNetworkInterfaceGetInterfaceType(card);
    const auto is = [type](CFStringRef name) { return type != nullptr && CFEqual(type, name) != 0; };
    if (is(kSCNetworkInterfaceTypeEthernet)) {
        return NetworkCard::Kind::ethernet;
    }
    if (is(kSCNetworkInterfaceTypeIEEE80211)) {
        return NetworkCard::Kind::wifi;
    }
    return is(CFSTR("Bridge")) ? NetworkCard::Kind::bridge : NetworkCard::Kind::other; // the system names no constant
}

NetworkCard cardNamed(const std::string& name, SCNetworkInterfaceRef interface) {
    const MediaStatus status = mediaStatus(name);
    NetworkCard card;
    card.bsdName = name;
    card.displayName = CoreFoundation::text(SCNetworkInterfaceGetLocalizedDisplayName(interface)).value_or(name);
    card.kind = kindOf(interface);
    card.mac = macOf(interface);
    card.linkUp = status.linkUp;
    card.media = status.description;
    return card;
}

void addService(NetworkCard& card, const std::vector<NetworkService>& services) {
    if (const auto service = NetworkServices::ofCard(services, card.bsdName)) {
        card.serviceName = service->name.value_or(card.bsdName);
        card.configMethod = NetworkServices::configMethod(service->ipv4);
    }
}

void addAddresses(NetworkCard& card, const std::vector<InterfaceAddress>& addresses) {
    for (const InterfaceAddress& address : addresses) {
        if (address.name == card.bsdName) {
            card.addresses.push_back(address.subnet);
        }
    }
}

} // namespace

std::vector<NetworkCard> list() {
    const auto addresses = interfaceAddresses();
    const auto services = NetworkPreferences::services();
    const auto primary = primaryInterface();
    const auto all = owned(SCNetworkInterfaceCopyAll());
    std::vector<NetworkCard> cards;
    for (const SCNetworkInterfaceRef interface : CoreFoundation::elements<SCNetworkInterfaceRef>(all)) {
        const auto name = bsdNameOf(interface);
        if (!name) {
            continue;
        }
        NetworkCard card = cardNamed(*name, interface);
        addService(card, services);
        addAddresses(card, addresses);
        card.isPrimary = primary == *name;
        cards.push_back(std::move(card));
    }
    return cards;
}

std::optional<std::string> bsdNameForMAC(const MACAddress& mac) {
    const auto all = owned(SCNetworkInterfaceCopyAll());
    for (const SCNetworkInterfaceRef interface : CoreFoundation::elements<SCNetworkInterfaceRef>(all)) {
        const auto name = bsdNameOf(interface);
        if (name && macOf(interface) == mac) {
            return name;
        }
    }
    return std::nullopt;
}

std::optional<std::string> primaryInterface() {
    const auto store = owned(SCDynamicStoreCreate(nullptr, CFSTR("Tarnwick"), nullptr, nullptr));
    if (!store) {
        return std::nullopt;
    }
    const auto value = owned(SCDynamicStoreCopyValue(store.get(), CFSTR("State:/Network/Global/IPv4")));
    return CoreFoundation::textFor(kSCDynamicStorePropNetPrimaryInterface, value.get());
}

} // namespace DHCPCore::Interfaces
