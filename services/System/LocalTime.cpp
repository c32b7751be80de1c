#include "System/LocalTime.h"

#include <time.h>

#include <cstdio>

namespace System {

namespace {

struct Now {
    timespec utc;
    tm local;
};

Now now()
{
    Now result{};
    ::clock_gettime(CLOCK_REALTIME, &result.utc);
    ::localtime_r(&result.utc.tv_sec, &result.local);
    return result;
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, const LocalTime& time)
{
    char text[80];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%06d", time.year, time.month,
                  time.day, time.hour, time.minute, time.second, time.microsecond);
    return stream << text;
}

LocalTime getSystemTimeLocal()
{
    const Now moment = now();
    const tm& local = moment.local;
    return {local.tm_year + 1900,
            local.tm_mon + 1,
            local.tm_mday,
            local.tm_hour,
            local.tm_min,
            local.tm_sec,
            static_cast<int>(moment.utc.tv_nsec / 1000)};
}

std::int64_t getSystemMilliTimeLocal()
{
    const Now moment = now();
    return (static_cast<std::int64_t>(moment.utc.tv_sec) + moment.local.tm_gmtoff) * 1000 +
           moment.utc.tv_nsec / 1'000'000;
}

}  // namespace System
