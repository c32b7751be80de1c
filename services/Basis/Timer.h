#pragma once

#include <cstdint>

namespace Basis {

/// The process's clock for measurements.
///
/// Units:    ticks are those of the processor's time stamp counter where that is invariant (CPUID
///           leaf 0x80000007, EDX bit 8), calibrated once against the monotonic clock; elsewhere
///           they are nanoseconds of the monotonic clock itself.
/// Threads:  any. The first call calibrates and takes about 20 ms; others wait for it.
class Timer {
public:
    /// The current tick count.
    static std::uint64_t s_fHiPerfTimer();

    /// Converts ticks to whole microseconds, rounding down.
    static std::uint64_t s_fHiPerfTimerConvert(std::uint64_t ticks);

    /// Microseconds of the monotonic clock, counted from an arbitrary moment of this boot.
    static std::uint64_t s_fMicroTimer();
};

}  // namespace Basis
