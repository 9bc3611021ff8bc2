#include "DHCPCore/LeaseFile.hpp"
#include "DHCPCore/UserDirectories.hpp"
#include "Support/EnvironmentVariable.hpp"
#include "Support/LeaseBuilders.hpp"
#include "Support/TemporaryDirectory.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace DHCPCore {
namespace {

using namespace std::chrono_literals;
using TestSupport::boundLease;
using TestSupport::EnvironmentVariable;
using TestSupport::ip;
using TestSupport::leaseIn;
using TestSupport::leaseSeen;
using TestSupport::mac;
using TestSupport::now;
using TestSupport::readText;
using TestSupport::writeText;

using Names = std::vector<std::string>;

constexpr const char* asideName = "leases.json.corrupt-20250314-093005"; // in UTC

/// A lease file in a folder of its own, on a host that is set to UTC and masks the write bits of others.
class LeaseFileTest : public ::testing::Test {
  protected:
    LeaseFileTest() : umaskBefore_(::umask(022)) {}
    ~LeaseFileTest() override { ::umask(umaskBefore_); }

    [[nodiscard]] LeaseFile::LoadResult loadText(std::string_view text) const {
        writeText(file.url, text);
        return file.load(now);
    }

    TestSupport::TemporaryDirectory folder;
    LeaseFile file{.url = folder / "leases.json"};

  private:
    EnvironmentVariable zone_{"TZ", "UTC0"};
    mode_t umaskBefore_;
};

LeaseTable exampleTable() {
    Lease full = boundLease(mac(2), ip(11));
    full.hostname = "lamp";
    full.vendorClass = "maker";
    full.clientID = "01:02:00:00:00:00:02";
    return {{full, leaseIn(Lease::State::released, mac(1), ip(10))},
            {{.ip = ip(20), .until = now + 10min, .reportedBy = mac(3)}}};
}

constexpr std::string_view exampleText = R"({
  "leases": [
    {
      "clientID": "01:02:00:00:00:00:02",
      "expiresAt": "2025-03-14T10:30:05Z",
      "firstSeen": "2025-03-14T08:30:05Z",
      "hostname": "lamp",
      "ip": "10.0.0.11",
      "lastSeen": "2025-03-14T09:29:05Z",
      "mac": "02:00:00:00:00:02",
      "state": "bound",
      "vendorClass": "maker"
    },
    {
      "expiresAt": "2025-03-14T10:30:05Z",
      "firstSeen": "2025-03-14T08:30:05Z",
      "ip": "10.0.0.10",
      "lastSeen": "2025-03-14T09:29:05Z",
      "mac": "02:00:00:00:00:01",
      "state": "released"
    }
  ],
  "quarantine": [
    {
      "ip": "10.0.0.20",
      "reportedBy": "02:00:00:00:00:03",
      "until": "2025-03-14T09:40:05Z"
    }
  ],
  "version": 1
})";

LeaseFile::LoadResult loaded(LeaseTable table) { return {.table = std::move(table), .setAsideURL = std::nullopt}; }

/// The example with its first occurrence of a piece replaced.
std::string exampleWith(std::string_view piece, std::string_view replacement) {
    std::string text{exampleText};
    return text.replace(text.find(piece), piece.size(), replacement);
}

std::string loadFailure(const LeaseFile& file) {
    try {
        static_cast<void>(file.load(now));
    } catch (const LeaseFileError& error) {
        return error.description();
    }
    return "";
}

std::string saveFailure(const LeaseFile& file, const LeaseTable& table = exampleTable()) {
    try {
        file.save(table);
    } catch (const LeaseFileError& error) {
        return error.description();
    }
    return "";
}

mode_t modeOf(const std::filesystem::path& path) {
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0);
    return status.st_mode & 07777U;
}

TEST_F(LeaseFileTest, WritesSortedKeysIndentedAndLeasesInTableOrder) {
    file.save(exampleTable());
    EXPECT_EQ(readText(file.url), exampleText);
}

TEST_F(LeaseFileTest, WritesAnEmptyTable) {
    file.save({});
    EXPECT_EQ(readText(file.url), "{\n  \"leases\": [],\n  \"quarantine\": [],\n  \"version\": 1\n}");
}

TEST_F(LeaseFileTest, LoadsWhatItSaved) {
    file.save(exampleTable());
    EXPECT_EQ(file.load(now), loaded(exampleTable()));
}

