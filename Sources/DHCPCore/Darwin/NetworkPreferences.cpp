#include "DHCPCore/Darwin/NetworkPreferences.hpp"

#include "DHCPCore/Darwin/CoreFoundation.hpp"

#include <SystemConfiguration/SystemConfiguration.h>

namespace DHCPCore::NetworkPreferences {

namespace {

using CoreFoundation::owned;

std::optional<std::string> bsdNameOf(SCNetworkServiceRef service) {
    const SCNetworkInterfaceRef card = SCNetworkServiceGetInterface(service);
    return card == nullptr ? std::nullopt : CoreFoundation::text(SCNetworkInterfaceGetBSDName(card));
}

NetworkService::IPv4Settings ipv4SettingsOf(SCNetworkServiceRef service) {
    const auto protocol = owned(SCNetworkServiceCopyProtocol(service, kSCNetworkProtocolTypeIPv4));
    if (!protocol) {
        return {};
    }
    const CFTypeRef settings = SCNetworkProtocolGetConfiguration(protocol.get());
    return {.method = CoreFoundation::textFor(kSCPropNetIPv4ConfigMethod, settings),
            .address = CoreFoundation::firstTextFor(kSCPropNetIPv4Addresses, settings),
            .mask = CoreFoundation::firstTextFor(kSCPropNetIPv4SubnetMasks, settings)};
}

} // namespace

std::vector<NetworkService> services() {
    const auto preferences = owned(SCPreferencesCreate(nullptr, CFSTR("Tarnwick"), nullptr));
    if (!preferences) {
        return {};
    }
    const auto all = owned(SCNetworkServiceCopyAll(preferences.get()));
    std::vector<NetworkService> services;
    for (const SCNetworkServiceRef service : CoreFoundation::elements<SCNetworkServiceRef>(all)) {
        services.push_back({.name = CoreFoundation::text(SCNetworkServiceGetName(service)),
                            .bsdName = bsdNameOf(service),
                            .isEnabled = SCNetworkServiceGetEnabled(service) != 0,
                            .ipv4 = ipv4SettingsOf(service)});
    }
    return services;
}

} // namespace DHCPCore::NetworkPreferences
