#include "Basis/Timer.h"

namespace Basis {

namespace {

constexpr std::uint64_t calibrationNanoseconds = 20'000'000;

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
        const std::uint64_t before = Timer::monotonicNanoseconds();
        const std::uint64_t ticks = Timer::s_fHiPerfTimer();
        const std::uint64_t after = Timer::monotonicNanoseconds();
        if (after - before < narrowest) {
            narrowest = after - before;
            best = {ticks, before + narrowest / 2};
        }
    }
    return best;
}

struct Calibration {
    std::uint64_t ticks = 1;  // in that many nanoseconds
    std::uint64_t nanoseconds = 1;

    Calibration()
    {
        if (!Timer::usesCounter())
            return;
        const Sample begin = bestSample();
        while (Timer::monotonicNanoseconds() - begin.nanoseconds < calibrationNanoseconds)
            continue;
        const Sample end = bestSample();
        ticks = end.ticks - begin.ticks;
        nanoseconds = end.nanoseconds - begin.nanoseconds;
    }
};

}  // namespace

std::uint64_t Timer::s_fHiPerfTimerConvert(std::uint64_t ticks)
{
    static const Calibration scale;
    __extension__ using Wide = unsigned __int128;
    return static_cast<std::uint64_t>(Wide{ticks} * scale.nanoseconds / scale.ticks / 1000);
}

std::uint64_t Timer::s_fMicroTimer()
{
    return monotonicNanoseconds() / 1000;
}

}  // namespace Basis
