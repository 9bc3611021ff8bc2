#include "DHCPCore/LeaseDocument.hpp"

#include "DHCPCore/Date.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <optional>
#include <utility>

namespace DHCPCore {

namespace {

/// Whether the text stands in JSON as it is.
bool isPlain(std::string_view text) {
    return std::ranges::all_of(text, [](char character) {
        return character >= ' ' && character <= '~' && character != '"' && character != '\\';
    });
}

/// Writes one record: `{`, its members in the order of their keys, `}`.
class RecordWriter {
  public:
    explicit RecordWriter(std::string& out) : out_(out) { out_ += "    {"; }

    void member(std::string_view key, std::string_view text) {
        out_ += isFirst_ ? "\n      \"" : ",\n      \"";
        isFirst_ = false;
        out_ += key;
        out_ += "\": ";
        if (isPlain(text)) {
            out_ += '"';
            out_ += text;
            out_ += '"';
        } else {
            out_ += nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
        }
    }

    void memberIfKnown(std::string_view key, const std::optional<std::string>& text) {
        if (text) {
            member(key, std::string_view(*text));
        }
    }

    void end() { out_ += "\n    }"; }

  private:
    std::string& out_;
    bool isFirst_ = true;
};

void append(std::string& out, const Lease& lease) {
    RecordWriter record(out);
    record.memberIfKnown("clientID", lease.clientID);
    record.member("expiresAt", iso8601(lease.expiresAt));
    record.member("firstSeen", iso8601(lease.firstSeen));
    record.memberIfKnown("hostname", lease.hostname);
    record.member("ip", lease.ip.description());
    record.member("lastSeen", iso8601(lease.lastSeen));
    record.member("mac", lease.mac.description());
    record.member("state", rawValue(lease.state));
    record.memberIfKnown("vendorClass", lease.vendorClass);
    record.end();
}

void append(std::string& out, const Quarantine& quarantine) {
    RecordWriter record(out);
    record.member("ip", quarantine.ip.description());
    record.member("reportedBy", quarantine.reportedBy.description());
    record.member("until", iso8601(quarantine.until));
    record.end();
}

void appendList(std::vector<std::string_view>& pieces, const RecordTexts& texts, bool isEmpty) {
    if (isEmpty) {
        pieces.emplace_back("[]");
        return;
    }
    pieces.emplace_back("[\n");
    texts.addTo(pieces);
    pieces.emplace_back("\n  ]");
}

constexpr std::uint64_t gap = Records<Lease>::gap;
constexpr std::string_view separator = ",\n";
constexpr std::string_view end = ",\n  \"version\": 1\n}";
static_assert(LeaseDocument::version == 1, "the document's end says so");

} // namespace

void RecordTexts::update(const std::vector<std::uint64_t>& serials, const AppendRecord& append) {
    blocks_.resize((serials.size() + blockSize - 1) / blockSize);
    for (std::size_t number = 0; number < blocks_.size(); ++number) {
        const std::size_t first = number * blockSize;
        const auto own = std::span(serials).subspan(first, std::min(blockSize, serials.size() - first));
        if (!std::ranges::equal(own, blocks_[number].serials)) {
            renew(blocks_[number], own, first, append);
        }
    }
}

void RecordTexts::renew(Block& block, std::span<const std::uint64_t> serials, std::size_t first,
                        const AppendRecord& append) {
    Block renewed;
    renewed.text.reserve(block.text.size());
    for (std::size_t place = 0; place < serials.size(); ++place) {
        if (serials[place] != gap) {
            if (!renewed.text.empty()) {
                renewed.text += separator;
            }
            if (place < block.serials.size() && block.serials[place] == serials[place]) {
                const std::size_t before = place == 0 ? 0 : block.ends[place - 1];
                const std::size_t start = before == 0 ? 0 : before + separator.size();
                renewed.text.append(block.text, start, block.ends[place] - start);
            } else {
                append(renewed.text, first + place);
            }
        }
        renewed.ends.push_back(renewed.text.size());
    }
    renewed.serials.assign(serials.begin(), serials.end());
    block = std::move(renewed);
}

void RecordTexts::addTo(std::vector<std::string_view>& pieces) const {
    bool isFirst = true;
    for (const Block& block : blocks_) {
        if (block.text.empty()) {
            continue;
        }
        if (!std::exchange(isFirst, false)) {
            pieces.push_back(separator);
        }
        pieces.emplace_back(block.text);
    }
}

const std::vector<std::string_view>& LeaseDocument::of(const LeaseTable& table) {
    leases_.update(table.leases().serials(),
                   [&table](std::string& out, std::size_t place) { append(out, table.leases()[place]); });
    quarantine_.update(table.quarantine().serials(),
                       [&table](std::string& out, std::size_t place) { append(out, table.quarantine()[place]); });
    pieces_.assign({"{\n  \"leases\": "});
    appendList(pieces_, leases_, table.leases().empty());
    pieces_.emplace_back(",\n  \"quarantine\": ");
    appendList(pieces_, quarantine_, table.quarantine().empty());
    pieces_.emplace_back(end);
    return pieces_;
}

} // namespace DHCPCore
