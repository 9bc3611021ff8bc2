#include "DHCPCore/LogFileWriter.hpp"
#include "DHCPCore/UserDirectories.hpp"
#include "Support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace DHCPCore {
namespace {

using namespace std::chrono_literals;
using TestSupport::readText;
using TestSupport::TemporaryDirectory;
using TestSupport::writeText;

constexpr Date date = std::chrono::sys_days{2025y / 1 / 31} + 13h;

/// Sets an environment variable for one test.
class ScopedVariable {
  public:
    ScopedVariable(const char* name, const char* value) : name_(name) {
        if (const char* const former = std::getenv(name)) {
            former_ = former;
        }
        ::setenv(name, value, 1);
    }
    ScopedVariable(const ScopedVariable&) = delete;
    ScopedVariable& operator=(const ScopedVariable&) = delete;
    ScopedVariable(ScopedVariable&&) = delete;
    ScopedVariable& operator=(ScopedVariable&&) = delete;
    ~ScopedVariable() {
        if (former_) {
            ::setenv(name_, former_->c_str(), 1);
        } else {
            ::unsetenv(name_);
        }
    }

  private:
    const char* name_;
    std::optional<std::string> former_;
};

class LogFileWriterTest : public testing::Test {
  protected:
    [[nodiscard]] std::filesystem::path dayFile() const { return root / LogFileWriter::fileName(date); }

