#include "DHCPCore/NetworkServices.hpp"

#include <algorithm>

namespace DHCPCore::NetworkServices {

namespace {

using ConfigMethod = NetworkCard::ConfigMethod;

std::optional<IPv4Address> parsed(const std::optional<std::string>& text) {
    return text ? IPv4Address::parse(*text) : std::nullopt;
}

} // namespace

ConfigMethod configMethod(const NetworkService::IPv4Settings& settings) {
    if (!settings.method) {
        return {ConfigMethod::None{}};
    }
    if (*settings.method == "DHCP") {
        return {ConfigMethod::DHCP{}};
    }
    const auto ip = parsed(settings.address);
    const auto mask = parsed(settings.mask);
    if (*settings.method == "Manual" && ip && mask) {
        return {ConfigMethod::Manual{.ip = *ip, .mask = *mask}};
    }
    return {ConfigMethod::Other{.method = *settings.method}};
}

std::optional<NetworkService> ofCard(const std::vector<NetworkService>& services, const std::string& bsdName) {
    const auto service = std::ranges::find_if(
        services, [&](const NetworkService& candidate) { return candidate.isEnabled && candidate.bsdName == bsdName; });
    return service == services.end() ? std::nullopt : std::optional(*service);
}

std::vector<std::string> names(const std::vector<NetworkService>& services) {
    std::vector<std::string> names;
    for (const NetworkService& service : services) {
        if (service.name) {
            names.push_back(*service.name);
        }
    }
    return names;
}

} // namespace DHCPCore::NetworkServices
