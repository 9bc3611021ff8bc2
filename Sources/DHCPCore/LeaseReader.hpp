#pragma once

#include "DHCPCore/LeaseStore.hpp"

#include <optional>
#include <string_view>
#include <vector>

namespace DHCPCore {

/// What a document holds, in its order; nothing keeps it from holding two records of one client.
struct LeaseRecords {
    std::vector<Lease> leases;
    std::vector<Quarantine> quarantine;

    bool operator==(const LeaseRecords&) const = default;
};

/// Reads what `LeaseDocument` writes, in one pass and without building the document in memory.
/// @return nothing for any other text or version.
[[nodiscard]] std::optional<LeaseRecords> readLeaseDocument(std::string_view text);

} // namespace DHCPCore
