#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/Date.hpp"
#include "DHCPCore/EnumText.hpp"
#include "DHCPCore/HeldAddresses.hpp"
#include "DHCPCore/HoldersByAge.hpp"
#include "DHCPCore/LeaseIndex.hpp"
#include "DHCPCore/PresenceState.hpp"
#include "DHCPCore/Records.hpp"

#include <nlohmann/json_fwd.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <queue>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace DHCPCore {

/// One client's record: which address it has or had, and until when.
struct Lease {
    enum class State {
        offered,   ///< An OFFER is outstanding.
        bound,     ///< The client was ACKed.
        released,  ///< The client gave the address back, or chose another server.
        reclaimed, ///< The server took the address from an offline holder because the range was full.
    };

    MACAddress mac; ///< The key; never changes.
    IPv4Address ip;
    State state = State::offered;
    Date expiresAt;                         ///< When the hold on `ip` ends.
    std::optional<std::string> hostname;    ///< Last sent in option 12.
    std::optional<std::string> vendorClass; ///< Last sent in option 60.
    std::optional<std::string> clientID;    ///< Last sent in option 61, printed form.
    Date firstSeen;
    Date lastSeen; ///< When the client was last heard from or the record assigned.

    [[nodiscard]] const MACAddress& id() const { return mac; }

    /// Offered or bound, and `now` strictly before `expiresAt`.
    [[nodiscard]] bool holdsAddress(Date now) const;
    /// `now` at or after `expiresAt`, whatever the state.
    [[nodiscard]] bool isExpired(Date now) const { return now >= expiresAt; }

    bool operator==(const Lease&) const = default;
};

template <>
struct EnumText<Lease::State> {
    static constexpr std::array<std::string_view, 4> names{"offered", "bound", "released", "reclaimed"};
};

/// An address that a client declined.
struct Quarantine {
    IPv4Address ip;
    Date until; ///< Not handed out before this instant.
    MACAddress reportedBy;

    bool operator==(const Quarantine&) const = default;
};

/// Who has which address. Records stand in the order of their insertion, and every look-up takes the first match.
class LeaseTable {
  public:
    LeaseTable() = default;
    LeaseTable(std::vector<Lease> leases, std::vector<Quarantine> quarantine);

    /// At most one record per client, as long as the constructor was given no more.
    [[nodiscard]] const Records<Lease>& leases() const { return leases_; }
    /// At most one record per address, likewise.
    [[nodiscard]] const Records<Quarantine>& quarantine() const { return quarantine_; }

    /// The client's record, whatever its state or expiry.
    [[nodiscard]] std::optional<Lease> lease(const MACAddress& mac) const;
    /// The first record that holds the address at that instant.
    [[nodiscard]] std::optional<Lease> holder(IPv4Address ip, Date now) const;
    /// The same records where they stand, up to the next change of the table; null when there is none.
    [[nodiscard]] const Lease* find(const MACAddress& mac) const;
    [[nodiscard]] const Lease* findHolder(IPv4Address ip, Date now) const;
    [[nodiscard]] bool isQuarantined(IPv4Address ip, Date now) const;
    /// The lowest address of the range that at that instant no record holds and that is not quarantined.
    [[nodiscard]] std::optional<IPv4Address> lowestFree(AddressRange range, Date now) const {
        return taken_.lowestFree(range, now);
    }

    /// The record that holds its address at that instant, meets the predicate, and whose client was last heard from
    /// longest ago; of equal ones the lowest address. Null when there is none. Not asked about an offer of an address
    /// about which there is no bound record. From the first question on the table keeps its records in that order, too:
    /// one thread at a time may ask, and the predicate must not change the table.
    [[nodiscard]] const Lease* findOldestHolder(Date now, const std::function<bool(const Lease&)>& predicate) const;

    /// Replaces the client's record where it stands, else appends it.
    void upsert(Lease lease);
    /// That client was heard from then; nothing happens when it has no record.
    void setLastSeen(const MACAddress& mac, Date lastSeen);
    /// Removes the client's record and returns it; nothing when there is none.
    std::optional<Lease> remove(const MACAddress& mac);
    /// Replaces every record of that address by a new one at the end.
    void addQuarantine(IPv4Address ip, Date until, const MACAddress& reportedBy);
    /// Removes the records whose time is up at that instant.
    void pruneQuarantine(Date now);
    /// Keeps only the leases that hold their address at that instant. @return how many were removed.
    std::size_t clearInactive(Date now);
    /// Removes every lease whose address lies outside the range and returns them in their former order.
    std::vector<Lease> dropOutside(AddressRange range);

    /// By address, then by the printed form of the MAC.
    [[nodiscard]] std::vector<Lease> sortedByIP() const;
    /// Devices that answer first, never probed ones last; among equals by address, then by the MAC's printed form.
    [[nodiscard]] std::vector<Lease>
    sortedForDisplay(const std::function<std::optional<PresenceState>(const Lease&)>& presence) const;

    bool operator==(const LeaseTable& other) const {
        return leases_ == other.leases_ && quarantine_ == other.quarantine_; // all else follows from these
    }

  private:
    /// What is known of an address's records in the quarantine.
    struct Quarantined {
        Date until;                      ///< The latest end.
        std::optional<std::size_t> only; ///< Where its record stands; nothing when there are several.
    };
    using End = std::pair<Date, std::size_t>; ///< When a record's time is up, and where it stands.
    using EarliestFirst = std::priority_queue<End, std::vector<End>, std::greater<>>;

    void leasesReplaced();
    void indexLeases();
    void indexQuarantine();
    [[nodiscard]] bool isFirstOfItsAddress(std::size_t position) const;
    void updateTaken(IPv4Address ip);
    [[nodiscard]] bool isBound(IPv4Address ip) const;
    [[nodiscard]] HoldersByAge::Holder holderAt(std::size_t position) const;
    void addAges(IPv4Address ip) const;
    void removeAges(IPv4Address ip) const;

    Records<Lease> leases_;
    Records<Quarantine> quarantine_;
    LeaseIndex index_;
    HeldAddresses taken_; ///< By leases and by quarantine.
    std::unordered_map<IPv4Address, Quarantined> quarantined_;
    EarliestFirst quarantineEnds_; ///< Also of records that are gone, as long as their gap is there.
    mutable std::optional<HoldersByAge> holdersByAge_; ///< Made when it is first needed.
};

/// Objects with one key per field; the optional texts of a lease only when present, dates as `iso8601` writes them.
/// @throws DecodingError or a `nlohmann::json::exception` for a missing key or a bad value.
void to_json(nlohmann::json& json, Lease::State state);
void from_json(const nlohmann::json& json, Lease::State& state);
void to_json(nlohmann::json& json, const Lease& lease);
void from_json(const nlohmann::json& json, Lease& lease);
void to_json(nlohmann::json& json, const Quarantine& quarantine);
void from_json(const nlohmann::json& json, Quarantine& quarantine);
void to_json(nlohmann::json& json, const LeaseTable& table);
void from_json(const nlohmann::json& json, LeaseTable& table);

} // namespace DHCPCore
