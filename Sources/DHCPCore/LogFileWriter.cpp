#include "DHCPCore/LogFileWriter.hpp"

#include "DHCPCore/FileDescriptor.hpp"
#include "DHCPCore/Threads.hpp"
#include "DHCPCore/UserDirectories.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <iterator>
#include <string_view>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>
#include <utility>
#include <vector>

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
/// @param folder where the file is, or closed; a long path takes longer to follow than a line to write.
FileDescriptor openForAppending(const FileDescriptor& folder, const std::filesystem::path& path) {
    constexpr int flags = O_WRONLY | O_APPEND | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;
    constexpr mode_t mode = 0644;
    FileDescriptor file(folder.isOpen() ? ::openat(folder.number(), path.filename().c_str(), flags)
                                        : ::open(path.c_str(), flags));
    if (!file.isOpen() && errno == ENOENT) { // asked for second: a file that may have to be made is opened more slowly
        createDirectories(path.parent_path());
        file = FileDescriptor(::open(path.c_str(), flags | O_CREAT, mode));
    }
    return file;
}

/// Appends the line to a file that has an end: a pipe, a socket and a terminal have none. What the system refuses is
/// dropped, and half a line does not stay: the next one would continue it. (The end is not asked for by `fstat`: once
/// asked for its times, a file has them written anew with every line.)
void appendLine(const FileDescriptor& file, std::string_view line) {
    const off_t end = ::lseek(file.number(), 0, SEEK_END);
    if (end < 0 || writeAll(file.number(), line) == 0) {
        return;
    }
    struct stat status {};
    if (::fstat(file.number(), &status) == 0 && status.st_size > end &&
        status.st_size < end + static_cast<off_t>(line.size())) { // else it is not ours alone
        std::ignore = ::ftruncate(file.number(), end);
    }
}

std::string fileNameOf(const CalendarTime& day) {
    return fmt::format("{:04}-{:02}-{:02}.log", day.year, day.month, day.day);
}

} // namespace

LogFileWriter::LogFileWriter(std::filesystem::path folder) : directory_(std::move(folder)) {
    queue_.async(Threads::leaveProcessorsToOthers);
}

std::filesystem::path LogFileWriter::defaultDirectory() { return UserDirectories::logs() / "Tarnwick"; }

std::string LogFileWriter::fileName(Date date) { return fileNameOf(calendarTime(date, TimeZone::current())); }

void LogFileWriter::append(std::string line, Date date) {
    line += '\n';
    const std::lock_guard lock(mutex_);
    waiting_.push_back({.text = std::move(line), .date = date});
    ++count_;
    if (waiting_.size() == 1) { // else a call of the queue is under way that takes this line too
        // The queue ends, its work done, before the other members do: see their order.
        queue_.async([this] { flush(); });
    }
}

/// Writes some lines: few enough that another thread, which needs them written, need not wait for long.
/// @return whether there were any.
bool LogFileWriter::writeSome() {
    constexpr std::size_t most = 32;
    const std::lock_guard writing(writing_);
    std::vector<Line> lines;
    {
        const std::lock_guard lock(mutex_);
        const auto end = waiting_.begin() + static_cast<std::ptrdiff_t>(std::min(waiting_.size(), most));
        std::move(waiting_.begin(), end, std::back_inserter(lines));
        waiting_.erase(waiting_.begin(), end);
    }
    FileDescriptor folder; // of these lines only: it may be moved and removed, too
    if (lines.size() > 1) {
        folder = FileDescriptor(::open(directory_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }
    for (const Line& line : lines) {
        write(folder, line);
        --count_;
    }
    return !lines.empty();
}

void LogFileWriter::write(const FileDescriptor& folder, const Line& line) {
    const FileDescriptor file = openForAppending(folder, fileOf(line.date));
    if (file.isOpen()) {
        appendLine(file, line.text);
    }
}

/// The file of that day.
const std::filesystem::path& LogFileWriter::fileOf(Date date) {
    const CalendarTime time = calendarTime(date, TimeZone::current());
    const auto dayOf = [](const CalendarTime& when) { return std::tie(when.year, when.month, when.day); };
    if (dayFile_.empty() || dayOf(time) != dayOf(day_)) {
        day_ = time;
        dayFile_ = directory_ / fileNameOf(time);
    }
    return dayFile_;
}

void LogFileWriter::flush() {
    while (writeSome()) {
    }
}

} // namespace DHCPCore
