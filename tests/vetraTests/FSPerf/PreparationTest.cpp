#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <random>
#include <vector>

#include "Basis/Timer.h"
#include "tests/vetraTests/FSPerf/RequestHandler.h"

namespace vetraTests {

namespace {

using Order = std::vector<unsigned long>;

// The microseconds at which a seed may have been drawn.
struct SeedTimes {
    std::uint64_t first = 0;
    std::uint64_t last = 0;
};

template <class Operation>
SeedTimes timesAround(Operation operation)
{
    SeedTimes times;
    times.first = Basis::Timer::s_fMicroTimer();
    operation();
    times.last = Basis::Timer::s_fMicroTimer();
    return times;
}

Order shuffled(std::size_t count, std::uint64_t seed)
{
    std::mt19937 generator(static_cast<std::uint32_t>(seed));
    Order order(count);
    std::iota(order.begin(), order.end(), 0UL);
    for (std::size_t i = 1; i < count; ++i)
        std::swap(order[i], order[generator() % (i + 1)]);
    return order;
}

bool isShuffleOf(const Order& order, SeedTimes times)
{
    for (std::uint64_t seed = times.first; seed <= times.last; ++seed)
        if (shuffled(order.size(), seed) == order)
            return true;
    return false;
}

using Words = std::vector<std::uint64_t>;

Words randomWords(std::size_t count, std::uint64_t seed)
{
    std::mt19937 generator(static_cast<std::uint32_t>(seed));
    Words words(count);
    for (std::uint64_t& word : words) {
        const std::uint64_t high = generator();
        word = (high << 32) | generator();
    }
    return words;
}

bool areRandomWords(const Words& words, SeedTimes times)
{
    for (std::uint64_t seed = times.first; seed <= times.last; ++seed)
        if (randomWords(1, seed)[0] == words[0])
            return randomWords(words.size(), seed) == words;
    return false;
}

class Preparation : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(handler.init(options)); }

    Words bufferWords() const
    {
        Words words(options.m_alloc_size / 8);
        std::memcpy(words.data(), handler.m_data_buffer.data(), words.size() * 8);
        return words;
    }
    bool isBufferConstant() const
    {
        const Words words = bufferWords();
        return std::all_of(words.begin(), words.end(),
                           [](std::uint64_t word) { return word == 0x8080808080808080; });
    }
    Order drawOrder()
    {
        Basis::vector<unsigned long> order = newOrder();
        handler.initBlockAccessVector(options, order);
        return {order.begin(), order.end()};
    }

    FakeFileLayer layer;
    TestOptions options{1000};
    OpenHandler handler;
};

}  // namespace

TEST_F(Preparation, SequentialOrderCountsTheBlocks)
{
    options.m_random_io_order = false;

    const Order order = drawOrder();

    EXPECT_EQ(order.size(), 1000U);
    for (std::size_t i = 0; i < order.size(); ++i)
        ASSERT_EQ(order[i], i);
}

TEST_F(Preparation, RandomOrderIsTheUpwardShuffleOfSomeMoment)
{
    Order order;
    const SeedTimes times = timesAround([&] { order = drawOrder(); });

    EXPECT_TRUE(isShuffleOf(order, times));
    EXPECT_FALSE(std::is_sorted(order.begin(), order.end()));
}

TEST_F(Preparation, OrderOfOneBlockStays)
{
    options.m_file_size = testBlock;

    EXPECT_EQ(drawOrder(), Order{0});
}

TEST_F(Preparation, OrderOfAnEarlierTestIsForgotten)
{
    options.m_random_io_order = false;
    options.m_file_size = 3 * testBlock;
    Basis::vector<unsigned long> order = newOrder();
    order.assign(7, 99UL);

    handler.initBlockAccessVector(options, order);

    EXPECT_EQ(Order(order.begin(), order.end()), (Order{0, 1, 2}));
}

TEST_F(Preparation, ArmsCounterAndGate)
{
    handler.m_barrier.signal();

    drawOrder();

    EXPECT_EQ(handler.m_num_requests_i.value, 1000U);
    EXPECT_TRUE(handler.m_barrier.isAtRest());
}

