#pragma once

#include "DHCPCore/Date.hpp"
#include "DHCPCore/Error.hpp"
#include "DHCPCore/FileDescriptor.hpp"
#include "DHCPCore/LeaseDocument.hpp"
#include "DHCPCore/LeaseStore.hpp"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace DHCPCore {

/// The lease file could not be read, moved aside or written, as in "Could not replace leases.json: Is a directory".
class LeaseFileError : public Error {
  public:
    using Error::Error;
    bool operator==(const LeaseFileError& other) const { return description() == other.description(); }
};

/// The lease table's JSON document, version 1. It is replaced as a whole: a reader finds the old or the new one.
struct LeaseFile {
    struct LoadResult {
        LeaseTable table;                                 ///< Empty when nothing could be used.
        std::optional<std::filesystem::path> setAsideURL; ///< Where an undecodable file was moved.

        bool operator==(const LoadResult&) const = default;
    };

    std::filesystem::path url; ///< Where the file lies.

    /// "Tarnwick/leases.json" where the user's programs keep data.
    /// @throws Error when the user has no home directory.
    [[nodiscard]] static std::filesystem::path defaultURL();

    /// Reads the file. A missing file is an empty table; one that can't be decoded, or is of another version, is moved
    /// aside under a name stamped with `now`.
    /// @throws LeaseFileError when the file can't be read or moved, is not a regular one or is larger than 256 MiB; it
    /// is then left as it was.
    [[nodiscard]] LoadResult load(Date now) const;

    /// Writes the whole table, making the directory where it is missing. A file that is replaced keeps its mode and,
    /// where the process may, its owner.
    /// @throws LeaseFileError when that fails; the old file is then untouched.
    void save(const LeaseTable& table) const;
    /// The same with a document that is kept from one save to the next, and costs what has changed.
    /// @return as `replaceFile`.
    FileDescriptor save(const LeaseTable& table, LeaseDocument& document) const;

    /// Removes the temporary files of saves that were cut short by the end of their process, and nothing else.
    void removeLeftovers() const;

    /// The time stamp of a file moved aside, in the host's time zone, as in "20250314-093005".
    [[nodiscard]] static std::string stamp(Date date);

    /// One record per client: the last seen wins, on a tie the first; each stands where its MAC first occurs.
    [[nodiscard]] static std::vector<Lease> oneRecordPerMAC(std::vector<Lease> leases);

    bool operator==(const LeaseFile&) const = default;
};

} // namespace DHCPCore
