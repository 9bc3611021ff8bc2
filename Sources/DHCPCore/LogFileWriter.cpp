#include "DHCPCore/LogFileWriter.hpp"

#include "DHCPCore/FileDescriptor.hpp"
#include "DHCPCore/UserDirectories.hpp"

#include <fmt/format.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>
#include <utility>

namespace DHCPCore {

namespace {

/// Makes the directory with all above it. Failures show when the file is opened.
void createDirectories(const std::filesystem::path& directory) {
    constexpr mode_t mode = 0755;
    std::filesystem::path part;
    for (const auto& name : directory) {
        part /= name;
        ::mkdir(part.c_str(), mode);
    }
}

/// Opens a regular file for appending, made when there is none. Somebody may have put something else in its place: a
/// link is not followed, and a pipe without a reader does not keep us waiting.
FileDescriptor openForAppending(const std::filesystem::path& path) {
    constexpr mode_t mode = 0644;
    FileDescriptor file(
        ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, mode));
    struct stat status {};
    if (!file.isOpen() || ::fstat(file.number(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return FileDescriptor{};
    }
    return file;
}

/// Appends the line; what the system refuses is dropped. Half a line does not stay: the next one would continue it.
void appendLine(const FileDescriptor& file, const std::string& line) {
    struct stat before {};
    struct stat after {};
    if (::fstat(file.number(), &before) != 0 || writeAll(file.number(), line) == 0) {
        return;
    }
    const auto length = static_cast<off_t>(line.size());
    if (::fstat(file.number(), &after) == 0 && after.st_size > before.st_size &&
        after.st_size < before.st_size + length) { // else it is not ours alone
        std::ignore = ::ftruncate(file.number(), before.st_size);
    }
}

} // namespace

LogFileWriter::LogFileWriter(std::filesystem::path folder) : directory_(std::move(folder)) {}

std::filesystem::path LogFileWriter::defaultDirectory() { return UserDirectories::logs() / "Tarnwick"; }

std::string LogFileWriter::fileName(Date date) {
    const CalendarTime day = calendarTime(date, TimeZone::current());
    return fmt::format("{:04}-{:02}-{:02}.log", day.year, day.month, day.day);
}

void LogFileWriter::append(std::string line, Date date) {
    // The queue ends, its work done, before the directory does: see the order of the members.
    queue_.async([this, text = std::move(line), date] {
        createDirectories(directory_);
        const FileDescriptor file = openForAppending(directory_ / fileName(date));
        if (file.isOpen()) {
            appendLine(file, text + '\n');
        }
    });
}

void LogFileWriter::flush() {
    queue_.sync([] {});
}

} // namespace DHCPCore
