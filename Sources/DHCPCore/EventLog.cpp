#include "DHCPCore/EventLog.hpp"

#include "DHCPCore/Overloaded.hpp"
#include "DHCPCore/UTF8.hpp"

#include <fmt/compile.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace DHCPCore::EventLog {

namespace {

constexpr std::size_t typicalLength = 256; ///< Of a line.

std::string transactionID(std::uint32_t xid) { return fmt::format(FMT_COMPILE("0x{:08x}"), xid); }

/// "-" for a value that the message does not carry.
std::string_view orDash(const std::optional<std::string>& value) {
    return value ? std::string_view(*value) : std::string_view("-");
}

template <class T>
std::string orDash(const std::optional<T>& value) {
    return value ? value->description() : "-";
}

std::string startText(const ServerEvent::Started& started) {
    const ServerConfig& config = started.config;
    return fmt::format("{} server {}/{} range {}-{} lease {}", started.interface, config.serverIP.description(),
                       config.prefixLength, config.rangeStart.description(), config.rangeEnd.description(),
                       formatDuration(config.leaseSeconds));
}

std::string sentText(const SentSummary& summary) {
    std::string text = fmt::format(FMT_COMPILE("{} -> {} via {}"), summary.ip.description(),
                                   summary.destination.description(), summary.interface);
    if (summary.note) {
        text += " (" + *summary.note + ")";
    }
    return text;
}

std::string droppedText(const ServerEvent::Dropped& dropped) {
    return dropped.mac ? fmt::format("{} {}", dropped.reason, dropped.mac->description()) : dropped.reason;
}

std::string leaseText(const Lease& lease) {
    std::string text =
        fmt::format(FMT_COMPILE("{} {} {}"), rawValue(lease.state), lease.ip.description(), lease.mac.description());
    if (lease.hostname) {
        text += " host=" + *lease.hostname;
    }
    return text;
}

std::string linkText(const ServerEvent::Link& link) {
    if (!link.up) {
        return "down";
    }
    return link.media ? fmt::format("up {}", *link.media) : "up";
}

std::string upperCase(std::string_view text) {
    std::string upper(text);
    std::ranges::transform(upper, upper.begin(), [](char character) {
        return character >= 'a' && character <= 'z' ? static_cast<char>(character - 'a' + 'A') : character;
    });
    return upper;
}

/// Whether a whole character is a control character: C0, DEL, or U+0080 to U+009F.
bool isControl(std::string_view character) {
    const auto first = static_cast<std::uint8_t>(character[0]);
    if (character.size() == 1) {
        return first < 0x20 || first == 0x7F;
    }
    return character.size() == 2 && first == 0xC2 && static_cast<std::uint8_t>(character[1]) < 0xA0;
}

/// Whether every program shows the text as it is.
bool isPrintableASCII(std::string_view text) {
    return std::ranges::all_of(text, [](char character) { return character >= ' ' && character <= '~'; });
}

/// Of a byte of UTF-8.
bool startsCharacter(char byte) { return (static_cast<std::uint8_t>(byte) & 0xC0U) != 0x80; }

/// Adds the text with whatever a terminal could act upon, or choke on, turned into visible escapes.
void appendEscaped(std::string& line, std::string_view text) {
    if (isPrintableASCII(text)) {
        line += text;
        return;
    }
    while (!text.empty()) {
        const std::size_t length = characterLength(text);
        const std::string_view piece = text.substr(0, std::max<std::size_t>(length, 1));
        text.remove_prefix(piece.size());
        if (length > 0 && !isControl(piece)) {
            line += piece;
            continue;
        }
        for (const char byte : piece) {
            line += fmt::format("\\x{:02x}", static_cast<std::uint8_t>(byte));
        }
    }
}

/// Escapes in serialised JSON what the library leaves as it is: "/", and the control characters from DEL on. All of
/// these stand within strings only.
std::string withFurtherEscapes(std::string_view serialised) {
    std::string result;
    result.reserve(serialised.size());
    while (!serialised.empty()) {
        const std::string_view piece = serialised.substr(0, std::max<std::size_t>(characterLength(serialised), 1));
        serialised.remove_prefix(piece.size());
        if (piece == "/") {
            result += "\\/";
        } else if (isControl(piece)) {
            result += fmt::format("\\u{:04x}", static_cast<std::uint8_t>(piece.back())); // both bytes of C1 end in it
        } else {
            result += piece;
        }
    }
    return result;
}

/// A text as a JSON string.
void appendJSON(std::string& json, std::string_view text) {
    const auto needsEscape = [](char character) { return character == '"' || character == '\\' || character == '/'; };
    if (isPrintableASCII(text) && std::ranges::none_of(text, needsEscape)) {
        json += '"';
        json += text;
        json += '"';
    } else {
        json += withFurtherEscapes(nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
    }
}

/// A JSON object of texts in the making.
class Object {
  public:
    void add(std::string_view key, std::string text) { members_.push_back({.key = key, .text = std::move(text)}); }
    void add(std::string_view key, std::string_view text) { add(key, std::string(text)); }
    void add(std::string_view key, const char* text) { add(key, std::string(text)); }
    void addIfPresent(std::string_view key, const std::optional<std::string>& text) {
        if (text) {
            add(key, *text);
        }
    }
    template <class T>
    void addIfPresent(std::string_view key, const std::optional<T>& value) {
        if (value) {
            add(key, value->description());
        }
    }

    /// One line, its keys in ascending order.
    [[nodiscard]] std::string line() {
        std::ranges::sort(members_, {}, &Member::key);
        std::string json;
        json.reserve(typicalLength);
        for (const Member& member : members_) {
            json += json.empty() ? "{\"" : ",\"";
            json += member.key;
            json += "\":";
            appendJSON(json, member.text);
        }
        json += '}';
        return json;
    }

  private:
    static constexpr std::size_t typicalLength = 512;

    struct Member {
        std::string_view key; ///< A literal.
        std::string text;
    };
    std::vector<Member> members_;
};

void addFields(Object& object, const PacketSummary& summary) {
    if (summary.type) {
        object.add("type", description(*summary.type));
    }
    object.addIfPresent("mac", summary.mac);
    object.addIfPresent("hostname", summary.hostname);
    object.addIfPresent("vendorClass", summary.vendorClass);
    object.addIfPresent("requestedIP", summary.requestedIP);
    object.addIfPresent("serverID", summary.serverID);
    object.add("xid", transactionID(summary.xid));
}

void addFields(Object& object, const SentSummary& summary) {
    object.add("type", description(summary.type));
    object.add("ip", summary.ip.description());
    object.add("mac", summary.mac.description());
    object.add("destination", summary.destination.description());
    object.add("interface", summary.interface);
    object.addIfPresent("note", summary.note);
}

void addFields(Object& object, const Lease& lease) {
    object.add("ip", lease.ip.description());
    object.add("mac", lease.mac.description());
    object.add("state", rawValue(lease.state));
}

void addFields(Object& object, const ServerEvent::Presence& presence) {
    object.add("ip", presence.ip.description());
    object.add("mac", presence.mac.description());
    object.add("state", rawValue(presence.state));
}

/// Adds the keys that only some events have.
void addFields(Object& object, const ServerEvent& event) {
    std::visit(Overloaded{[](const ServerEvent::Started&) {},
                          [&](const ServerEvent::Received& received) { addFields(object, received.summary); },
                          [&](const ServerEvent::Sent& sent) { addFields(object, sent.summary); },
                          [](const ServerEvent::Dropped&) {},
                          [&](const ServerEvent::LeaseChanged& changed) { addFields(object, changed.lease); },
                          [](const ServerEvent::LeaseRemoved&) {},
                          [&](const ServerEvent::Presence& presence) { addFields(object, presence); },
                          [](const ServerEvent::Link&) {}, [](const ServerEvent::NoticeRaised&) {},
                          [](const ServerEvent::NoticeCleared&) {}, [](const ServerEvent::Info&) {},
                          [](const ServerEvent::Stopped&) {}},
               event.value);
}

} // namespace

std::string_view kind(const ServerEvent& event) {
    return std::visit(
        Overloaded{
            [](const ServerEvent::Started&) { return "started"; },
            [](const ServerEvent::Received&) { return "received"; }, [](const ServerEvent::Sent&) { return "sent"; },
            [](const ServerEvent::Dropped&) { return "dropped"; },
            [](const ServerEvent::LeaseChanged&) { return "leaseChanged"; },
            [](const ServerEvent::LeaseRemoved&) { return "leaseRemoved"; },
            [](const ServerEvent::Presence&) { return "presence"; }, [](const ServerEvent::Link&) { return "link"; },
            [](const ServerEvent::NoticeRaised&) { return "notice"; }, // the short word on purpose
            [](const ServerEvent::NoticeCleared&) { return "noticeCleared"; },
            [](const ServerEvent::Info&) { return "info"; }, [](const ServerEvent::Stopped&) { return "stopped"; }},
        event.value);
}

std::optional<Parts> parts(const ServerEvent& event) {
    using Result = std::optional<Parts>;
    return std::visit(
        Overloaded{
            [](const ServerEvent::Started& started) -> Result {
                return Parts{.label = "START", .text = startText(started)};
            },
            [](const ServerEvent::Received& received) -> Result {
                const auto type = received.summary.type;
                return Parts{.label = fmt::format(FMT_COMPILE("RX {}"), type ? description(*type) : "?"),
                             .text = describe(received.summary)};
            },
            [](const ServerEvent::Sent& sent) -> Result {
                return Parts{.label = fmt::format(FMT_COMPILE("TX {}"), description(sent.summary.type)),
                             .text = sentText(sent.summary)};
            },
            [](const ServerEvent::Dropped& dropped) -> Result {
                return Parts{.label = "DROP", .text = droppedText(dropped)};
            },
            [](const ServerEvent::LeaseChanged& changed) -> Result {
                return Parts{.label = "LEASE", .text = leaseText(changed.lease)};
            },
            [](const ServerEvent::LeaseRemoved& removed) -> Result {
                return Parts{.label = "LEASE", .text = fmt::format("removed {}", removed.mac.description())};
            },
            [](const ServerEvent::Presence& presence) -> Result {
                return Parts{.label = upperCase(rawValue(presence.state)),
                             .text = fmt::format("{} {} {}", presence.ip.description(), presence.mac.description(),
                                                 presence.detail)};
            },
            [](const ServerEvent::Link& link) -> Result { return Parts{.label = "LINK", .text = linkText(link)}; },
            [](const ServerEvent::NoticeRaised& raised) -> Result {
                return Parts{.label = "NOTICE", .text = raised.notice.message};
            },
            [](const ServerEvent::NoticeCleared&) -> Result { return std::nullopt; },
            [](const ServerEvent::Info& info) -> Result { return Parts{.label = "INFO", .text = info.text}; },
            [](const ServerEvent::Stopped&) -> Result { return Parts{.label = "STOP", .text = "server stopped"}; }},
        event.value);
}

std::string describe(const PacketSummary& summary) {
    std::string text = orDash(summary.mac);
    text.reserve(typicalLength);
    const auto add = [&text](std::string_view name, std::string_view value) {
        text += name;
        text += value;
    };
    add(" host=", orDash(summary.hostname));
    add(" vendor=", orDash(summary.vendorClass));
    add(" req=", orDash(summary.requestedIP));
    if (summary.serverID) {
        add(" sid=", summary.serverID->description());
    }
    if (summary.ciaddr != IPv4Address::zero) {
        add(" ciaddr=", summary.ciaddr.description());
    }
    if (summary.clientID) {
        add(" cid=", *summary.clientID);
    }
    add(" xid=", transactionID(summary.xid));
    if (summary.interface) {
        add(" if=", *summary.interface);
    }
    return text;
}

std::string timestamp(Date date, TimeZone timeZone) {
    const CalendarTime time = calendarTime(date, timeZone);
    const auto milliseconds =
        std::chrono::floor<std::chrono::milliseconds>(date) - std::chrono::floor<std::chrono::seconds>(date);
    return fmt::format(FMT_COMPILE("{:02}:{:02}:{:02}.{:03}"), time.hour, time.minute, time.second,
                       milliseconds.count());
}

std::optional<std::string> line(const ServerEvent& event, Date date, TimeZone timeZone) {
    const auto columns = parts(event);
    if (!columns) {
        return std::nullopt;
    }
    return line(columns->label, columns->text, date, timeZone);
}

std::string line(std::string_view label, std::string_view text, Date date, TimeZone timeZone) {
    constexpr std::size_t labelWidth = 12;
    std::string line = timestamp(date, timeZone);
    line.reserve(typicalLength);
    line += "  ";
    const std::size_t start = line.size();
    appendEscaped(line, label);
    const auto width = static_cast<std::size_t>(std::ranges::count_if(line.substr(start), startsCharacter));
    line.append(labelWidth - std::min(labelWidth, width) + 1, ' ');
    appendEscaped(line, text);
    return line;
}

std::optional<std::string> json(const ServerEvent& event, Date date) {
    auto columns = parts(event);
    if (!columns) {
        return std::nullopt;
    }
    Object object;
    object.add("time", iso8601(date));
    object.add("event", kind(event));
    object.add("label", std::move(columns->label));
    object.add("text", std::move(columns->text));
    addFields(object, event);
    return object.line();
}

} // namespace DHCPCore::EventLog
