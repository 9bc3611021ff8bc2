#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace DHCPCore {

/// An instant to the microsecond, counted from 1970-01-01T00:00:00Z.
using Date = std::chrono::sys_time<std::chrono::microseconds>;

/// The zone in which wall-clock times are shown: a fixed offset from UTC, or the host's own zone.
struct TimeZone {
    std::optional<std::chrono::seconds> offset; ///< East of UTC; absent: the zone that the host is set to.

    [[nodiscard]] static TimeZone current() { return {.offset = std::nullopt}; }
    [[nodiscard]] static TimeZone utc() { return {.offset = std::chrono::seconds{0}}; }

    bool operator==(const TimeZone&) const = default;
};

/// A date and a time of day of the Gregorian calendar.
struct CalendarTime {
    int year = 1970;
    unsigned month = 1; ///< 1 to 12.
    unsigned day = 1;   ///< 1 to 31.
    unsigned hour = 0;
    unsigned minute = 0;
    unsigned second = 0;

    bool operator==(const CalendarTime&) const = default;
};

/// The wall clock's reading now.
[[nodiscard]] Date currentDate();

/// What calendar and clock of that zone show at an instant; fractions of a second are cut off.
[[nodiscard]] CalendarTime calendarTime(Date date, TimeZone zone);

/// The instant in UTC to the whole second, as in "2025-01-31T13:04:05Z" (RFC 3339, section 5.6); fractions are cut
/// off, and an instant outside the years 0000 to 9999 is written as the nearest one inside.
[[nodiscard]] std::string iso8601(Date date);

/// Reads what `iso8601` writes, and the same with a numeric offset such as "+01:00" in place of "Z".
/// @return nothing for any other text, a day that the calendar does not have among them.
[[nodiscard]] std::optional<Date> parseISO8601(std::string_view text);

} // namespace DHCPCore
