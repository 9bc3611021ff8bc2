// What a process that was killed in mid-replacement left behind, and what somebody planted to be mistaken for it.
#include "DHCPCore/FileDescriptor.hpp"
#include "DHCPCore/FileReplacement.hpp"
#include "Support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace DHCPCore {
namespace {

using TestSupport::readText;
using TestSupport::writeText;
using Names = std::vector<std::string>;

constexpr std::string_view leftover = ".leases.json.tmp-6F1C2B0E-5D7A-4C1B-9E3F-0A1B2C3D4E5F";

class FileReplacementTest : public testing::Test {
  protected:
    TestSupport::TemporaryDirectory folder;
    std::filesystem::path file = folder / "leases.json";
};

TEST_F(FileReplacementTest, KeepsTheContentThatIsReplacedForWhoHoldsIt) {
    const FileDescriptor held = replaceFile(file, "old");
    replaceFile(file, "newer");
    struct stat status {};
    ASSERT_EQ(::fstat(held.number(), &status), 0);
    EXPECT_EQ(status.st_size, 3);
    EXPECT_EQ(status.st_nlink, 0U);
    EXPECT_EQ(readText(file), "newer");
}

TEST_F(FileReplacementTest, LeavesTheFileUnlocked) {
    const FileDescriptor held = replaceFile(file, "text");
    const FileDescriptor other(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(::flock(other.number(), LOCK_EX | LOCK_NB), 0);
}

TEST_F(FileReplacementTest, RemovesWhatAKilledReplacementLeft) {
    writeText(file, "old");
    writeText(folder / leftover, "ne");
    writeText(folder / ".leases.json.tmp-00000000-0000-4000-8000-000000000000", "");
    removeLeftovers(file);
    EXPECT_EQ(folder.names(), Names{"leases.json"});
    EXPECT_EQ(readText(file), "old");
}

TEST_F(FileReplacementTest, RemovesALeftoverWhereTheFileWasNeverMade) {
    writeText(folder / leftover, "new");
    removeLeftovers(file);
    EXPECT_EQ(folder.names(), Names{});
}

TEST_F(FileReplacementTest, RemovesALeftoverFromTheWorkingDirectory) {
    const auto before = std::filesystem::current_path();
    writeText(folder / leftover, "new");
    std::filesystem::current_path(folder.path());
    removeLeftovers("leases.json");
    std::filesystem::current_path(before);
    EXPECT_EQ(folder.names(), Names{});
}

TEST_F(FileReplacementTest, HasNothingToRemoveWhereThereIsNoFolder) {
    removeLeftovers(folder / "missing" / "leases.json");
    writeText(file, "a file");
    removeLeftovers(file / "leases.json");
    EXPECT_EQ(folder.names(), Names{"leases.json"});
}

TEST_F(FileReplacementTest, LeavesFilesOfOtherNamesAlone) {
    Names names{
        ".leases.json.tmp-",
        ".leases.json.tmp-6F1C2B0E-5D7A-4C1B-9E3F-0A1B2C3D4E5",   // one digit short
        ".leases.json.tmp-6F1C2B0E-5D7A-4C1B-9E3F-0A1B2C3D4E5F0", // one too many
        ".leases.json.tmp-6F1C2B0E-5D7A-4C1B-9E3F-0A1B2C3D4E5f",  // a small letter
        ".leases.json.tmp-6F1C2B0E-5D7A-4C1B-9E3F-0A1B2C3D4E5G",  // no digit
        ".leases.json.tmp-6F1C2B0E05D7A-4C1B-9E3F-0A1B2C3D4E5F",  // no hyphen
        ".leases.jso.tmp-6F1C2B0E-5D7A-4C1B-9E3F-0A1B2C3D4E5F",   // of another file
        ".other.json.tmp-6F1C2B0E-5D7A-4C1B-9E3F-0A1B2C3D4E5F",   // likewise
        "leases.json.corrupt-20250314-093005",
        "leases.json.tmp-6F1C2B0E-5D7A-4C1B-9E3F-0A1B2C3D4E5F", // not hidden
    };
    for (const std::string& name : names) {
        writeText(folder / name, name);
    }
    removeLeftovers(file);
    std::ranges::sort(names);
    EXPECT_EQ(folder.names(), names);
}

TEST_F(FileReplacementTest, LeavesAFileAloneThatIsBeingWritten) {
    const FileDescriptor writer(::open((folder / leftover).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    ASSERT_EQ(::flock(writer.number(), LOCK_EX | LOCK_NB), 0);
    removeLeftovers(file);
    EXPECT_EQ(folder.names(), Names{std::string(leftover)});
}

TEST_F(FileReplacementTest, LeavesWhatIsNoFileAlone) {
    std::filesystem::create_directory(folder / leftover);
    removeLeftovers(file);
    EXPECT_EQ(folder.names(), Names{std::string(leftover)});
    std::filesystem::remove(folder / leftover);
    ASSERT_EQ(::mkfifo((folder / leftover).c_str(), 0600), 0);
    removeLeftovers(file);
    EXPECT_EQ(folder.names(), Names{std::string(leftover)});
}

TEST_F(FileReplacementTest, LeavesALinkAndItsTargetAlone) {
    writeText(folder / "victim", "untouched");
    std::filesystem::create_symlink("victim", folder / leftover);
    removeLeftovers(file);
    EXPECT_EQ(folder.names(), (Names{std::string(leftover), "victim"}));
    EXPECT_EQ(readText(folder / "victim"), "untouched");
}

TEST_F(FileReplacementTest, LeavesAFileOfAnotherUserAlone) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give files away";
    }
    writeText(file, "ours");
    writeText(folder / leftover, "theirs");
    ASSERT_EQ(::chown((folder / leftover).c_str(), 12345, 12345), 0);
    removeLeftovers(file);
    EXPECT_EQ(folder.names(), (Names{std::string(leftover), "leases.json"}));
}

TEST_F(FileReplacementTest, RemovesALeftoverThatWasGivenToTheFilesOwner) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give files away";
    }
    writeText(file, "old");
    writeText(folder / leftover, "new");
    for (const auto& path : {file, folder / leftover}) {
        ASSERT_EQ(::chown(path.c_str(), 12345, 12345), 0);
    }
    removeLeftovers(file);
    EXPECT_EQ(folder.names(), Names{"leases.json"});
}

