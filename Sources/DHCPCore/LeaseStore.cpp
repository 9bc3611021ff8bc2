#include "DHCPCore/LeaseStore.hpp"

#include "DHCPCore/EnumTextJSON.hpp"
#include "DHCPCore/Error.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iterator>
#include <tuple>
#include <utility>

namespace DHCPCore {

namespace {

/// Who comes first when leases are shown; a device that was never probed comes last.
constexpr std::array<std::optional<PresenceState>, 5> displayOrder{
    PresenceState::online, PresenceState::conflict, PresenceState::unknown, PresenceState::offline, std::nullopt};

auto displayRank(std::optional<PresenceState> presence) {
    return std::distance(displayOrder.begin(), std::ranges::find(displayOrder, presence));
}

/// By address, then by the MAC's printed form: its digits have one width and their order, so the bytes order likewise.
auto addressThenMAC(const Lease& lease) { return std::tie(lease.ip, lease.mac.bytes); }

/// The keys of the JSON forms.
namespace Key {
constexpr const char* mac = "mac";
constexpr const char* ip = "ip";
constexpr const char* state = "state";
constexpr const char* expiresAt = "expiresAt";
constexpr const char* hostname = "hostname";
constexpr const char* vendorClass = "vendorClass";
constexpr const char* clientID = "clientID";
constexpr const char* firstSeen = "firstSeen";
constexpr const char* lastSeen = "lastSeen";
constexpr const char* until = "until";
constexpr const char* reportedBy = "reportedBy";
constexpr const char* leases = "leases";
constexpr const char* quarantine = "quarantine";
} // namespace Key

/// @throws DecodingError or a `nlohmann::json::exception`.
Date readDate(const nlohmann::json& json) {
    const auto& text = json.get_ref<const std::string&>();
    const auto date = parseISO8601(text);
    if (!date) {
        throw DecodingError("Not a date: " + text);
    }
    return *date;
}

void writeOptionalText(nlohmann::json& record, const char* key, const std::optional<std::string>& text) {
    if (text) {
        record[key] = *text;
    }
}

/// A key that is missing or null is an absent text.
std::optional<std::string> readOptionalText(const nlohmann::json& record, const char* key) {
    const auto found = record.find(key);
    if (found == record.end() || found->is_null()) {
        return std::nullopt;
    }
    return found->get<std::string>();
}

} // namespace

bool Lease::holdsAddress(Date now) const {
    return (state == State::offered || state == State::bound) && now < expiresAt;
}

LeaseTable::LeaseTable(std::vector<Lease> leases, std::vector<Quarantine> quarantine)
    : leases_(std::move(leases)), quarantine_(std::move(quarantine)) {
    indexQuarantine();
    leasesReplaced();
}

std::optional<Lease> LeaseTable::lease(const MACAddress& mac) const {
    const Lease* const record = find(mac);
    return record == nullptr ? std::nullopt : std::optional(*record);
}

std::optional<Lease> LeaseTable::holder(IPv4Address ip, Date now) const {
    const Lease* const record = findHolder(ip, now);
    return record == nullptr ? std::nullopt : std::optional(*record);
}

const Lease* LeaseTable::find(const MACAddress& mac) const {
    const auto position = index_.positionOf(mac);
    return position ? &leases_[*position] : nullptr;
}

const Lease* LeaseTable::findHolder(IPv4Address ip, Date now) const {
    for (const std::size_t position : index_.positionsOf(ip)) {
        if (leases_[position].holdsAddress(now)) {
            return &leases_[position];
        }
    }
    return nullptr;
}

const Lease* LeaseTable::findOldestHolder(Date now, const std::function<bool(const Lease&)>& predicate) const {
    if (!holdersByAge_) {
        holdersByAge_.emplace(now);
        for (auto lease = leases_.begin(); lease != leases_.end(); ++lease) {
            if (isFirstOfItsAddress(lease.position())) {
                addAges(lease->ip);
            }
        }
    }
    const auto found = holdersByAge_->oldest(now, [&](std::size_t position) { return predicate(leases_[position]); });
    return found ? &leases_[*found] : nullptr;
}

bool LeaseTable::isQuarantined(IPv4Address ip, Date now) const {
    const auto found = quarantined_.find(ip);
    return found != quarantined_.end() && found->second.until > now;
}

void LeaseTable::upsert(Lease lease) {
    const IPv4Address ip = lease.ip;
    const auto known = index_.positionOf(lease.mac);
    if (known) {
        const IPv4Address before = leases_[*known].ip;
        removeAges(before);
        removeAges(ip);
        index_.move(before, ip, *known);
        leases_.replace(*known, std::move(lease));
        updateTaken(before);
        addAges(before);
    } else {
        removeAges(ip);
        index_.append(lease.mac, ip, leases_.endPosition());
        leases_.append(std::move(lease));
    }
    updateTaken(ip);
    addAges(ip);
}

void LeaseTable::setLastSeen(const MACAddress& mac, Date lastSeen) {
    if (const auto position = index_.positionOf(mac)) {
        const IPv4Address ip = leases_[*position].ip;
        removeAges(ip);
        leases_.change(*position).lastSeen = lastSeen;
        addAges(ip);
    }
}

std::optional<Lease> LeaseTable::remove(const MACAddress& mac) {
    const auto position = index_.positionOf(mac);
    if (!position) {
        return std::nullopt;
    }
    const IPv4Address ip = leases_[*position].ip;
    removeAges(ip);
    index_.remove(mac, ip, *position);
    Lease removed = leases_.take(*position);
    updateTaken(ip);
    addAges(ip);
    const bool mayHaveAnother = index_.clients() < leases_.size(); // only tables that were put together by hand
    if (mayHaveAnother || leases_.isSparse()) {
        leases_.pack();
        indexLeases();
    }
    return removed;
}

void LeaseTable::addQuarantine(IPv4Address ip, Date until, const MACAddress& reportedBy) {
    if (const auto known = quarantined_.find(ip); known != quarantined_.end()) {
        if (known->second.only) {
            quarantine_.take(*known->second.only);
        } else {
            quarantine_.eraseIf([ip](const Quarantine& record) { return record.ip == ip; });
            indexQuarantine();
        }
    }
    const std::size_t position = quarantine_.endPosition();
    quarantine_.append({.ip = ip, .until = until, .reportedBy = reportedBy});
    quarantined_[ip] = {.until = until, .only = position};
    quarantineEnds_.emplace(until, position);
    updateTaken(ip);
    if (quarantine_.isSparse()) {
        quarantine_.pack();
        indexQuarantine();
    }
}

void LeaseTable::pruneQuarantine(Date now) {
    while (!quarantineEnds_.empty() && quarantineEnds_.top().first <= now) {
        const std::size_t position = quarantineEnds_.top().second;
        quarantineEnds_.pop();
        if (!quarantine_.isAt(position)) {
            continue;
        }
        const IPv4Address ip = quarantine_.take(position).ip;
        if (const auto known = quarantined_.find(ip); known != quarantined_.end() && known->second.until <= now) {
            quarantined_.erase(known);
            updateTaken(ip);
        }
    }
    if (quarantine_.isSparse()) {
        quarantine_.pack();
        indexQuarantine();
    }
}

std::size_t LeaseTable::clearInactive(Date now) {
    const std::size_t removed = leases_.eraseIf([now](const Lease& lease) { return !lease.holdsAddress(now); });
    leasesReplaced();
    return removed;
}

std::vector<Lease> LeaseTable::dropOutside(AddressRange range) {
    std::vector<Lease> dropped;
    const auto isOutside = [&](const Lease& lease) { return !range.contains(lease.ip); };
    std::ranges::copy_if(leases_, std::back_inserter(dropped), isOutside);
    if (!dropped.empty()) {
        leases_.eraseIf(isOutside);
        leasesReplaced();
    }
    return dropped;
}

/// Finds anew what follows from the leases.
void LeaseTable::leasesReplaced() {
    indexLeases();
    taken_.clear();
    for (auto lease = leases_.begin(); lease != leases_.end(); ++lease) {
        if (isFirstOfItsAddress(lease.position())) {
            updateTaken(lease->ip);
        }
    }
    for (const Quarantine& record : quarantine_) {
        updateTaken(record.ip);
    }
}

/// Finds anew where the leases stand.
void LeaseTable::indexLeases() {
    index_.clear(leases_.size());
    holdersByAge_.reset();
    for (auto lease = leases_.begin(); lease != leases_.end(); ++lease) {
        index_.append(lease->mac, lease->ip, lease.position());
    }
}

/// Finds anew what the quarantine is about and where its records stand.
void LeaseTable::indexQuarantine() {
    quarantined_.clear();
    quarantineEnds_ = {};
    for (auto record = quarantine_.begin(); record != quarantine_.end(); ++record) {
        const auto [known, isNew] =
            quarantined_.try_emplace(record->ip, Quarantined{.until = record->until, .only = record.position()});
        if (!isNew) {
            known->second = {.until = std::max(known->second.until, record->until), .only = std::nullopt};
        }
        quarantineEnds_.emplace(record->until, record.position());
    }
}

/// What is done once for an address is done at its first record, however many there are.
bool LeaseTable::isFirstOfItsAddress(std::size_t position) const {
    return index_.positionsOf(leases_[position].ip).front() == position;
}

void LeaseTable::updateTaken(IPv4Address ip) {
    Date until = HeldAddresses::notHeld;
    for (const std::size_t position : index_.positionsOf(ip)) {
        const Lease& lease = leases_[position];
        if (lease.state == Lease::State::offered || lease.state == Lease::State::bound) {
            until = std::max(until, lease.expiresAt);
        }
    }
    if (const auto quarantined = quarantined_.find(ip); quarantined != quarantined_.end()) {
        until = std::max(until, quarantined->second.until);
    }
    taken_.set(ip, until);
}

/// Whether a record about the address is bound, expired or not.
bool LeaseTable::isBound(IPv4Address ip) const {
    return std::ranges::any_of(index_.positionsOf(ip),
                               [this](std::size_t position) { return leases_[position].state == Lease::State::bound; });
}

HoldersByAge::Holder LeaseTable::holderAt(std::size_t position) const {
    const Lease& lease = leases_[position];
    return {.position = position, .ip = lease.ip, .lastSeen = lease.lastSeen, .expiresAt = lease.expiresAt};
}

/// Offers to strangers are left out, of which there may be many, but where somebody else is bound to the address.
/// (Clocks that are set back, and files, make such records.)
void LeaseTable::addAges(IPv4Address ip) const {
    if (!holdersByAge_ || !isBound(ip)) {
        return;
    }
    for (const std::size_t position : index_.positionsOf(ip)) {
        const Lease& lease = leases_[position];
        if (lease.state == Lease::State::offered || lease.state == Lease::State::bound) {
            holdersByAge_->add(holderAt(position));
        }
    }
}

void LeaseTable::removeAges(IPv4Address ip) const {
    if (!holdersByAge_ || !isBound(ip)) {
        return;
    }
    for (const std::size_t position : index_.positionsOf(ip)) {
        holdersByAge_->remove(holderAt(position));
    }
}

std::vector<Lease> LeaseTable::sortedByIP() const {
    std::vector<Lease> sorted = leases_.all();
    std::ranges::stable_sort(sorted, {}, addressThenMAC);
    return sorted;
}

std::vector<Lease>
LeaseTable::sortedForDisplay(const std::function<std::optional<PresenceState>(const Lease&)>& presence) const {
    using Ranked = std::pair<std::ptrdiff_t, Lease>;
    std::vector<Ranked> ranked;
    ranked.reserve(leases_.size());
    for (const Lease& lease : leases_) {
        ranked.emplace_back(displayRank(presence(lease)), lease);
    }
    std::ranges::stable_sort(ranked, {}, [](const Ranked& entry) {
        return std::tuple_cat(std::tie(entry.first), addressThenMAC(entry.second));
    });
    std::vector<Lease> sorted;
    sorted.reserve(ranked.size());
    for (Ranked& entry : ranked) {
        sorted.push_back(std::move(entry.second));
    }
    return sorted;
}

void to_json(nlohmann::json& json, Lease::State state) { json = rawValue(state); }

void from_json(const nlohmann::json& json, Lease::State& state) {
    state = enumFromJSON<Lease::State>(json, "lease state");
}

void to_json(nlohmann::json& json, const Lease& lease) {
    json = {{Key::mac, lease.mac},
            {Key::ip, lease.ip},
            {Key::state, lease.state},
            {Key::expiresAt, iso8601(lease.expiresAt)},
            {Key::firstSeen, iso8601(lease.firstSeen)},
            {Key::lastSeen, iso8601(lease.lastSeen)}};
    writeOptionalText(json, Key::hostname, lease.hostname);
    writeOptionalText(json, Key::vendorClass, lease.vendorClass);
    writeOptionalText(json, Key::clientID, lease.clientID);
}

void from_json(const nlohmann::json& json, Lease& lease) {
    lease = {.mac = json.at(Key::mac).get<MACAddress>(),
             .ip = json.at(Key::ip).get<IPv4Address>(),
             .state = json.at(Key::state).get<Lease::State>(),
             .expiresAt = readDate(json.at(Key::expiresAt)),
             .hostname = readOptionalText(json, Key::hostname),
             .vendorClass = readOptionalText(json, Key::vendorClass),
             .clientID = readOptionalText(json, Key::clientID),
             .firstSeen = readDate(json.at(Key::firstSeen)),
             .lastSeen = readDate(json.at(Key::lastSeen))};
}

void to_json(nlohmann::json& json, const Quarantine& quarantine) {
    json = {
        {Key::ip, quarantine.ip}, {Key::until, iso8601(quarantine.until)}, {Key::reportedBy, quarantine.reportedBy}};
}

void from_json(const nlohmann::json& json, Quarantine& quarantine) {
    quarantine = {.ip = json.at(Key::ip).get<IPv4Address>(),
                  .until = readDate(json.at(Key::until)),
                  .reportedBy = json.at(Key::reportedBy).get<MACAddress>()};
}

void to_json(nlohmann::json& json, const LeaseTable& table) {
    json = {{Key::leases, table.leases().all()}, {Key::quarantine, table.quarantine().all()}};
}

void from_json(const nlohmann::json& json, LeaseTable& table) {
    table = LeaseTable(json.at(Key::leases).get<std::vector<Lease>>(),
                       json.at(Key::quarantine).get<std::vector<Quarantine>>());
}

} // namespace DHCPCore
