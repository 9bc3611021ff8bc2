#include "DHCPCore/EventLog.hpp"

#include "DHCPCore/Overloaded.hpp"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>
#include <variant>

namespace DHCPCore::EventLog {

namespace {

std::string transactionID(std::uint32_t xid) { return fmt::format("0x{:08x}", xid); }

/// "host=" and the like, with "-" for a value that the message does not carry.
std::string field(std::string_view name, const std::optional<std::string>& value) {
    return fmt::format("{}={}", name, value.value_or("-"));
}

std::string startText(const ServerEvent::Started& started) {
    const ServerConfig& config = started.config;
    return fmt::format("{} server {}/{} range {}-{} lease {}", started.interface, config.serverIP.description(),
                       config.prefixLength, config.rangeStart.description(), config.rangeEnd.description(),
                       formatDuration(config.leaseSeconds));
}

std::string sentText(const SentSummary& summary) {
    const std::string text =
        fmt::format("{} -> {} via {}", summary.ip.description(), summary.destination.description(), summary.interface);
    return summary.note ? fmt::format("{} ({})", text, *summary.note) : text;
}

std::string droppedText(const ServerEvent::Dropped& dropped) {
    return dropped.mac ? fmt::format("{} {}", dropped.reason, dropped.mac->description()) : dropped.reason;
}

std::string leaseText(const Lease& lease) {
    const std::string text =
        fmt::format("{} {} {}", rawValue(lease.state), lease.ip.description(), lease.mac.description());
    return lease.hostname ? fmt::format("{} host={}", text, *lease.hostname) : text;
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

/// The bytes of the character at the front of a text; 0 when they are not UTF-8 (RFC 3629, section 4).
std::size_t characterLength(std::string_view text) {
    const auto byte = [text](std::size_t index) {
        return index < text.size() ? static_cast<std::uint8_t>(text[index]) : std::uint8_t{0};
    };
    const auto continues = [&byte](std::size_t index) { return (byte(index) & 0xC0U) == 0x80U; };
    const std::uint8_t first = byte(0);
    const std::uint8_t second = byte(1);
    if (first < 0x80) {
        return 1;
    }
    if (first >= 0xC2 && first <= 0xDF) {
        return continues(1) ? 2 : 0;
    }
    if (first >= 0xE0 && first <= 0xEF) {
        const bool overlong = first == 0xE0 && second < 0xA0;
        const bool surrogate = first == 0xED && second > 0x9F;
        return continues(1) && continues(2) && !overlong && !surrogate ? 3 : 0;
    }
    if (first >= 0xF0 && first <= 0xF4) {
        const bool overlong = first == 0xF0 && second < 0x90;
        const bool beyondUnicode = first == 0xF4 && second > 0x8F;
        return continues(1) && continues(2) && continues(3) && !overlong && !beyondUnicode ? 4 : 0;
    }
    return 0;
}

/// Whether a whole character is a control character: C0, DEL, or U+0080 to U+009F.
bool isControl(std::string_view character) {
    const auto first = static_cast<std::uint8_t>(character[0]);
    if (character.size() == 1) {
        return first < 0x20 || first == 0x7F;
    }
    return character.size() == 2 && first == 0xC2 && static_cast<std::uint8_t>(character[1]) < 0xA0;
}

/// The text with whatever a terminal could act upon, or choke on, turned into visible escapes.
std::string escaped(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const std::size_t length = characterLength(text);
        const std::string_view piece = text.substr(0, std::max<std::size_t>(length, 1));
        text.remove_prefix(piece.size());
        if (length > 0 && !isControl(piece)) {
            result += piece;
            continue;
        }
        for (const char byte : piece) {
            result += fmt::format("\\x{:02x}", static_cast<std::uint8_t>(byte));
        }
    }
    return result;
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

template <class T>
void addIfPresent(nlohmann::json& object, const char* key, const std::optional<T>& value) {
    if (value) {
        if constexpr (std::is_same_v<T, std::string>) {
            object[key] = *value;
        } else {
            object[key] = value->description();
        }
    }
}

void addFields(nlohmann::json& object, const PacketSummary& summary) {
    if (summary.type) {
        object["type"] = description(*summary.type);
    }
    addIfPresent(object, "mac", summary.mac);
    addIfPresent(object, "hostname", summary.hostname);
    addIfPresent(object, "vendorClass", summary.vendorClass);
    addIfPresent(object, "requestedIP", summary.requestedIP);
    addIfPresent(object, "serverID", summary.serverID);
    object["xid"] = transactionID(summary.xid);
}

void addFields(nlohmann::json& object, const SentSummary& summary) {
    object["type"] = description(summary.type);
    object["ip"] = summary.ip.description();
    object["mac"] = summary.mac.description();
    object["destination"] = summary.destination.description();
    object["interface"] = summary.interface;
    addIfPresent(object, "note", summary.note);
}

void addFields(nlohmann::json& object, const Lease& lease) {
    object["ip"] = lease.ip.description();
    object["mac"] = lease.mac.description();
    object["state"] = rawValue(lease.state);
}

void addFields(nlohmann::json& object, const ServerEvent::Presence& presence) {
    object["ip"] = presence.ip.description();
    object["mac"] = presence.mac.description();
    object["state"] = rawValue(presence.state);
}

/// Adds the keys that only some events have.
void addFields(nlohmann::json& object, const ServerEvent& event) {
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
                return Parts{.label = fmt::format("RX {}", type ? description(*type) : "?"),
                             .text = describe(received.summary)};
            },
            [](const ServerEvent::Sent& sent) -> Result {
                return Parts{.label = fmt::format("TX {}", description(sent.summary.type)),
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
    const auto textOf = [](const auto& value) { return value ? value->description() : std::string("-"); };
    std::string text = fmt::format("{} {} {} req={}", textOf(summary.mac), field("host", summary.hostname),
                                   field("vendor", summary.vendorClass), textOf(summary.requestedIP));
    if (summary.serverID) {
        text += fmt::format(" sid={}", summary.serverID->description());
    }
    if (summary.ciaddr != IPv4Address::zero) {
        text += fmt::format(" ciaddr={}", summary.ciaddr.description());
    }
    if (summary.clientID) {
        text += fmt::format(" cid={}", *summary.clientID);
    }
    text += fmt::format(" xid={}", transactionID(summary.xid));
    if (summary.interface) {
        text += fmt::format(" if={}", *summary.interface);
    }
    return text;
}

std::string timestamp(Date date, TimeZone timeZone) {
    const CalendarTime time = calendarTime(date, timeZone);
    const auto milliseconds =
        std::chrono::floor<std::chrono::milliseconds>(date) - std::chrono::floor<std::chrono::seconds>(date);
    return fmt::format("{:02}:{:02}:{:02}.{:03}", time.hour, time.minute, time.second, milliseconds.count());
}

std::optional<std::string> line(const ServerEvent& event, Date date, TimeZone timeZone) {
    const auto columns = parts(event);
    if (!columns) {
        return std::nullopt;
    }
    return line(columns->label, columns->text, date, timeZone);
}

std::string line(std::string_view label, std::string_view text, Date date, TimeZone timeZone) {
    return fmt::format("{}  {:<12} {}", timestamp(date, timeZone), escaped(label), escaped(text));
}

std::optional<std::string> json(const ServerEvent& event, Date date) {
    auto columns = parts(event);
    if (!columns) {
        return std::nullopt;
    }
    nlohmann::json object{{"time", iso8601(date)},
                          {"event", kind(event)},
                          {"label", std::move(columns->label)},
                          {"text", std::move(columns->text)}};
    addFields(object, event);
    return withFurtherEscapes(object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
}

} // namespace DHCPCore::EventLog
