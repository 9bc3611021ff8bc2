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

/// Records of a table in the order in which their clients were last heard from, without those that have expired: who
/// looks for the client that is away for longest need not walk the table.
class HoldersByAge {
  public:
    using Predicate = std::function<bool(const Lease&)>;

    /// @param now where the clock is expected to be next.
    explicit HoldersByAge(Date now) : reached_(now) {}

    /// Takes in the record at `position`, which is offered or bound.
    void add(const Lease& lease, std::size_t position);
    /// Forgets it, as it is; nothing happens when it was not taken in.
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

    std::set<End> ends_; ///< Of all.
    std::set<Age> ages_; ///< Of those that end after `reached_`.
    Date reached_;
};

} // namespace DHCPCore
