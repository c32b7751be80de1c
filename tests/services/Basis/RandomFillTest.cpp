#include "Basis/RandomFill.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "Basis/Random.h"

namespace {

using Basis::RandomFill;
using Bytes = std::vector<unsigned char>;
using Words = std::vector<std::uint64_t>;

constexpr std::size_t wordsPerState = 312;

// What the generator of the standard library gives, which knows nothing of blocks and registers.
Words expectedWords(std::uint32_t seed, std::size_t count)
{
    std::mt19937 generator(seed);
    Words words;
    while (words.size() < count) {
        const std::uint64_t high = generator();
        const std::uint64_t word = (high << 32) | generator();
        words.push_back(word == std::numeric_limits<std::uint64_t>::max() ? 0 : word);
    }
    return words;
}

Words wordsOf(RandomFill& filler, std::size_t count)
{
    Words words(count);
    filler.fill(words.data(), count * sizeof(std::uint64_t));
    return words;
}

class RandomFillRegisters : public testing::TestWithParam<RandomFill::Registers> {};

INSTANTIATE_TEST_SUITE_P(Both, RandomFillRegisters,
                         testing::Values(RandomFill::Registers::widest,
                                         RandomFill::Registers::narrow),
                         [](const auto& test) {
                             return test.param == RandomFill::Registers::widest ? "Widest"
                                                                                : "Narrow";
                         });

TEST_P(RandomFillRegisters, GiveTheSequenceOverManyStates)
{
    for (const std::uint32_t seed : {0U, 1U, 5489U, 0xffffffffU}) {
        RandomFill filler(seed, GetParam());

        EXPECT_EQ(wordsOf(filler, 100 * wordsPerState + 17),
                  expectedWords(seed, 100 * wordsPerState + 17))
            << seed;
    }
}

TEST_P(RandomFillRegisters, GiveTheSequenceForEveryCountAroundAState)
{
    for (std::size_t count = 0; count < 2 * wordsPerState + 3; ++count) {
        RandomFill filler(7, GetParam());

        ASSERT_EQ(wordsOf(filler, count), expectedWords(7, count)) << count;
    }
}

TEST_P(RandomFillRegisters, GiveTheSequenceToMemoryOfAnyAlignment)
{
    constexpr std::size_t count = 3 * wordsPerState;
    const Words expected = expectedWords(3, count);
    for (std::size_t shift = 0; shift < 32; ++shift) {
        RandomFill filler(3, GetParam());
        Bytes memory(count * sizeof(std::uint64_t) + 32);

        filler.fill(memory.data() + shift, count * sizeof(std::uint64_t));

        ASSERT_EQ(std::memcmp(memory.data() + shift, expected.data(), count * 8), 0) << shift;
    }
}

TEST(RandomFill, GoesOnWhereTheLastCallEnded)
{
    RandomFill filler(11);
    Words words;

    for (const std::size_t count : {1U, 5U, 311U, 312U, 700U, 2U}) {
        const Words piece = wordsOf(filler, count);
        words.insert(words.end(), piece.begin(), piece.end());
    }

    EXPECT_EQ(words, expectedWords(11, words.size()));
}

TEST(RandomFill, LeavesATailOfLessThanAWordAlone)
{
    for (std::size_t tail = 1; tail < 8; ++tail) {
        RandomFill filler(2);
        Bytes memory(3 * 8 + 8, 128);

        filler.fill(memory.data(), 3 * 8 + tail);

        EXPECT_EQ(std::memcmp(memory.data(), expectedWords(2, 3).data(), 3 * 8), 0);
        EXPECT_EQ(Bytes(memory.begin() + 3 * 8, memory.end()), Bytes(8, 128)) << tail;
        EXPECT_EQ(wordsOf(filler, 1)[0], expectedWords(2, 4)[3]) << "the tail used up a word";
    }
}

TEST(RandomFill, WritesNothingBehindTheMemory)
{
    RandomFill filler(2);
    Words memory(wordsPerState + 1, 5);

    filler.fill(memory.data(), wordsPerState * sizeof(std::uint64_t));

    EXPECT_EQ(memory.back(), 5U);
}

TEST(RandomFill, GivesTheWordsOfRandom)
{
    RandomFill filler(0x500000007);
    Basis::Random random(0x500000007);

    for (const std::uint64_t word : wordsOf(filler, 2 * wordsPerState))
        ASSERT_EQ(word, random.getRandom8U());
}

// The outputs of the published generator for its default seed.
TEST(RandomFill, FirstWordOfTheDefaultSeedIsThePublishedOne)
{
    RandomFill filler(5489);

    EXPECT_EQ(wordsOf(filler, 1)[0], (std::uint64_t{3499211612} << 32) | 581869302);
}

}  // namespace
