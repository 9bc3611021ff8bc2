#pragma once

#include "DHCPCore/LeaseStore.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace DHCPCore {

/// The text of one list of the lease table's document, in blocks of records that stand side by side. A block is made
/// anew only when one of its positions has another record than before, and then only that record's text.
class RecordTexts {
  public:
    /// Appends the text of the record at that place in the list.
    using AppendRecord = std::function<void(std::string& out, std::size_t place)>;

    /// Takes in the list whose records have these serials; where a serial is that of a gap, there is none.
    void update(const std::vector<std::uint64_t>& serials, const AppendRecord& append);

    /// The texts, in order.
    void addTo(std::vector<std::string_view>& pieces) const;

  private:
    static constexpr std::size_t blockSize = 64;

    struct Block {
        std::vector<std::uint64_t> serials;
        std::vector<std::size_t> ends; ///< Where each record's text ends.
        std::string text;
    };

    static void renew(Block& block, std::span<const std::uint64_t> serials, std::size_t first,
                      const AppendRecord& append);

    std::vector<Block> blocks_;
};

/// The JSON document that is kept of a lease table. It remembers the texts of the records, so that its next version
/// costs what has changed.
class LeaseDocument {
  public:
    /// The only version there is.
    static constexpr int version = 1;
    static constexpr const char* versionKey = "version";

    /// The document of that table, in pieces that stay as they are up to the next call. Together they are, byte for
    /// byte, what the JSON library writes with sorted keys and an indentation of two; text that is not UTF-8 is
    /// replaced.
    [[nodiscard]] const std::vector<std::string_view>& of(const LeaseTable& table);

  private:
    RecordTexts leases_;
    RecordTexts quarantine_;
    std::vector<std::string_view> pieces_;
};

} // namespace DHCPCore