TEST_F(LeaseFileTest, KeepsDatesToTheSecond) {
    Lease lease = boundLease(mac(1), ip(10));
    lease.expiresAt = now + 999999us;
    lease.firstSeen = now + 1us;
    lease.lastSeen = now + 500000us;
    file.save(LeaseTable({lease}, {{.ip = ip(20), .until = now + 999999us, .reportedBy = mac(3)}}));
    lease.expiresAt = lease.firstSeen = lease.lastSeen = now;
    EXPECT_EQ(file.load(now), loaded({{lease}, {{.ip = ip(20), .until = now, .reportedBy = mac(3)}}}));
}

TEST_F(LeaseFileTest, ReplacesWhatIsNotUTF8InATextAndKeepsEverythingElse) {
    Lease lease = boundLease(mac(1), ip(10));
    lease.hostname = "a\xFF\"\\/\n\x01\xC3";
    file.save(LeaseTable({lease}, {}));
    lease.hostname = "a\xEF\xBF\xBD\"\\/\n\x01\xEF\xBF\xBD";
    EXPECT_EQ(file.load(now), loaded({{lease}, {}}));
}

TEST_F(LeaseFileTest, KeepsNULBytesOfAText) {
    Lease lease = boundLease(mac(1), ip(10));
    lease.clientID = std::string("a\0b", 3);
    file.save(LeaseTable({lease}, {}));
    EXPECT_EQ(file.load(now), loaded({{lease}, {}}));
}

TEST_F(LeaseFileTest, IsAnEmptyTableWhereThereIsNoFile) {
    EXPECT_EQ(file.load(now), loaded({}));
    EXPECT_EQ(folder.names(), Names{});
}

TEST_F(LeaseFileTest, IsAnEmptyTableWhereThereIsNoFolder) {
    EXPECT_EQ(LeaseFile{folder / "missing" / "leases.json"}.load(now), loaded({}));
    writeText(folder / "plain", "a file");
    EXPECT_EQ(LeaseFile{folder / "plain" / "leases.json"}.load(now), loaded({}));
}

TEST_F(LeaseFileTest, IsAnEmptyTableBehindALinkToNothing) {
    std::filesystem::create_symlink("nowhere", file.url);
    EXPECT_EQ(file.load(now), loaded({}));
    EXPECT_EQ(folder.names(), Names{"leases.json"});
}

TEST_F(LeaseFileTest, LoadsThroughALink) {
    writeText(folder / "real.json", exampleText);
    std::filesystem::create_symlink("real.json", file.url);
    EXPECT_EQ(file.load(now), loaded(exampleTable()));
}

TEST_F(LeaseFileTest, IgnoresUnknownKeysAndWhiteSpace) {
    EXPECT_EQ(loadText(exampleWith(R"("version")", R"("by": {"whom": ["me", 1e3]}, "version")") + "\n\n"),
              loaded(exampleTable()));
}

TEST_F(LeaseFileTest, ReadsNullForATextAsAbsent) {
    LeaseTable table = exampleTable();
    Lease lease = *table.leases().begin();
    lease.hostname.reset();
    table.upsert(lease);
    EXPECT_EQ(loadText(exampleWith(R"("lamp")", "null")), loaded(table));
}

TEST_F(LeaseFileTest, ReadsMegabytesOfText) {
    const std::string text(std::size_t{5} << 20U, 'x');
    LeaseTable table = exampleTable();
    Lease lease = *table.leases().begin();
    lease.hostname = text;
    table.upsert(lease);
    EXPECT_EQ(loadText(exampleWith("lamp", text)), loaded(table));
}

TEST_F(LeaseFileTest, ReadsTheVersionAsANumber) {
    EXPECT_EQ(loadText(exampleWith(R"("version": 1)", R"("version": 1.0)")), loaded(exampleTable()));
}

TEST_F(LeaseFileTest, KeepsOneRecordPerClient) {
    const std::string record = R"({"mac":"02:00:00:00:00:01","ip":"10.0.0.10","state":"bound",)"
                               R"("expiresAt":"2025-03-14T10:30:05Z","firstSeen":"2025-03-14T08:30:05Z",)"
                               R"("lastSeen":"2025-03-14T09:29:05Z"})";
    EXPECT_EQ(loadText(fmt::format(R"({{"version":1,"leases":[{},{}],"quarantine":[]}})", record, record)),
              loaded({{boundLease(mac(1), ip(10))}, {}}));
}

