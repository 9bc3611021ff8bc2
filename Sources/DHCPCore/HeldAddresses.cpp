#include "DHCPCore/HeldAddresses.hpp"

#include <algorithm>

namespace DHCPCore {

void HeldAddresses::Page::set(std::uint8_t number, Date until) {
    const auto place = std::ranges::lower_bound(places, number, {}, &Place::number);
    const bool isThere = place != places.end() && place->number == number;
    if (until == notHeld) {
        if (isThere) {
            places.erase(place);
        }
        earliest = notHeld;
        return;
    }
    const bool wasEarliest = isThere && place->until == earliest;
    if (isThere) {
        place->until = until;
    } else {
        places.insert(place, {.number = number, .until = until});
    }
    if (places.size() == pageSize && (!isThere || wasEarliest || until < earliest)) {
        earliest = std::ranges::min_element(places, {}, &Place::until)->until;
    }
}

void HeldAddresses::set(IPv4Address ip, Date until) {
    const std::uint32_t number = ip.value >> pageBits;
    auto found = pages_.find(number);
    if (found == pages_.end()) {
        if (until == notHeld) {
            return;
        }
        found = pages_.try_emplace(number).first;
    }
    found->second.set(static_cast<std::uint8_t>(ip.value % pageSize), until);
    if (found->second.places.empty()) {
        pages_.erase(found);
    }
}

std::optional<IPv4Address> HeldAddresses::lowestFree(AddressRange range, Date now) const {
    if (range.lower > range.upper) {
        return std::nullopt;
    }
    const std::uint32_t last = range.upper.value >> pageBits;
    std::uint32_t number = range.lower.value >> pageBits;
    for (auto next = pages_.lower_bound(number); number <= last; ++number, ++next) { // every page up to here is there
        const IPv4Address first{std::max(range.lower.value, number << pageBits)};
        if (next == pages_.end() || next->first != number) {
            return first;
        }
        const Page& page = next->second;
        if (page.earliest > now) {
            continue;
        }
        std::uint32_t free = first.value % pageSize;
        for (auto place = std::ranges::lower_bound(page.places, free, {}, &Place::number);
             place != page.places.end() && place->number == free && place->until > now; ++place) {
            ++free;
        }
        const std::uint32_t end = number == last ? range.upper.value % pageSize : pageSize - 1;
        if (free <= end) {
            return IPv4Address{(number << pageBits) | free};
        }
    }
    return std::nullopt;
}

} // namespace DHCPCore
