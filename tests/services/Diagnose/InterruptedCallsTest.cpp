#include <gtest/gtest.h>
#include <libaio.h>
#include <linux/futex.h>
#include <poll.h>
#include <semaphore.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "Diagnose/SampleRecords.h"
#include "Diagnose/Sampler.h"
#include "Diagnose/Samples.h"
#include "tests/services/Diagnose/SignalDelivery.h"

namespace {

using Diagnose::Sampler;
using Diagnose::Samples;

// A call that blocks its thread until `release`, and its result: what it returns and errno.
struct BlockingCall {
    std::string name;
    std::function<long()> call;
    std::function<void()> release;
    long expected;
};

struct Outcome {
    long result = 0;
    int error = 0;
};

// The thread is asked for its stack again and again while it is in the call.
Outcome outcomeUnderSampling(const BlockingCall& blocking)
{
    Outcome outcome;
    std::atomic<pid_t> number{0};
    EXPECT_EQ(Diagnose::SampleRecords::open(), 0);
    std::thread blocked([&] {
        number = ::gettid();
        errno = 0;
        outcome.result = blocking.call();
        outcome.error = errno;
    });
    while (number == 0)
        std::this_thread::yield();
    for (int i = 0; i < 200; ++i) {
        unsigned record = 0;
        EXPECT_EQ(Diagnose::SampleRecords::ask(number, record),
                  Diagnose::SampleRecords::Answer::Asked);
        while (!Diagnose::SampleRecords::filled(record))
            std::this_thread::yield();
        Diagnose::SampleRecords::release(record);
    }
    blocking.release();
    blocked.join();
    Diagnose::SampleRecords::close();
    return outcome;
}

void expectUndisturbed(const BlockingCall& blocking)
{
    const Outcome outcome = outcomeUnderSampling(blocking);
    EXPECT_EQ(outcome.result, blocking.expected) << blocking.name;
    EXPECT_EQ(outcome.error, 0) << blocking.name;
}

class InterruptedCalls : public testing::Test {
protected:
    void SetUp() override
    {
        if (const char* const reason = profileTests::whyAnswersAreLate())
            GTEST_SKIP() << reason;
    }
};

TEST_F(InterruptedCalls, FutexGoesOn)
{
    std::atomic<std::uint32_t> word{0};
    expectUndisturbed(
        {"futex",
         [&] { return ::syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, 0, nullptr, nullptr, 0); },
         [&] {
             // Not before it sleeps: at the end of a sample it may be about to do so again.
             while (::syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0) == 0)
                 std::this_thread::yield();
         },
         0});
}

TEST_F(InterruptedCalls, SemaphoreGoesOn)
{
    sem_t semaphore;
    ::sem_init(&semaphore, 0, 0);
    expectUndisturbed({"sem_wait", [&] { return long{::sem_wait(&semaphore)}; },
                       [&] { ::sem_post(&semaphore); }, 0});
    ::sem_destroy(&semaphore);
}

TEST_F(InterruptedCalls, ReadGoesOn)
{
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    char byte = 0;
    expectUndisturbed({"read", [&] { return long{::read(ends[0], &byte, 1)}; },
                       [&] { EXPECT_EQ(::write(ends[1], "x", 1), 1); }, 1});
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST_F(InterruptedCalls, ReceivingFromASocketGoesOn)
{
    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    char byte = 0;
    expectUndisturbed({"recv", [&] { return long{::recv(ends[0], &byte, 1, 0)}; },
                       [&] { EXPECT_EQ(::send(ends[1], "x", 1, 0), 1); }, 1});
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST_F(InterruptedCalls, ConditionVariableGoesOn)
{
    std::mutex mutex;
    std::condition_variable changed;
    bool isOpen = false;
    expectUndisturbed({"condition_variable",
                       [&] {
                           std::unique_lock lock(mutex);
                           changed.wait(lock, [&] { return isOpen; });
                           return 0L;
                       },
                       [&] {
                           const std::scoped_lock lock(mutex);
                           isOpen = true;
                           changed.notify_all();
                       },
                       0});
}

// The kernel ends these with EINTR, whatever the handler asks for; the standard library goes on.
TEST_F(InterruptedCalls, SleepOfTheStandardLibraryLastsAsLongAsItShall)
{
    using Clock = std::chrono::steady_clock;
    constexpr auto time = std::chrono::milliseconds(50);
    Clock::duration slept{};
    expectUndisturbed({"sleep_for",
                       [&] {
                           const Clock::time_point begin = Clock::now();
                           std::this_thread::sleep_for(time);
                           slept = Clock::now() - begin;
                           errno = 0;
                           return 0L;
                       },
                       [] {}, 0});
    EXPECT_GE(slept, time);
}

TEST_F(InterruptedCalls, EventsOfTheKernelsQueueAreAskedForAgain)
{
    io_context_t context = nullptr;
    ASSERT_EQ(::io_setup(4, &context), 0);
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    // A poll that is over when somebody writes.
    iocb request{};
    ::io_prep_poll(&request, ends[0], POLLIN);
    iocb* list[] = {&request};
    ASSERT_EQ(::io_submit(context, 1, list), 1);
    expectUndisturbed({"io_getevents",
                       [&] {
                           io_event event{};
                           int result = 0;
                           do {
                               timespec patience{0, 250'000'000};
                               result = ::io_getevents(context, 1, 1, &event, &patience);
                               // Nothing but this, or none yet.
                               if (result < 0 && result != -EINTR)
                                   return long{result};
                           } while (result <= 0);
                           errno = 0;
                           return long{result};
                       },
                       [&] { EXPECT_EQ(::write(ends[1], "x", 1), 1); }, 1});
    ::io_destroy(context);
    ::close(ends[0]);
    ::close(ends[1]);
}

}  // namespace
