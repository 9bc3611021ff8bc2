// A process that saves again and again is killed at moments that nobody chose.
#include "DHCPCore/LeaseFile.hpp"
#include "DHCPCore/ProcessRunner.hpp"
#include "Support/LeaseBuilders.hpp"
#include "Support/TemporaryDirectory.hpp"
#include "Support/TestHost.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <tuple>
#include <unistd.h>
#include <vector>

namespace DHCPCore {
namespace {

using namespace TestSupport; // NOLINT(*-build-using-namespace): the words of the tests

constexpr int usualKills = 100;

/// How often to kill; `scripts/kill-saves` asks for more.
int killsWanted() {
    const char* const wanted = std::getenv("TARNWICK_KILLS"); // NOLINT(concurrency-mt-unsafe): one thread tests
    return wanted == nullptr ? usualKills : std::stoi(wanted);
}

Lease leaseOf(std::uint32_t number) {
    return boundLease(
        {.bytes = {2, 0, 0, 0, static_cast<std::uint8_t>(number >> 8U), static_cast<std::uint8_t>(number)}},
        IPv4Address(IPv4Address{10, 0, 0, 0}.value + number));
}

constexpr std::uint32_t commonLeases = 2000; // so many that much of the time goes into writing them

/// Makes the table one of that generation: the first record names it, and every other generation has one record more.
void setGeneration(LeaseTable& table, std::uint32_t generation) {
    Lease first = leaseOf(0);
    first.hostname = std::to_string(generation);
    table.upsert(first);
    const Lease last = leaseOf(commonLeases);
    if (generation % 2 == 0) {
        table.upsert(last);
    } else {
        std::ignore = table.remove(last.mac);
    }
}

LeaseTable tableOfGeneration(std::uint32_t generation) {
    std::vector<Lease> leases;
    for (std::uint32_t number = 0; number < commonLeases; ++number) {
        leases.push_back(leaseOf(number));
    }
    LeaseTable table(leases, {});
    setGeneration(table, generation);
    return table;
}

std::uint32_t generationOf(const LeaseTable& table) {
    return static_cast<std::uint32_t>(std::stoul(table.leases().all().at(0).hostname.value()));
}

/// In a child: saves one generation after the other and tells each that is saved, until it is killed.
[[noreturn]] void saveForever(const LeaseFile& file, std::uint32_t generation, const FileDescriptor& reports) {
    dieWithParent();
    LeaseTable table = tableOfGeneration(generation);
    LeaseDocument document;
    for (;;) {
        setGeneration(table, ++generation);
        file.save(table, document);
        if (::write(reports.number(), &generation, sizeof generation) != sizeof generation) {
            ::_exit(1);
        }
    }
}

/// The generation that was reported next; `last` where there is none.
std::uint32_t nextReport(const FileDescriptor& reports, std::uint32_t last) {
    std::uint32_t generation = 0;
    return ::read(reports.number(), &generation, sizeof generation) == sizeof generation ? generation : last;
}

/// Kills a child that goes on saving from that generation. @return the last one that it reported as saved.
std::uint32_t killASaver(const LeaseFile& file, std::uint32_t generation, std::chrono::microseconds delay) {
    ProcessRunner::Pipe pipe = ProcessRunner::openPipe();
    const pid_t child = ::fork();
    if (child == 0) {
        saveForever(file, generation, pipe.writing);
    }
    pipe.writing.close();
    std::uint32_t reported = nextReport(pipe.reading, generation);
    std::this_thread::sleep_for(delay);
    ::kill(child, SIGKILL);
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status)) << "it ended by itself";
    for (;;) {
        const std::uint32_t next = nextReport(pipe.reading, reported);
        if (next == reported) {
            return reported;
        }
        reported = next;
    }
}

/// What came of many kills.
struct Toll {
    int kills = 0;
    int cutShort = 0;   ///< A document was being written.
    int unreported = 0; ///< It was in place, and nobody had heard of it.
};

/// Kills savers in a folder below that one, and requires after each that the lease file is whole.
Toll killSavers(const std::filesystem::path& parent, int kills) {
    const TemporaryDirectory folder(parent);
    const LeaseFile file{.url = folder / "leases.json"};
    std::mt19937 random; // NOLINT(*-msc51-cpp): the same delays every time; what they hit differs
    std::uniform_int_distribution<int> microseconds(0, 2000);
    std::uint32_t generation = 0;
    file.save(tableOfGeneration(generation));
    Toll toll;
    while (toll.kills < kills && !testing::Test::HasFailure()) {
        const std::uint32_t saved = killASaver(file, generation, std::chrono::microseconds{microseconds(random)});
        EXPECT_GT(saved, generation);
        const LeaseTable found = file.load(now).table;
        generation = found.leases().empty() ? 0 : generationOf(found);
        EXPECT_TRUE(generation == saved || generation == saved + 1) << saved << " was saved, found: " << generation;
        EXPECT_EQ(found, tableOfGeneration(generation));
        ++toll.kills;
        toll.cutShort += folder.names().size() > 1 ? 1 : 0;
        toll.unreported += generation == saved + 1 ? 1 : 0;
        file.removeLeftovers();
        EXPECT_EQ(folder.names(), std::vector<std::string>{"leases.json"});
    }
    fmt::print(
        "{}: {} kills, {} while a document was being written, {} after it was in place and before anybody knew\n",
        parent.string(), toll.kills, toll.cutShort, toll.unreported);
    return toll;
}

TEST(SaveKillTest, FindsTheLastSavedDocumentOrTheNextOneAfterEveryKill) {
    const int kills = killsWanted();
    Toll toll = killSavers(std::filesystem::temp_directory_path(), kills / 2);
    if (std::filesystem::is_directory("/dev/shm")) { // in memory, where a save is mostly writing
        const Toll more = killSavers("/dev/shm", kills - kills / 2);
        toll.cutShort += more.cutShort;
        toll.unreported += more.unreported;
    }
    if (kills >= usualKills) {
        EXPECT_GT(toll.cutShort + toll.unreported, 0) << "no kill came during a save";
    }
}

} // namespace
} // namespace DHCPCore
