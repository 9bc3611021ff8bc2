#include "DHCPCore/HoldersByAge.hpp"

#include <limits>

namespace DHCPCore {

void HoldersByAge::add(const Holder& holder) {
    ends_.insert_or_assign({holder.expiresAt, holder.position}, ageOf(holder));
    if (holder.expiresAt > reached_) {
        ages_.insert(ageOf(holder));
    }
}

void HoldersByAge::remove(const Holder& holder) {
    ends_.erase({holder.expiresAt, holder.position});
    ages_.erase(ageOf(holder));
}

std::optional<std::size_t> HoldersByAge::oldest(Date now, const std::function<bool(std::size_t)>& predicate) {
    moveTo(now);
    for (const Age& age : ages_) {
        const auto position = std::get<std::size_t>(age);
        if (predicate(position)) {
            return position;
        }
    }
    return std::nullopt;
}

/// Leaves out what has ended by then; takes in again what has not, where time went back.
void HoldersByAge::moveTo(Date now) {
    const auto firstAfter = [this](Date instant) {
        return ends_.upper_bound({instant, std::numeric_limits<std::size_t>::max()});
    };
    for (auto end = firstAfter(reached_); end != ends_.end() && end->first.first <= now; ++end) {
        ages_.erase(end->second);
    }
    for (auto end = firstAfter(now); end != ends_.end() && end->first.first <= reached_; ++end) {
        ages_.insert(end->second);
    }
    reached_ = now;
}

} // namespace DHCPCore
