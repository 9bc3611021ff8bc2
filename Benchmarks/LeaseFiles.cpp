#include "LeaseFiles.hpp"

#include "Clients.hpp"
#include "DHCPCore/Date.hpp"
#include "DHCPCore/FileReplacement.hpp"
#include "DHCPCore/LeaseFile.hpp"
#include "DHCPCore/LeaseStore.hpp"

#include <fmt/format.h>

#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace DHCPLoad {

using namespace DHCPCore;

namespace {

constexpr std::chrono::hours term{24};

Date now() { return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()); }

std::vector<Lease> leases(std::uint32_t count, IPv4Address first) {
    std::vector<Lease> result;
    result.reserve(count);
    for (std::uint32_t number = 0; number < count; ++number) {
        const MACAddress mac = macOfClient(number);
        result.push_back({.mac = mac,
                          .ip = IPv4Address{first.value + number},
                          .state = Lease::State::bound,
                          .expiresAt = now() + term,
                          .hostname = nameOfClient(number),
                          .vendorClass = "device 1.0",
                          .clientID = "01:" + mac.description(),
                          .firstSeen = now(),
                          .lastSeen = now()});
    }
    return result;
}

/// Seconds since 1970.
std::int64_t seconds(Date date) {
    return std::chrono::duration_cast<std::chrono::seconds>(date.time_since_epoch()).count();
}

std::string keaDocument(const std::vector<Lease>& leases) {
    std::string text = "address,hwaddr,client_id,valid_lifetime,expire,subnet_id,fqdn_fwd,fqdn_rev,hostname,state,"
                       "user_context\n";
    for (const Lease& lease : leases) {
        text +=
            fmt::format("{},{},{},{},{},1,0,0,{},0,\n", lease.ip.description(), lease.mac.description(),
                        *lease.clientID, std::chrono::seconds{term}.count(), seconds(lease.expiresAt), *lease.hostname);
    }
    return text;
}

std::string dnsmasqDocument(const std::vector<Lease>& leases) {
    std::string text;
    for (const Lease& lease : leases) {
        text += fmt::format("{} {} {} {} {}\n", seconds(lease.expiresAt), lease.mac.description(),
                            lease.ip.description(), *lease.hostname, *lease.clientID);
    }
    return text;
}

} // namespace

std::optional<LeaseFormat> leaseFormat(std::string_view name) {
    for (const auto& [known, format] :
         {std::pair{"tarnwick", LeaseFormat::tarnwick}, std::pair{"kea", LeaseFormat::kea},
          std::pair{"dnsmasq", LeaseFormat::dnsmasq}}) {
        if (name == known) {
            return format;
        }
    }
    return std::nullopt;
}

void writeLeases(LeaseFormat format, const std::filesystem::path& file, std::uint32_t count, IPv4Address first) {
    switch (format) {
    case LeaseFormat::tarnwick:
        LeaseFile{.url = file}.save(LeaseTable(leases(count, first), {}));
        break;
    case LeaseFormat::kea:
        replaceFile(file, keaDocument(leases(count, first)));
        break;
    case LeaseFormat::dnsmasq:
        replaceFile(file, dnsmasqDocument(leases(count, first)));
        break;
    }
}

} // namespace DHCPLoad
