#pragma once

#include "DHCPCore/Date.hpp"
#include "DHCPCore/FileDescriptor.hpp"
#include "DHCPCore/Queue.hpp"

#include <atomic>
#include <cstddef>
#include <deque>
#include <filesystem>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace DHCPCore {

/// Appends lines to one file per day, on its own queue "tarnwick.logfile". A line that can't be written is dropped;
/// the writer stays usable. The file is opened and closed for every line, so that it may be moved at any time.
class LogFileWriter {
  public:
    explicit LogFileWriter(std::filesystem::path folder);

    /// "Tarnwick" where the user's programs keep logs. @throws Error when the user has no home directory.
    [[nodiscard]] static std::filesystem::path defaultDirectory();

    /// The name of a day's file in the host's time zone, as in "2025-01-31.log".
    [[nodiscard]] static std::string fileName(Date date);

    /// Hands the line in for the file of that day and returns at once. Any thread.
    void append(std::string_view line, Date date);

    /// Writes what the queue has not written yet, and returns when every line handed in before is written. The queue's
    /// own thread may have to wait long for a processor.
    void flush();

    /// How many lines are handed in and not written yet. Any thread.
    [[nodiscard]] std::size_t waiting() const { return count_; }

    [[nodiscard]] const std::filesystem::path& directory() const { return directory_; }

  private:
    struct Line {
        std::size_t length; ///< With its line feed.
        Date date;
    };
    /// Some lines, one after the other: one by one, the thread that hands them in and the one that writes them would
    /// wait for each other whenever one gives back memory that the other asked for.
    struct Page {
        std::string text;
        std::vector<Line> lines;
    };

    bool writeSome();
    void write(const FileDescriptor& folder, std::string_view line, Date date);
    const std::filesystem::path& fileOf(Date date);

    std::filesystem::path directory_;
    std::mutex mutex_; ///< Guards the waiting lines: they come from any thread.
    std::deque<Page> waiting_;
    std::atomic<std::size_t> count_{0}; ///< Of those, and of the ones that are being written.
    std::mutex writing_;                ///< Of whoever writes lines, and guards what follows.
    std::deque<Page> taken_;            ///< Those of `waiting_` once it is their turn. None is empty.
    std::size_t linesWritten_ = 0;      ///< Of the first of them.
    std::size_t bytesWritten_ = 0;
    CalendarTime day_; ///< Of the last line.
    std::filesystem::path dayFile_;
    SerialQueue queue_{"tarnwick.logfile"};
};

} // namespace DHCPCore
