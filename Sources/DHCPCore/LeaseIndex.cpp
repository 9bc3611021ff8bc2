#include "DHCPCore/LeaseIndex.hpp"

#include <algorithm>

namespace DHCPCore {

void LeaseIndex::append(const MACAddress& mac, IPv4Address ip, std::size_t position) {
    byMAC_.try_emplace(mac, position); // a client's first record stays its first
    byIP_[ip].push_back(position);
}

void LeaseIndex::move(IPv4Address from, IPv4Address to, std::size_t position) {
    if (from == to) {
        return;
    }
    removeFrom(from, position);
    auto& positions = byIP_[to];
    positions.insert(std::ranges::lower_bound(positions, position), position);
}

void LeaseIndex::remove(const MACAddress& mac, IPv4Address ip, std::size_t position) {
    byMAC_.erase(mac);
    removeFrom(ip, position);
}

void LeaseIndex::removeFrom(IPv4Address ip, std::size_t position) {
    const auto found = byIP_.find(ip);
    std::erase(found->second, position);
    if (found->second.empty()) {
        byIP_.erase(found);
    }
}

void LeaseIndex::clear(std::size_t expected) {
    byMAC_.clear();
    byMAC_.reserve(expected);
    byIP_.clear();
    byIP_.reserve(expected);
}

std::optional<std::size_t> LeaseIndex::positionOf(const MACAddress& mac) const {
    const auto found = byMAC_.find(mac);
    return found == byMAC_.end() ? std::nullopt : std::optional(found->second);
}

std::span<const std::size_t> LeaseIndex::positionsOf(IPv4Address ip) const {
    const auto found = byIP_.find(ip);
    return found == byIP_.end() ? std::span<const std::size_t>{} : std::span<const std::size_t>(found->second);
}

} // namespace DHCPCore
