#pragma once

#include <cpuid.h>
#include <time.h>

#include <cstdint>

namespace Basis {

/// The process's clock for measurements.
///
/// Units:    ticks are those of the processor's time stamp counter where that is invariant (CPUID
///           leaf 0x80000007, EDX bit 8); elsewhere they are nanoseconds of the monotonic clock.
/// Threads:  any. The first conversion calibrates the counter against the monotonic clock and takes
///           about 20 ms; others wait for it. Reading the clock never does.
class Timer {
public:
    /// The current tick count.
    static std::uint64_t s_fHiPerfTimer();

    /// Converts ticks to whole microseconds, rounding down.
    static std::uint64_t s_fHiPerfTimerConvert(std::uint64_t ticks);

    /// Microseconds of the monotonic clock, counted from an arbitrary moment of this boot.
    static std::uint64_t s_fMicroTimer();

    /// Nanoseconds of the monotonic clock.
    static std::uint64_t monotonicNanoseconds();

    /// Whether ticks are those of the time stamp counter.
    static bool usesCounter() { return hasCounter; }

private:
    static bool hasInvariantCounter();

    // Inline, so that it is set before the statics of every file that includes this header.
    static const bool hasCounter;
};

inline std::uint64_t Timer::monotonicNanoseconds()
{
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 +
           static_cast<std::uint64_t>(now.tv_nsec);
}

inline bool Timer::hasInvariantCounter()
{
    unsigned eax = 0;
    unsigned ebx = 0;
    unsigned ecx = 0;
    unsigned edx = 0;
    return __get_cpuid(0x80000007, &eax, &ebx, &ecx, &edx) != 0 && (edx & (1U << 8)) != 0;
}

inline const bool Timer::hasCounter = Timer::hasInvariantCounter();

// Inline: it is read twice for every request that is accepted.
inline std::uint64_t Timer::s_fHiPerfTimer()
{
    if (hasCounter) [[likely]]
        return __builtin_ia32_rdtsc();
    return monotonicNanoseconds();
}

}  // namespace Basis
