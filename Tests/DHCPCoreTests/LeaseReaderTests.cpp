#include "DHCPCore/Error.hpp"
#include "DHCPCore/LeaseDocument.hpp"
#include "DHCPCore/LeaseReader.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <optional>
#include <random>
#include <string>
#include <vector>

namespace DHCPCore {
namespace {

/// The same by building the whole document, as the JSON library does it.
std::optional<LeaseRecords> readByTheLibrary(const std::string& text) {
    try {
        const auto document = nlohmann::json::parse(text);
        if (document.at("version") != 1) {
            return std::nullopt;
        }
        return LeaseRecords{.leases = document.at("leases").get<std::vector<Lease>>(),
                            .quarantine = document.at("quarantine").get<std::vector<Quarantine>>()};
    } catch (const nlohmann::json::exception&) {
        return std::nullopt;
    } catch (const DecodingError&) {
        return std::nullopt;
    }
}

const std::string lease = R"({"mac":"02:00:00:00:00:01","ip":"10.0.0.10","state":"bound",)"
                          R"("expiresAt":"2025-01-31T13:04:05Z","firstSeen":"2025-01-31T12:04:05Z",)"
                          R"("lastSeen":"2025-01-31T12:30:00Z"})";
const std::string quarantine = R"({"ip":"10.0.0.11","until":"2025-01-31T13:04:05Z","reportedBy":"02:00:00:00:00:02"})";

std::string documentOf(const std::string& leases, const std::string& quarantines = "",
                       const std::string& version = "1") {
    return R"({"leases":[)" + leases + R"(],"quarantine":[)" + quarantines + R"(],"version":)" + version + "}";
}

std::string replaced(std::string text, const std::string& piece, const std::string& by) {
    return text.replace(text.find(piece), piece.size(), by);
}

TEST(LeaseReaderTest, ReadsEveryRecordInItsOrder) {
    const std::string other = replaced(lease, "10.0.0.10", "10.0.0.12");
    const auto records = readLeaseDocument(documentOf(lease + ',' + other, quarantine));
    ASSERT_TRUE(records);
    ASSERT_EQ(records->leases.size(), 2U);
    EXPECT_EQ(records->leases[0].ip, (IPv4Address{10, 0, 0, 10}));
    EXPECT_EQ(records->leases[1].ip, (IPv4Address{10, 0, 0, 12}));
    EXPECT_EQ(records->leases[1].mac, records->leases[0].mac);
    ASSERT_EQ(records->quarantine.size(), 1U);
    EXPECT_EQ(records->quarantine[0].ip, (IPv4Address{10, 0, 0, 11}));
}

TEST(LeaseReaderTest, ReadsAsTheLibraryDoesWhateverTheDocumentHolds) {
    const std::string named = replaced(lease, "}", R"(,"hostname":"pdu","vendorClass":"v","clientID":"c"})");
    const std::vector<std::string> documents{
        documentOf(""),
        documentOf(lease, quarantine),
        documentOf(named, quarantine),
        documentOf(lease, quarantine, "1.0"),
        documentOf(lease, quarantine, "2"),
        documentOf(lease, quarantine, "1.5"),
        documentOf(lease, quarantine, "-1"),
        documentOf(lease, quarantine, "18446744073709551617"),
        documentOf(lease, quarantine, "null"),
        documentOf(lease, quarantine, "[1]"),
        documentOf(lease, quarantine, R"({"version":1})"),
        documentOf("null"),
        documentOf("1"),
        documentOf(R"("lease")"),
        documentOf('[' + lease + ']'),
        documentOf(lease + std::string(",{}")),
        documentOf(lease, "{}"),
        documentOf(lease, lease),
        documentOf(quarantine, quarantine),
        documentOf(replaced(lease, R"("02:00:00:00:00:01")", "null")),
        documentOf(replaced(lease, R"("02:00:00:00:00:01")", "1")),
        documentOf(replaced(lease, R"("02:00:00:00:00:01")", R"(["02:00:00:00:00:01"])")),
        documentOf(replaced(lease, R"("02:00:00:00:00:01")", R"({"mac":"02:00:00:00:00:01"})")),
        documentOf(replaced(lease, "02:00:00:00:00:01", "nobody")),
        documentOf(replaced(lease, "bound", "lent")),
        documentOf(replaced(lease, "2025-01-31T13:04:05Z", "2025-02-30T13:04:05Z")),
        documentOf(replaced(named, R"("pdu")", "null")),
        documentOf(replaced(named, R"("pdu")", "1")),
        documentOf(replaced(named, R"("pdu")", "true")),
        documentOf(replaced(named, R"("pdu")", "[]")),
        documentOf(replaced(named, R"("pdu")", "1e3")),
        documentOf(replaced(named, R"("pdu")", "\"\\u0000 \\ud83d\\ude00\"")),
        documentOf(replaced(lease, "}", R"(,"mac":"02:00:00:00:00:09"})")),
        documentOf(replaced(lease, "}", R"(,"mac":null})")),
        documentOf(replaced(replaced(lease, R"("02:00:00:00:00:01")", "1"), "}", R"(,"mac":"02:00:00:00:00:09"})")),
        documentOf(replaced(lease, "}", R"(,"more":{"mac":1,"leases":[{}]},"list":[[1,{"ip":null}],"mac"]})")),
        R"({"more":{"leases":1,"version":2},"leases":[)" + lease + R"(],"quarantine":[],"version":1})",
        R"({"leases":[1],"leases":[)" + lease + R"(],"quarantine":[],"version":1})",
        R"({"leases":[)" + lease + R"(],"leases":1,"quarantine":[],"version":1})",
        R"({"version":1,"version":2,"leases":[],"quarantine":[]})",
        R"({"version":2,"version":1,"leases":[],"quarantine":[]})",
        R"({"leases":{},"quarantine":[],"version":1})",
        R"({"leases":[],"quarantine":{},"version":1})",
        R"({"leases":[],"quarantine":[]})",
        R"({"leases":[],"version":1})",
        '[' + documentOf(lease) + ']',
        "1",
        "null",
        "",
        documentOf(lease) + 'x',
        documentOf(lease + ','),
        documentOf(replaced(lease, "10.0.0.10", "\xff")),
    };
    for (const std::string& document : documents) {
        EXPECT_EQ(readLeaseDocument(document), readByTheLibrary(document)) << document;
    }
}

TEST(LeaseReaderTest, ReadsAsTheLibraryDoesWithBytesAndPiecesOfTheDocumentChanged) {
    constexpr int tries = 20'000;
    const std::string whole = documentOf(lease + ',' + lease, quarantine);
    const std::vector<std::string> pieces{"{", "}", "[", "]", ",", ":", "\"", "1", "null", R"("mac")", R"("leases")"};
    std::mt19937 random(1); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same documents every time
    int readable = 0;
    for (int count = 0; count < tries; ++count) {
        std::string document = whole;
        for (std::size_t changes = 1 + random() % 2; changes > 0; --changes) {
            const std::size_t place = random() % document.size();
            document.replace(place, random() % 3 == 0 ? random() % 12 : 1, pieces[random() % pieces.size()]);
        }
        const auto expected = readByTheLibrary(document);
        readable += expected ? 1 : 0;
        ASSERT_EQ(readLeaseDocument(document), expected) << document;
    }
    EXPECT_GT(readable, 20);
}

} // namespace
} // namespace DHCPCore
