#include "Basis/Random.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <random>

namespace {

using Basis::Random;

TEST(Random, WordIsTwoOutputsTheFirstInTheHighHalf)
{
    Random random(5489);
    std::mt19937 reference(5489);

    for (int i = 0; i < 1000; ++i) {
        const std::uint64_t high = reference();
        const std::uint64_t low = reference();
        ASSERT_EQ(random.getRandom8U(), (high << 32) | low) << i;
    }
}

// The outputs of the published generator for its default seed, so that the test does not rest on
// the standard library alone.
TEST(Random, FirstWordOfTheDefaultSeedIsThePublishedOne)
{
    EXPECT_EQ(Random(5489).getRandom8U(), (std::uint64_t{3499211612} << 32) | 581869302);
}

TEST(Random, LimitOf32BitsTakesTheRemainderOfOneOutput)
{
    Random random(1);
    std::mt19937 reference(1);

    for (const std::uint64_t limit : {1UL, 2UL, 10UL, 1000003UL, 0xffffffffUL}) {
        for (int i = 0; i < 100; ++i)
            ASSERT_EQ(random.getRandom8(limit), reference() % limit) << limit;
    }
}

TEST(Random, LargerLimitTakesTheRemainderOfAWord)
{
    Random random(1);
    Random words(1);

    for (const std::uint64_t limit : {0x100000000UL, 1'000'000'000'000UL, ~0UL}) {
        for (int i = 0; i < 100; ++i)
            ASSERT_EQ(random.getRandom8(limit), words.getRandom8U() % limit) << limit;
    }
}

TEST(Random, SeedCountsByItsLow32Bits)
{
    EXPECT_EQ(Random(0x500000007).getRandom8U(), Random(7).getRandom8U());
    EXPECT_NE(Random(8).getRandom8U(), Random(7).getRandom8U());
}

TEST(RandomDeathTest, LimitOfZeroStopsTheProgram)
{
    Random random(1);

    EXPECT_EXIT(random.getRandom8(0), testing::KilledBySignal(SIGABRT),
                testing::HasSubstr("limit != 0"));
}

}  // namespace
