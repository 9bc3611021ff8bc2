#include "DHCPCore/DHCPCore.hpp"
#include "DHCPCore/EventLog.hpp"
#include "DHCPCore/FreeMemory.hpp"
#include "DHCPCore/HostSetup.hpp"
#include "DHCPCore/Interfaces.hpp"
#include "DHCPCore/LogFileWriter.hpp"
#include "DHCPCore/Preflight.hpp"
#include "DHCPCore/Privileges.hpp"
#include "DHCPCore/Server.hpp"
#include "DHCPCore/Threads.hpp"
#include "tarnwick/CommandLine.hpp"
#include "tarnwick/Output.hpp"

#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace Tarnwick {
namespace {

using DHCPCore::ConfigError;
using DHCPCore::Date;
using DHCPCore::DHCPServer;
using DHCPCore::EventStream;
using DHCPCore::LeaseFile;
using DHCPCore::LogFileWriter;
using DHCPCore::NetworkCard;
using DHCPCore::PreflightCheck;
using DHCPCore::ServerConfig;
using DHCPCore::ServerEvent;
using DHCPCore::TransportError;
using DHCPCore::TransportMode;
using DHCPCore::UDPTransport;

namespace EventLog = DHCPCore::EventLog;
namespace HostSetup = DHCPCore::HostSetup;
namespace Interfaces = DHCPCore::Interfaces;
namespace Preflight = DHCPCore::Preflight;

constexpr int exitFailure = 1;
constexpr int exitUsage = 2;

std::string listLine(const NetworkCard& card) {
    constexpr std::size_t nameWidth = 6;
    const std::string link = card.linkUp ? "● link up " + card.media.value_or("") : "○ no link";
    return fmt::format("{:<6}  service: {}  {}  {}  {}", card.bsdName.substr(0, nameWidth),
                       card.serviceName.value_or("none"), card.mac ? card.mac->description() : "-", link,
                       card.addressSummary());
}

void runList() {
    const std::vector<NetworkCard> cards = Interfaces::offered(Interfaces::list(), true);
    if (cards.empty()) {
        printLine("No wired network cards found.");
    }
    for (const NetworkCard& card : cards) {
        printLine(listLine(card));
    }
}

void requireValid(const ServerConfig& config) {
    std::vector<std::string> texts;
    for (const ConfigError& error : config.validate()) {
        texts.push_back(error.description());
    }
    if (!texts.empty()) {
        throw CLIError(fmt::format("{}", fmt::join(texts, "\n")), false);
    }
}

NetworkCard cardNamed(const std::string& name) {
    const std::vector<NetworkCard> cards = Interfaces::list();
    const auto card = std::ranges::find(cards, name, &NetworkCard::bsdName);
    if (card == cards.end()) {
        throw CLIError(fmt::format("no network card named {}; run `tarnwick list`", name), false);
    }
    return *card;
}

std::string_view mark(PreflightCheck::Status status) {
    switch (status) {
    case PreflightCheck::Status::pass:
        return "✓";
    case PreflightCheck::Status::warn:
        return "⚠";
    case PreflightCheck::Status::fail:
        break;
    }
    return "✗";
}

/// Prints the checks, and the command that mends what failed. @return whether the server can start.
bool passesPreflight(const NetworkCard& card, const ServerConfig& config) {
    const std::vector<PreflightCheck> checks = Preflight::evaluate(Preflight::gather(card, config));
    for (const PreflightCheck& check : checks) {
        printLine(fmt::format("{} {}", mark(check.status), check.message));
    }
    if (Preflight::canStart(checks)) {
        return true;
    }
    const auto mendable =
        std::ranges::find_if(checks, [](const PreflightCheck& check) { return check.fix.has_value(); });
    if (mendable != checks.end()) {
        const auto& fix = std::get<PreflightCheck::Fix::ConfigureAdapter>(mendable->fix->value);
        const std::string command = HostSetup::setManualCommand(fix.service, config.serverIP, config.mask());
        printLine("\nRun this, then start tarnwick again:\n  " + HostSetup::sudoLine(command));
    }
    return false;
}

/// Shows every event on standard output, and keeps its text line in the log file.
class EventPrinter {
  public:
    EventPrinter(bool json, std::unique_ptr<LogFileWriter> log) : json_(json), log_(std::move(log)) {}

