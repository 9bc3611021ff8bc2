#pragma once

#include "DHCPCore/LeaseFile.hpp"
#include "Support/TemporaryDirectory.hpp"

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <vector>

namespace DHCPCore::Fuzzing {

/// A lease file in a folder of its own, in memory where the host has a place for that: saving waits for the disk.
class ScratchLeaseFile {
  public:
    [[nodiscard]] const LeaseFile& file() const { return file_; }

    /// So many names lie in the folder.
    [[nodiscard]] std::size_t names() const { return directory_.names().size(); }

  private:
    TestSupport::TemporaryDirectory directory_{std::filesystem::is_directory("/dev/shm")
                                                   ? std::filesystem::path{"/dev/shm"}
                                                   : std::filesystem::temp_directory_path()};
    LeaseFile file_{.url = directory_ / "leases.json"};
};

/// The table as the file can keep it: dates in whole seconds.
inline LeaseTable inWholeSeconds(const LeaseTable& table) {
    const auto cut = [](Date& date) { date = std::chrono::floor<std::chrono::seconds>(date); };
    std::vector<Lease> leases = table.leases().all();
    for (Lease& lease : leases) {
        cut(lease.expiresAt);
        cut(lease.firstSeen);
        cut(lease.lastSeen);
    }
    std::vector<Quarantine> quarantine = table.quarantine().all();
    for (Quarantine& record : quarantine) {
        cut(record.until);
    }
    return {leases, quarantine};
}

} // namespace DHCPCore::Fuzzing
