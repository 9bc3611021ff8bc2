#include "DHCPCore/LeaseReader.hpp"

#include "DHCPCore/Date.hpp"
#include "DHCPCore/EnumText.hpp"
#include "DHCPCore/LeaseDocument.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace DHCPCore {

namespace {

/// The members of a record, each at its place among the names.
constexpr std::array<std::string_view, 9> leaseFields{"mac",      "ip",       "state",       "expiresAt", "firstSeen",
                                                      "lastSeen", "hostname", "vendorClass", "clientID"};
constexpr std::array<std::string_view, 3> quarantineFields{"ip", "until", "reportedBy"};

/// What a record has under one name.
struct Field {
    enum class Kind : std::uint8_t { none, text, other };
    Kind kind = Kind::none;
    std::string text;
};

/// One record while it is read. Where a member comes twice, the last one counts.
class Record {
  public:
    void begin(std::span<const std::string_view> names) {
        names_ = names;
        chosen_ = names.size();
        for (Field& field : fields_) {
            field.kind = Field::Kind::none;
        }
    }

    void choose(std::string_view name) {
        chosen_ = static_cast<std::size_t>(std::ranges::find(names_, name) - names_.begin());
    }

    /// The value of the chosen member; one that nobody asks for is passed over.
    void set(Field::Kind kind, std::string text = {}) {
        if (chosen_ < names_.size()) {
            fields_.at(chosen_) = {.kind = kind, .text = std::move(text)};
        }
    }

    /// What `parse` makes of the text; nothing when there is no text, or `parse` refuses it.
    template <class Parse>
    [[nodiscard]] auto value(std::size_t place, Parse parse) const {
        const Field& field = fields_.at(place);
        return field.kind == Field::Kind::text ? parse(field.text) : decltype(parse(field.text)){};
    }

    /// A text that may be missing.
    std::optional<std::string> takeText(std::size_t place) {
        Field& field = fields_.at(place);
        return field.kind == Field::Kind::text ? std::optional(std::move(field.text)) : std::nullopt;
    }
    [[nodiscard]] bool isTextOrNone(std::size_t place) const { return fields_.at(place).kind != Field::Kind::other; }

  private:
    std::span<const std::string_view> names_;
    std::size_t chosen_ = 0;
    std::array<Field, leaseFields.size()> fields_;
};

std::optional<Lease> leaseFrom(Record& record) {
    const auto mac = record.value(0, MACAddress::parse);
    const auto ip = record.value(1, IPv4Address::parse);
    const auto state = record.value(2, [](const std::string& text) { return fromRawValue<Lease::State>(text); });
    const auto expiresAt = record.value(3, parseISO8601);
    const auto firstSeen = record.value(4, parseISO8601);
    const auto lastSeen = record.value(5, parseISO8601);
    if (!mac || !ip || !state || !expiresAt || !firstSeen || !lastSeen || !record.isTextOrNone(6) ||
        !record.isTextOrNone(7) || !record.isTextOrNone(8)) {
        return std::nullopt;
    }
    return Lease{.mac = *mac,
                 .ip = *ip,
                 .state = *state,
                 .expiresAt = *expiresAt,
                 .hostname = record.takeText(6),
                 .vendorClass = record.takeText(7),
                 .clientID = record.takeText(8),
                 .firstSeen = *firstSeen,
                 .lastSeen = *lastSeen};
}

std::optional<Quarantine> quarantineFrom(Record& record) {
    const auto ip = record.value(0, IPv4Address::parse);
    const auto until = record.value(1, parseISO8601);
    const auto reportedBy = record.value(2, MACAddress::parse);
    if (!ip || !until || !reportedBy) {
        return std::nullopt;
    }
    return Quarantine{.ip = *ip, .until = *until, .reportedBy = *reportedBy};
}

/// Told by the JSON library what it reads, piece by piece. No call ends the reading early: the text must be JSON to its
/// end.
class Reader {
  public:
    /// What was read, once that is all of the text.
    [[nodiscard]] std::optional<LeaseRecords> records() {
        if (!hasVersion_ || !leases_.isSound || !quarantine_.isSound) {
            return std::nullopt;
        }
        return LeaseRecords{.leases = std::move(leases_.records), .quarantine = std::move(quarantine_.records)};
    }

    // NOLINTBEGIN(readability-identifier-naming): called by the library, whose names these are