    ScopedVariable zone{"TZ", "UTC"};
    TemporaryDirectory root;
};

TEST_F(LogFileWriterTest, NamesTheFileByTheDay) {
    EXPECT_EQ(LogFileWriter::fileName(date), "2025-01-31.log");
    EXPECT_EQ(LogFileWriter::fileName(std::chrono::sys_days{987y / 6 / 5}), "0987-06-05.log");
}

TEST_F(LogFileWriterTest, WritesManyLinesInTheirOrder) {
    LogFileWriter writer(root.path());
    std::string expected;
    for (std::size_t number = 0; number < 5000; ++number) {
        const std::string line = std::to_string(number) + std::string(number == 1000 ? 100'000 : number % 60, '.');
        expected += line + "\n";
        writer.append(line, date);
    }
    writer.flush();
    EXPECT_EQ(readText(dayFile()), expected);
    EXPECT_EQ(writer.waiting(), 0U);
}

TEST_F(LogFileWriterTest, TakesTheDayInTheHostsZone) {
    const ScopedVariable zone("TZ", "EAST-14");
    EXPECT_EQ(LogFileWriter::fileName(date), "2025-02-01.log");
}

TEST_F(LogFileWriterTest, HasItsDefaultDirectoryAmongTheUsersLogs) {
    EXPECT_EQ(LogFileWriter::defaultDirectory(), UserDirectories::logs() / "Tarnwick");
}

TEST_F(LogFileWriterTest, TouchesNothingBeforeTheFirstLine) {
    LogFileWriter writer(root / "new");
    writer.flush();
    EXPECT_EQ(writer.directory(), root / "new");
    EXPECT_FALSE(std::filesystem::exists(root / "new"));
}

TEST_F(LogFileWriterTest, CreatesTheDirectoryWithAllAboveIt) {
    LogFileWriter writer(root / "a" / "b" / "");
    writer.append("line", date);
    writer.flush();
    EXPECT_EQ(readText(root / "a" / "b" / "2025-01-31.log"), "line\n");
}

TEST_F(LogFileWriterTest, MakesFileAndDirectoryReadableForAllAndWritableForTheOwner) {
    const mode_t former = ::umask(0);
    LogFileWriter writer(root / "a");
    writer.append("line", date);
    writer.flush();
    ::umask(former);
    EXPECT_EQ(std::filesystem::status(root / "a").permissions(), std::filesystem::perms{0755});
    EXPECT_EQ(std::filesystem::status(root / "a" / "2025-01-31.log").permissions(), std::filesystem::perms{0644});
}

TEST_F(LogFileWriterTest, AppendsLinesInTheirOrder) {
    writeText(dayFile(), "before\n");
    std::string expected = "before\n";
    LogFileWriter writer(root.path());
    for (int number = 0; number < 100; ++number) {
        writer.append("line " + std::to_string(number), date);
        expected += "line " + std::to_string(number) + "\n";
    }
    writer.flush();
    EXPECT_EQ(readText(dayFile()), expected);
}

TEST_F(LogFileWriterTest, WritesLinesThatWaitTogetherIntoAFolderThatIsNotThereYet) {
    const auto folder = root / "a" / "b";
    std::string expected;
    LogFileWriter writer(folder);
    for (int number = 0; number < 100; ++number) {
        writer.append(std::to_string(number), date);
        expected += std::to_string(number) + "\n";
    }
    writer.flush();
    EXPECT_EQ(readText(folder / "2025-01-31.log"), expected);
}

TEST_F(LogFileWriterTest, CountsTheLinesThatAreNotWrittenYet) {
    LogFileWriter writer(root.path());
    EXPECT_EQ(writer.waiting(), 0U);
    for (int number = 0; number < 100; ++number) {
        writer.append("line", date);
        EXPECT_LE(writer.waiting(), static_cast<std::size_t>(number) + 1);
    }
    writer.flush();
    EXPECT_EQ(writer.waiting(), 0U);
}

TEST_F(LogFileWriterTest, WritesAnEmptyLine) {
    LogFileWriter writer(root.path());
    writer.append("", date);
    writer.flush();
    EXPECT_EQ(readText(dayFile()), "\n");
}

TEST_F(LogFileWriterTest, WritesALongLineWhole) {
    const std::string line(1'000'000, 'x');
    LogFileWriter writer(root.path());
    writer.append(line, date);
    writer.flush();
    EXPECT_TRUE(readText(dayFile()) == line + "\n");
}

TEST_F(LogFileWriterTest, PutsLinesAroundMidnightIntoTheFilesOfTheirDays) {
    const Date midnight = std::chrono::sys_days{2025y / 2 / 1};
    LogFileWriter writer(root.path());
    writer.append("new", midnight);
    writer.append("old", midnight - 1ms);
    writer.flush();
    EXPECT_EQ(readText(root / "2025-01-31.log"), "old\n");
    EXPECT_EQ(readText(root / "2025-02-01.log"), "new\n");
}

TEST_F(LogFileWriterTest, StartsANewFileWhenTheFormerOneWasMoved) {
    LogFileWriter writer(root.path());
    writer.append("first", date);
    writer.flush();
    std::filesystem::rename(dayFile(), root / "moved");
    writer.append("second", date);
    writer.flush();
    EXPECT_EQ(readText(root / "moved"), "first\n");
    EXPECT_EQ(readText(dayFile()), "second\n");
}

TEST_F(LogFileWriterTest, WritesWhatWasHandedInBeforeItIsDestroyed) {
    {
        LogFileWriter writer(root.path());
        writer.append("last", date);
    }
    EXPECT_EQ(readText(dayFile()), "last\n");
}

TEST_F(LogFileWriterTest, DropsTheLineWhenTheDirectoryCannotBeMadeAndStaysUsable) {
    const auto directory = root / "logs";
    writeText(directory, "in the way");
    LogFileWriter writer(directory);
    writer.append("lost", date);
    writer.flush();
    EXPECT_EQ(readText(directory), "in the way");
    std::filesystem::remove(directory);
    writer.append("kept", date);
    writer.flush();
    EXPECT_EQ(readText(directory / "2025-01-31.log"), "kept\n");
}

TEST_F(LogFileWriterTest, FollowsNoLink) {
    writeText(root / "victim", "untouched");
    std::filesystem::create_symlink(root / "victim", dayFile());
    LogFileWriter writer(root.path());
    writer.append("lost", date);
    writer.flush();
    EXPECT_EQ(readText(root / "victim"), "untouched");
}

TEST_F(LogFileWriterTest, CreatesNothingThroughADanglingLink) {
    std::filesystem::create_symlink(root / "elsewhere", dayFile());
    LogFileWriter writer(root.path());
    writer.append("lost", date);
    writer.flush();
    EXPECT_FALSE(std::filesystem::exists(root / "elsewhere"));
}

TEST_F(LogFileWriterTest, DoesNotWaitForAPipesReader) {
    ASSERT_EQ(::mkfifo(dayFile().c_str(), 0600), 0);
    LogFileWriter writer(root.path());
    writer.append("lost", date);
    writer.flush();
    EXPECT_TRUE(std::filesystem::is_fifo(dayFile()));
}

TEST_F(LogFileWriterTest, WritesNothingIntoAPipeThatHasAReader) {
    ASSERT_EQ(::mkfifo(dayFile().c_str(), 0600), 0);
    const int reader = ::open(dayFile().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    LogFileWriter writer(root.path());
    writer.append("lost", date);
    writer.flush();
    char byte = 0;
    EXPECT_EQ(::read(reader, &byte, 1), 0);
    ::close(reader);
}

} // namespace
} // namespace DHCPCore
