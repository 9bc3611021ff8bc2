#include "DHCPCore/LogFileWriter.hpp"

#include "DHCPCore/FileDescriptor.hpp"
#include "DHCPCore/Threads.hpp"
#include "DHCPCore/UserDirectories.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <span>
#include <string_view>
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

void LogFileWriter::append(std::string_view line, Date date) {
    constexpr std::size_t longestPage = 1U << 14U;
    const std::lock_guard lock(mutex_);
    const bool isFirst = waiting_.empty();
    if (isFirst || waiting_.back().text.size() >= longestPage) {
        waiting_.emplace_back();
    }
    Page& page = waiting_.back();
    page.lines.push_back({.length = line.size() + 1, .date = date});
    page.text += line;
    page.text += '\n';
    ++count_;
    if (isFirst) { // else a call of the queue is under way that takes this line too
        // The queue ends, its work done, before the other members do: see their order.
        queue_.async([this] { flush(); });
    }
}

/// Writes some lines: few enough that another thread, which needs them written, need not wait for long.
/// @return whether there were any.
bool LogFileWriter::writeSome() {
    constexpr std::size_t most = 32;
    const std::lock_guard writing(writing_);
    if (taken_.empty()) {
        const std::lock_guard lock(mutex_);
        taken_.swap(waiting_);
    }
    if (taken_.empty()) {
        return false;
    }
    const Page& page = taken_.front();
    const auto lines = std::span(page.lines).subspan(linesWritten_);
    const auto some = lines.first(std::min(lines.size(), most));
    FileDescriptor folder; // of these lines only: it may be moved and removed, too
    if (some.size() > 1) {
        folder = FileDescriptor(::open(directory_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }
    for (const Line& line : some) {
        write(folder, std::string_view(page.text).substr(bytesWritten_, line.length), line.date);
        bytesWritten_ += line.length;
        ++linesWritten_;
        --count_;
    }
    if (some.size() == lines.size()) {
        taken_.pop_front();
        linesWritten_ = 0;
        bytesWritten_ = 0;
    }
    return true;
}

void LogFileWriter::write(const FileDescriptor& folder, std::string_view line, Date date) {
    const FileDescriptor file = openForAppending(folder, fileOf(date));
    if (file.isOpen()) {
        appendLine(file, line);
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
