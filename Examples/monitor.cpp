// A front end in miniature, in a terminal: the host's cards as the interface monitor finds them changed, the settings
// form with what is wrong in it, and, when nothing is, a server on loopback and the state folded from its events.
#include "DHCPCore/Error.hpp"
#include "DHCPCore/EventLog.hpp"
#include "DHCPCore/EventStream.hpp"
#include "DHCPCore/FileDescriptor.hpp"
#include "DHCPCore/InterfaceMonitor.hpp"
#include "DHCPCore/Interfaces.hpp"
#include "DHCPCore/Overloaded.hpp"
#include "DHCPCore/Server.hpp"
#include "DHCPCore/SettingsForm.hpp"
#include "DHCPCore/TarnwickState.hpp"
#include "DHCPCore/TextPieces.hpp"
#include "DHCPCore/Threads.hpp"

#include <fmt/format.h>

#include <array>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <pthread.h>
#include <string>
#include <string_view>
#include <thread>
#include <tuple>
#include <unistd.h>
#include <utility>
#include <variant>
#include <vector>

namespace {

using namespace DHCPCore;

constexpr std::string_view usage =
    "usage: monitor [--port 6767] [--client-port 6868] [--leases <path>] [<field>=<text> ...]\n"
    "fields: serverIP prefix rangeStart rangeEnd lease router dns\n";

/// What the form shows at first.
const ServerConfig initialConfig{.serverIP = IPv4Address{192, 168, 0, 1},
                                 .prefixLength = 24,
                                 .rangeStart = IPv4Address{192, 168, 0, 100},
                                 .rangeEnd = IPv4Address{192, 168, 0, 200},
                                 .leaseSeconds = 86400,
                                 .router = std::nullopt,
                                 .dns = {}};

struct Options {
    SettingsForm form{initialConfig};
    TransportMode::Loopback ports{.serverPort = 6767, .clientPort = 6868};
    std::optional<std::string> leasePath;
};

struct TextField {
    std::string_view name;
    std::string SettingsForm::*text;
};

constexpr std::array textFields{
    TextField{"serverIP", &SettingsForm::serverIP},     TextField{"prefix", &SettingsForm::prefix},
    TextField{"rangeStart", &SettingsForm::rangeStart}, TextField{"rangeEnd", &SettingsForm::rangeEnd},
    TextField{"router", &SettingsForm::router},         TextField{"dns", &SettingsForm::dns},
};

/// Types a text into a field. The lease field is a choice first: only what is none of its presets is custom.
/// @return false when there is no such field.
bool type(SettingsForm& form, std::string_view name, std::string_view text) {
    if (name == "lease") {
        form.leasePreset = fromRawValue<LeasePreset>(text).value_or(LeasePreset::custom);
        form.customLease = text;
        return true;
    }
    for (const TextField& field : textFields) {
        if (field.name == name) {
            form.*field.text = text;
            return true;
        }
    }
    return false;
}

bool takePort(std::uint16_t& port, std::string_view text) {
    const auto number = parseDecimal<std::uint16_t>(text);
    port = number.value_or(port);
    return number.has_value();
}

bool takeOption(Options& options, std::string_view name, const std::string& value) {
    if (name == "--leases") {
        options.leasePath = value;
        return true;
    }
    return (name == "--port" && takePort(options.ports.serverPort, value)) ||
           (name == "--client-port" && takePort(options.ports.clientPort, value));
}

std::optional<Options> parseOptions(const std::vector<std::string>& words) {
    Options options;
    for (std::size_t index = 0; index < words.size(); ++index) {
        const std::string_view word = words[index];
        const auto equals = word.find('=');
        if (equals != std::string_view::npos) {
            if (!type(options.form, word.substr(0, equals), word.substr(equals + 1))) {
                return std::nullopt;
            }
        } else if (++index == words.size() || !takeOption(options, word, words[index])) {
            return std::nullopt;
        }
    }
    return options;
}

std::string cardsText() {
    const std::vector<NetworkCard> cards = Interfaces::offered(Interfaces::list(), true);
    std::string text = cards.empty() ? "cards:\n  none\n" : "cards:\n";
    for (const NetworkCard& card : cards) {
        text += fmt::format("  {} {}, {}\n", card.bsdName, card.linkUp ? "link up" : "no link", card.addressSummary());
    }
    return text;
}

std::string_view title(SettingsForm::Field field) {
    switch (field) {
    case SettingsForm::Field::server:
        return "server";
    case SettingsForm::Field::range:
        return "range";
    case SettingsForm::Field::lease:
        return "lease";
    case SettingsForm::Field::gateway:
        return "gateway";
    case SettingsForm::Field::dns:
        break;
    }
    return "dns";
}

std::string settingsText(const SettingsForm& form) {
    std::string text = "settings:\n";
    if (const auto config = form.config()) {
        return text + fmt::format("  {} addresses, lease {}\n", form.rangeCount().value_or(0),
                                  formatDuration(config->leaseSeconds));
    }
    for (const auto& [field, messages] : form.errors()) {
        for (const std::string& message : messages) {
            text += fmt::format("  {}: {}\n", title(field), message);
        }
    }
    return text;
}

std::string leaseText(const Lease& lease) {
    return fmt::format("{} {} {}", lease.ip.description(), lease.mac.description(), rawValue(lease.state));
}

std::string stateText(const TarnwickState& state) {
    std::string text = "server:\n";
    text += state.serverInterface ? fmt::format("  serving {}\n", *state.serverInterface) : "  stopped\n";
    for (const NoticeKind kind : allCases<NoticeKind>()) {
        if (const auto notice = state.notices.find(kind); notice != state.notices.end()) {
            text += fmt::format("  {} {}\n", notice->second.isCritical() ? "!" : "-", notice->second.message);
        }
    }
    if (state.lastPacketAt) {
        text += fmt::format("  last packet {}\n", EventLog::timestamp(*state.lastPacketAt, TimeZone::current()));
    }
    if (state.deviceFound) {
        text += fmt::format("  device found: {}\n", leaseText(*state.deviceFound));
    }
    std::vector<Lease> leases;
    for (const auto& [mac, lease] : state.leases) {
        leases.push_back(lease);
    }
    for (const Lease& lease : LeaseTable(std::move(leases), {}).sortedByIP()) {
        const auto presence = state.presence.find(lease.ip);
        text += fmt::format("  lease {}{}\n", leaseText(lease),
                            presence == state.presence.end() ? "" : fmt::format(" {}", rawValue(presence->second)));
    }
    return text;
}

/// What the front end's own thread is told by the others.
struct Happening {
    struct CardsChanged {};
    struct ServerEnded {};
    struct UserQuits {};
    std::variant<CardsChanged, ServerEvent, ServerEnded, UserQuits> value;
};

/// Everything that is shown belongs to the thread that calls `run`; the others only put into the inbox.
class FrontEnd {
  public:
    explicit FrontEnd(Options options) : options_(std::move(options)) {}
    FrontEnd(const FrontEnd&) = delete;
    FrontEnd& operator=(const FrontEnd&) = delete;
    FrontEnd(FrontEnd&&) = delete;
    FrontEnd& operator=(FrontEnd&&) = delete;
    ~FrontEnd() {
        server_.reset(); // ends its events
        if (serverEvents_.joinable()) {
            serverEvents_.join();
        }
    }

