// What the log shows, and in which file, where the clocks are put forward and back: in Central Europe in 2025.
#include "DHCPCore/EventLog.hpp"
#include "DHCPCore/LeaseFile.hpp"
#include "DHCPCore/LogFileWriter.hpp"
#include "Support/EnvironmentVariable.hpp"
#include "Support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

namespace DHCPCore {
namespace {

using namespace std::chrono_literals;
using std::chrono::sys_days;
using TestSupport::readText;

class SummerTimeTest : public testing::Test {
  protected:
    static constexpr Date forward = sys_days{2025y / 3 / 30} + 1h; ///< From 02:00 to 03:00.
    static constexpr Date back = sys_days{2025y / 10 / 26} + 1h;   ///< From 03:00 to 02:00.

    static std::string shown(Date date) { return EventLog::timestamp(date, TimeZone::current()); }

  private:
    TestSupport::EnvironmentVariable zone_{"TZ", "CET-1CEST,M3.5.0,M10.5.0/3"};
};

TEST_F(SummerTimeTest, LeavesOutTheHourThatThereIsNot) {
    EXPECT_EQ(shown(forward - 1ms), "01:59:59.999");
    EXPECT_EQ(shown(forward), "03:00:00.000");
}

TEST_F(SummerTimeTest, ShowsTheHourTwiceThatThereIsTwice) {
    EXPECT_EQ(shown(back - 1h), "02:00:00.000");
    EXPECT_EQ(shown(back - 1ms), "02:59:59.999");
    EXPECT_EQ(shown(back), "02:00:00.000");
    EXPECT_EQ(shown(back + 1h - 1ms), "02:59:59.999");
    EXPECT_EQ(shown(back + 1h), "03:00:00.000");
}

TEST_F(SummerTimeTest, BeginsAFileAtEachMidnightOfTheClocksOnTheWall) {
    const std::vector<std::pair<Date, std::string>> firsts{
        {forward - 2h, "2025-03-30.log"}, // a day of 23 hours
        {forward + 21h, "2025-03-31.log"},
        {back - 3h, "2025-10-26.log"}, // and one of 25
        {back + 22h, "2025-10-27.log"},
    };
    const std::vector<std::string> before{"2025-03-29.log", "2025-03-30.log", "2025-10-25.log", "2025-10-26.log"};
    for (std::size_t place = 0; place < firsts.size(); ++place) {
        EXPECT_EQ(LogFileWriter::fileName(firsts[place].first), firsts[place].second);
        EXPECT_EQ(LogFileWriter::fileName(firsts[place].first - 1us), before[place]);
    }
}

TEST_F(SummerTimeTest, KeepsTheLinesOfTheRepeatedHourInTheirOrder) {
    const TestSupport::TemporaryDirectory folder;
    LogFileWriter writer(folder.path());
    for (const Date date : {back - 1ms, back, back + 1h}) {
        writer.append(shown(date), date);
    }
    writer.flush();
    EXPECT_EQ(readText(folder / "2025-10-26.log"), "02:59:59.999\n02:00:00.000\n03:00:00.000\n");
}

TEST_F(SummerTimeTest, AppendsToTheFileOfTheDayToWhichTheClockIsSetBack) {
    const TestSupport::TemporaryDirectory folder;
    const Date lastYear = back - std::chrono::days{365};
    LogFileWriter writer(folder.path());
    writer.append("then", lastYear);
    writer.append("now", back);
    writer.append("then again", lastYear);
    writer.flush();
    EXPECT_EQ(readText(folder / "2024-10-26.log"), "then\nthen again\n");
    EXPECT_EQ(readText(folder / "2025-10-26.log"), "now\n");
}

TEST_F(SummerTimeTest, LosesNoFileThatIsSetAsideInTheRepeatedHour) {
    const TestSupport::TemporaryDirectory folder;
    const LeaseFile file{.url = folder / "leases.json"};
    for (const Date date : {back - 1h, back}) {
        TestSupport::writeText(file.url, iso8601(date));
        std::ignore = file.load(date);
    }
    EXPECT_EQ(folder.names(), (std::vector<std::string>{"leases.json.corrupt-20251026-020000",
                                                        "leases.json.corrupt-20251026-020000-2"}));
}

} // namespace
} // namespace DHCPCore