TEST_F(FileReplacementTest, KeepsNoRightToRunAsTheOwner) {
    writeText(file, "old");
    ASSERT_EQ(::chmod(file.c_str(), 06755), 0);
    replaceFile(file, "new");
    struct stat status {};
    ASSERT_EQ(::stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0755U);
}

TEST_F(FileReplacementTest, WritesNothingThroughAFolderThatIsALinkToNothing) {
    std::filesystem::create_directory_symlink(folder / "elsewhere", folder / "link");
    try {
        replaceFile(folder / "link" / "leases.json", "new");
        ADD_FAILURE() << "nothing was refused";
    } catch (const FileReplacementError& error) {
        EXPECT_EQ(error.description(), "Could not create " + (folder / "link").string() + ": File exists");
    }
    EXPECT_EQ(folder.names(), Names{"link"});
}

TEST_F(FileReplacementTest, WritesIntoAFolderThatTheUserPlacedElsewhere) {
    std::filesystem::create_directory(folder / "elsewhere");
    std::filesystem::create_directory_symlink("elsewhere", folder / "link");
    replaceFile(folder / "link" / "leases.json", "new");
    EXPECT_EQ(readText(folder / "elsewhere" / "leases.json"), "new");
    EXPECT_TRUE(std::filesystem::is_symlink(folder / "link"));
}

TEST_F(FileReplacementTest, LeavesTheOtherNameOfAFileUntouched) {
    writeText(folder / "victim", "untouched");
    std::filesystem::create_hard_link(folder / "victim", file);
    replaceFile(file, "new");
    EXPECT_EQ(readText(folder / "victim"), "untouched");
    EXPECT_EQ(readText(file), "new");
}

} // namespace
} // namespace DHCPCore