    /// Returns when the stream is finished. `readerGone` is called once, when nobody reads standard output any more.
    void consume(EventStream<ServerEvent>& events, const std::function<void()>& readerGone) {
        while (const auto event = nextOf(events)) {
            const Date now = DHCPCore::currentDate();
            const auto line = EventLog::line(*event, now, DHCPCore::TimeZone::current());
            if (line && log_) {
                keep(*line, now);
            }
            const auto shown = json_ ? EventLog::json(*event, now) : line;
            if (shown && !readerIsGone_ && print(*shown) == EPIPE) {
                readerIsGone_ = true;
                readerGone();
            }
        }
        if (log_) {
            log_->flush();
        }
    }

  private:
    /// In the log. Where lines are written far more slowly than they come, so many wait that they take some megabytes:
    /// the log's thread is waited for, but not when it gets no processor at all.
    void keep(const std::string& line, Date now) {
        constexpr std::size_t many = 1U << 15U;
        constexpr std::chrono::milliseconds rest{10};
        constexpr int mostRests = 8;
        for (int rests = 0; log_->waiting() >= many; ++rests) {
            if (rests == mostRests) {
                log_->flush();
                break;
            }
            std::this_thread::sleep_for(rest);
        }
        log_->append(line, now);
    }

    /// Waits for the next event. In a burst it looks for events a thousand times a second: to be woken for each of them
    /// would take time from answering.
    [[nodiscard]] std::optional<ServerEvent> nextOf(EventStream<ServerEvent>& events) {
        constexpr std::chrono::milliseconds rest{1};
        constexpr std::chrono::milliseconds quiet{20};
        constexpr std::size_t many = 1000;
        if (events.waiting() == 0) {
            std::this_thread::sleep_for(rest);
        }
        if (sinceQuiet_ >= many) {
            if (auto event = events.next(quiet)) {
                ++sinceQuiet_;
                return event;
            }
            giveBackMemory();
        }
        ++sinceQuiet_;
        return events.next();
    }

    /// The memory of a burst of events is not kept for the next one.
    void giveBackMemory() {
        sinceQuiet_ = 0;
        if (log_) {
            log_->flush();
        }
        DHCPCore::giveBackFreeMemory();
    }

    /// @return as `printLine`. Any refusal but a broken pipe is reported, once; serving goes on.
    int print(std::string_view line) {
        const int error = printLine(line);
        if (error != 0 && error != EPIPE && !refusalReported_) {
            refusalReported_ = true;
            printError("standard output: " + DHCPCore::systemText(error));
        }
        return error;
    }

