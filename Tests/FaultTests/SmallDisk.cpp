#include "FaultTests/SmallDisk.hpp"

#include "DHCPCore/Error.hpp"
#include "DHCPCore/FileDescriptor.hpp"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sched.h>
#include <stdexcept>
#include <sys/mount.h>

namespace DHCPCore::TestSupport {

namespace {

constexpr const char* size = "size=256k";

/// Mounts the disk where nobody else sees it. @return 0, or the error number.
int mountAt(const std::filesystem::path& path) {
    if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("tarnwick-test", path.c_str(), "tmpfs", MS_NODEV | MS_NOSUID, size) != 0) {
        return errno;
    }
    return 0;
}

} // namespace

SmallDisk::SmallDisk(const std::filesystem::path& folder) : path_(folder / "disk") {
    std::filesystem::create_directory(path_);
    if (const int number = mountAt(path_); number != 0) {
        refusal_ = "no disk can be mounted here: " + systemText(number);
    }
}

SmallDisk::~SmallDisk() {
    if (!refusal_) {
        ::umount2(path_.c_str(), MNT_DETACH);
    }
}

std::vector<std::string> SmallDisk::names() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
        names.push_back(entry.path().filename().string());
    }
    std::ranges::sort(names);
    return names;
}

void SmallDisk::fill() const {
    const FileDescriptor filler(::open((path_ / "filler").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    const std::string piece(1024, 'x');
    while (writeAll(filler.number(), piece) == 0) {
    }
}

void SmallDisk::setReadOnly(bool readOnly) const {
    unsigned long flags = MS_REMOUNT | MS_NODEV | MS_NOSUID;
    if (readOnly) {
        flags |= MS_RDONLY;
    }
    if (::mount("none", path_.c_str(), nullptr, flags, size) != 0) {
        throw std::runtime_error("remounting: " + systemText(errno));
    }
}

} // namespace DHCPCore::TestSupport
