// The log file while the system refuses what its writer asks for.
#include "DHCPCore/LogFileWriter.hpp"
#include "FaultTests/SmallDisk.hpp"
#include "FaultTests/SystemFaults.hpp"
#include "Support/EnvironmentVariable.hpp"
#include "Support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <string>

namespace DHCPCore {
namespace {

using namespace TestSupport; // NOLINT(*-build-using-namespace): the words of the tests
using namespace std::chrono_literals;
using Kind = SystemCall::Kind;

constexpr Date date = std::chrono::sys_days{2025y / 1 / 31} + 13h;

class LogFaultTest : public testing::Test {
  protected:
    void append(const std::string& line) {
        writer.append(line, date);
        writer.flush();
    }

    TemporaryDirectory folder;
    std::filesystem::path logs = folder / "logs";
    std::filesystem::path file = logs / "2025-01-31.log";
    LogFileWriter writer{logs};

  private:
    EnvironmentVariable zone_{"TZ", "UTC0"};
};

TEST_F(LogFaultTest, LosesTheLinesThatTheSystemRefusesAndNoOthers) {
    for (const Kind kind : {Kind::open, Kind::write}) {
        for (const int number : {EACCES, EIO, EMFILE, ENOSPC, EROFS}) {
            append("before");
            {
                const InjectedFaults faults([kind, number](const SystemCall& call) {
                    return call.kind == kind ? Fate{Fate::Fails{number}} : Fate{};
                });
                append("lost");
            }
            append("after");
            EXPECT_EQ(readText(file), "before\nafter\n");
            std::filesystem::remove_all(logs);
        }
    }
}

TEST_F(LogFaultTest, LeavesNoHalfLine) {
    append("before");
    {
        const InjectedFaults faults([writes = 0](const SystemCall& call) mutable {
            if (call.kind != Kind::write) {
                return Fate{};
            }
            return ++writes == 1 ? Fate{Fate::WritesShort{4}} : Fate{Fate::Fails{ENOSPC}};
        });
        append("half of this");
    }
    append("after");
    EXPECT_EQ(readText(file), "before\nafter\n");
}

TEST_F(LogFaultTest, LeavesNoHalfLineOnAFullDisk) {
    const SmallDisk disk(folder.path());
    if (disk.whyThereIsNone()) {
        GTEST_SKIP() << *disk.whyThereIsNone();
    }
    LogFileWriter onDisk(disk.path());
    const std::string line(3000, 'x');          // no page of the disk holds a whole number of them
    for (int count = 0; count < 100; ++count) { // more than there is room for
        onDisk.append(line, date);
    }
    onDisk.flush();
    const std::string text = readText(disk.path() / "2025-01-31.log");
    EXPECT_GT(text.size(), 10 * line.size());
    EXPECT_EQ(text.size() % (line.size() + 1), 0U);
    EXPECT_EQ(text.back(), '\n');
}

TEST_F(LogFaultTest, WritesALineWholeThatTheSystemTakesInPieces) {
    const InjectedFaults faults(
        [](const SystemCall& call) { return call.kind == Kind::write ? Fate{Fate::WritesShort{3}} : Fate{}; });
    append("a whole line");
    EXPECT_EQ(readText(file), "a whole line\n");
}

} // namespace
} // namespace DHCPCore
