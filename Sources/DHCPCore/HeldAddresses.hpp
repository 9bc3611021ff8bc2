#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/Date.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>

namespace DHCPCore {

/// Until when each address is held. Finds the lowest one that is not, without asking them one by one.
class HeldAddresses {
  public:
    /// Said of an address that nobody holds.
    static constexpr Date notHeld = Date::min();

    void set(IPv4Address ip, Date until);
    void clear() { pages_.clear(); }

    /// The lowest address of the range that is not held at that instant; nothing when all are.
    [[nodiscard]] std::optional<IPv4Address> lowestFree(AddressRange range, Date now) const;

  private:
    static constexpr std::uint32_t pageBits = 8;
    static constexpr std::size_t pageSize = std::size_t{1} << pageBits;

    /// The addresses that differ in their last byte only.
    struct Page {
        std::array<Date, pageSize> until;
        Date earliest = notHeld; ///< Of all of the page: nothing in it is free before this instant.
    };

    std::map<std::uint32_t, Page> pages_; ///< By the bytes before the last; a page that is not there is all free.
};

} // namespace DHCPCore
