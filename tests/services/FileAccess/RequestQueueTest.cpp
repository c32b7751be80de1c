#include "FileAccess/RequestQueue.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <thread>
#include <vector>

namespace {

using FileAccess::IOControlBlock;
using FileAccess::RequestQueue;

TEST(RequestQueue, IsEmptyAndGivesNothingAtFirst)
{
    RequestQueue queue;

    EXPECT_TRUE(queue.isEmpty());
    EXPECT_EQ(queue.take(), nullptr);
    EXPECT_TRUE(queue.isEmpty());
}

TEST(RequestQueue, GivesWhatWasPushedInItsOrder)
{
    RequestQueue queue;
    std::deque<IOControlBlock> blocks(3);

    for (IOControlBlock& block : blocks)
        queue.push(&block);

    EXPECT_FALSE(queue.isEmpty());
    for (IOControlBlock& block : blocks)
        EXPECT_EQ(queue.take(), &block);
    EXPECT_EQ(queue.take(), nullptr);
    EXPECT_TRUE(queue.isEmpty());
}

TEST(RequestQueue, TakesABlockBackThatHasJustLeftIt)
{
    RequestQueue queue;
    IOControlBlock block;

    for (int round = 0; round < 3; ++round) {
        queue.push(&block);
        EXPECT_FALSE(queue.isEmpty());
        EXPECT_EQ(queue.take(), &block);
        EXPECT_TRUE(queue.isEmpty());
    }
}

TEST(RequestQueue, KeepsTheOrderWhenPushesAndTakesAlternate)
{
    RequestQueue queue;
    std::deque<IOControlBlock> blocks(64);
    std::size_t pushed = 0;
    std::size_t taken = 0;

    for (std::size_t step = 1; taken < blocks.size(); ++step) {
        for (std::size_t i = 0; i < step % 4 && pushed < blocks.size(); ++i)
            queue.push(&blocks[pushed++]);
        for (std::size_t i = 0; i < step % 3 && taken < pushed; ++i)
            ASSERT_EQ(queue.take(), &blocks[taken++]);
    }
    EXPECT_TRUE(queue.isEmpty());
}

// Each thread's blocks must come out once and in that thread's order, with their content.
TEST(RequestQueue, LosesAndRepeatsNothingUnderSeveralPushingThreads)
{
    constexpr std::size_t threads = 3;
    constexpr std::size_t perThread = 20'000;
    RequestQueue queue;
    std::vector<std::deque<IOControlBlock>> blocks(threads);
    std::vector<std::jthread> pushers;
    for (std::size_t number = 0; number < threads; ++number) {
        blocks[number].resize(perThread);
        pushers.emplace_back([&queue, &own = blocks[number], number] {
            for (std::size_t i = 0; i < own.size(); ++i) {
                own[i].done = number;
                own[i].size = i;
                queue.push(&own[i]);
            }
        });
    }

    std::vector<std::uint64_t> next(threads, 0);
    for (std::size_t taken = 0; taken < threads * perThread;) {
        const IOControlBlock* const block = queue.take();
        if (!block) {
            std::this_thread::yield();
            continue;
        }
        ASSERT_LT(block->done, threads);
        ASSERT_EQ(block->size, next[block->done]++);
        ++taken;
    }

    EXPECT_EQ(queue.take(), nullptr);
    EXPECT_TRUE(queue.isEmpty());
}

}  // namespace
