#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/Date.hpp"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

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

    struct Place {
        std::uint8_t number; ///< The last byte of the address.
        Date until;
    };

    /// The addresses that differ in their last byte only.
    struct Page {
        std::vector<Place> places; ///< Those that are held, in order: of a world full of addresses most pages have one.
        Date earliest = notHeld;   ///< Of all of the page: nothing in it is free before this instant.

        void set(std::uint8_t number, Date until);
    };

    std::map<std::uint32_t, Page> pages_; ///< By the bytes before the last; a page that is not there is all free.
};

} // namespace DHCPCore
