#include "DHCPCore/LeaseDocument.hpp"
#include "Support/LeaseBuilders.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace DHCPCore {
namespace {

using namespace TestSupport;

/// What the JSON library makes of the table.
std::string expected(const LeaseTable& table) {
    nlohmann::json document = table;
    document["version"] = 1;
    return document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string written(LeaseDocument& document, const LeaseTable& table) {
    std::string text;
    for (const std::string_view piece : document.of(table)) {
        text += piece;
    }
    return text;
}

std::string written(const LeaseTable& table) {
    LeaseDocument document;
    return written(document, table);
}

MACAddress client(std::uint32_t number) {
    return {.bytes = {0x02, 0, 0, 0, static_cast<std::uint8_t>(number >> 8U), static_cast<std::uint8_t>(number)}};
}

TEST(LeaseDocumentTest, WritesAnEmptyTableAsTheJSONLibraryDoes) { EXPECT_EQ(written({}), expected({})); }

TEST(LeaseDocumentTest, WritesEveryFieldAsTheJSONLibraryDoes) {
    Lease full = boundLease(mac(1), ip(1));
    full.hostname = "device";
    full.vendorClass = "";
    full.clientID = "01:02";
    LeaseTable table({full, leaseIn(Lease::State::reclaimed, mac(2), ip(2))}, {});
    table.addQuarantine(ip(9), now, mac(3));
    table.addQuarantine(ip(8), Date::max(), mac(3));
    EXPECT_EQ(written(table), expected(table));
}

TEST(LeaseDocumentTest, WritesAnyBytesAsTheJSONLibraryDoes) {
    LeaseTable table;
    for (int byte = 0; byte < 256; ++byte) {
        Lease lease = boundLease(client(static_cast<std::uint32_t>(byte)), ip(1));
        lease.hostname = std::string("a") + static_cast<char>(byte) + "z";
        lease.vendorClass = std::string("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80/") + static_cast<char>(byte);
        table.upsert(lease);
    }
    EXPECT_EQ(written(table), expected(table));
}

TEST(LeaseDocumentTest, LeavesOutWhatIsGoneHoweverManySideBySide) {
    constexpr std::uint32_t count = 200;
    struct Stretch {
        std::uint32_t first;
        std::uint32_t last;
    };
    for (const Stretch stretch : {Stretch{.first = 0, .last = 63}, Stretch{.first = 64, .last = 127},
                                  Stretch{.first = 120, .last = 199}, Stretch{.first = 0, .last = 199}}) {
        SCOPED_TRACE(stretch.first);
        LeaseTable table;
        for (std::uint32_t number = 0; number < count; ++number) {
            table.upsert(boundLease(client(number), ip(1)));
        }
        LeaseDocument document;
        EXPECT_EQ(written(document, table), expected(table));
        for (std::uint32_t number = stretch.first; number <= stretch.last; ++number) {
            table.remove(client(number));
        }
        EXPECT_EQ(written(document, table), expected(table));
        table.upsert(boundLease(client(count), ip(1)));
        EXPECT_EQ(written(document, table), expected(table));
    }
}

TEST(LeaseDocumentTest, FollowsATableThroughEveryChange) {
    std::mt19937 random(11);
    const auto below = [&random](std::uint32_t limit) { return static_cast<std::uint32_t>(random() % limit); };
    LeaseDocument document;
    LeaseTable table;
    for (int step = 0; step < 3000; ++step) {
        const MACAddress mac = client(below(300));
        const auto address = ip(static_cast<std::uint8_t>(below(250)));
        const Date instant = now + std::chrono::seconds{below(100)};
        switch (below(16)) {
        case 0:
            table.remove(mac);
            break;
        case 1:
            table.addQuarantine(address, instant, mac);
            break;
        case 2:
            table.pruneQuarantine(now + std::chrono::seconds{below(20)});
            break;
        case 3:
            if (below(50) == 0) {
                table.clearInactive(instant);
            }
            break;
        default:
            Lease lease = leaseUntil(instant, mac, address);
            lease.state = static_cast<Lease::State>(below(4));
            lease.hostname = std::string(below(20), 'x');
            table.upsert(lease);
        }
        if (below(3) == 0) { // several changes between two documents are the rule
            ASSERT_EQ(written(document, table), expected(table)) << "in step " << step;
        }
    }
}

TEST(LeaseDocumentTest, TakesAnotherTableForWhatItIs) {
    LeaseDocument document;
    const LeaseTable first({boundLease(mac(1), ip(1))}, {});
    const LeaseTable second({boundLease(mac(2), ip(2))}, {});
    EXPECT_EQ(written(document, first), expected(first));
    EXPECT_EQ(written(document, second), expected(second));
    EXPECT_EQ(written(document, {}), expected({}));
    LeaseTable copy;
    copy = first;
    EXPECT_EQ(written(document, copy), expected(first));
}

} // namespace
} // namespace DHCPCore
