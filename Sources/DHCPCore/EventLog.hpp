#pragma once

#include "DHCPCore/Date.hpp"
#include "DHCPCore/Events.hpp"

#include <optional>
#include <string>
#include <string_view>

/// The one-line forms of an event: text for people and log files, JSON for programs. Pure.
namespace DHCPCore::EventLog {

/// The two columns of an event's line.
struct Parts {
    std::string label;
    std::string text;

    bool operator==(const Parts&) const = default;
};

/// The word for the event in JSON.
[[nodiscard]] std::string_view kind(const ServerEvent& event);

/// Nothing for an event that has no line.
[[nodiscard]] std::optional<Parts> parts(const ServerEvent& event);

/// The fields of a received message, blank-separated.
[[nodiscard]] std::string describe(const PacketSummary& summary);

/// The wall-clock time to the millisecond, as in "13:04:05.007".
[[nodiscard]] std::string timestamp(Date date, TimeZone timeZone);

/// The event's line; nothing for an event that has none.
[[nodiscard]] std::optional<std::string> line(const ServerEvent& event, Date date, TimeZone timeZone);

/// A line of the same layout: time, two blanks, the label padded to 12 characters, a blank, the text. Control
/// characters, and bytes that are no UTF-8, become "\x1b" in their own two digits: a line stays one line, and says
/// nothing to a terminal.
[[nodiscard]] std::string line(std::string_view label, std::string_view text, Date date, TimeZone timeZone);

/// The event as one JSON object on one line, all values strings; nothing for an event that has none.
[[nodiscard]] std::optional<std::string> json(const ServerEvent& event, Date date);

} // namespace DHCPCore::EventLog