TEST_F(LeaseFileTest, MovesAFileOfAnotherVersionAside) {
    const std::string text = exampleWith(R"("version": 1)", R"("version": 2)");
    EXPECT_EQ(loadText(text), (LeaseFile::LoadResult{.table = {}, .setAsideURL = folder / asideName}));
    EXPECT_EQ(folder.names(), Names{asideName});
    EXPECT_EQ(readText(folder / asideName), text);
}

TEST_F(LeaseFileTest, MovesWhatIsNoLeaseDocumentAside) {
    const std::vector<std::string> texts{
        "",
        " ",
        "not JSON",
        "null",
        "[]",
        "{}",
        "1",
        std::string(4, '\0'),
        "\xFF\xFE{",
        std::string(exampleText) + "garbage",
        std::string(exampleText) + std::string(1, '\0'),
        std::string(exampleText) + "{}",
        std::string(exampleText.substr(0, exampleText.size() - 1)),
        exampleWith("lamp", "\xFF"),
        exampleWith("lamp", "\xC3"),
        exampleWith("lamp", "\n"),
        exampleWith("lamp", R"(\ud800)"),
        exampleWith(R"("lamp")", "7"),
        exampleWith(R"("lamp")", "[[[]]]"),
        exampleWith(R"("version": 1)", R"("version": 0)"),
        exampleWith(R"("version": 1)", R"("version": -1)"),
        exampleWith(R"("version": 1)", R"("version": 1.5)"),
        exampleWith(R"("version": 1)", R"("version": true)"),
        exampleWith(R"("version": 1)", R"("version": "1")"),
        exampleWith(R"("version": 1)", R"("version": null)"),
        exampleWith(R"("version": 1)", R"("version": 1e999)"),
        exampleWith(R"("version": 1)", R"("version": 18446744073709551617)"),
        exampleWith(R"("version": 1)", R"("versions": 1)"),
        exampleWith("10.0.0.11", "10.0.0.256"),
        exampleWith("10.0.0.11", "4294967296"),
        exampleWith(R"("10.0.0.11")", "167772171"),
        exampleWith(R"("mac": "02:00:00:00:00:02")", R"("mac": "02:00:00:00:00")"),
        exampleWith("bound", "expired"),
        exampleWith("2025-03-14T10:30:05Z", "2025-02-29T10:30:05Z"),
        exampleWith("2025-03-14T10:30:05Z", "99999999999999999999"),
        exampleWith(R"("2025-03-14T10:30:05Z")", "1e400"),
        exampleWith(R"("leases")", R"("lease")"),
        exampleWith(R"("quarantine")", R"("Quarantine")"),
        exampleWith(R"("until")", R"("from")"),
    };
    for (const std::string& text : texts) {
        SCOPED_TRACE(text);
        const TestSupport::TemporaryDirectory own;
        const LeaseFile damaged{own / "leases.json"};
        writeText(damaged.url, text);
        EXPECT_EQ(damaged.load(now), (LeaseFile::LoadResult{.table = {}, .setAsideURL = own / asideName}));
        EXPECT_EQ(own.names(), Names{asideName});
        EXPECT_EQ(readText(own / asideName), text);
    }
}

TEST_F(LeaseFileTest, MovesAFileCutAnywhereAside) {
    for (std::size_t size = 0; size < exampleText.size(); ++size) {
        const auto result = loadText(exampleText.substr(0, size));
        ASSERT_EQ(result, (LeaseFile::LoadResult{.table = {}, .setAsideURL = folder / asideName})) << size;
        std::filesystem::remove(*result.setAsideURL);
    }
}

TEST_F(LeaseFileTest, LoadsOrMovesAsideAFileWithAnyByteDamaged) {
    constexpr std::string_view damages = "\"9\xFF[";
    for (std::size_t position = 0; position < exampleText.size(); ++position) {
        std::string text{exampleText};
        text[position] = damages[position % damages.size()];
        const auto result = loadText(text);
        const auto found = result.setAsideURL.value_or(file.url);
        ASSERT_EQ(folder.names(), Names{found.filename().string()}) << position;
        ASSERT_EQ(readText(found), text) << position;
        std::filesystem::remove(found);
    }
}

