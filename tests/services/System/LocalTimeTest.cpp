#include "System/LocalTime.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <cstdint>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <string>

#include "tests/services/support/ChildProcess.h"

namespace {

using System::LocalTime;

std::string textOf(const LocalTime& time)
{
    std::ostringstream stream;
    stream << time;
    return stream.str();
}

std::int64_t utcMilliseconds()
{
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

void useTimeZone(const char* zone)
{
    ::setenv("TZ", zone, 1);
    ::tzset();
}

// Prints what was read between two readings of the system's own clock, in order.
std::string millisecondsIn(const char* zone, std::int64_t offsetSeconds)
{
    const unitTests::ChildEnd end = unitTests::inChild([&] {
        useTimeZone(zone);
        const std::int64_t before = utcMilliseconds() + offsetSeconds * 1000;
        const std::int64_t local = System::getSystemMilliTimeLocal();
        const std::int64_t after = utcMilliseconds() + offsetSeconds * 1000;
        std::cout << (before <= local && local <= after ? "between" : "outside");
    });
    return end.output;
}

TEST(LocalTime, TextHasFixedWidthsAndSixDigitsOfASecond)
{
    EXPECT_EQ(textOf({2016, 11, 14, 3, 4, 5, 7}), "2016-11-14 03:04:05.000007");
    EXPECT_EQ(textOf({987, 1, 2, 23, 59, 60, 999999}), "0987-01-02 23:59:60.999999");
}

TEST(LocalTime, TextDoesNotDependOnTheStreamsNumberFormat)
{
    std::ostringstream stream;

    stream << std::hex << std::showbase << std::setfill('*')
           << LocalTime{2016, 11, 14, 13, 4, 5, 7};

    EXPECT_EQ(stream.str(), "2016-11-14 13:04:05.000007");
}

TEST(LocalTime, NowHasTheFormOfATimeStamp)
{
    EXPECT_THAT(textOf(System::getSystemTimeLocal()),
                testing::MatchesRegex("[0-9]{4}-[01][0-9]-[0-3][0-9] [0-2][0-9]:[0-5][0-9]:[0-6]"
                                      "[0-9]\\.[0-9]{6}"));
}

TEST(LocalTime, NowIsThatOfTheLocalWallClock)
{
    const unitTests::ChildEnd end = unitTests::inChild([] {
        useTimeZone("EAST-5:30");
        const auto wallClock = [] {
            const auto seconds = static_cast<time_t>(utcMilliseconds() / 1000 + 5 * 3600 + 30 * 60);
            tm parts{};
            ::gmtime_r(&seconds, &parts);
            char text[32];
            ::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
            return std::string(text);
        };
        const std::string before = wallClock();
        const std::string stamp = textOf(System::getSystemTimeLocal()).substr(0, 19);
        const std::string after = wallClock();
        std::cout << (before <= stamp && stamp <= after ? "in order" : "out of order");
    });
    EXPECT_EQ(end.output, "in order");
}

TEST(MilliTimeLocal, IsThatOfTheSystemInTheZoneOfGreenwich)
{
    EXPECT_EQ(millisecondsIn("UTC0", 0), "between");
}

TEST(MilliTimeLocal, RunsAheadEastOfGreenwich)
{
    EXPECT_EQ(millisecondsIn("EAST-5:30", 5 * 3600 + 30 * 60), "between");
}

TEST(MilliTimeLocal, StaysBehindWestOfGreenwich)
{
    EXPECT_EQ(millisecondsIn("WEST3:30", -3 * 3600 - 30 * 60), "between");
}

}  // namespace
