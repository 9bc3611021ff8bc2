#include "DHCPCore/Date.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

namespace DHCPCore {

static void PrintTo(const CalendarTime& time, std::ostream* out) {
    *out << time.year << '-' << time.month << '-' << time.day << ' ' << time.hour << ':' << time.minute << ':'
         << time.second;
}

namespace {

using namespace std::chrono_literals;

constexpr Date afternoon = std::chrono::sys_days{2025y / 1 / 31} + 13h + 4min + 5s;
constexpr auto microsecond = std::chrono::microseconds{1};

/// Sets the host's zone while it lives.
class HostZone {
  public:
    explicit HostZone(const char* zone) {
        if (const char* const before = std::getenv("TZ")) {
            before_ = before;
        }
        ::setenv("TZ", zone, 1);
    }
    HostZone(const HostZone&) = delete;
    HostZone& operator=(const HostZone&) = delete;
    HostZone(HostZone&&) = delete;
    HostZone& operator=(HostZone&&) = delete;
    ~HostZone() {
        if (before_) {
            ::setenv("TZ", before_->c_str(), 1);
        } else {
            ::unsetenv("TZ");
        }
    }

  private:
    std::optional<std::string> before_;
};

TEST(CalendarTimeTest, ShowsUTC) {
    EXPECT_EQ(calendarTime(afternoon, TimeZone::utc()),
              (CalendarTime{.year = 2025, .month = 1, .day = 31, .hour = 13, .minute = 4, .second = 5}));
}

TEST(CalendarTimeTest, ShowsZonesEastAndWestOfUTC) {
    EXPECT_EQ(calendarTime(afternoon, TimeZone{.offset = 11h}),
              (CalendarTime{.year = 2025, .month = 2, .day = 1, .hour = 0, .minute = 4, .second = 5}));
    EXPECT_EQ(calendarTime(afternoon, TimeZone{.offset = -14h}),
              (CalendarTime{.year = 2025, .month = 1, .day = 30, .hour = 23, .minute = 4, .second = 5}));
    EXPECT_EQ(calendarTime(afternoon, TimeZone{.offset = 5h + 45min}),
              (CalendarTime{.year = 2025, .month = 1, .day = 31, .hour = 18, .minute = 49, .second = 5}));
}

TEST(CalendarTimeTest, CutsFractionsOffBeforeAndAfter1970) {
    EXPECT_EQ(calendarTime(Date{1s - microsecond}, TimeZone::utc()), CalendarTime{});
    EXPECT_EQ(calendarTime(Date{-microsecond}, TimeZone::utc()),
              (CalendarTime{.year = 1969, .month = 12, .day = 31, .hour = 23, .minute = 59, .second = 59}));
}

TEST(CalendarTimeTest, FollowsTheHostsZoneAndItsSummerTime) {
    const HostZone centralEurope("CET-1CEST,M3.5.0,M10.5.0/3");
    const Date summerBegins = std::chrono::sys_days{2025y / 3 / 30} + 1h;
    EXPECT_EQ(calendarTime(summerBegins - 1s, TimeZone::current()),
              (CalendarTime{.year = 2025, .month = 3, .day = 30, .hour = 1, .minute = 59, .second = 59}));
    EXPECT_EQ(calendarTime(summerBegins, TimeZone::current()),
              (CalendarTime{.year = 2025, .month = 3, .day = 30, .hour = 3, .minute = 0, .second = 0}));
}

TEST(CalendarTimeTest, NoticesThatTheHostsZoneChanges) {
    const HostZone first("EST5");
    EXPECT_EQ(calendarTime(afternoon, TimeZone::current()).hour, 8U);
    const HostZone second("JST-9");
    EXPECT_EQ(calendarTime(afternoon, TimeZone::current()).hour, 22U);
}

TEST(ISO8601Test, WritesWholeSecondsInUTC) {
    EXPECT_EQ(iso8601(afternoon), "2025-01-31T13:04:05Z");
    EXPECT_EQ(iso8601(Date{}), "1970-01-01T00:00:00Z");
}

TEST(ISO8601Test, CutsFractionsOff) {
    EXPECT_EQ(iso8601(afternoon + 999999 * microsecond), "2025-01-31T13:04:05Z");
    EXPECT_EQ(iso8601(Date{-microsecond}), "1969-12-31T23:59:59Z");
}

TEST(ISO8601Test, StaysWithinYearsOfFourDigits) {
    EXPECT_EQ(iso8601(Date{std::chrono::sys_days{9999y / 12 / 31} + 24h - 1s}), "9999-12-31T23:59:59Z");
    EXPECT_EQ(iso8601(Date{std::chrono::sys_days{10000y / 1 / 1}}), "9999-12-31T23:59:59Z");
    EXPECT_EQ(iso8601(Date::max()), "9999-12-31T23:59:59Z");
    EXPECT_EQ(iso8601(Date{std::chrono::sys_days{0000y / 1 / 1}}), "0000-01-01T00:00:00Z");
    EXPECT_EQ(iso8601(Date{std::chrono::sys_days{0000y / 1 / 1} - 1s}), "0000-01-01T00:00:00Z");
    EXPECT_EQ(iso8601(Date::min()), "0000-01-01T00:00:00Z");
}

TEST(ISO8601Test, ReadsWhatItWrites) {
    for (const Date date :
         {afternoon, Date{}, Date{-1s}, Date{std::chrono::sys_days{2024y / 2 / 29}},
          Date{std::chrono::sys_days{0000y / 1 / 1}}, Date{std::chrono::sys_days{9999y / 12 / 31} + 24h - 1s}}) {
        SCOPED_TRACE(iso8601(date));
        EXPECT_EQ(parseISO8601(iso8601(date)), date);
    }
}

TEST(ISO8601Test, ReadsNumericOffsets) {
    EXPECT_EQ(parseISO8601("2025-01-31T14:04:05+01:00"), afternoon);
    EXPECT_EQ(parseISO8601("2025-01-31T07:34:05-05:30"), afternoon);
    EXPECT_EQ(parseISO8601("2025-01-31T13:04:05+00:00"), afternoon);
    EXPECT_EQ(parseISO8601("2025-02-01T13:03:05+23:59"), afternoon);
}

TEST(ISO8601Test, RefusesOtherText) {
    for (const std::string_view text : {"",
                                        "2025-01-31",
                                        "2025-01-31T13:04:05",
                                        "2025-01-31T13:04:05z",
                                        "2025-01-31t13:04:05Z",
                                        "2025-01-31 13:04:05Z",
                                        "2025-01-31T13:04:05Z ",
                                        " 2025-01-31T13:04:05Z",
                                        "2025-01-31T13:04:05.5Z",
                                        "2025-01-31T13:04Z0000",
                                        "2025/01/31T13:04:05Z",
                                        "+025-01-31T13:04:05Z",
                                        "2025-+1-31T13:04:05Z",
                                        "2025-01-31T13:04:05+0100",
                                        "2025-01-31T13:04:05+01",
                                        "2025-01-31T13:04:05+01:0",
                                        "2025-01-31T13:04:05+24:00",
                                        "2025-01-31T13:04:05+01:60",
                                        "2025-01-31T13:04:05*01:00",
                                        "20250-01-31T13:04:05Z"}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(parseISO8601(text), std::nullopt);
    }
}

TEST(ISO8601Test, RefusesDaysAndTimesThatDoNotExist) {
    for (const std::string_view text :
         {"2025-02-29T00:00:00Z", "1900-02-29T00:00:00Z", "2025-04-31T00:00:00Z", "2025-13-01T00:00:00Z",
          "2025-00-01T00:00:00Z", "2025-01-00T00:00:00Z", "2025-01-32T00:00:00Z", "2025-01-31T24:00:00Z",
          "2025-01-31T00:60:00Z", "2025-01-31T00:00:60Z"}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(parseISO8601(text), std::nullopt);
    }
}

} // namespace
} // namespace DHCPCore
