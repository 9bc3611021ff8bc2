#include "Support/ChildProcess.hpp"

#include "DHCPCore/ProcessRunner.hpp"
#include "Support/TestHost.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace DHCPCore::TestSupport {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// In the child: standard output and error in place, then the program.
[[noreturn]] void become(const ChildProcess::Setting& setting, const std::filesystem::path& home, int output) {
    dieWithParent();
    const int errors = ::open((home / "stderr").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    ::dup2(setting.errorsInOutput ? output : errors, STDERR_FILENO);
    ::dup2(output, STDOUT_FILENO);
    if (setting.outputClosed) {
        ::close(STDOUT_FILENO);
    }
    ::setenv("HOME", home.c_str(), 1);
    ::unsetenv("XDG_DATA_HOME");
    ::unsetenv("XDG_STATE_HOME");
    std::vector<std::string> words = setting.words;
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);
    ::execvp(pointers.front(), pointers.data());
    ::_exit(127);
}

} // namespace

ChildProcess::ChildProcess(const Setting& setting) {
    if (setting.homeOwner && ::chown(home_.path().c_str(), *setting.homeOwner, *setting.homeOwner) != 0) {
        throw std::runtime_error("could not give the home folder away");
    }
    ProcessRunner::Pipe pipe = ProcessRunner::openPipe();
    if (!pipe.reading.isOpen()) {
        throw std::runtime_error("no pipe");
    }
    output_ = std::move(pipe.reading);
    FileDescriptor childEnd = std::move(pipe.writing);
    if (setting.outputFile) {
        childEnd = FileDescriptor{::open(setting.outputFile->c_str(), O_WRONLY | O_CLOEXEC)};
    }
    pid_ = ::fork();
    if (pid_ == 0) {
        become(setting, home_.path(), childEnd.number());
    }
}

ChildProcess::~ChildProcess() {
    if (!status_) {
        signal(SIGKILL);
        wait();
    }
}

bool ChildProcess::readMore() {
    pollfd waiting{.fd = output_.number(), .events = POLLIN, .revents = 0};
    constexpr auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(patience).count();
    if (::poll(&waiting, 1, static_cast<int>(milliseconds)) != 1) {
        return false;
    }
    std::array<char, 4096> buffer{};
    const ssize_t count = ::read(output_.number(), buffer.data(), buffer.size());
    if (count <= 0) {
        return false;
    }
    unread_.append(buffer.data(), static_cast<std::size_t>(count));
    return true;
}

std::optional<std::string> ChildProcess::line() {
    for (;;) {
        const auto end = unread_.find('\n');
        if (end != std::string::npos) {
            std::string line = unread_.substr(0, end);
            unread_.erase(0, end + 1);
            return line;
        }
        if (!readMore()) {
            return std::nullopt;
        }
    }
}

std::vector<std::string> ChildProcess::linesThrough(const std::string& text) {
    std::vector<std::string> lines;
    while (auto next = line()) {
        lines.push_back(*next);
        if (next->find(text) != std::string::npos) {
            return lines;
        }
    }
    ADD_FAILURE() << "no line with \"" << text << "\" came, but: " << fmt::format("{}", fmt::join(lines, "\n"));
    lines.emplace_back("(nothing)"); // so that there is a last one
    return lines;
}

std::string ChildProcess::rest() {
    while (readMore()) {
    }
    return std::exchange(unread_, {});
}

void ChildProcess::signal(int number) const { ::kill(pid_, number); }

int ChildProcess::wait() {
    const auto deadline = Clock::now() + patience;
    while (!status_) {
        int status = 0;
        const pid_t ended = ::waitpid(pid_, &status, WNOHANG);
        if (ended == pid_) {
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        } else if (Clock::now() > deadline) {
            return -1;
        } else {
            std::this_thread::sleep_for(1ms);
        }
    }
    return *status_;
}

} // namespace DHCPCore::TestSupport
