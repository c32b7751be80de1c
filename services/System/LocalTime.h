#pragma once

#include <cstdint>
#include <ostream>

namespace System {

/// A moment of the local wall clock. Its text form is "YYYY-MM-DD HH:MM:SS.ffffff".
struct LocalTime {
    int year;
    int month;  ///< 1 to 12
    int day;
    int hour;
    int minute;
    int second;  ///< 60 in a leap second
    int microsecond;
};

std::ostream& operator<<(std::ostream& stream, const LocalTime& time);

/// Now, by the local wall clock.
LocalTime getSystemTimeLocal();

/// Milliseconds since 1970 that the local wall clock shows, so with the offset of the time zone.
std::int64_t getSystemMilliTimeLocal();

}  // namespace System
