#include "DHCPCore/LeaseFile.hpp"

#include "DHCPCore/FileDescriptor.hpp"
#include "DHCPCore/FileReplacement.hpp"
#include "DHCPCore/LeaseReader.hpp"
#include "DHCPCore/UserDirectories.hpp"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <map>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace DHCPCore {

namespace {

/// Reads what `LeaseDocument` writes; nothing for any other text or version.
std::optional<LeaseTable> decode(std::string_view text) {
    if (text.find('\0') != std::string_view::npos) { // not JSON, though the parser would take it for the end
        return std::nullopt;
    }
    auto records = readLeaseDocument(text);
    if (!records) {
        return std::nullopt;
    }
    return LeaseTable(LeaseFile::oneRecordPerMAC(std::move(records->leases)), std::move(records->quarantine));
}

[[noreturn]] void failToRead(const std::filesystem::path& file, std::string_view reason) {
    throw LeaseFileError(fmt::format("Could not read {}: {}", file.filename().string(), reason));
}

/// Opens a regular file for reading. Nothing is open when there is no file.
FileDescriptor openRegularFile(const std::filesystem::path& file) {
    constexpr off_t largest = off_t{256} << 20; // room for half a million leases
    // Opening a named pipe would wait for somebody to write into it.
    FileDescriptor descriptor(::open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!descriptor.isOpen()) {
        if (errno == ENOENT || errno == ENOTDIR) {
            return {};
        }
        failToRead(file, systemText(errno));
    }
    struct stat status {};
    if (::fstat(descriptor.number(), &status) != 0) {
        failToRead(file, systemText(errno));
    }
    if (S_ISDIR(status.st_mode)) {
        failToRead(file, systemText(EISDIR));
    }
    if (!S_ISREG(status.st_mode)) {
        failToRead(file, "Not a regular file");
    }
    if (status.st_size > largest) {
        failToRead(file, systemText(EFBIG));
    }
    return descriptor;
}

/// The content of a file; nothing when there is none.
std::optional<std::string> readWholeFile(const std::filesystem::path& file) {
    const FileDescriptor descriptor = openRegularFile(file);
    if (!descriptor.isOpen()) {
        return std::nullopt;
    }
    std::string content;
    std::array<char, 65536> buffer{};
    for (;;) {
        const ssize_t count = ::read(descriptor.number(), buffer.data(), buffer.size());
        if (count < 0 && errno != EINTR) {
            failToRead(file, systemText(errno));
        }
        if (count == 0) {
            return content;
        }
        content.append(buffer.data(), count < 0 ? 0 : static_cast<std::size_t>(count));
    }
}

[[noreturn]] void failToMoveAside(const std::filesystem::path& file, int number) {
    throw LeaseFileError(fmt::format("Could not move {} aside: {}", file.filename().string(), systemText(number)));
}

/// Makes an empty file under the name that a file is to be moved to, so that nobody else's file is lost there.
std::filesystem::path reserveNameAside(const std::filesystem::path& file, Date now) {
    constexpr int mostTries = 1000;
    const std::string name = fmt::format("{}.corrupt-{}", file.filename().string(), LeaseFile::stamp(now));
    for (int count = 1; count <= mostTries; ++count) {
        auto candidate = file.parent_path() / (count == 1 ? name : fmt::format("{}-{}", name, count));
        const FileDescriptor reservation(
            ::open(candidate.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
        if (reservation.isOpen()) {
            return candidate;
        }
        if (errno != EEXIST) {
            failToMoveAside(file, errno);
        }
    }
    failToMoveAside(file, EEXIST);
}

std::filesystem::path moveAside(const std::filesystem::path& file, Date now) {
    auto place = reserveNameAside(file, now);
    if (std::rename(file.c_str(), place.c_str()) != 0) {
        const int number = errno;
        ::unlink(place.c_str());
        failToMoveAside(file, number);
    }
    return place;
}

} // namespace

std::filesystem::path LeaseFile::defaultURL() {
    return UserDirectories::applicationSupport() / "Tarnwick" / "leases.json";
}

LeaseFile::LoadResult LeaseFile::load(Date now) const {
    const auto content = readWholeFile(url);
    if (!content) {
        return {.table = {}, .setAsideURL = std::nullopt};
    }
    if (auto table = decode(*content)) {
        return {.table = std::move(*table), .setAsideURL = std::nullopt};
    }
    return {.table = {}, .setAsideURL = moveAside(url, now)};
}

void LeaseFile::save(const LeaseTable& table) const {
    LeaseDocument document;
    save(table, document);
}

FileDescriptor LeaseFile::save(const LeaseTable& table, LeaseDocument& document) const {
    try {
        return replaceFile(url, document.of(table));
    } catch (const FileReplacementError& error) {
        throw LeaseFileError(error.description());
    }
}

void LeaseFile::removeLeftovers() const { DHCPCore::removeLeftovers(url); }

std::string LeaseFile::stamp(Date date) {
    const CalendarTime time = calendarTime(date, TimeZone::current());
    return fmt::format("{:04}{:02}{:02}-{:02}{:02}{:02}", time.year, time.month, time.day, time.hour, time.minute,
                       time.second);
}

std::vector<Lease> LeaseFile::oneRecordPerMAC(std::vector<Lease> leases) {
    std::vector<Lease> kept;
    kept.reserve(leases.size());
    std::map<decltype(MACAddress::bytes), std::size_t> places; // ordered: a file can't be made to slow this down
    for (Lease& lease : leases) {
        const auto [place, isNew] = places.try_emplace(lease.mac.bytes, kept.size());
        if (isNew) {
            kept.push_back(std::move(lease));
        } else if (lease.lastSeen > kept[place->second].lastSeen) {
            kept[place->second] = std::move(lease);
        }
    }
    return kept;
}

} // namespace DHCPCore
