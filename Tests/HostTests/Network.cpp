#include "HostTests/Network.hpp"

#include "DHCPCore/FileDescriptor.hpp"
#include "DHCPCore/Interfaces.hpp"
#include "DHCPCore/ProcessRunner.hpp"
#include "DHCPCore/TextPieces.hpp"
#include "Support/ChildProcess.hpp"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <sched.h>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace Tarnwick {

namespace {

using namespace std::chrono_literals;
using DHCPCore::ProcessRunner::Output;

constexpr std::string_view nameStart = "tarnwick-test-";
const std::filesystem::path folderOfNames = "/run/netns";

Output runIP(std::vector<std::string> words) {
    words.insert(words.begin(), "ip");
    return DHCPCore::ProcessRunner::run("/usr/bin/env", words);
}

std::vector<std::string> wordsOf(std::string_view text) {
    std::vector<std::string> words;
    for (const std::string_view word : DHCPCore::splitDroppingEmpty(text, ' ')) {
        words.emplace_back(word);
    }
    return words;
}

/// The process that made the network of that name; nothing when no test did.
std::optional<pid_t> maker(std::string_view name) {
    if (!name.starts_with(nameStart)) {
        return std::nullopt;
    }
    name.remove_prefix(nameStart.size());
    pid_t pid = 0;
    const auto [stop, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
    return error == std::errc{} && stop != name.data() && pid > 0 ? std::optional(pid) : std::nullopt;
}

/// Removes what tests left that were killed before they could.
void removeAbandoned() {
    std::error_code error;
    for (std::filesystem::directory_iterator entry(folderOfNames, error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string name = entry->path().filename();
        const auto pid = maker(name);
        if (pid && ::kill(*pid, 0) == -1 && errno == ESRCH) {
            runIP({"netns", "delete", name}); // another test may be quicker, which is as well
        }
    }
}

std::string nextName(std::string_view purpose) {
    static int count = 0;
    return fmt::format("{}{}-{}-{}", nameStart, ::getpid(), ++count, purpose);
}

} // namespace

std::optional<std::string> whyNoNetworks() {
    if (::geteuid() != 0) {
        return "only root may make network namespaces";
    }
    try {
        const Network network("trial");
        const Output output = runIP({"netns", "exec", network.name(), "true"});
        return output.status == 0 ? std::nullopt
                                  : std::optional("this machine runs nothing in a network namespace: " + output.text);
    } catch (const std::exception& error) {
        return fmt::format("this machine lets root make no network namespace: {}", error.what());
    }
}

Network::Network(std::string_view purpose) : name_(nextName(purpose)) {
    removeAbandoned();
    const Output output = runIP({"netns", "add", name_});
    if (output.status != 0) {
        throw std::runtime_error(output.text);
    }
    ip("link set lo up");
}

Network::~Network() {
    const Output pids = runIP({"netns", "pids", name_});
    for (const std::string_view line : DHCPCore::splitDroppingEmpty(pids.text, '\n')) {
        if (const auto pid = DHCPCore::parseDecimal<pid_t>(line)) {
            ::kill(*pid, SIGKILL);
        }
    }
    runIP({"netns", "delete", name_});
}

void Network::ip(const std::string& words) const {
    std::vector<std::string> all{"-n", name_};
    for (std::string& word : wordsOf(words)) {
        all.push_back(std::move(word));
    }
    const Output output = runIP(all);
    if (output.status != 0) {
        throw std::runtime_error(fmt::format("ip {}: {}", words, output.text));
    }
}

void Network::set(const std::string& parameter) const {
    const Output output = runIP({"netns", "exec", name_, "sysctl", "-qw", parameter});
    if (output.status != 0) {
        throw std::runtime_error(fmt::format("sysctl {}: {}", parameter, output.text));
    }
}

void Network::within(const std::function<void()>& work) const {
    std::exception_ptr failure;
    std::thread([&] {
        try {
            const DHCPCore::FileDescriptor handle{::open((folderOfNames / name_).c_str(), O_RDONLY | O_CLOEXEC)};
            if (::setns(handle.number(), CLONE_NEWNET) != 0) {
                throw std::system_error(errno, std::generic_category(), "could not enter " + name_);
            }
            work();
        } catch (...) {
            failure = std::current_exception();
        }
    }).join();
    if (failure) {
        std::rethrow_exception(failure);
    }
}

void Network::awaitLink(const std::string& card) const {
    within([&card] {
        const auto deadline = std::chrono::steady_clock::now() + DHCPCore::TestSupport::patience;
        while (!DHCPCore::Interfaces::mediaStatus(card).linkUp) {
            if (std::chrono::steady_clock::now() > deadline) {
                throw std::runtime_error(card + " got no link");
            }
            std::this_thread::sleep_for(1ms);
        }
    });
}

} // namespace Tarnwick