    /// Shows, and goes on showing, until the user quits.
    void run() {
        monitor_.start(); // before the first look, so that no change falls between the two
        show(shownCards_, cardsText());
        show(shownSettings_, settingsText(options_.form));
        const auto config = options_.form.config();
        if (config) {
            state_.runStarted(TransportMode{options_.ports}.interfaceName());
        }
        loadLeases();
        if (config) {
            serve(*config);
        }
        show(shownState_, stateText(state_));
        while (const auto happening = inbox_.next()) {
            std::visit(Overloaded{[this](const Happening::CardsChanged&) { show(shownCards_, cardsText()); },
                                  [this](const ServerEvent& event) {
                                      state_.apply(event, currentDate());
                                      show(shownState_, stateText(state_));
                                  },
                                  [this](const Happening::ServerEnded&) { serverHasEnded(); },
                                  [this](const Happening::UserQuits&) { quit(); }},
                       happening->value);
        }
    }

    /// From any thread.
    void userQuits() { inbox_.yield({Happening::UserQuits{}}); }

  private:
    /// The leases of earlier runs, before the server reports its own.
    void loadLeases() {
        try {
            state_.loadLeases(leaseFile().load(currentDate()));
        } catch (const Error& error) { // the server will leave such a file alone and say so, under the same kind
            state_.raise({.kind = NoticeKind::leaseSaveFailed, .message = error.description()});
        }
    }

