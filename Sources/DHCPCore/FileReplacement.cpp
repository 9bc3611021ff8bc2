#include "DHCPCore/FileReplacement.hpp"

#include "DHCPCore/FileDescriptor.hpp"
#include "DHCPCore/TextPieces.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <optional>
#include <random>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <tuple>
#include <unistd.h>
#include <utility>

namespace DHCPCore {

namespace {

constexpr mode_t directoryMode = 0755;
constexpr mode_t newFileMode = 0644;
constexpr mode_t permissionBits = 0777; // nothing runs with another user's rights because it stood in a file's place

[[noreturn]] void fail(std::string_view deed, const std::string& name, int number) {
    throw FileReplacementError(fmt::format("Could not {} {}: {}", deed, name, systemText(number)));
}

/// A random UUID (RFC 4122, section 4.4), as in "6F1C2B0E-5D7A-4C1B-9E3F-0A1B2C3D4E5F".
std::string randomUUID() {
    thread_local std::random_device source;
    std::array<std::uint32_t, 4> words{};
    for (std::uint32_t& word : words) {
        word = source();
    }
    words[1] = (words[1] & 0xFFFF0FFFU) | 0x4000U;     // version 4
    words[2] = (words[2] & 0x3FFFFFFFU) | 0x80000000U; // the variant of this RFC
    return fmt::format("{:08X}-{:04X}-{:04X}-{:04X}-{:04X}{:08X}", words[0], words[1] >> 16U, words[1] & 0xFFFFU,
                       words[2] >> 16U, words[2] & 0xFFFFU, words[3]);
}

/// Whether the text looks like what `randomUUID` makes.
bool isUUID(std::string_view text) {
    constexpr std::string_view form = "XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX";
    return std::ranges::equal(text, form, [](char character, char place) {
        return place == '-' ? character == '-' : isDecimalDigit(character) || (character >= 'A' && character <= 'F');
    });
}

/// How the names of the hidden files begin that are to take this file's place; a UUID follows.
std::string hiddenPrefix(const std::filesystem::path& file) {
    return fmt::format(".{}.tmp-", file.filename().string());
}

/// Makes a directory and those above it that are missing.
void makeDirectories(const std::filesystem::path& directory) {
    std::filesystem::path path;
    for (const auto& component : directory) {
        path /= component;
        if (std::error_code unknown; std::filesystem::is_directory(path, unknown)) {
            continue;
        }
        if (::mkdir(path.c_str(), directoryMode) != 0) {
            const int number = errno;
            if (std::error_code unknown; std::filesystem::is_directory(path, unknown)) { // made meanwhile by another
                continue;
            }
            fail("create", path.string(), number);
        }
    }
}

/// The mode and owner that the new content takes over.
std::optional<struct stat> regularFileStatus(const std::filesystem::path& file) {
    struct stat status {};
    if (::lstat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    return status;
}

/// The hidden file beside the one to be replaced; removed unless it took that one's place.
class HiddenFile {
  public:
    explicit HiddenFile(std::filesystem::path target)
        : target_(std::move(target)), name_(target_.filename().string()),
          path_(target_.parent_path() / (hiddenPrefix(target_) + randomUUID())) {
        const auto replaced = regularFileStatus(target_);
        // Never wider than the mode it ends with: the content may be for few eyes.
        const mode_t mode = replaced ? replaced->st_mode & newFileMode : newFileMode;
        if (!create(mode) && (errno == ENOENT || errno == ENOTDIR)) {
            makeDirectories(target_.parent_path());
            std::ignore = create(mode);
        }
        if (!descriptor_.isOpen()) {
            fail("write", name_, errno);
        }
        // Tells `removeLeftovers` that somebody is at work here; where files can't be locked, it removes nothing.
        std::ignore = ::flock(descriptor_.number(), LOCK_EX | LOCK_NB);
        if (replaced && !takeOver(*replaced)) {
            const int number = errno;
            remove(); // no destructor runs when a constructor throws
            fail("write", name_, number);
        }
    }
    HiddenFile(const HiddenFile&) = delete;
    HiddenFile& operator=(const HiddenFile&) = delete;
    HiddenFile(HiddenFile&&) = delete;
    HiddenFile& operator=(HiddenFile&&) = delete;
    ~HiddenFile() {
        if (!isInPlace_) {
            remove();
        }
    }

    void write(std::span<const std::string_view> pieces) {
        if (const int number = writeAll(descriptor_.number(), pieces); number != 0) {
            fail("write", name_, number);
        }
        keeper_ = FileDescriptor(::fcntl(descriptor_.number(), F_DUPFD_CLOEXEC, 0));
        if (::close(descriptor_.release()) != 0) { // some file systems tell only now that there was no room
            fail("write", name_, errno);
        }
    }

    /// @return what keeps the content.
    FileDescriptor putInPlace() {
        if (std::rename(path_.c_str(), target_.c_str()) != 0) {
            fail("replace", name_, errno);
        }
        isInPlace_ = true;
        if (keeper_.isOpen()) {
            std::ignore = ::flock(keeper_.number(), LOCK_UN); // it stays open for long
        }
        return std::move(keeper_);
    }

  private:
    /// @return false with `errno` set when there is no such file now.
    [[nodiscard]] bool create(mode_t mode) {
        descriptor_ = FileDescriptor(::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
        return descriptor_.isOpen();
    }

    /// @return false with `errno` set when the mode is refused.
    [[nodiscard]] bool takeOver(const struct stat& replaced) const {
        struct stat own {};
        const bool isKnown = ::fstat(descriptor_.number(), &own) == 0;
        // Only root may give a file away; a member may still hand it to the group.
        if ((!isKnown || own.st_uid != replaced.st_uid || own.st_gid != replaced.st_gid) &&
            ::fchown(descriptor_.number(), replaced.st_uid, replaced.st_gid) != 0) {
            std::ignore = ::fchown(descriptor_.number(), static_cast<uid_t>(-1), replaced.st_gid);
        }
        const mode_t mode = replaced.st_mode & permissionBits;
        // A file system without modes shows the same for every file, and refuses to change it.
        const bool hasMode = isKnown && (own.st_mode & permissionBits) == mode;
        return hasMode || ::fchmod(descriptor_.number(), mode) == 0;
    }

    /// Best effort: a file that stays behind does no harm.
    void remove() const { ::unlink(path_.c_str()); }

    std::filesystem::path target_;
    std::string name_; ///< The target's, for the user.
    std::filesystem::path path_;
    FileDescriptor descriptor_;
    FileDescriptor keeper_; ///< The same file, once it is written.
    bool isInPlace_ = false;
};

/// Whether a hidden file is one of ours, or of the file's owner, that nobody is writing any more.
bool isLeftover(const std::filesystem::path& hidden, const std::filesystem::path& file) {
    const FileDescriptor descriptor(::open(hidden.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (!descriptor.isOpen() || ::fstat(descriptor.number(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return false;
    }
    const auto replaced = regularFileStatus(file); // root gives its hidden file to that one's owner
    const bool isOurs = status.st_uid == ::geteuid() || (replaced && status.st_uid == replaced->st_uid);
    return isOurs && ::flock(descriptor.number(), LOCK_EX | LOCK_NB) == 0;
}

} // namespace

FileDescriptor replaceFile(const std::filesystem::path& file, std::string_view content) {
    return replaceFile(file, std::span(&content, 1));
}

FileDescriptor replaceFile(const std::filesystem::path& file, std::span<const std::string_view> pieces) {
    HiddenFile replacement(file);
    replacement.write(pieces);
    return replacement.putInPlace();
}

void removeLeftovers(const std::filesystem::path& file) {
    const std::string prefix = hiddenPrefix(file);
    const auto folder = file.has_parent_path() ? file.parent_path() : std::filesystem::path(".");
    std::error_code error;
    const std::filesystem::directory_iterator end;
    for (std::filesystem::directory_iterator entry(folder, error); !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        if (name.starts_with(prefix) && isUUID(std::string_view(name).substr(prefix.size())) &&
            isLeftover(entry->path(), file)) {
            ::unlink(entry->path().c_str());
        }
    }
}

} // namespace DHCPCore