TEST_F(LeaseFileTest, MovesAMillionNestedBracketsAside) {
    constexpr std::size_t million = 1000000;
    for (const std::string& text : {std::string(million, '['), std::string(million, '[') + std::string(million, ']'),
                                    exampleWith(R"("lamp")", std::string(million, '[') + std::string(million, ']'))}) {
        EXPECT_EQ(loadText(text), (LeaseFile::LoadResult{.table = {}, .setAsideURL = folder / asideName}));
        std::filesystem::remove(folder / asideName);
    }
}

TEST_F(LeaseFileTest, IgnoresAnUnknownKeyHoweverDeeplyItsValueIsNested) {
    constexpr std::size_t million = 1000000;
    const std::string value = std::string(million, '[') + std::string(million, ']');
    EXPECT_EQ(loadText(exampleWith(R"("version")", R"("x": )" + value + R"(, "version")")), loaded(exampleTable()));
}

TEST_F(LeaseFileTest, LoadsADocumentWithDuplicateKeys) {
    EXPECT_EQ(loadText(exampleWith(R"("version")", R"("version": 2, "version")")), loaded(exampleTable()));
}

TEST_F(LeaseFileTest, LosesNoFileThatHasTheNameAsideAlready) {
    writeText(folder / asideName, "first");
    std::filesystem::create_symlink("nowhere", folder / (std::string(asideName) + "-2"));
    EXPECT_EQ(loadText("third"),
              (LeaseFile::LoadResult{.table = {}, .setAsideURL = folder / (std::string(asideName) + "-3")}));
    EXPECT_EQ(folder.names(), (Names{asideName, std::string(asideName) + "-2", std::string(asideName) + "-3"}));
    EXPECT_EQ(readText(folder / asideName), "first");
    EXPECT_EQ(readText(folder / (std::string(asideName) + "-3")), "third");
}

TEST_F(LeaseFileTest, SaysThatAFileCouldNotBeMovedAside) {
    // With the stamp, the name is longer than the 255 bytes that a file system allows.
    const std::string name(250, 'x');
    writeText(folder / name, "not JSON");
    EXPECT_EQ(loadFailure({folder / name}), "Could not move " + name + " aside: File name too long");
    EXPECT_EQ(folder.names(), Names{name});
    EXPECT_EQ(readText(folder / name), "not JSON");
}

TEST_F(LeaseFileTest, LeavesWhatIsNoFileUntouched) {
    std::filesystem::create_directory(file.url);
    EXPECT_EQ(loadFailure(file), "Could not read leases.json: Is a directory");
    EXPECT_EQ(folder.names(), Names{"leases.json"});
}

TEST_F(LeaseFileTest, DoesNotWaitForANamedPipe) {
    ASSERT_EQ(::mkfifo(file.url.c_str(), 0600), 0);
    EXPECT_EQ(loadFailure(file), "Could not read leases.json: Not a regular file");
    EXPECT_EQ(folder.names(), Names{"leases.json"});
}

TEST_F(LeaseFileTest, DoesNotReadADevice) {
    std::filesystem::create_symlink("/dev/zero", file.url);
    EXPECT_EQ(loadFailure(file), "Could not read leases.json: Not a regular file");
    EXPECT_EQ(folder.names(), Names{"leases.json"});
}

TEST_F(LeaseFileTest, SaysWhyAFileCouldNotBeOpened) {
    std::filesystem::create_symlink("leases.json", file.url); // a link to itself, which not even root can follow
    EXPECT_EQ(loadFailure(file), "Could not read leases.json: Too many levels of symbolic links");
    EXPECT_EQ(folder.names(), Names{"leases.json"});
}

TEST_F(LeaseFileTest, LeavesAFileWithoutReadPermissionUntouched) {
    if (::geteuid() == 0) {
        GTEST_SKIP() << "root may read everything";
    }
    writeText(file.url, "not JSON");
    std::filesystem::permissions(file.url, std::filesystem::perms::none);
    EXPECT_EQ(loadFailure(file), "Could not read leases.json: Permission denied");
    EXPECT_EQ(folder.names(), Names{"leases.json"});
}

