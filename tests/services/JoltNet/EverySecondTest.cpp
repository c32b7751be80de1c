#include "JoltNet/EverySecond.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <iostream>
#include <iterator>

#include "tests/services/JoltNet/RawPeer.h"
#include "tests/services/support/ChildProcess.h"

namespace {

using JoltNet::EverySecond;
using netTests::until;

std::ptrdiff_t entriesOf(const char* folder)
{
    using Iterator = std::filesystem::directory_iterator;
    return std::distance(Iterator(folder), Iterator());
}

TEST(EverySecondWork, IsDoneAgainAndAgainUntilItIsStopped)
{
    const auto descriptors = entriesOf("/proc/self/fd");
    std::atomic<int> count{0};
    EverySecond repeated;
    ASSERT_TRUE(repeated.start([&] { ++count; }));
    EXPECT_TRUE(until([&] { return count >= 2; }));
    const auto threads = entriesOf("/proc/self/task");

    repeated.stop();

    EXPECT_EQ(entriesOf("/proc/self/fd"), descriptors);
    // The kernel takes a thread out of its list a moment after it was joined.
    EXPECT_TRUE(until([&] { return entriesOf("/proc/self/task") == threads - 1; }));
}

TEST(EverySecondWork, IsStartedOnceAndAgainAfterItsEnd)
{
    EverySecond repeated;
    repeated.stop();
    EXPECT_TRUE(repeated.start([] {}));
    EXPECT_FALSE(repeated.start([] {}));
    repeated.stop();
    repeated.stop();
    EXPECT_TRUE(repeated.start([] {}));
}

TEST(EverySecondWork, TakesNoSignals)
{
    std::atomic<bool> isBlocked{false};
    std::atomic<bool> isDone{false};
    EverySecond repeated;
    repeated.start([&] {
        sigset_t blocked;
        ::pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
        isBlocked = ::sigismember(&blocked, SIGINT) == 1;
        isDone = true;
    });

    EXPECT_TRUE(until([&] { return isDone.load(); }));
    EXPECT_TRUE(isBlocked);
}

TEST(EverySecondWork, IsNotStartedWithoutAThreadOrADescriptor)
{
    const auto end = unitTests::inChild([] {
        // Another user's, who may have none.
        constexpr uid_t anotherUser = 65534;
        const rlimit none{0, 0};
        ::setrlimit(RLIMIT_NPROC, &none);
        if (::setuid(anotherUser) != 0)
            return;
        EverySecond repeated;
        std::cout << repeated.start([] {});
        ::setrlimit(RLIMIT_NOFILE, &none);
        std::cout << repeated.start([] {});
    });
    if (end.output.empty())
        GTEST_SKIP() << "only root can act for another user";

    EXPECT_EQ(end.output, "00");
    EXPECT_EQ(end.signal, 0);
}

}  // namespace
