#include <dlfcn.h>
#include <gtest/gtest.h>
#include <link.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <iostream>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Diagnose/SampleRecords.h"
#include "Diagnose/Sampler.h"
#include "Diagnose/Samples.h"
#include "Diagnose/SamplingSignal.h"
#include "tests/services/Diagnose/SignalDelivery.h"
#include "tests/services/Diagnose/ThreadAllocations.h"
#include "tests/services/support/ChildProcess.h"

namespace {

using Diagnose::Sampler;
using Diagnose::SampleRecords;
using Diagnose::Samples;
using Diagnose::StackCopy;

// A thread that does something again and again until the end of its scope.
class Busy {
public:
    explicit Busy(std::function<void()> work)
        : thread([this, work = std::move(work)] {
              number = ::gettid();
              while (!isOver)
                  work();
          })
    {
        while (number == 0)
            std::this_thread::yield();
    }
    ~Busy() { end(); }
    void end()
    {
        isOver = true;
        if (thread.joinable())
            thread.join();
    }

    std::atomic<pid_t> number{0};

private:
    std::atomic<bool> isOver{false};
    std::thread thread;
};

// Asks as often as said, and shows every copy.
void askOften(const Busy& busy, int times, const std::function<void(const StackCopy&)>& look)
{
    for (int i = 0; i < times; ++i) {
        unsigned record = 0;
        ASSERT_EQ(SampleRecords::ask(busy.number, record), SampleRecords::Answer::Asked);
        const StackCopy* copy = nullptr;
        while (!(copy = SampleRecords::filled(record)))
            std::this_thread::yield();
        look(*copy);
        SampleRecords::release(record);
    }
}

class SamplingHandler : public testing::Test {
protected:
    void SetUp() override
    {
        if (const char* const reason = profileTests::whyAnswersAreLate())
            GTEST_SKIP() << reason;
        ASSERT_EQ(SampleRecords::open(), 0);
    }
    void TearDown() override
    {
        if (!IsSkipped())
            SampleRecords::close();
    }
};

TEST_F(SamplingHandler, CopiesTheRegistersAndTheStack)
{
    std::atomic<std::uint64_t> place{0};
    std::atomic<bool> isEnough{false};
    const Busy busy([&] {
        volatile std::uint64_t marked = 0x1234'5678'9abc'def0;
        place = reinterpret_cast<std::uint64_t>(&marked);
        // Calls that a sanitizer intercepts as well.
        while (marked != 0 && ::getppid() != 0 && !isEnough)
            std::this_thread::yield();
    });
    while (place == 0)
        std::this_thread::yield();
    const std::uint64_t address = place;

    askOften(busy, 20, [address](const StackCopy& copy) {
        EXPECT_GT(copy.wordCount, 0U);
        EXPECT_EQ(copy.stackAddress, copy.registers[7] & ~std::uint64_t{7});
        const std::uint64_t index = (address - copy.stackAddress) / 8;
        if (index < copy.wordCount)
            EXPECT_EQ(copy.words[index], 0x1234'5678'9abc'def0);
        else
            ADD_FAILURE() << "the stack is not in its copy";
    });
    isEnough = true;
}

// The child has none of the threads that were asked, but the records that wait for them.
TEST_F(SamplingHandler, OfAForkedProcessMayTakeAllBack)
{
    sigset_t one;
    ::sigemptyset(&one);
    ::sigaddset(&one, Diagnose::samplingSignal());
    ::pthread_sigmask(SIG_BLOCK, &one, nullptr);
    unsigned record = 0;
    std::vector<unsigned> asked;
    while (SampleRecords::ask(::gettid(), record) == SampleRecords::Answer::Asked)
        asked.push_back(record);
    EXPECT_EQ(asked.size(), SampleRecords::count);

    const auto end = unitTests::inChild([] {
        SampleRecords::takeBackAll();
        SampleRecords::close();
        SampleRecords::open();
        unsigned inChild = 0;
        std::cout << (SampleRecords::ask(::gettid(), inChild) == SampleRecords::Answer::Asked);
    });

    EXPECT_EQ(end.output, "1");
    for (const unsigned each : asked)
        SampleRecords::withdraw(each);
    SampleRecords::close();
    ::pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
    ASSERT_EQ(SampleRecords::open(), 0);
}

TEST_F(SamplingHandler, AllocatesNothing)
{
    std::atomic<std::size_t> allocations{0};
    {
        std::atomic<bool> isOver{false};
        const Busy busy([&] {
            // Whatever the sanitizers do at the first call.
            std::this_thread::yield();
            const std::size_t before = profileTests::allocationsOfThisThread();
            while (!isOver)
                std::this_thread::yield();
            allocations = profileTests::allocationsOfThisThread() - before;
        });
        askOften(busy, 2000, [](const StackCopy&) {});
        isOver = true;
    }
    EXPECT_EQ(allocations, 0U);
}

TEST(ThreadAllocations, AreSeen)
{
    const std::size_t before = profileTests::allocationsOfThisThread();
    delete new std::string(100, 'x');
    EXPECT_GE(profileTests::allocationsOfThisThread() - before, 2U);
}

TEST_F(SamplingHandler, KeepsTheLastSystemError)
{
    std::atomic<bool> isOver{false};
    std::atomic<bool> isKept{true};
    {
        const Busy busy([&] {
            errno = EXDEV;
            while (!isOver)
                std::this_thread::yield();
            isKept = errno == EXDEV;
        });
        askOften(busy, 500, [](const StackCopy&) {});
        isOver = true;
    }
    EXPECT_TRUE(isKept);
}

TEST_F(SamplingHandler, LeavesARecordAloneThatWasWithdrawn)
{
    sigset_t all;
    sigset_t before;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    std::atomic<bool> mayAnswer{false};
    std::atomic<bool> hasAnswered{false};
    const Busy busy([&] {
        if (mayAnswer && !hasAnswered) {
            ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
            hasAnswered = true;
        }
        std::this_thread::yield();
    });
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    unsigned record = 0;
    ASSERT_EQ(SampleRecords::ask(busy.number, record), SampleRecords::Answer::Asked);
    SampleRecords::withdraw(record);
    mayAnswer = true;
    while (!hasAnswered)
        std::this_thread::yield();

    EXPECT_EQ(SampleRecords::filled(record), nullptr);
    // It is there for the next one.
    std::set<unsigned> taken;
    askOften(busy, 1, [](const StackCopy&) {});
}

TEST_F(SamplingHandler, HasAsManyRecordsAsItSays)
{
    sigset_t all;
    sigset_t before;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    const Busy busy([] { std::this_thread::yield(); });
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    std::set<unsigned> taken;
    unsigned record = 0;
    SampleRecords::Answer answer = SampleRecords::ask(busy.number, record);
    for (; answer == SampleRecords::Answer::Asked; answer = SampleRecords::ask(busy.number, record))
        EXPECT_TRUE(taken.insert(record).second);

    EXPECT_EQ(answer, SampleRecords::Answer::NoRecord);
    EXPECT_EQ(taken.size(), SampleRecords::count);
    for (const unsigned one : taken)
        SampleRecords::withdraw(one);
    EXPECT_EQ(SampleRecords::ask(busy.number, record), SampleRecords::Answer::Asked);
    SampleRecords::withdraw(record);
}

TEST_F(SamplingHandler, IsNotAskedForAThreadThatHasGone)
{
    Busy busy([] { std::this_thread::yield(); });
    busy.end();
    unsigned record = 0;
    while (SampleRecords::ask(busy.number, record) == SampleRecords::Answer::Asked)
        SampleRecords::withdraw(record);

    EXPECT_EQ(SampleRecords::ask(busy.number, record), SampleRecords::Answer::ThreadGone);
}

TEST_F(SamplingHandler, TellsThatTheKernelTakesNoMoreSignals)
{
    rlimit before{};
    ::getrlimit(RLIMIT_SIGPENDING, &before);
    const rlimit none{0, before.rlim_max};
    ::setrlimit(RLIMIT_SIGPENDING, &none);
    const Busy busy([] { std::this_thread::yield(); });
    unsigned record = 0;
    const SampleRecords::Answer answer = SampleRecords::ask(busy.number, record);
    ::setrlimit(RLIMIT_SIGPENDING, &before);

    EXPECT_EQ(answer, SampleRecords::Answer::Refused);
    askOften(busy, 1, [](const StackCopy&) {});
}

struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

[[gnu::noipa]] void throwDeep(int depth)
{
    if (depth == 0)
        throw Failure("a text that is too long for the small buffer of a string");
    throwDeep(depth - 1);
    asm volatile("");
}

void listLibraries()
{
    ::dl_iterate_phdr([](dl_phdr_info*, std::size_t, void*) { return 0; }, nullptr);
}

void loadAndUnload()
{
    if (void* const library = ::dlopen("libm.so.6", RTLD_NOW | RTLD_LOCAL))
        ::dlclose(library);
    if (void* const library = ::dlopen("libresolv.so.2", RTLD_NOW | RTLD_LOCAL))
        ::dlclose(library);
}

// Each of them holds locks of its own while it is interrupted.
TEST(SamplingWhileOthersHoldLocks, GoesOn)
{
    Samples samples;
    const Busy allocating([] { std::vector<std::string> texts(100, std::string(1000, 'x')); });
    const Busy throwing([] {
        try {
            throwDeep(20);
        } catch (const Failure&) {
        }
    });
    const Busy listing(&listLibraries);
    const Busy loading(&loadAndUnload);
    {
        const Sampler sampler(samples, 10000);
        while (samples.summary().counted.sum() < 6000)
            std::this_thread::yield();
    }
    EXPECT_GE(samples.summary().threads, 5U);
    const bool isDropping = samples.summary().dropped >= samples.summary().counted.sum() / 10;
    EXPECT_TRUE(!isDropping || profileTests::whyAnswersAreLate());
}

}  // namespace
