#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/Date.hpp"

#include <cstddef>
#include <functional>
#include <set>
#include <span>
#include <tuple>
#include <utility>

namespace DHCPCore {

struct Lease;

/// The offered and bound records of a table in the order in which their clients were last heard from, without those
/// that have expired: who looks for the client that is away for longest need not walk the table.
class HoldersByAge {
  public:
    using Predicate = std::function<bool(const Lease&)>;

    /// Takes in every record of the table; `now` is where the clock is expected to be next.
    HoldersByAge(std::span<const Lease> leases, Date now);

    /// Of the record at `position`; nothing happens for one that is neither offered nor bound.
    void add(const Lease& lease, std::size_t position);
    void remove(const Lease& lease, std::size_t position);

    /// The record that holds its address at that instant, meets the predicate, and is the least by `lastSeen`, then by
    /// address. The clock may have been set back since it was last asked.
    /// @param leases the table as it is.
    [[nodiscard]] const Lease* oldest(std::span<const Lease> leases, Date now, const Predicate& predicate);

  private:
    using Age = std::tuple<Date, IPv4Address, std::size_t>; ///< Last heard from; of equal ones the first of the table.
    using End = std::pair<Date, std::size_t>;

    static Age ageOf(const Lease& lease, std::size_t position);
    void moveTo(std::span<const Lease> leases, Date now);

    std::set<End> ends_; ///< Of all that are offered or bound.
    std::set<Age> ages_; ///< Of those of them that end after `reached_`.
    Date reached_;
};

} // namespace DHCPCore
