#include "DHCPCore/HeldAddresses.hpp"

#include <algorithm>

namespace DHCPCore {

void HeldAddresses::set(IPv4Address ip, Date until) {
    const std::uint32_t number = ip.value >> pageBits;
    auto found = pages_.find(number);
    if (found == pages_.end()) {
        if (until == notHeld) {
            return;
        }
        found = pages_.try_emplace(number).first;
        found->second.until.fill(notHeld);
    }
    Page& page = found->second;
    Date& place = page.until[ip.value % pageSize];
    const bool wasEarliest = place == page.earliest;
    place = until;
    if (until < page.earliest) {
        page.earliest = until;
    } else if (wasEarliest) {
        page.earliest = *std::ranges::min_element(page.until);
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
        const std::uint32_t end = number == last ? range.upper.value % pageSize : pageSize - 1;
        for (std::uint32_t place = first.value % pageSize; place <= end; ++place) {
            if (page.until[place] <= now) {
                return IPv4Address{(number << pageBits) | place};
            }
        }
    }
    return std::nullopt;
}

} // namespace DHCPCore
