#include "FileAccess/WorkRounds.h"

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <thread>

namespace {

using FileAccess::WorkRounds;

TEST(WorkRounds, DoNotHoldUpWhoWaitsWhileThereIsNoWork)
{
    WorkRounds rounds;
    rounds.waitForPause();
    {
        const WorkRounds::Scope work(rounds);
    }

    rounds.waitForPause();
}

TEST(WorkRounds, HoldUpWhoWaitsUntilTheWorkIsDone)
{
    WorkRounds rounds;
    std::optional<WorkRounds::Scope> work(rounds);
    std::atomic<bool> isDone{false};
    std::atomic<bool> wasDone{false};
    std::jthread waiter([&] {
        rounds.waitForPause();
        wasDone = isDone.load();
    });

    isDone = true;
    work.reset();
    waiter.join();

    EXPECT_TRUE(wasDone);
}

// The next piece of work may begin before the waiter has looked.
TEST(WorkRounds, DoNotHoldUpWhoWaitsForTheNextPieceOfWork)
{
    WorkRounds rounds;
    std::atomic<bool> isOver{false};
    std::jthread worker([&] {
        while (!isOver)
            const WorkRounds::Scope work(rounds);
    });

    for (int i = 0; i < 1000; ++i)
        rounds.waitForPause();

    isOver = true;
}

}  // namespace
