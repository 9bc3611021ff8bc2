#include "FaultTests/SystemFaults.hpp"

#include "DHCPCore/Overloaded.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <fcntl.h>
#include <mutex>
#include <optional>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>
#include <utility>

namespace DHCPCore::TestSupport {

namespace {

using Kind = SystemCall::Kind;

/// What is injected now; any thread of the library may ask.
class Injection {
  public:
    void set(InjectedFaults::Judge judge) {
        const std::lock_guard lock(mutex_);
        judge_ = std::move(judge);
        calls_ = 0;
    }

    Fate fateOf(Kind kind, const char* path) {
        const std::lock_guard lock(mutex_);
        return judge_ ? judge_({.kind = kind, .place = calls_++, .path = path == nullptr ? "" : path}) : Fate{};
    }

  private:
    std::mutex mutex_;
    InjectedFaults::Judge judge_;
    std::size_t calls_ = 0;
};

/// Whether this program's own code runs. The thread sanitizer makes the folder of its reports before anything that it
/// watches may run, and comes through here; this file is therefore compiled without it, and asks first. Volatile keeps
/// the compiler from seeing that it is set.
volatile bool isStarted = false;

struct Start {
    Start() { isStarted = true; }
};
const Start start;

Injection& injection() {
    static Injection shared; // a function that the linker puts in another's place can be handed nothing
    return shared;
}

[[noreturn]] void die() {
    ::kill(::getpid(), SIGKILL);
    for (;;) {
        ::pause();
    }
}

/// Carries a call out as its fate wants it. @return what the call returns.
template <class Call>
auto carryOut(const Fate& fate, const Call& call) -> decltype(call()) {
    return std::visit(Overloaded{[&](const Fate::Passes&) { return call(); },
                                 [&](const Fate::WritesShort&) { return call(); },
                                 [&](const Fate::Fails& failure) {
                                     errno = failure.number;
                                     return decltype(call()){-1};
                                 },
                                 [&](const Fate::Kills& kill) {
                                     if (kill.afterwards) {
                                         call();
                                     }
                                     die();
                                     return decltype(call()){-1};
                                 }},
                      fate.value);
}

template <class Call>
auto judged(Kind kind, const char* path, const Call& call) -> decltype(call()) {
    return carryOut(injection().fateOf(kind, path), call);
}

} // namespace

std::string_view description(SystemCall::Kind kind) {
    constexpr std::array<std::string_view, 10> names{"open",   "read",  "write", "close",       "rename",
                                                     "unlink", "mkdir", "lock",  "changeOwner", "changeMode"};
    return names.at(static_cast<std::size_t>(kind));
}

InjectedFaults::InjectedFaults(Judge judge) { injection().set(std::move(judge)); }

InjectedFaults::~InjectedFaults() { injection().set({}); }

} // namespace DHCPCore::TestSupport

// NOLINTBEGIN(bugprone-reserved-identifier, readability-identifier-naming, misc-use-internal-linkage): the linker's
// names
extern "C" {

int __real_open(const char* path, int flags, mode_t mode);
ssize_t __real_read(int descriptor, void* bytes, size_t count);
ssize_t __real_writev(int descriptor, const iovec* vectors, int count);
int __real_close(int descriptor);
int __real_rename(const char* from, const char* to);
int __real_unlink(const char* path);
int __real_mkdir(const char* path, mode_t mode);
int __real_flock(int descriptor, int operation);
int __real_fchown(int descriptor, uid_t owner, gid_t group);
int __real_fchmod(int descriptor, mode_t mode);

using DHCPCore::TestSupport::carryOut;
using DHCPCore::TestSupport::Fate;
using DHCPCore::TestSupport::injection;
using DHCPCore::TestSupport::isStarted;
using DHCPCore::TestSupport::judged;
using DHCPCore::TestSupport::Kind;

int __wrap_open(const char* path, int flags, ...) {
    va_list arguments; // NOLINT(cppcoreguidelines-init-variables): va_start makes it
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return judged(Kind::open, path, [&] { return __real_open(path, flags, mode); });
}

ssize_t __wrap_read(int descriptor, void* bytes, size_t count) {
    return judged(Kind::read, nullptr, [&] { return __real_read(descriptor, bytes, count); });
}

ssize_t __wrap_writev(int descriptor, const iovec* vectors, int count) {
    const Fate fate = injection().fateOf(Kind::write, nullptr);
    if (const auto* const shortly = std::get_if<Fate::WritesShort>(&fate.value)) {
        iovec first = vectors[0];
        first.iov_len = std::min(first.iov_len, shortly->bytes);
        return __real_writev(descriptor, &first, 1);
    }
    return carryOut(fate, [&] { return __real_writev(descriptor, vectors, count); });
}

int __wrap_close(int descriptor) {
    const Fate fate = injection().fateOf(Kind::close, nullptr);
    if (std::holds_alternative<Fate::Fails>(fate.value)) {
        __real_close(descriptor);
    }
    return carryOut(fate, [&] { return __real_close(descriptor); });
}

int __wrap_rename(const char* from, const char* to) {
    return judged(Kind::rename, to, [&] { return __real_rename(from, to); });
}

int __wrap_unlink(const char* path) {
    return judged(Kind::unlink, path, [&] { return __real_unlink(path); });
}

int __wrap_mkdir(const char* path, mode_t mode) {
    if (!isStarted) {
        return __real_mkdir(path, mode);
    }
    return judged(Kind::mkdir, path, [&] { return __real_mkdir(path, mode); });
}

int __wrap_flock(int descriptor, int operation) {
    return judged(Kind::lock, nullptr, [&] { return __real_flock(descriptor, operation); });
}

int __wrap_fchown(int descriptor, uid_t owner, gid_t group) {
    return judged(Kind::changeOwner, nullptr, [&] { return __real_fchown(descriptor, owner, group); });
}

int __wrap_fchmod(int descriptor, mode_t mode) {
    return judged(Kind::changeMode, nullptr, [&] { return __real_fchmod(descriptor, mode); });
}

} // extern "C"
// NOLINTEND(bugprone-reserved-identifier, readability-identifier-naming, misc-use-internal-linkage)
