#pragma once

#include <cstdint>

#include "Basis/Timer.h"

/// The value of a high-resolution counter. `counter` names one of several kinds; there is one, 1.
inline long _pcounter(int counter)
{
    static_cast<void>(counter);
    return static_cast<long>(Basis::Timer::s_fHiPerfTimer());
}

/// The whole microseconds between two values of a counter, the earlier one first. The first call
/// may take 20 ms, in which the counter is calibrated.
inline long _pdiff_muesec(int counter, long first, long second)
{
    static_cast<void>(counter);
    return static_cast<long>(
        Basis::Timer::s_fHiPerfTimerConvert(static_cast<std::uint64_t>(second - first)));
}
