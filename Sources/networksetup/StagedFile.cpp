#include "networksetup/StagedFile.hpp"

#include "DHCPCore/Error.hpp"
#include "DHCPCore/FileDescriptor.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace NetworkSetup {

using DHCPCore::FileDescriptor;

namespace {

[[noreturn]] void fail(int number) { throw DHCPCore::Error(DHCPCore::systemText(number)); }

/// What is known of the file that will be replaced; nothing when there is none.
std::optional<struct stat> presentFile(const std::string& path) {
    struct stat present {};
    if (::lstat(path.c_str(), &present) != 0) {
        if (errno != ENOENT) {
            fail(errno);
        }
        return std::nullopt;
    }
    if (!S_ISREG(present.st_mode)) {
        throw DHCPCore::Error("it is not a plain file");
    }
    return present;
}

void makeFolder(const std::string& path) {
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
    if (error) {
        throw DHCPCore::Error(error.message());
    }
}

void write(const FileDescriptor& file, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::write(file.number(), text.data(), text.size());
        if (count >= 0) {
            text.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            fail(errno);
        }
    }
}

void finish(const FileDescriptor& file, const std::optional<struct stat>& present) {
    constexpr mode_t ordinaryMode = 0644;
    if (present && ::fchown(file.number(), present->st_uid, present->st_gid) != 0) {
        fail(errno);
    }
    if (::fchmod(file.number(), present ? present->st_mode & 07777U : ordinaryMode) != 0 ||
        ::fsync(file.number()) != 0) {
        fail(errno);
    }
}

} // namespace

StagedFile::StagedFile(std::string path, std::string_view text) : path_(std::move(path)) {
    const auto present = presentFile(path_);
    makeFolder(path_);
    // Begins with a dot, so that no manager which reads all files of the folder reads this one.
    const std::filesystem::path place(path_);
    std::string name = place.parent_path() / fmt::format(".{}.XXXXXX", place.filename().string());
    const FileDescriptor file{::mkostemp(name.data(), O_CLOEXEC)};
    if (!file.isOpen()) {
        fail(errno);
    }
    try {
        write(file, text);
        finish(file, present);
    } catch (const DHCPCore::Error&) {
        ::unlink(name.c_str()); // no destructor runs for what was never made
        throw;
    }
    stagedPath_ = std::move(name);
}

StagedFile::~StagedFile() {
    if (!stagedPath_.empty()) {
        ::unlink(stagedPath_.c_str());
    }
}

void StagedFile::putInPlace() {
    if (std::rename(stagedPath_.c_str(), path_.c_str()) != 0) {
        fail(errno);
    }
    stagedPath_.clear();
}

} // namespace NetworkSetup
