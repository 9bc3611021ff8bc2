#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/Date.hpp"

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <tuple>
#include <utility>

namespace DHCPCore {

/// Records of a table in the order in which their clients were last heard from, without those that have expired: who
/// looks for the client that is away for longest need not walk the table.
class HoldersByAge {
  public:
    /// What counts of a record.
    struct Holder {
        std::size_t position; ///< In the table.
        IPv4Address ip;
        Date lastSeen;
        Date expiresAt;
    };

    /// @param now where the clock is expected to be next.
    explicit HoldersByAge(Date now) : reached_(now) {}

    void add(const Holder& holder);
    /// Forgets it, as it was added; nothing happens when it was not.
    void remove(const Holder& holder);

    /// The position of the one that has not expired by then, meets the predicate, and is the least by `lastSeen`, then
    /// by address, then by position. The clock may have been set back since it was last asked.
    [[nodiscard]] std::optional<std::size_t> oldest(Date now, const std::function<bool(std::size_t)>& predicate);

  private:
    using Age = std::tuple<Date, IPv4Address, std::size_t>;
    using End = std::pair<Date, std::size_t>;

    static Age ageOf(const Holder& holder) { return {holder.lastSeen, holder.ip, holder.position}; }
    void moveTo(Date now);

    std::map<End, Age> ends_; ///< Of all.
    std::set<Age> ages_;      ///< Of those that end after `reached_`.
    Date reached_;
};

} // namespace DHCPCore
