#include "DHCPCore/Date.hpp"

#include "DHCPCore/TextPieces.hpp"

#include <fmt/compile.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <mutex>

namespace DHCPCore {

namespace {

using std::chrono::seconds;

CalendarTime calendarTimeAtOffset(std::chrono::sys_seconds instant, seconds offset) {
    const auto local = instant + offset;
    const auto midnight = std::chrono::floor<std::chrono::days>(local);
    const std::chrono::year_month_day day{midnight};
    const std::chrono::hh_mm_ss time{local - midnight};
    return {.year = static_cast<int>(day.year()),
            .month = static_cast<unsigned>(day.month()),
            .day = static_cast<unsigned>(day.day()),
            .hour = static_cast<unsigned>(time.hours().count()),
            .minute = static_cast<unsigned>(time.minutes().count()),
            .second = static_cast<unsigned>(time.seconds().count())};
}

seconds askHostOffset(std::chrono::sys_seconds instant) {
    const std::time_t time = instant.time_since_epoch().count();
    std::tm fields{};
    static std::mutex zone; // the host's zone is the process's own state; not every library guards it by itself
    const std::scoped_lock lock(zone);
    ::tzset(); // localtime_r alone need not notice that the host's zone was changed
    if (::localtime_r(&time, &fields) == nullptr) {
        return seconds{0};
    }
    return seconds{fields.tm_gmtoff};
}

/// As the host says, who is asked once a second: to notice a change of zone, the library looks for a file every time.
seconds hostOffset(std::chrono::sys_seconds instant) {
    using Clock = std::chrono::steady_clock;
    struct Answer {
        std::chrono::sys_seconds instant;
        std::optional<std::string> zone; ///< What the environment said.
        Clock::time_point givenAt;
        seconds offset{0};
    };
    thread_local std::optional<Answer> last;
    const char* const variable = std::getenv("TZ");
    const auto isLastZone = [&] {
        return variable == nullptr ? !last->zone : last->zone == std::string_view(variable);
    };
    const auto now = Clock::now();
    if (!last || last->instant != instant || now - last->givenAt > seconds{1} || !isLastZone()) {
        last = Answer{.instant = instant,
                      .zone = variable == nullptr ? std::nullopt : std::optional<std::string>(variable),
                      .givenAt = now,
                      .offset = askHostOffset(instant)};
    }
    return last->offset;
}

/// A number of `count` digits at a fixed place, at most `limit`.
std::optional<int> digits(std::string_view text, std::size_t position, std::size_t count, int limit) {
    const auto piece = text.substr(position, count);
    if (!std::ranges::all_of(piece, isDecimalDigit)) {
        return std::nullopt;
    }
    const auto number = parseDecimal<int>(piece);
    return number && *number <= limit ? number : std::nullopt;
}

/// "Z", or a sign with hours and minutes, as in "+01:00".
std::optional<seconds> parseOffset(std::string_view text) {
    if (text == "Z") {
        return seconds{0};
    }
    if (text.size() != 6 || (text[0] != '+' && text[0] != '-') || text[3] != ':') {
        return std::nullopt;
    }
    const auto hours = digits(text, 1, 2, 23);
    const auto minutes = digits(text, 4, 2, 59);
    if (!hours || !minutes) {
        return std::nullopt;
    }
    const seconds offset = std::chrono::hours{*hours} + std::chrono::minutes{*minutes};
    return text[0] == '-' ? -offset : offset;
}

} // namespace

Date currentDate() { return std::chrono::floor<std::chrono::microseconds>(std::chrono::system_clock::now()); }

CalendarTime calendarTime(Date date, TimeZone zone) {
    const auto instant = std::chrono::floor<seconds>(date);
    return calendarTimeAtOffset(instant, zone.offset ? *zone.offset : hostOffset(instant));
}

std::string iso8601(Date date) {
    using namespace std::chrono_literals;
    constexpr Date first{std::chrono::sys_days{0000y / 1 / 1}};
    constexpr Date last = std::chrono::sys_days{9999y / 12 / 31} + 24h - 1s;
    const CalendarTime time = calendarTime(std::clamp(date, first, last), TimeZone::utc());
    return fmt::format(FMT_COMPILE("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z"), time.year, time.month, time.day, time.hour,
                       time.minute, time.second);
}

std::optional<Date> parseISO8601(std::string_view text) {
    constexpr std::size_t shortest = 20; // "2025-01-31T13:04:05Z"
    if (text.size() < shortest || text[4] != '-' || text[7] != '-' || text[10] != 'T' || text[13] != ':' ||
        text[16] != ':') {
        return std::nullopt;
    }
    const auto year = digits(text, 0, 4, 9999);
    const auto month = digits(text, 5, 2, 12);
    const auto day = digits(text, 8, 2, 31);
    const auto hour = digits(text, 11, 2, 23);
    const auto minute = digits(text, 14, 2, 59);
    const auto second = digits(text, 17, 2, 59);
    const auto offset = parseOffset(text.substr(19));
    if (!year || !month || !day || !hour || !minute || !second || !offset) {
        return std::nullopt;
    }
    const std::chrono::year_month_day date{std::chrono::year{*year}, std::chrono::month{static_cast<unsigned>(*month)},
                                           std::chrono::day{static_cast<unsigned>(*day)}};
    if (!date.ok()) {
        return std::nullopt;
    }
    return std::chrono::sys_days{date} + std::chrono::hours{*hour} + std::chrono::minutes{*minute} + seconds{*second} -
           *offset;
}

} // namespace DHCPCore