    void serve(const ServerConfig& config) {
        try {
            server_ = std::make_shared<DHCPServer>(DHCPServer::Options{.config = config,
                                                                       .mode = {options_.ports},
                                                                       .cardMAC = std::nullopt,
                                                                       .leaseFile = leaseFile(),
                                                                       .presenceEnabled = false});
            serverEvents_ = Threads::start("monitor.events", [this, events = server_->events()] {
                while (auto event = events->next()) {
                    inbox_.yield({std::move(*event)});
                }
                inbox_.yield({Happening::ServerEnded{}});
            });
            server_->start();
        } catch (const Error& error) {
            // A server that could not start reports nothing. Of the kinds of notices this is the nearest one.
            server_.reset();
            state_.apply({ServerEvent::Stopped{}}, currentDate());
            state_.raise({.kind = NoticeKind::portInUse, .message = error.description()});
        }
    }

    [[nodiscard]] LeaseFile leaseFile() const {
        // Beside the tool's own, whose leases an example should not touch.
        return {.url = options_.leasePath ? std::filesystem::path(*options_.leasePath)
                                          : LeaseFile::defaultURL().parent_path() / "monitor" / "leases.json"};
    }

    void serverHasEnded() {
        server_.reset();
        if (isQuitting_) {
            inbox_.finish();
        }
    }

    void quit() {
        isQuitting_ = true;
        monitor_.stop();
        if (server_) {
            server_->stop(); // its last events are still to come
        } else {
            inbox_.finish();
        }
    }

    /// Prints a part of the picture, if it is not what was printed last.
    void show(std::string& shown, std::string text) {
        if (shown == text) {
            return;
        }
        shown = std::move(text);
        if (writeAll(STDOUT_FILENO, shown) != 0) {
            userQuits(); // nobody looks any more
        }
    }

    Options options_;
    TarnwickState state_;
    std::string shownCards_;
    std::string shownSettings_;
    std::string shownState_;
    bool isQuitting_ = false;
    EventStream<Happening> inbox_;
    std::shared_ptr<DHCPServer> server_;
    std::thread serverEvents_;
    InterfaceMonitor monitor_{[this] { inbox_.yield({Happening::CardsChanged{}}); }};
};

/// Waits for the signals that end the program, on a thread of its own. All other threads must have them blocked.
class Interrupts {
  public:
    explicit Interrupts(FrontEnd& frontEnd)
        : thread_(Threads::start("monitor.signals", [&frontEnd] {
              const sigset_t signals = all();
              int number = 0;
              ::sigwait(&signals, &number);
              frontEnd.userQuits();
          })) {}
    Interrupts(const Interrupts&) = delete;
    Interrupts& operator=(const Interrupts&) = delete;
    Interrupts(Interrupts&&) = delete;
    Interrupts& operator=(Interrupts&&) = delete;
    ~Interrupts() {
        ::pthread_kill(thread_.native_handle(), SIGINT); // where it was no signal that ended the run
        thread_.join();
    }

    [[nodiscard]] static sigset_t all() {
        sigset_t signals{};
        sigemptyset(&signals);
        sigaddset(&signals, SIGINT);
        sigaddset(&signals, SIGTERM);
        return signals;
    }

  private:
    std::thread thread_;
};

} // namespace

int main(int argumentCount, char** arguments) {
    try {
        const auto options = parseOptions(std::vector<std::string>(arguments + 1, arguments + argumentCount));
        if (!options) {
            std::ignore = writeAll(STDERR_FILENO, usage);
            return 2;
        }
        std::signal(SIGPIPE, SIG_IGN); // a reader that goes away is told by the write
        const sigset_t signals = Interrupts::all();
        ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
        FrontEnd frontEnd(*options);
        const Interrupts interrupts(frontEnd);
        frontEnd.run();
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        std::ignore = writeAll(STDERR_FILENO, fmt::format("monitor: {}\n", error.what()));
        return EXIT_FAILURE;
    }
}