TEST_F(Preparation, RandomDataAreTheWordsOfSomeMoment)
{
    const SeedTimes times =
        timesAround([this] { handler.initDataBuffer(options, true, handler.m_data_buffer); });

    EXPECT_TRUE(areRandomWords(bufferWords(), times));
}

TEST_F(Preparation, TailOfTheBufferKeepsItsContents)
{
    options.m_alloc_size = 21;

    handler.initDataBuffer(options, true, handler.m_data_buffer);

    unsigned char tail[6];
    std::memcpy(tail, handler.m_data_buffer.data() + 16, sizeof tail);
    for (const unsigned char byte : tail)
        EXPECT_EQ(byte, 128);
    EXPECT_NE(bufferWords()[0], 0x8080808080808080);
    EXPECT_NE(bufferWords()[1], 0x8080808080808080);
}

TEST_F(Preparation, ConstantDataReplaceRandomOnes)
{
    handler.initDataBuffer(options, true, handler.m_data_buffer);
    ASSERT_FALSE(isBufferConstant());

    handler.initDataBuffer(options, false, handler.m_data_buffer);

    EXPECT_TRUE(isBufferConstant());
}

TEST_F(Preparation, FillsNoMoreThanTheAllocSize)
{
    options.m_alloc_size -= testBlock;

    handler.initDataBuffer(options, true, handler.m_data_buffer);

    unsigned char behind = 0;
    std::memcpy(&behind, handler.m_data_buffer.data() + options.m_alloc_size, 1);
    EXPECT_EQ(behind, 128);
}

TEST_F(Preparation, ControlBlocksLieBesideEachOther)
{
    handler.initControlBlocks(options);

    ASSERT_EQ(handler.m_control_blocks.size(), 1000U);
    ASSERT_EQ(layer.controlBlocks.size(), 1000U);
    for (std::size_t i = 0; i < 1000; ++i) {
        ASSERT_EQ(layer.controlBlocks[i],
                  handler.m_control_block_buffer.data() + i * layer.controlBlockSize);
        ASSERT_EQ(static_cast<void*>(handler.m_control_blocks[i]), layer.controlBlocks[i]);
    }
}

TEST_F(Preparation, EachTestAppendsItsControlBlocksBehindTheEarlierOnes)
{
    for (std::size_t test = 1; test <= 6; ++test) {
        handler.initControlBlocks(options);

        ASSERT_EQ(handler.m_control_blocks.size(), test * 1000);
        for (std::size_t i = 0; i < 1000; ++i)
            ASSERT_EQ(handler.m_control_blocks[(test - 1) * 1000 + i], handler.m_control_blocks[i]);
    }
}

// Beside the control block itself, a request of the sixth test may cost little memory.
TEST_F(Preparation, ListOfControlBlocksGrowsByWhatItNeeds)
{
    for (std::size_t test = 1; test <= 6; ++test) {
        handler.initControlBlocks(options);

        EXPECT_EQ(handler.m_control_blocks.capacity(), test * 1000);
    }
}

TEST_F(Preparation, BracketsOrderThenBufferThenControlBlocks)
{
    options.output(OutputType::VERBOSE);
    options.m_random_io_order = false;
    Basis::vector<unsigned long> order = newOrder();

    const Printed printed = printedBy([&] { handler.initTestData(options, true, order); });

    EXPECT_EQ(printed.output, "Preparing I/O buffer... done.\n");
    EXPECT_EQ(order.size(), 1000U);
    EXPECT_FALSE(isBufferConstant());
    EXPECT_EQ(handler.m_control_blocks.size(), 1000U);
}

TEST_F(Preparation, IsSilentUnlessTalkative)
{
    for (const OutputType type : {OutputType::SHORT, OutputType::JSON, OutputType::JSON_SHORT}) {
        options.output(type);
        Basis::vector<unsigned long> order = newOrder();
        EXPECT_EQ(printedBy([&] { handler.initTestData(options, false, order); }).output, "");
    }
}

}  // namespace vetraTests