TEST_F(LeaseFileTest, LeavesAFileBeyondAnyLeaseFilesSizeUntouched) {
    constexpr std::uintmax_t limit = std::uintmax_t{256} << 20U;
    writeText(file.url, "");
    std::filesystem::resize_file(file.url, limit + 1); // sparse: takes no room on the disk
    EXPECT_EQ(loadFailure(file), "Could not read leases.json: File too large");
    EXPECT_EQ(folder.names(), Names{"leases.json"});
}

TEST_F(LeaseFileTest, MakesMissingFolders) {
    const LeaseFile deep{folder / "a" / "b" / "leases.json"};
    deep.save(exampleTable());
    EXPECT_EQ(readText(deep.url), exampleText);
    EXPECT_EQ(modeOf(folder / "a"), 0755U);
    EXPECT_EQ(modeOf(folder / "a" / "b"), 0755U);
}

TEST_F(LeaseFileTest, MakesFoldersThatOthersMayNotWriteTo) {
    ::umask(0);
    LeaseFile{folder / "a" / "leases.json"}.save(exampleTable());
    EXPECT_EQ(modeOf(folder / "a"), 0755U);
    EXPECT_EQ(modeOf(folder / "a" / "leases.json"), 0644U);
}

TEST_F(LeaseFileTest, SaysThatAFolderCouldNotBeMade) {
    writeText(folder / "plain", "a file");
    EXPECT_EQ(saveFailure({folder / "plain" / "sub" / "leases.json"}),
              "Could not create " + (folder / "plain").string() + ": File exists");
    EXPECT_EQ(readText(folder / "plain"), "a file");
}

TEST_F(LeaseFileTest, SavesInTheWorkingDirectory) {
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    LeaseFile{"leases.json"}.save(exampleTable());
    EXPECT_EQ(LeaseFile{"leases.json"}.load(now), loaded(exampleTable()));
    std::filesystem::current_path(before);
    EXPECT_EQ(folder.names(), Names{"leases.json"});
}

TEST_F(LeaseFileTest, LeavesNothingBesideTheSavedFile) {
    file.save(exampleTable());
    file.save(exampleTable());
    EXPECT_EQ(folder.names(), Names{"leases.json"});
}

TEST_F(LeaseFileTest, ReplacesTheFileAndDoesNotWriteIntoIt) {
    writeText(file.url, "old");
    std::filesystem::create_hard_link(file.url, folder / "old.json");
    file.save(exampleTable());
    EXPECT_EQ(readText(folder / "old.json"), "old");
    EXPECT_EQ(readText(file.url), exampleText);
}

TEST_F(LeaseFileTest, ReplacesALinkAndLeavesItsTargetUntouched) {
    writeText(folder / "target", "not ours");
    ASSERT_EQ(::chmod((folder / "target").c_str(), 0600), 0);
    std::filesystem::create_symlink("target", file.url);
    file.save(exampleTable());
    EXPECT_FALSE(std::filesystem::is_symlink(file.url));
    EXPECT_EQ(readText(file.url), exampleText);
    EXPECT_EQ(readText(folder / "target"), "not ours");
    EXPECT_EQ(modeOf(file.url), 0644U);
}

TEST_F(LeaseFileTest, GivesANewFileAModeThatObeysTheUmask) {
    file.save(exampleTable());
    EXPECT_EQ(modeOf(file.url), 0644U);
    ::umask(077);
    const LeaseFile closed{folder / "closed.json"};
    closed.save(exampleTable());
    EXPECT_EQ(modeOf(closed.url), 0600U);
}

TEST_F(LeaseFileTest, KeepsTheModeOfAFileThatItReplaces) {
    for (const mode_t mode : std::vector<mode_t>{0600, 0640, 0664, 0666, 0444, 0200}) {
        SCOPED_TRACE(mode);
        writeText(file.url, "old");
        ASSERT_EQ(::chmod(file.url.c_str(), mode), 0);
        file.save(exampleTable());
        EXPECT_EQ(modeOf(file.url), mode);
        std::filesystem::remove(file.url);
    }
}

TEST_F(LeaseFileTest, KeepsTheOwnerOfAFileThatItReplaces) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root may give files away";
    }
    writeText(file.url, "old");
    ASSERT_EQ(::chown(file.url.c_str(), 12345, 23456), 0);
    file.save(exampleTable());
    struct stat status {};
    ASSERT_EQ(::stat(file.url.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, 12345U);
    EXPECT_EQ(status.st_gid, 23456U);
}

