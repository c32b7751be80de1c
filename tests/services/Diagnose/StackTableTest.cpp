#include "Diagnose/StackTable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using Diagnose::StackTable;
using Addresses = std::vector<std::uint64_t>;

// "outermost ... innermost channel: processor/wait", in the order of the texts.
std::vector<std::string> contentOf(const StackTable& table)
{
    std::vector<std::string> all;
    for (const StackTable::Stack& stack : table.stacks()) {
        std::string text;
        for (const std::uint64_t address : stack.addresses)
            text += std::to_string(address) + " ";
        text += stack.waitChannel + ": " + std::to_string(stack.counts.processor) + "/" +
                std::to_string(stack.counts.wait);
        all.push_back(text);
    }
    std::sort(all.begin(), all.end());
    return all;
}

TEST(StackTable, IsEmptyAtTheStart)
{
    const StackTable table;

    EXPECT_EQ(table.total().sum(), 0U);
    EXPECT_TRUE(table.stacks().empty());
}

TEST(StackTable, AddsUpSamplesOfTheSameStack)
{
    StackTable table;
    EXPECT_TRUE(table.add(Addresses{3, 2, 1}, {1, 0}, ""));
    EXPECT_TRUE(table.add(Addresses{3, 2, 1}, {4, 0}, ""));
    EXPECT_TRUE(table.add(Addresses{3, 2, 1}, {0, 2}, ""));

    EXPECT_THAT(contentOf(table), testing::ElementsAre("1 2 3 : 5/2"));
    EXPECT_EQ(table.total().processor, 5U);
    EXPECT_EQ(table.total().wait, 2U);
}

TEST(StackTable, TellsStacksApartThatShareFrames)
{
    StackTable table;
    table.add(Addresses{2, 1}, {1, 0}, "");
    table.add(Addresses{3, 2, 1}, {2, 0}, "");
    table.add(Addresses{3, 1}, {4, 0}, "");
    table.add(Addresses{1}, {8, 0}, "");
    table.add(Addresses{1, 1}, {16, 0}, "");

    EXPECT_THAT(contentOf(table), testing::ElementsAre("1 1 : 16/0", "1 2 3 : 2/0", "1 2 : 1/0",
                                                       "1 3 : 4/0", "1 : 8/0"));
}

TEST(StackTable, PutsWaitTimeBelowItsChannel)
{
    StackTable table;
    table.add(Addresses{2, 1}, {3, 4}, "pipe_read");
    table.add(Addresses{2, 1}, {0, 1}, "futex_wait");
    table.add(Addresses{2, 1}, {0, 2}, "pipe_read");

    EXPECT_THAT(contentOf(table),
                testing::ElementsAre("1 2 : 3/0", "1 2 futex_wait: 0/1", "1 2 pipe_read: 0/6"));
}

TEST(StackTable, TakesNoAddressForAChannel)
{
    StackTable table;
    table.add(Addresses{0, 1}, {1, 0}, "");
    table.add(Addresses{UINT64_MAX, 1}, {2, 0}, "");
    table.add(Addresses{1}, {0, 4}, "channel");

    EXPECT_THAT(contentOf(table), testing::ElementsAre("1 0 : 1/0", "1 18446744073709551615 : 2/0",
                                                       "1 channel: 0/4"));
}

TEST(StackTable, RefusesWhatDoesNotFitAndKeepsTheRest)
{
    StackTable table(4);
    EXPECT_TRUE(table.add(Addresses{3, 2, 1}, {1, 0}, ""));
    EXPECT_FALSE(table.add(Addresses{5, 4, 1}, {1, 0}, ""));
    EXPECT_FALSE(table.add(Addresses{3, 2, 1}, {0, 1}, "channel"));
    EXPECT_TRUE(table.add(Addresses{3, 2, 1}, {1, 0}, ""));

    EXPECT_THAT(contentOf(table), testing::ElementsAre("1 2 3 : 2/0"));
    EXPECT_EQ(table.total().sum(), 2U);
}

TEST(StackTable, LeavesChannelsOutOnceThereAreTooMany)
{
    StackTable table;
    for (std::size_t i = 0; i < StackTable::mostWaitChannels; ++i)
        EXPECT_TRUE(table.add(Addresses{1}, {0, 1}, "channel" + std::to_string(i)));

    EXPECT_TRUE(table.add(Addresses{1}, {0, 7}, "one more"));

    EXPECT_THAT(contentOf(table), testing::Contains("1 : 0/7"));
    EXPECT_EQ(table.total().wait, StackTable::mostWaitChannels + 7);
}

TEST(StackTable, IsAsNewAfterAClear)
{
    StackTable table(2);
    table.add(Addresses{2, 1}, {1, 0}, "");
    table.clear();
    EXPECT_TRUE(table.stacks().empty());
    EXPECT_EQ(table.total().sum(), 0U);

    EXPECT_TRUE(table.add(Addresses{4, 3}, {1, 0}, ""));

    EXPECT_THAT(contentOf(table), testing::ElementsAre("3 4 : 1/0"));
}

TEST(StackTable, TakesNoMoreMemoryThanItBeganWith)
{
    StackTable table(1000);
    unsigned accepted = 0;
    for (std::uint64_t i = 0; i < 5000; ++i)
        accepted += table.add(Addresses{i * 4096 + 1}, {1, 0}, "") ? 1U : 0U;

    EXPECT_EQ(accepted, 1000U);
    EXPECT_EQ(table.stacks().size(), 1000U);
}

}  // namespace
