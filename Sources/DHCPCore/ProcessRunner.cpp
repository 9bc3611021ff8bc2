#include "DHCPCore/ProcessRunner.hpp"

#include "DHCPCore/Error.hpp"
#include "DHCPCore/UTF8.hpp"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

namespace DHCPCore::ProcessRunner {

namespace {

/// How the child begins: nothing to read, both outputs into the pipe, and signals as a program expects them, whatever
/// the calling thread has blocked and the process ignores.
class ChildSetup {
  public:
    explicit ChildSetup(int output) {
        ::posix_spawn_file_actions_init(&actions_);
        ::posix_spawnattr_init(&attributes_);
        // The outputs go first: the pipe may itself have one of the numbers that are being filled here.
        addFailure(::posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO));
        addFailure(::posix_spawn_file_actions_adddup2(&actions_, output, STDERR_FILENO));
        addFailure(::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0));
        sigset_t signals{};
        sigemptyset(&signals);
        addFailure(::posix_spawnattr_setsigmask(&attributes_, &signals));
        for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTERM, SIGCHLD}) {
            sigaddset(&signals, signal);
        }
        addFailure(::posix_spawnattr_setsigdefault(&attributes_, &signals));
        const int flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | systemLaunchFlags();
        addFailure(::posix_spawnattr_setflags(&attributes_, static_cast<short>(flags)));
    }
    ChildSetup(const ChildSetup&) = delete;
    ChildSetup& operator=(const ChildSetup&) = delete;
    ChildSetup(ChildSetup&&) = delete;
    ChildSetup& operator=(ChildSetup&&) = delete;
    ~ChildSetup() {
        ::posix_spawnattr_destroy(&attributes_);
        ::posix_spawn_file_actions_destroy(&actions_);
    }

    /// 0, or the error number of what was refused.
    [[nodiscard]] int launch(const std::string& path, const std::vector<std::string>& arguments, pid_t& child) const {
        if (failure_ != 0) {
            return failure_;
        }
        std::vector<char*> words; // the system's call asks for writable words that it never writes to
        words.push_back(const_cast<char*>(path.c_str()));
        for (const std::string& argument : arguments) {
            words.push_back(const_cast<char*>(argument.c_str()));
        }
        words.push_back(nullptr);
        return ::posix_spawn(&child, path.c_str(), &actions_, &attributes_, words.data(), environment());
    }

  private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
    int failure_ = 0;

    void addFailure(int failure) { failure_ = failure_ == 0 ? failure : failure_; }
};

std::string readToEnd(const FileDescriptor& pipe) {
    std::string text;
    std::array<char, 4096> buffer{};
    for (;;) {
        const ssize_t count = ::read(pipe.number(), buffer.data(), buffer.size());
        if (count > 0) {
            text.append(buffer.data(), static_cast<std::size_t>(count));
        } else if (count == 0 || errno != EINTR) {
            return text;
        }
    }
}

int waitForEnd(pid_t child) {
    constexpr int endedBySignal = 128; // what shells add to the signal's number
    int status = 0;
    while (::waitpid(child, &status, 0) == -1) {
        if (errno != EINTR) {
            return unknownEnd;
        }
    }
    return WIFSIGNALED(status) ? endedBySignal + WTERMSIG(status) : WEXITSTATUS(status);
}

} // namespace

Output run(const std::string& path, const std::vector<std::string>& arguments) {
    Pipe pipe = openPipe();
    if (!pipe.reading.isOpen()) {
        return {.status = notLaunched, .text = systemText(errno)};
    }
    pid_t child = -1;
    if (const int failure = ChildSetup(pipe.writing.number()).launch(path, arguments, child); failure != 0) {
        return {.status = notLaunched, .text = systemText(failure)};
    }
    pipe.writing.close();
    // Read first: a child that waits for room in a full pipe never ends.
    const std::string text = readToEnd(pipe.reading);
    return {.status = waitForEnd(child), .text = repairedUTF8(text)};
}

} // namespace DHCPCore::ProcessRunner
