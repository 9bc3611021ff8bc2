#include "HostTests/Clients.hpp"

#include "DHCPCore/ProcessRunner.hpp"

#include <fmt/format.h>

#include <csignal>
#include <filesystem>

namespace Tarnwick {

namespace {

using DHCPCore::IPv4Address;
using DHCPCore::TestSupport::ChildProcess;
using DHCPCore::TestSupport::writeText;

/// ISC's client. It keeps its lease in a file, and is told everything on its command line.
class Dhclient : public DHCPClient {
  public:
    using DHCPClient::DHCPClient;

    /// Nobody can ask it to renew; it is configured to do so by itself after two seconds.
    void renew() override {}

    void release() override {
        std::vector<std::string> command = words();
        command.insert(command.begin() + 1, "-r");
        ChildProcess releasing(setting(command));
        releasing.wait();
    }

  protected:
    [[nodiscard]] std::vector<std::string> words() const override {
        const std::string leases = (folder() / "leases").string();
        if (!std::filesystem::exists(leases)) {
            writeText(leases, "");
        }
        const std::string configuration = (folder() / "configuration").string();
        writeText(configuration, "initial-delay 0;\nsupersede dhcp-renewal-time 2;\n");
        const std::string apply = script("[ -n \"$new_ip_address\" ] || exec ip address flush dev $interface\n"
                                         "ip address replace $new_ip_address/$new_subnet_mask dev $interface\n");
        const std::string pid = (folder() / "pid").string();
        return {"dhclient", "-4", "-d", "-cf", configuration, "-lf", leases, "-pf", pid, "-sf", apply, "eth0"};
    }
    [[nodiscard]] std::string leased(IPv4Address ip) const override {
        return fmt::format("bound to {} ", ip.description());
    }
};

/// BusyBox's client. It keeps nothing, but can be told which address to ask for.
class Udhcpc : public DHCPClient {
  public:
    Udhcpc(const Device& device, bool checksConflicts) : DHCPClient(device), checksConflicts_(checksConflicts) {}

    [[nodiscard]] std::string firstMessageWithKeptAddress() const override { return "DISCOVER"; }

  protected:
    [[nodiscard]] std::vector<std::string> words() const override {
        const std::string apply = script("[ -n \"$ip\" ] || exec ip address flush dev $interface\n"
                                         "ip address replace $ip/$mask dev $interface\n");
        std::vector<std::string> words{"udhcpc", "-f", "-i", "eth0", "-A", "1", "-s", apply};
        if (checksConflicts_) {
            words.emplace_back("-a");
        }
        if (kept_) {
            words.insert(words.end(), {"-r", kept_->description()});
        }
        return words;
    }
    [[nodiscard]] std::string leased(IPv4Address ip) const override {
        return fmt::format("lease of {} obtained", ip.description());
    }
    [[nodiscard]] int renewSignal() const override { return SIGUSR1; }
    [[nodiscard]] int releaseSignal() const override { return SIGUSR2; }
    void keep() override {
        const auto addresses = device().addresses();
        kept_ = addresses.empty() ? std::nullopt : std::optional(addresses.front().address);
    }

  private:
    bool checksConflicts_;
    std::optional<IPv4Address> kept_;
};

/// Roy Marples's client. It configures the card by itself and knows fixed folders only, so it gets its own in their
/// places.
class Dhcpcd : public DHCPClient {
  public:
    Dhcpcd(const Device& device, bool checksConflicts) : DHCPClient(device), checksConflicts_(checksConflicts) {}

  protected:
    [[nodiscard]] std::vector<std::string> words() const override {
        const auto state = folder() / "state";
        const auto run = folder() / "run";
        std::filesystem::create_directories(state);
        std::filesystem::create_directories(run);
        const std::string configuration = (folder() / "configuration").string();
        writeText(configuration, checksConflicts_ ? "nodelay\nnoipv4ll\n" : "nodelay\nnoipv4ll\nnoarp\n");
        // Where its user does not exist, it does without helpers, while it waits for which it would miss signals.
        const std::string users = (folder() / "users").string();
        writeText(users, "root:x:0:0:root:/root:/bin/sh\n");
        // The mounts are seen by this process alone: "ip netns exec" gave it a view of its own.
        return {"sh", "-c",
                fmt::format("mount --bind {} /var/lib/dhcpcd && mount --bind {} /run && mount --bind {} /etc/passwd && "
                            "exec dhcpcd -4 -B -d -f {} -c /dev/null eth0",
                            state.string(), run.string(), users, configuration)};
    }
    [[nodiscard]] std::string leased(IPv4Address ip) const override {
        return fmt::format("leased {} for", ip.description());
    }
    [[nodiscard]] int renewSignal() const override { return SIGUSR1; }
    [[nodiscard]] int releaseSignal() const override { return SIGALRM; }

  private:
    bool checksConflicts_;
};

} // namespace

void DHCPClient::start() { process_.emplace(setting(words())); }

void DHCPClient::awaitAddress(IPv4Address ip) {
    process_->linesThrough(leased(ip));
    device_.awaitAddress(ip);
}

void DHCPClient::cutPower() {
    keep();
    process_->signal(SIGKILL);
    process_->wait();
    process_.reset();
    device_.removeAddresses();
}

ChildProcess::Setting DHCPClient::setting(std::vector<std::string> command) const {
    const std::vector<std::string> prefix = device_.network().prefix();
    command.insert(command.begin(), prefix.begin(), prefix.end());
    return {.words = std::move(command), .errorsInOutput = true};
}

std::string DHCPClient::script(std::string_view lines) const {
    const auto path = folder() / "script";
    writeText(path, fmt::format("#!/bin/sh\n{}", lines));
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    return path.string();
}

ClientKind dhclient() {
    return {.name = "dhclient", .make = [](const Device& device, bool) -> std::unique_ptr<DHCPClient> {
                return std::make_unique<Dhclient>(device);
            }};
}

ClientKind udhcpc() {
    return {.name = "udhcpc", .make = [](const Device& device, bool checksConflicts) -> std::unique_ptr<DHCPClient> {
                return std::make_unique<Udhcpc>(device, checksConflicts);
            }};
}

ClientKind dhcpcd() {
    return {.name = "dhcpcd", .make = [](const Device& device, bool checksConflicts) -> std::unique_ptr<DHCPClient> {
                return std::make_unique<Dhcpcd>(device, checksConflicts);
            }};
}

bool isInstalled(const std::string& program) {
    return DHCPCore::ProcessRunner::run("/usr/bin/env", {"sh", "-c", "command -v " + program}).status == 0;
}

} // namespace Tarnwick
