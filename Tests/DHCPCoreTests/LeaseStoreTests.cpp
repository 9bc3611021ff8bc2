#include "DHCPCore/Error.hpp"
#include "DHCPCore/LeaseStore.hpp"
#include "Support/LeaseBuilders.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <string>
#include <vector>

namespace DHCPCore {
namespace {

using namespace std::chrono_literals;
using TestSupport::boundLease;
using TestSupport::ip;
using TestSupport::leaseIn;
using TestSupport::leaseUntil;
using TestSupport::mac;
using TestSupport::now;

std::string thrownByReading(const nlohmann::json& json) {
    try {
        static_cast<void>(json.get<Lease>());
    } catch (const DecodingError& error) {
        return error.description();
    }
    return "";
}

TEST(LeaseTest, HoldsItsAddressWhileItIsOfferedOrBound) {
    EXPECT_TRUE(leaseIn(Lease::State::offered, mac(1), ip(10)).holdsAddress(now));
    EXPECT_TRUE(leaseIn(Lease::State::bound, mac(1), ip(10)).holdsAddress(now));
    EXPECT_FALSE(leaseIn(Lease::State::released, mac(1), ip(10)).holdsAddress(now));
    EXPECT_FALSE(leaseIn(Lease::State::reclaimed, mac(1), ip(10)).holdsAddress(now));
}

TEST(LeaseTest, HoldsItsAddressUntilJustBeforeItsExpiry) {
    EXPECT_TRUE(leaseUntil(now + 1us, mac(1), ip(10)).holdsAddress(now));
    EXPECT_FALSE(leaseUntil(now, mac(1), ip(10)).holdsAddress(now));
    EXPECT_FALSE(leaseUntil(now - 1us, mac(1), ip(10)).holdsAddress(now));
}

TEST(LeaseTest, IsExpiredFromItsExpiryOnWhateverItsState) {
    for (const Lease::State state : allCases<Lease::State>()) {
        SCOPED_TRACE(rawValue(state));
        Lease lease = leaseIn(state, mac(1), ip(10));
        lease.expiresAt = now + 1us;
        EXPECT_FALSE(lease.isExpired(now));
        lease.expiresAt = now;
        EXPECT_TRUE(lease.isExpired(now));
        lease.expiresAt = now - 1us;
        EXPECT_TRUE(lease.isExpired(now));
    }
}

TEST(LeaseTest, IsIdentifiedByItsMAC) { EXPECT_EQ(boundLease(mac(7), ip(10)).id(), mac(7)); }

TEST(LeaseTest, DiffersInEveryField) {
    const Lease lease = boundLease(mac(1), ip(10));
    std::vector<Lease> others(9, lease);
    others[0].mac = mac(2);
    others[1].ip = ip(11);
    others[2].state = Lease::State::offered;
    others[3].expiresAt += 1us;
    others[4].hostname = "lamp";
    others[5].vendorClass = "maker";
    others[6].clientID = "01:02";
    others[7].firstSeen += 1us;
    others[8].lastSeen += 1us;
    for (const Lease& other : others) {
        EXPECT_NE(lease, other);
    }
}

TEST(LeaseStateTest, HasFourNamesInDeclarationOrder) {
    const std::vector<std::string_view> names{"offered", "bound", "released", "reclaimed"};
    std::vector<std::string_view> found;
    for (const Lease::State state : allCases<Lease::State>()) {
        found.push_back(rawValue(state));
        EXPECT_EQ(fromRawValue<Lease::State>(rawValue(state)), state);
    }
    EXPECT_EQ(found, names);
}

TEST(LeaseStateTest, IsOrderedByDeclaration) {
    EXPECT_LT(Lease::State::offered, Lease::State::bound);
    EXPECT_LT(Lease::State::bound, Lease::State::released);
    EXPECT_LT(Lease::State::released, Lease::State::reclaimed);
}

TEST(LeaseStateTest, IsNotReadFromAnyOtherText) {
    for (const std::string_view text : {"", "Bound", "bound ", "expired", "0"}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(fromRawValue<Lease::State>(text), std::nullopt);
    }
}

TEST(LeaseTableTest, IsEmptyAtFirst) { EXPECT_EQ(LeaseTable(), LeaseTable({}, {})); }

TEST(LeaseTableTest, FindsAClientsFirstRecordWhateverItsStateOrExpiry) {
    const Lease released = leaseIn(Lease::State::released, mac(1), ip(10));
    const Lease expired = leaseUntil(now - 24h, mac(2), ip(11));
    const LeaseTable table({released, expired, boundLease(mac(1), ip(12))}, {});
    EXPECT_EQ(table.lease(mac(1)), released);
    EXPECT_EQ(table.lease(mac(2)), expired);
    EXPECT_EQ(table.lease(mac(3)), std::nullopt);
}

TEST(LeaseTableTest, FindsTheFirstLeaseThatHoldsAnAddress) {
    const Lease holder = boundLease(mac(3), ip(10));
    const LeaseTable table({leaseIn(Lease::State::released, mac(1), ip(10)), leaseUntil(now, mac(2), ip(10)),
                            boundLease(mac(5), ip(11)), holder, boundLease(mac(4), ip(10))},
                           {});
    EXPECT_EQ(table.holder(ip(10), now), holder);
    EXPECT_EQ(table.holder(ip(12), now), std::nullopt);
    EXPECT_EQ(table.holder(ip(10), now + 1h), std::nullopt);
}

TEST(LeaseTableTest, HoldsAnAddressInQuarantineUntilJustBeforeItsTimeIsUp) {
    LeaseTable table;
    table.addQuarantine(ip(10), now, mac(1));
    EXPECT_TRUE(table.isQuarantined(ip(10), now - 1us));
    EXPECT_FALSE(table.isQuarantined(ip(10), now));
    EXPECT_FALSE(table.isQuarantined(ip(11), now - 1us));
}

TEST(LeaseTableTest, LooksAtEveryQuarantineRecordOfAnAddress) {
    const LeaseTable table({}, {{.ip = ip(10), .until = now, .reportedBy = mac(1)},
                                {.ip = ip(10), .until = now + 1us, .reportedBy = mac(2)}});
    EXPECT_TRUE(table.isQuarantined(ip(10), now));
}

TEST(LeaseTableTest, KeepsThePositionOfAnUpdatedLease) {
    LeaseTable table({boundLease(mac(1), ip(10)), boundLease(mac(2), ip(11)), boundLease(mac(3), ip(12))}, {});
    Lease changed = leaseIn(Lease::State::released, mac(2), ip(20));
    changed.hostname = "lamp";
    table.upsert(changed);
    EXPECT_EQ(table, LeaseTable({boundLease(mac(1), ip(10)), changed, boundLease(mac(3), ip(12))}, {}));
}

TEST(LeaseTableTest, ReplacesOnlyTheFirstRecordOfAClient) {
    LeaseTable table({boundLease(mac(1), ip(10)), boundLease(mac(1), ip(11))}, {});
    table.upsert(boundLease(mac(1), ip(12)));
    EXPECT_EQ(table, LeaseTable({boundLease(mac(1), ip(12)), boundLease(mac(1), ip(11))}, {}));
}

TEST(LeaseTableTest, AppendsTheLeaseOfANewClient) {
    LeaseTable table({boundLease(mac(2), ip(11))}, {});
    table.upsert(boundLease(mac(1), ip(10)));
    EXPECT_EQ(table, LeaseTable({boundLease(mac(2), ip(11)), boundLease(mac(1), ip(10))}, {}));
}

TEST(LeaseTableTest, RemovesTheFirstRecordOfAClientAndReturnsIt) {
    LeaseTable table({boundLease(mac(1), ip(10)), boundLease(mac(2), ip(11)), boundLease(mac(1), ip(12))}, {});
    EXPECT_EQ(table.remove(mac(1)), boundLease(mac(1), ip(10)));
    EXPECT_EQ(table, LeaseTable({boundLease(mac(2), ip(11)), boundLease(mac(1), ip(12))}, {}));
}

TEST(LeaseTableTest, RemovesNothingForAnUnknownClient) {
    LeaseTable table({boundLease(mac(1), ip(10))}, {});
    EXPECT_EQ(table.remove(mac(2)), std::nullopt);
    EXPECT_EQ(table, LeaseTable({boundLease(mac(1), ip(10))}, {}));
}

TEST(LeaseTableTest, MovesARepeatedDeclineToTheEndAndRestartsItsTime) {
    LeaseTable table;
    table.addQuarantine(ip(10), now + 10min, mac(1));
    table.addQuarantine(ip(11), now + 10min, mac(2));
    table.addQuarantine(ip(10), now + 15min, mac(3));
    EXPECT_EQ(table, LeaseTable({}, {{.ip = ip(11), .until = now + 10min, .reportedBy = mac(2)},
                                     {.ip = ip(10), .until = now + 15min, .reportedBy = mac(3)}}));
}

TEST(LeaseTableTest, LeavesOneRecordOfADeclinedAddressEvenWhenThereWereMore) {
    const Quarantine old{.ip = ip(10), .until = now, .reportedBy = mac(1)};
    LeaseTable table({}, {old, old});
    table.addQuarantine(ip(10), now + 10min, mac(2));
    EXPECT_EQ(table, LeaseTable({}, {{.ip = ip(10), .until = now + 10min, .reportedBy = mac(2)}}));
}

TEST(LeaseTableTest, PrunesQuarantineRecordsAtTheVeryInstantTheirTimeIsUp) {
    const Quarantine later{.ip = ip(12), .until = now + 1us, .reportedBy = mac(1)};
    LeaseTable table({}, {{.ip = ip(10), .until = now - 1us, .reportedBy = mac(1)},
                          later,
                          {.ip = ip(11), .until = now, .reportedBy = mac(1)}});
    EXPECT_FALSE(table.isQuarantined(ip(11), now)) << "it no longer counts even before it is pruned";
    table.pruneQuarantine(now);
    EXPECT_EQ(table, LeaseTable({}, {later}));
}

TEST(LeaseTableTest, ClearsTheLeasesThatHoldNoAddressAndCountsThem) {
    const Lease offered = leaseIn(Lease::State::offered, mac(4), ip(13));
    const Lease lastInstant = leaseUntil(now + 1us, mac(6), ip(15));
    LeaseTable table({leaseIn(Lease::State::released, mac(1), ip(10)), boundLease(mac(2), ip(11)),
                      leaseIn(Lease::State::reclaimed, mac(3), ip(12)), offered, leaseUntil(now, mac(5), ip(14)),
                      lastInstant},
                     {});
    EXPECT_EQ(table.clearInactive(now), 3U);
    EXPECT_EQ(table, LeaseTable({boundLease(mac(2), ip(11)), offered, lastInstant}, {}));
    EXPECT_EQ(table.clearInactive(now), 0U);
}

TEST(LeaseTableTest, LeavesTheQuarantineAloneWhenItClearsLeases) {
    const Quarantine record{.ip = ip(10), .until = now - 1h, .reportedBy = mac(1)};
    LeaseTable table({leaseUntil(now, mac(5), ip(14))}, {record});
    EXPECT_EQ(table.clearInactive(now), 1U);
    EXPECT_EQ(table, LeaseTable({}, {record}));
}

TEST(LeaseTableTest, DropsTheLeasesOutsideARangeInTheirFormerOrder) {
    LeaseTable table({boundLease(mac(1), ip(21)), boundLease(mac(2), ip(20)), boundLease(mac(3), ip(9)),
                      boundLease(mac(4), ip(10)), boundLease(mac(5), ip(15)),
                      leaseIn(Lease::State::released, mac(6), ip(22))},
                     {});
    const std::vector<Lease> dropped = table.dropOutside({.lower = ip(10), .upper = ip(20)});
    EXPECT_EQ(dropped, (std::vector<Lease>{boundLease(mac(1), ip(21)), boundLease(mac(3), ip(9)),
                                           leaseIn(Lease::State::released, mac(6), ip(22))}));
    EXPECT_EQ(table,
              LeaseTable({boundLease(mac(2), ip(20)), boundLease(mac(4), ip(10)), boundLease(mac(5), ip(15))}, {}));
}

TEST(LeaseTableTest, SortsByTheNumberOfTheAddressAndThenByMAC) {
    const Lease a = boundLease({.bytes = {0xA0, 0, 0, 0, 0, 1}}, ip(100));
    const Lease b = boundLease({.bytes = {0x9F, 0, 0, 0, 0, 2}}, ip(100));
    const Lease c = boundLease(mac(3), ip(9));
    const LeaseTable table({a, b, c}, {});
    EXPECT_EQ(table.sortedByIP(), (std::vector<Lease>{c, b, a}));
    EXPECT_EQ(table, LeaseTable({a, b, c}, {})) << "the table itself stays as it is";
}

TEST(LeaseTableTest, KeepsTheOrderOfLeasesEqualInAddressAndMACWhenItSorts) {
    const Lease first = leaseUntil(now + 2h, mac(1), ip(10));
    const Lease second = leaseUntil(now + 1h, mac(1), ip(10));
    const LeaseTable table({first, second}, {});
    EXPECT_EQ(table.sortedByIP(), (std::vector<Lease>{first, second}));
    EXPECT_EQ(table.sortedForDisplay([](const Lease&) { return PresenceState::online; }),
              (std::vector<Lease>{first, second}));
}

TEST(LeaseTableTest, SortsMACsAsTheirPrintedForms) {
    std::vector<Lease> leases;
    for (int byte = 0; byte < 256; byte += 5) {
        leases.push_back(boundLease({.bytes = {2, static_cast<std::uint8_t>(255 - byte), 0, 0, 0, 0}}, ip(10)));
    }
    const std::vector<Lease> sorted = LeaseTable(leases, {}).sortedByIP();
    for (std::size_t index = 1; index < sorted.size(); ++index) {
        EXPECT_LT(sorted[index - 1].mac.description(), sorted[index].mac.description());
    }
}

TEST(LeaseTableTest, ShowsDevicesThatAnswerFirstAndThoseNeverProbedLast) {
    const Lease neverProbed = boundLease(mac(1), ip(10));
    const Lease offline = boundLease(mac(2), ip(11));
    const Lease unknown = boundLease(mac(3), ip(12));
    const Lease conflict = boundLease(mac(4), ip(13));
    const Lease online = boundLease(mac(5), ip(14));
    const LeaseTable table({neverProbed, offline, unknown, conflict, online}, {});
    const auto shown = table.sortedForDisplay([](const Lease& lease) -> std::optional<PresenceState> {
        switch (lease.ip.value & 0xFFU) {
        case 11:
            return PresenceState::offline;
        case 12:
            return PresenceState::unknown;
        case 13:
            return PresenceState::conflict;
        case 14:
            return PresenceState::online;
        default:
            return std::nullopt;
        }
    });
    EXPECT_EQ(shown, (std::vector<Lease>{online, conflict, unknown, offline, neverProbed}));
}

TEST(LeaseTableTest, ShowsEqualPresenceByAddressAndThenByMAC) {
    const Lease a = boundLease(mac(9), ip(20));
    const Lease b = boundLease(mac(2), ip(100));
    const Lease c = boundLease(mac(1), ip(100));
    const LeaseTable table({b, a, c}, {});
    EXPECT_EQ(table.sortedForDisplay([](const Lease&) { return PresenceState::offline; }),
              (std::vector<Lease>{a, c, b}));
    EXPECT_EQ(table.sortedForDisplay([](const Lease&) { return std::nullopt; }), (std::vector<Lease>{a, c, b}));
}

TEST(LeaseJSONTest, HasOneKeyPerField) {
    Lease lease = boundLease(mac(1), ip(10));
    lease.hostname = "lamp";
    lease.vendorClass = "maker";
    lease.clientID = "01:02";
    const nlohmann::json expected{{"mac", "02:00:00:00:00:01"},
                                  {"ip", "10.0.0.10"},
                                  {"state", "bound"},
                                  {"expiresAt", "2025-03-14T10:30:05Z"},
                                  {"hostname", "lamp"},
                                  {"vendorClass", "maker"},
                                  {"clientID", "01:02"},
                                  {"firstSeen", "2025-03-14T08:30:05Z"},
                                  {"lastSeen", "2025-03-14T09:29:05Z"}};
    EXPECT_EQ(nlohmann::json(lease), expected);
    EXPECT_EQ(expected.get<Lease>(), lease);
}

TEST(LeaseJSONTest, LeavesOutAbsentTexts) {
    const Lease lease = boundLease(mac(1), ip(10));
    const nlohmann::json json = lease;
    EXPECT_EQ(json.size(), 6U);
    EXPECT_EQ(json.get<Lease>(), lease);
}

TEST(LeaseJSONTest, KeepsAnEmptyTextApartFromAnAbsentOne) {
    Lease lease = boundLease(mac(1), ip(10));
    lease.hostname = "";
    EXPECT_EQ(nlohmann::json(lease).at("hostname"), "");
    EXPECT_EQ(nlohmann::json(lease).get<Lease>(), lease);
}

TEST(LeaseJSONTest, ReadsNullAsAnAbsentText) {
    nlohmann::json json = boundLease(mac(1), ip(10));
    json["hostname"] = nullptr;
    json["vendorClass"] = nullptr;
    json["clientID"] = nullptr;
    EXPECT_EQ(json.get<Lease>(), boundLease(mac(1), ip(10)));
}

TEST(LeaseJSONTest, CutsDatesToWholeSeconds) {
    Lease lease = boundLease(mac(1), ip(10));
    lease.lastSeen = now + 999999us;
    EXPECT_EQ(nlohmann::json(lease).at("lastSeen"), "2025-03-14T09:30:05Z");
}

TEST(LeaseJSONTest, ReadsEveryState) {
    for (const Lease::State state : allCases<Lease::State>()) {
        const Lease lease = leaseIn(state, mac(1), ip(10));
        EXPECT_EQ(nlohmann::json(lease).at("state"), rawValue(state));
        EXPECT_EQ(nlohmann::json(lease).get<Lease>(), lease);
    }
}

TEST(LeaseJSONTest, IgnoresUnknownKeys) {
    nlohmann::json json = boundLease(mac(1), ip(10));
    json["colour"] = "green";
    EXPECT_EQ(json.get<Lease>(), boundLease(mac(1), ip(10)));
}

TEST(LeaseJSONTest, NeedsEveryKeyButTheTexts) {
    for (const char* const key : {"mac", "ip", "state", "expiresAt", "firstSeen", "lastSeen"}) {
        SCOPED_TRACE(key);
        nlohmann::json json = boundLease(mac(1), ip(10));
        json.erase(key);
        EXPECT_THROW(static_cast<void>(json.get<Lease>()), nlohmann::json::exception);
        json[key] = nullptr;
        EXPECT_THROW(static_cast<void>(json.get<Lease>()), nlohmann::json::exception);
        json[key] = 5;
        EXPECT_THROW(static_cast<void>(json.get<Lease>()), nlohmann::json::exception);
    }
}

TEST(LeaseJSONTest, RefusesTextsOfAnotherType) {
    for (const char* const key : {"hostname", "vendorClass", "clientID"}) {
        SCOPED_TRACE(key);
        nlohmann::json json = boundLease(mac(1), ip(10));
        json[key] = 5;
        EXPECT_THROW(static_cast<void>(json.get<Lease>()), nlohmann::json::exception);
    }
}

TEST(LeaseJSONTest, SaysWhichTextItCouldNotRead) {
    nlohmann::json json = boundLease(mac(1), ip(10));
    json["state"] = "expired";
    EXPECT_EQ(thrownByReading(json), "Not a lease state: expired");
    json = boundLease(mac(1), ip(10));
    json["expiresAt"] = "tomorrow";
    EXPECT_EQ(thrownByReading(json), "Not a date: tomorrow");
}

TEST(QuarantineJSONTest, HasOneKeyPerFieldAndNeedsEveryOne) {
    const Quarantine quarantine{.ip = ip(10), .until = now, .reportedBy = mac(1)};
    const nlohmann::json expected{
        {"ip", "10.0.0.10"}, {"until", "2025-03-14T09:30:05Z"}, {"reportedBy", "02:00:00:00:00:01"}};
    EXPECT_EQ(nlohmann::json(quarantine), expected);
    EXPECT_EQ(expected.get<Quarantine>(), quarantine);
    for (const char* const key : {"ip", "until", "reportedBy"}) {
        SCOPED_TRACE(key);
        nlohmann::json json = expected;
        json.erase(key);
        EXPECT_THROW(static_cast<void>(json.get<Quarantine>()), nlohmann::json::exception);
    }
}

TEST(LeaseTableJSONTest, KeepsTheOrderOfItsRecords) {
    const LeaseTable table(
        {boundLease(mac(2), ip(11)), boundLease(mac(1), ip(10))},
        {{.ip = ip(13), .until = now, .reportedBy = mac(3)}, {.ip = ip(12), .until = now, .reportedBy = mac(3)}});
    const nlohmann::json json = table;
    EXPECT_EQ(json.at("leases").at(0).at("ip"), "10.0.0.11");
    EXPECT_EQ(json.at("quarantine").at(0).at("ip"), "10.0.0.13");
    EXPECT_EQ(json.get<LeaseTable>(), table);
}

TEST(LeaseTableJSONTest, WritesListsEvenWhenThereIsNothingInThem) {
    EXPECT_EQ(nlohmann::json(LeaseTable()).dump(), R"({"leases":[],"quarantine":[]})");
}

TEST(LeaseTableJSONTest, NeedsBothLists) {
    for (const std::string_view text : {R"({"leases":[]})", R"({"quarantine":[]})", R"({"leases":{},"quarantine":[]})",
                                        R"({"leases":null,"quarantine":[]})", "[]", "null", "7"}) {
        SCOPED_TRACE(text);
        EXPECT_THROW(static_cast<void>(nlohmann::json::parse(text).get<LeaseTable>()), nlohmann::json::exception);
    }
}

} // namespace
} // namespace DHCPCore
