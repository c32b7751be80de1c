#include "Basis/Timer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <thread>
#include <vector>

namespace {

using Basis::Timer;

TEST(Timer, TicksNeverGoBackOnOneThread)
{
    std::uint64_t last = Timer::s_fHiPerfTimer();

    for (int i = 0; i < 100000; ++i) {
        const std::uint64_t now = Timer::s_fHiPerfTimer();
        ASSERT_GE(now, last);
        last = now;
    }
}

TEST(Timer, MicrosecondsNeverGoBackOnOneThread)
{
    std::uint64_t last = Timer::s_fMicroTimer();

    for (int i = 0; i < 100000; ++i) {
        const std::uint64_t now = Timer::s_fMicroTimer();
        ASSERT_GE(now, last);
        last = now;
    }
}

TEST(Timer, NoTicksAreNoTime)
{
    EXPECT_EQ(Timer::s_fHiPerfTimerConvert(0), 0U);
}

TEST(Timer, ConversionIsProportionalAndRoundsDown)
{
    for (std::uint64_t ticks = 1; ticks < std::uint64_t{1} << 40; ticks = ticks * 3 + 1) {
        const std::uint64_t once = Timer::s_fHiPerfTimerConvert(ticks);
        const std::uint64_t twice = Timer::s_fHiPerfTimerConvert(2 * ticks);
        ASSERT_GE(twice, 2 * once) << ticks;
        ASSERT_LE(twice, 2 * once + 1) << ticks;
    }
}

// Up to half a century of ticks: their product with the scale does not fit into 64 bits.
TEST(Timer, ConversionDoesNotWrapForManyTicks)
{
    for (unsigned bit = 40; bit < 62; ++bit) {
        const std::uint64_t once = Timer::s_fHiPerfTimerConvert(std::uint64_t{1} << bit);
        const std::uint64_t twice = Timer::s_fHiPerfTimerConvert(std::uint64_t{2} << bit);
        EXPECT_GT(once, 0U) << bit;
        EXPECT_GE(twice, 2 * once) << bit;
        EXPECT_LE(twice, 2 * once + 1) << bit;
    }
}

TEST(Timer, ManyThreadsMayMakeTheFirstCall)
{
    std::vector<std::thread> threads;
    std::vector<std::uint64_t> conversions(8);
    for (std::uint64_t& conversion : conversions) {
        threads.emplace_back([&conversion] {
            Timer::s_fHiPerfTimer();
            conversion = Timer::s_fHiPerfTimerConvert(1'000'000'000'000);
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    for (const std::uint64_t conversion : conversions)
        EXPECT_EQ(conversion, conversions.front());
}

}  // namespace