    bool json_;
    std::unique_ptr<LogFileWriter> log_;
    bool readerIsGone_ = false;
    bool refusalReported_ = false;
    std::size_t sinceQuiet_ = 0; ///< Events since nothing happened for a moment.
};

DHCPServer::Options serverOptions(const ServeOptions& options, std::optional<DHCPCore::MACAddress> cardMAC) {
    const auto leasePath = options.leasePath ? std::filesystem::path(*options.leasePath) : LeaseFile::defaultURL();
    const TransportMode mode =
        options.loopback
            ? TransportMode{TransportMode::Loopback{.serverPort = options.port, .clientPort = options.clientPort}}
            : TransportMode{TransportMode::Interface{*options.interface}};
    return {.config = options.config,
            .mode = mode,
            .cardMAC = cardMAC,
            .leaseFile = {.url = leasePath},
            .presenceEnabled = !options.loopback};
}

/// The sentence for a server that could not start.
std::string startFailure(const std::exception& error, const ServeOptions& options) {
    const auto* const refused = dynamic_cast<const TransportError*>(&error);
    if (refused == nullptr || refused->code != EADDRINUSE) {
        return error.what();
    }
    return fmt::format("port {} is in use by {}", options.loopback ? options.port : UDPTransport::serverPort,
                       Preflight::port67Holder().value_or("another program"));
}

/// Leaves every further SIGINT pending for good: all other threads block it already.
void blockInterrupts() {
    sigset_t interrupt{};
    sigemptyset(&interrupt);
    sigaddset(&interrupt, SIGINT);
    ::pthread_sigmask(SIG_BLOCK, &interrupt, nullptr);
}

/// Whoever runs the server as root may still serve where the system refuses to take rights away.
void giveUpPrivileges() {
    if (const int error = DHCPCore::Privileges::keepOnlyThoseForServing(); error != 0) {
        printError("rights that serving does not need could not be given up: " + DHCPCore::systemText(error));
    }
}

/// Serves until SIGINT, or until nobody reads standard output.
void serve(DHCPServer& server, EventPrinter& printer, const ServeOptions& options) {
    asio::io_context loop;
    asio::signal_set interrupts(loop, SIGINT); // taken over before anything tells that the server runs
    std::function<void()> awaitInterrupt = [&] {
        interrupts.async_wait([&](const std::error_code& error, int) {
            if (!error) {
                server.stop();
                awaitInterrupt();
            }
        });
    };
    awaitInterrupt();

    const auto events = server.events();
    std::thread consumer = DHCPCore::Threads::start("tarnwick.events", [&] {
        DHCPCore::Threads::makeWayForOthers(); // answers go before reports
        printer.consume(*events, [&] { server.stop(); });
        loop.stop();
    });
    try {
        server.start();
    } catch (const std::exception& error) {
        events->finish();
        consumer.join();
        throw CLIError(startFailure(error, options), false);
    }
    loop.run();
    consumer.join();
    blockInterrupts(); // from here on the signal set is gone, but the server may still wait for its probes
}

int runServe(const ServeOptions& options) {
    requireValid(options.config);
    std::optional<DHCPCore::MACAddress> cardMAC;
    std::unique_ptr<LogFileWriter> log;
    if (!options.loopback) {
        const NetworkCard card = cardNamed(*options.interface);
        if (!passesPreflight(card, options.config)) {
            return exitFailure;
        }
        cardMAC = card.mac;
        giveUpPrivileges(); // the checks may have needed them; no thread of ours runs yet
        log = std::make_unique<LogFileWriter>(LogFileWriter::defaultDirectory());
    }
    const auto server = std::make_shared<DHCPServer>(serverOptions(options, cardMAC));
    EventPrinter printer(options.json, std::move(log));
    serve(*server, printer, options);
    return EXIT_SUCCESS;
}

int run(std::span<const std::string> arguments) {
    if (arguments.empty()) {
        printLine(usageText);
        return EXIT_SUCCESS;
    }
    const std::string& command = arguments.front();
    if (command == "list") {
        runList();
        return EXIT_SUCCESS;
    }
    if (command == "serve") {
        return runServe(parseServe(arguments.subspan(1)));
    }
    if (command == "--version") {
        printLine(fmt::format("tarnwick {}", DHCPCore::DHCPCoreInfo::version));
        return EXIT_SUCCESS;
    }
    printLine(usageText);
    return exitUsage;
}

} // namespace
} // namespace Tarnwick

int main(int argumentCount, char** arguments) {
    using namespace Tarnwick;
    openMissingStandardDescriptors();
    std::signal(SIGPIPE, SIG_IGN); // a reader that goes away is told by the write, not by a signal in mid-save
    try {
        const std::vector<std::string> words(arguments, arguments + argumentCount);
        return run(std::span(words).subspan(words.empty() ? 0 : 1));
    } catch (const CLIError& error) {
        printError(error.description());
        if (!error.isUsage) {
            return exitFailure;
        }
        std::ignore = DHCPCore::writeAll(STDERR_FILENO, "\n" + std::string(usageText) + "\n");
        return exitUsage;
    } catch (const std::exception& error) {
        printError(error.what());
        return exitFailure;
    }
}