    bool null() { return scalar(Field::Kind::none, {}); }
    bool boolean(bool /*value*/) { return scalar(Field::Kind::other, {}); }
    bool number_integer(std::int64_t value) { return number(value == LeaseDocument::version); }
    bool number_unsigned(std::uint64_t value) { return number(value == LeaseDocument::version); }
    bool number_float(double value, const std::string& /*text*/) { return number(value == LeaseDocument::version); }
    bool string(std::string& value) { return scalar(Field::Kind::text, std::move(value)); }
    bool binary(nlohmann::json::binary_t& /*value*/) { return scalar(Field::Kind::other, {}); }

    bool start_object(std::size_t /*count*/) {
        if (depth_ == listDepth && isInList_) {
            isInRecord_ = true;
            record_.begin(section_ == Section::leases ? std::span<const std::string_view>(leaseFields)
                                                      : std::span<const std::string_view>(quarantineFields));
        } else if (depth_ == documentDepth) {
            hasDocument_ = true;
        } else {
            scalar(Field::Kind::other, {});
        }
        ++depth_;
        return true;
    }

    bool key(std::string& name) {
        if (depth_ == documentDepth + 1 && hasDocument_) {
            section_ = sectionOf(name);
        } else if (depth_ == recordDepth && isInRecord_) {
            record_.choose(name);
        }
        return true;
    }

    bool end_object() {
        --depth_;
        if (depth_ == listDepth && isInRecord_) {
            isInRecord_ = false;
            section_ == Section::leases ? leases_.add(leaseFrom(record_)) : quarantine_.add(quarantineFrom(record_));
        }
        return true;
    }

    bool start_array(std::size_t /*count*/) {
        const bool isSection = depth_ == documentDepth + 1 && hasDocument_;
        if (isSection && section_ == Section::leases) {
            isInList_ = true;
            leases_.begin();
        } else if (isSection && section_ == Section::quarantine) {
            isInList_ = true;
            quarantine_.begin();
        } else {
            scalar(Field::Kind::other, {});
        }
        ++depth_;
        return true;
    }

    bool end_array() {
        --depth_;
        if (depth_ == documentDepth + 1) {
            isInList_ = false;
        }
        return true;
    }

    static bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                            const nlohmann::json::exception& /*error*/) {
        return false;
    }

    // NOLINTEND(readability-identifier-naming)

  private:
    // How many brackets are open around the document, a member of a list, and a member of a record.
    static constexpr int documentDepth = 0;
    static constexpr int listDepth = 2;
    static constexpr int recordDepth = 3;

    enum class Section : std::uint8_t { other, version, leases, quarantine };

    static Section sectionOf(std::string_view name) {
        if (name == LeaseDocument::versionKey) {
            return Section::version;
        }
        return name == "leases" ? Section::leases : name == "quarantine" ? Section::quarantine : Section::other;
    }

    /// A list that was found to be one, and holds nothing but records.
    template <class T>
    struct List {
        std::vector<T> records;
        bool isSound = false;

        void begin() {
            records.clear();
            isSound = true;
        }
        void add(std::optional<T> record) {
            if (record) {
                records.push_back(*std::move(record));
            } else {
                isSound = false;
            }
        }
    };

    bool number(bool isVersion) {
        if (depth_ == documentDepth + 1 && section_ == Section::version) {
            hasVersion_ = isVersion;
            return true;
        }
        return scalar(Field::Kind::other, {});
    }

    /// A value that is no record and no list; where one is wanted, the document is none.
    bool scalar(Field::Kind kind, std::string text) {
        if (depth_ == recordDepth && isInRecord_) {
            record_.set(kind, std::move(text));
        } else if ((depth_ == listDepth && isInList_) || depth_ == documentDepth + 1) {
            spoilSection();
        }
        return true;
    }

    void spoilSection() {
        switch (section_) {
        case Section::version:
            hasVersion_ = false;
            return;
        case Section::leases:
            leases_.isSound = false;
            return;
        case Section::quarantine:
            quarantine_.isSound = false;
            return;
        case Section::other:
            return;
        }
    }

    int depth_ = 0;
    bool hasDocument_ = false; ///< The outermost value is an object.
    bool hasVersion_ = false;
    bool isInList_ = false;
    bool isInRecord_ = false;
    Section section_ = Section::other;
    Record record_;
    List<Lease> leases_;
    List<Quarantine> quarantine_;
};

} // namespace

std::optional<LeaseRecords> readLeaseDocument(std::string_view text) {
    Reader reader;
    if (!nlohmann::json::sax_parse(text, &reader)) {
        return std::nullopt;
    }
    return reader.records();
}

} // namespace DHCPCore
