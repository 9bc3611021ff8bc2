#include "Start.hpp"

#include "Clients.hpp"
#include "ServerProcess.hpp"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <random>
#include <sched.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace DHCPLoad {

using namespace DHCPCore;

namespace {

/// A server that runs as long as this object lives.
class Server {
  public:
    Server(const std::vector<std::string>& words, const std::string& network) {
        std::vector<char*> arguments;
        arguments.reserve(words.size() + 1);
        for (const std::string& word : words) {
            arguments.push_back(const_cast<char*>(word.c_str())); // execvp takes them so, and leaves them as they are
        }
        arguments.push_back(nullptr);
        const std::string networkFile = network.empty() ? "" : "/run/netns/" + network;
        pid_ = ::fork();
        if (pid_ < 0) {
            throw std::system_error(errno, std::generic_category(), "fork");
        }
        if (pid_ == 0) {
            become(arguments, networkFile);
        }
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    Server(Server&&) = delete;
    Server& operator=(Server&&) = delete;
    ~Server() {
        constexpr int tries = 500;
        ::kill(pid_, SIGTERM);
        for (int attempt = 0; attempt < tries; ++attempt) {
            if (hasEnded()) {
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds{10});
        }
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }

    [[nodiscard]] pid_t pid() const { return pid_; }
    /// Leaves nothing to wait for when it has.
    [[nodiscard]] bool hasEnded() {
        ended_ = ended_ || ::waitpid(pid_, nullptr, WNOHANG) == pid_;
        return ended_;
    }

  private:
    [[noreturn]] static void become(const std::vector<char*>& arguments, const std::string& networkFile) {
        constexpr int couldNotRun = 127;
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        const int nothing = ::open("/dev/null", O_RDWR);
        ::dup2(nothing, STDIN_FILENO);
        ::dup2(nothing, STDOUT_FILENO);
        if (!networkFile.empty() && ::setns(::open(networkFile.c_str(), O_RDONLY | O_CLOEXEC), CLONE_NEWNET) != 0) {
            ::_exit(couldNotRun);
        }
        ::execvp(arguments.front(), arguments.data());
        ::_exit(couldNotRun);
    }

    pid_t pid_ = -1;
    bool ended_ = false;
};

/// Whether an OFFER to the first client is among what came.
bool receiveOffer(Wire& wire, std::chrono::nanoseconds longest) {
    bool found = false;
    wire.receive(longest, [&found](const Arrival& arrival) {
        try {
            const DHCPPacket packet = DHCPPacket::parse(arrival.payload);
            found = found || (packet.messageType() == DHCPMessageType::offer && packet.mac() == macOfClient(0));
        } catch (const PacketError&) {
            return; // no answer at all
        }
    });
    return found;
}

/// Takes the answers to all that was asked before.
void awaitSilence(Wire& wire) {
    constexpr int tries = 1000;
    for (int attempt = 0; attempt < tries && receiveOffer(wire, std::chrono::milliseconds{100}); ++attempt) {
    }
}

} // namespace

StartResult measureStart(Wire& wire, const std::vector<std::string>& words, const std::string& network,
                         std::chrono::milliseconds patience) {
    using namespace std::chrono_literals;
    // Questions that wait in a running server's queue would be part of its next load.
    const std::chrono::microseconds interval = words.empty() ? 20ms : 500us;
    Messages messages;
    std::uint32_t xid = std::random_device{}();
    const auto start = Clock::now();
    std::optional<Server> server;
    if (!words.empty()) {
        server.emplace(words, network);
    }
    for (auto now = start; now < start + patience; now = Clock::now()) {
        wire.add({.from = macOfClient(0)}, messages.discover(0, ++xid));
        wire.flush();
        if (receiveOffer(wire, interval)) {
            StartResult result{.time = Clock::now() - start};
            if (server) {
                result.residentKiB = residentKiB(server->pid());
            }
            if (!server) {
                awaitSilence(wire);
            }
            return result;
        }
        if (server && server->hasEnded()) {
            throw std::runtime_error("the server ended at once");
        }
    }
    throw std::runtime_error("no OFFER came in time");
}

} // namespace DHCPLoad
