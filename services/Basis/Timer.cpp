#include "Basis/Timer.h"

#include <cpuid.h>
#include <time.h>
#include <x86intrin.h>

namespace Basis {

namespace {

constexpr std::uint64_t nanosecondsPerSecond = 1'000'000'000;
constexpr std::uint64_t calibrationNanoseconds = 20'000'000;

std::uint64_t monotonicNanoseconds()
{
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * nanosecondsPerSecond +
           static_cast<std::uint64_t>(now.tv_nsec);
}

bool hasInvariantCounter()
{
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    return __get_cpuid(0x80000007, &eax, &ebx, &ecx, &edx) != 0 && (edx & (1U << 8)) != 0;
}

struct Sample {
    std::uint64_t ticks;
    std::uint64_t nanoseconds;
};

// Of several readings the one with the least time around it: the process may lose the processor
// between the two clocks.
Sample bestSample()
{
    Sample best{};
    std::uint64_t narrowest = UINT64_MAX;
    for (int attempt = 0; attempt < 16; ++attempt) {
        const std::uint64_t before = monotonicNanoseconds();
        const std::uint64_t ticks = __rdtsc();
        const std::uint64_t after = monotonicNanoseconds();
        if (after - before < narrowest) {
            narrowest = after - before;
            best = {ticks, before + narrowest / 2};
        }
    }
    return best;
}

struct Calibration {
    bool useCounter = hasInvariantCounter();
    std::uint64_t ticks = 1;  // in that many nanoseconds
    std::uint64_t nanoseconds = 1;

    Calibration()
    {
        if (!useCounter)
            return;
        const Sample begin = bestSample();
        while (monotonicNanoseconds() - begin.nanoseconds < calibrationNanoseconds)
            continue;
        const Sample end = bestSample();
        ticks = end.ticks - begin.ticks;
        nanoseconds = end.nanoseconds - begin.nanoseconds;
    }
};

const Calibration& calibration()
{
    static const Calibration instance;
    return instance;
}

}  // namespace

std::uint64_t Timer::s_fHiPerfTimer()
{
    return calibration().useCounter ? __rdtsc() : monotonicNanoseconds();
}

std::uint64_t Timer::s_fHiPerfTimerConvert(std::uint64_t ticks)
{
    const Calibration& scale = calibration();
    __extension__ using Wide = unsigned __int128;
    return static_cast<std::uint64_t>(Wide{ticks} * scale.nanoseconds / scale.ticks / 1000);
}

std::uint64_t Timer::s_fMicroTimer()
{
    return monotonicNanoseconds() / 1000;
}

}  // namespace Basis
