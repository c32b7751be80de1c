#include "Synchronization/Barrier.h"

#include <gtest/gtest.h>

#include <iostream>
#include <thread>
#include <vector>

#include "tests/services/support/CapturedOutput.h"

namespace {

using Synchronization::Barrier;

TEST(Barrier, IsAtRestWhileFresh)
{
    const Barrier gate;

    EXPECT_TRUE(gate.isAtRest());
}

TEST(Barrier, IsNotAtRestBetweenSignalAndWait)
{
    Barrier gate;

    gate.signal();
    EXPECT_FALSE(gate.isAtRest());

    gate.wait();
    EXPECT_TRUE(gate.isAtRest());
}

TEST(Barrier, LetsThroughWhoComesAfterTheSignal)
{
    Barrier gate;
    gate.signal();

    gate.wait();
    // It stays open.
    gate.wait();

    EXPECT_TRUE(gate.isAtRest());
}

TEST(Barrier, TakesSeveralSignalsForOne)
{
    Barrier gate;
    for (int i = 0; i < 3; ++i)
        gate.signal();
    gate.wait();
    EXPECT_TRUE(gate.isAtRest());

    gate.resetForReuse();

    EXPECT_TRUE(gate.isAtRest());
    gate.signal();
    EXPECT_FALSE(gate.isAtRest());
}

TEST(Barrier, IsArmedAgainByAReset)
{
    Barrier gate;
    gate.signal();

    gate.resetForReuse();

    EXPECT_TRUE(gate.isAtRest());
    // A signal of the last use opens it no more: this one has to come first.
    bool isOpened = false;
    const std::jthread opener([&] {
        isOpened = true;
        gate.signal();
    });
    gate.wait();
    EXPECT_TRUE(isOpened);
}

// The two threads take turns through two gates: a wait that does not wait, and a signal that gets
// lost, are both seen.
TEST(Barrier, HoldsAThreadUntilTheOtherOneHasDoneItsPart)
{
    constexpr int rounds = 5000;
    Barrier asked;
    Barrier answered;
    int question = 0;
    int answer = 0;
    int wrong = 0;
    {
        const std::jthread other([&] {
            for (int i = 1; i <= rounds; ++i) {
                asked.wait();
                asked.resetForReuse();
                answer = question * 2;
                answered.signal();
            }
        });
        for (int i = 1; i <= rounds; ++i) {
            question = i;
            asked.signal();
            answered.wait();
            answered.resetForReuse();
            wrong += answer != 2 * i ? 1 : 0;
        }
    }

    EXPECT_EQ(wrong, 0);
}

TEST(Barrier, MayBeSignalledBySeveralThreadsAtOnce)
{
    for (int round = 0; round < 200; ++round) {
        Barrier gate;
        std::vector<std::jthread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([&gate] { gate.signal(); });

        gate.wait();
        threads.clear();

        ASSERT_TRUE(gate.isAtRest());
    }
}

TEST(Barrier, SaysOnStandardErrorThatItWasMisused)
{
    const unitTests::CapturedOutput errors(std::cerr);

    Barrier::reportError("was not signalled");

    EXPECT_EQ(errors.text(), "vetra: barrier was not signalled\n");
}

}  // namespace
