#pragma once

#include "DHCPCore/LeaseStore.hpp"
#include "HostTests/Lab.hpp"
#include "Support/Builders.hpp"
#include "Support/TemporaryDirectory.hpp"
#include "TarnwickTests/ToolProcess.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace Tarnwick {

/// A test of the built tool on a card of a host of its own. Skipped, with the reason, where no networks can be made.
class HostTest : public testing::Test {
  public:
    static constexpr const char* startLine =
        "START        en5 server 192.168.0.1/24 range 192.168.0.100-192.168.0.200 lease 24 h";

  protected:
    void SetUp() override;
    void TearDown() override;

    [[nodiscard]] const Lab& lab() const { return *lab_; }
    [[nodiscard]] const DHCPCore::TestSupport::TemporaryDirectory& folder() const { return folder_; }
    [[nodiscard]] std::filesystem::path leases() const { return folder_ / "leases.json"; }

    /// The tool on the host, serving en5 with the test's lease file.
    [[nodiscard]] ToolProcess::Setting serving(const std::vector<std::string>& further = {}) const;

    /// Puts leases into the lease file, each bound for another hour.
    void keepLeases(const std::vector<DHCPCore::Lease>& kept) const;
    [[nodiscard]] static DHCPCore::Lease keptLease(const DHCPCore::MACAddress& mac, DHCPCore::IPv4Address ip);

    /// Reads lines up to the one that starts with the text. @return all of them, without their times.
    static std::vector<std::string> eventsThrough(ToolProcess& tool, const std::string& start);
    /// Reads the checks, then as above up to the first report of the link, with which serving begins.
    static std::vector<std::string> started(ToolProcess& tool);

    /// Stops the server as Ctrl-C does. @return the events since the last line that was read, without their times.
    static std::vector<std::string> stop(ToolProcess& tool);

    /// How many entries a folder of the tool's process has: its descriptors ("fd") or its threads ("task").
    static std::ptrdiff_t entries(const ToolProcess& tool, const std::string& folder);

    /// Where the tool keeps its log files.
    [[nodiscard]] static std::filesystem::path logFolder(const ToolProcess& tool) {
        return tool.home() / ".local/state/Tarnwick";
    }
    /// What the tool's log files hold: one of them, or two at midnight; empty where there is no such folder.
    [[nodiscard]] static std::string logged(const ToolProcess& tool);
    /// Waits until they hold the text. Fails the test when they do not in time.
    static void awaitLogged(const ToolProcess& tool, const std::string& text);

  private:
    std::optional<Lab> lab_;
    DHCPCore::TestSupport::TemporaryDirectory folder_;
    std::string resolverBefore_;
};

/// Whether one of the events starts with the text.
[[nodiscard]] bool tells(const std::vector<std::string>& events, const std::string& start);

} // namespace Tarnwick
