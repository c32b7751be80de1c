#include "tests/impl/FixedMilliTime.h"

#include <optional>

namespace unitTests {

// The linker sends the driver's calls here, and keeps the clock's own under "__real_".
std::int64_t hookedMilliTime() __asm__("__wrap__ZN6System23getSystemMilliTimeLocalEv");
std::int64_t realMilliTime() __asm__("__real__ZN6System23getSystemMilliTimeLocalEv");

namespace {

std::optional<std::int64_t> fixedMilliseconds;

}  // namespace

FixedMilliTime::FixedMilliTime(std::int64_t milliseconds)
{
    fixedMilliseconds = milliseconds;
}

FixedMilliTime::~FixedMilliTime()
{
    fixedMilliseconds.reset();
}

std::int64_t hookedMilliTime()
{
    return fixedMilliseconds ? *fixedMilliseconds : realMilliTime();
}

}  // namespace unitTests
