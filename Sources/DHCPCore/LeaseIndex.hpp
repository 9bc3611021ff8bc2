#pragma once

#include "DHCPCore/Addresses.hpp"

#include <cstddef>
#include <optional>
#include <span>
#include <unordered_map>
#include <vector>

namespace DHCPCore {

/// Where in a table the records of a client and of an address stand, so that a look-up need not walk it. Its answers
/// are those of the walk: the first match in table order.
class LeaseIndex {
  public:
    /// Takes in the record at `position`, the last one of the table.
    void append(const MACAddress& mac, IPv4Address ip, std::size_t position);

    /// The record at `position` is about another address now.
    void move(IPv4Address from, IPv4Address to, std::size_t position);

    /// The client's first record, which is about that address, is gone. Of a client with another one nothing is known
    /// from then on.
    void remove(const MACAddress& mac, IPv4Address ip, std::size_t position);

    /// Forgets everything, and makes room for so many records.
    void clear(std::size_t expected = 0);

    /// The client's first record.
    [[nodiscard]] std::optional<std::size_t> positionOf(const MACAddress& mac) const;

    /// How many clients are known.
    [[nodiscard]] std::size_t clients() const { return byMAC_.size(); }

    /// Every record about that address, in table order.
    [[nodiscard]] std::span<const std::size_t> positionsOf(IPv4Address ip) const;

  private:
    void removeFrom(IPv4Address ip, std::size_t position);

    std::unordered_map<MACAddress, std::size_t> byMAC_;
    std::unordered_map<IPv4Address, std::vector<std::size_t>> byIP_;
};

} // namespace DHCPCore
