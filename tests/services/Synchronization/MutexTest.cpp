#include "Synchronization/Mutex.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using Synchronization::Mutex;
using Synchronization::MutexScope;

// Whether another thread could take it now.
bool isFree(Mutex& mutex)
{
    bool taken = false;
    std::thread([&] {
        taken = mutex.tryLock();
        if (taken)
            mutex.unlock();
    }).join();
    return taken;
}

TEST(Mutex, HasItsNameAndComponent)
{
    const Mutex mutex("requests", 7);

    EXPECT_STREQ(mutex.name(), "requests");
    EXPECT_EQ(mutex.component(), 7U);
}

TEST(Mutex, IsHeldFromLockToUnlock)
{
    Mutex mutex("requests", 1);
    EXPECT_TRUE(isFree(mutex));

    mutex.lock();
    EXPECT_FALSE(isFree(mutex));

    mutex.unlock();
    EXPECT_TRUE(isFree(mutex));
}

TEST(Mutex, IsHeldByWhoTriedItWithSuccess)
{
    Mutex mutex("requests", 1);

    ASSERT_TRUE(mutex.tryLock());
    EXPECT_FALSE(isFree(mutex));

    mutex.unlock();
    EXPECT_TRUE(isFree(mutex));
}

TEST(Mutex, LetsOneThreadInAtATime)
{
    constexpr int threadCount = 4;
    constexpr int steps = 20'000;
    Mutex mutex("requests", 1);
    int sum = 0;
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < threadCount; ++i) {
            threads.emplace_back([&] {
                for (int step = 0; step < steps; ++step) {
                    const MutexScope held(mutex);
                    ++sum;
                }
            });
        }
    }

    EXPECT_EQ(sum, threadCount * steps);
}

TEST(MutexScope, HoldsTheMutexForItsLifetime)
{
    Mutex mutex("requests", 1);
    {
        const MutexScope held(mutex);
        EXPECT_FALSE(isFree(mutex));
    }
    EXPECT_TRUE(isFree(mutex));
}

TEST(MutexScope, GivesTheMutexBackWhenAnExceptionLeavesIt)
{
    Mutex mutex("requests", 1);
    const auto fail = [&] {
        const MutexScope held(mutex);
        throw std::runtime_error("reason");
    };

    EXPECT_THROW(fail(), std::runtime_error);

    EXPECT_TRUE(isFree(mutex));
}

}  // namespace
