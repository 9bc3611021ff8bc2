#pragma once

#include "HostTests/Lab.hpp"
#include "Support/ChildProcess.hpp"
#include "Support/TemporaryDirectory.hpp"

#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace Tarnwick {

/// One of the machine's DHCP clients on a device's card. What it keeps lies in a folder of the test, and it configures
/// the card alone: the machine's own network and name servers are never its business.
class DHCPClient {
  public:
    explicit DHCPClient(const Device& device) : device_(device) {}
    DHCPClient(const DHCPClient&) = delete;
    DHCPClient& operator=(const DHCPClient&) = delete;
    DHCPClient(DHCPClient&&) = delete;
    DHCPClient& operator=(DHCPClient&&) = delete;
    virtual ~DHCPClient() = default;

    /// Starts with what it kept from an earlier start.
    void start();

    /// Waits until the client says that it has the address, and the card has it too. Fails the test when that does not
    /// happen in time.
    void awaitAddress(DHCPCore::IPv4Address ip);

    virtual void renew() { process_->signal(renewSignal()); }
    virtual void release() { process_->signal(releaseSignal()); }

    /// Ends it without a word on the cable, and takes its address from the card.
    void cutPower();

    /// The first message that it sends when it starts with a kept address.
    [[nodiscard]] virtual std::string firstMessageWithKeptAddress() const { return "REQUEST"; }

  protected:
    [[nodiscard]] const Device& device() const { return device_; }
    [[nodiscard]] const DHCPCore::TestSupport::TemporaryDirectory& folder() const { return folder_; }

    /// The command line, without what puts it into the device's network.
    [[nodiscard]] virtual std::vector<std::string> words() const = 0;
    /// What it says when it has got that address.
    [[nodiscard]] virtual std::string leased(DHCPCore::IPv4Address ip) const = 0;
    [[nodiscard]] virtual int renewSignal() const { return 0; }
    [[nodiscard]] virtual int releaseSignal() const { return 0; }
    /// Called before it is ended without a word.
    virtual void keep() {}

    [[nodiscard]] DHCPCore::TestSupport::ChildProcess::Setting setting(std::vector<std::string> command) const;
    /// Writes a shell script that runs these lines. @return its path.
    [[nodiscard]] std::string script(std::string_view lines) const;

  private:
    const Device& device_;
    DHCPCore::TestSupport::TemporaryDirectory folder_;
    std::optional<DHCPCore::TestSupport::ChildProcess> process_;
};

/// A way to make a client, and whether it looks for its address on the cable before it takes it.
struct ClientKind {
    std::string name; ///< As its program is called.
    std::unique_ptr<DHCPClient> (*make)(const Device& device, bool checksConflicts);
};

inline void PrintTo(const ClientKind& kind, std::ostream* out) { *out << kind.name; }

[[nodiscard]] ClientKind dhclient();
[[nodiscard]] ClientKind udhcpc();
[[nodiscard]] ClientKind dhcpcd();

/// Whether the program can be run here.
[[nodiscard]] bool isInstalled(const std::string& program);

} // namespace Tarnwick