TEST_F(LeaseFileTest, LeavesNoTemporaryFileBehindWhenTheRenameFails) {
    std::filesystem::create_directories(file.url / "inside");
    EXPECT_EQ(saveFailure(file), "Could not replace leases.json: Is a directory");
    EXPECT_EQ(folder.names(), Names{"leases.json"});
    EXPECT_TRUE(std::filesystem::is_directory(file.url / "inside"));
}

/// Lets files grow to a size only, as on a disk that is full.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t size) : handlerBefore_(std::signal(SIGXFSZ, SIG_IGN)) {
        ::getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit lowered{.rlim_cur = size, .rlim_max = before_.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &lowered);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;
    FileSizeLimit(FileSizeLimit&&) = delete;
    FileSizeLimit& operator=(FileSizeLimit&&) = delete;
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handlerBefore_);
    }

  private:
    rlimit before_{};
    void (*handlerBefore_)(int);
};

TEST_F(LeaseFileTest, LeavesTheOldFileUntouchedWhenTheNewOneCannotBeWritten) {
    writeText(file.url, "old");
    std::string failure;
    {
        const FileSizeLimit limit(exampleText.size() - 1); // the first write is a short one, the second refused
        failure = saveFailure(file);
    }
    EXPECT_EQ(failure, "Could not write leases.json: File too large");
    EXPECT_EQ(folder.names(), Names{"leases.json"});
    EXPECT_EQ(readText(file.url), "old");
}

TEST_F(LeaseFileTest, SaysThatTheTemporaryFileCouldNotBeMade) {
    const std::string name(250, 'x'); // too long once it is wrapped into the temporary file's name
    EXPECT_EQ(saveFailure({folder / name}), "Could not write " + name + ": File name too long");
    EXPECT_EQ(folder.names(), Names{});
}

TEST_F(LeaseFileTest, LiesWhereTheUsersProgramsKeepData) {
    EXPECT_EQ(LeaseFile::defaultURL(), UserDirectories::applicationSupport() / "Tarnwick" / "leases.json");
}

TEST_F(LeaseFileTest, StampsTheHostsWallClockTime) {
    EXPECT_EQ(LeaseFile::stamp(now), "20250314-093005");
    EXPECT_EQ(LeaseFile::stamp(now + 999999us), "20250314-093005");
    EXPECT_EQ(LeaseFile::stamp(now + 1s), "20250314-093006");
    const EnvironmentVariable zone("TZ", "EAST-14:30");
    EXPECT_EQ(LeaseFile::stamp(now), "20250315-000005");
}

TEST(OneRecordPerMACTest, KeepsTheLastSeenRecordWhereItsMACFirstOccurs) {
    const Lease early = leaseSeen(now - 2min, mac(1), ip(10));
    const Lease other = leaseSeen(now - 9min, mac(2), ip(11));
    const Lease late = leaseSeen(now - 1min, mac(1), ip(12));
    EXPECT_EQ(LeaseFile::oneRecordPerMAC({early, other, late}), (std::vector<Lease>{late, other}));
    EXPECT_EQ(LeaseFile::oneRecordPerMAC({late, other, early}), (std::vector<Lease>{late, other}));
}

TEST(OneRecordPerMACTest, KeepsTheFirstOfTwoRecordsSeenAtTheSameInstant) {
    const Lease first = leaseSeen(now, mac(1), ip(10));
    const Lease second = leaseSeen(now, mac(1), ip(11));
    const Lease later = leaseSeen(now + 1us, mac(1), ip(12));
    EXPECT_EQ(LeaseFile::oneRecordPerMAC({first, second}), std::vector<Lease>{first});
    EXPECT_EQ(LeaseFile::oneRecordPerMAC({first, second, later}), std::vector<Lease>{later});
}

TEST(OneRecordPerMACTest, KeepsTheOrderOfDifferentMACs) {
    const std::vector<Lease> leases{boundLease(mac(3), ip(10)), boundLease(mac(1), ip(10)), boundLease(mac(2), ip(10))};
    EXPECT_EQ(LeaseFile::oneRecordPerMAC(leases), leases);
    EXPECT_EQ(LeaseFile::oneRecordPerMAC({}), std::vector<Lease>{});
}

} // namespace
} // namespace DHCPCore
