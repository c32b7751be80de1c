#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <semaphore.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "Diagnose/ProfileOutput.h"
#include "Diagnose/SampleRecords.h"
#include "Diagnose/Sampler.h"
#include "Diagnose/Samples.h"
#include "Diagnose/SamplingSignal.h"
#include "tests/services/Diagnose/Dot.h"
#include "tests/services/Diagnose/SignalDelivery.h"

namespace sampled {

volatile std::uint64_t sink = 0;

std::uint64_t ownProcessorTime()
{
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000 +
           static_cast<std::uint64_t>(time.tv_nsec);
}

// Functions of their own in the stacks, and no two of them alike.
[[gnu::noipa]] void burnMost(std::uint64_t nanoseconds)
{
    const std::uint64_t end = ownProcessorTime() + nanoseconds;
    while (ownProcessorTime() < end)
        for (int i = 0; i < 1000; ++i)
            sink = sink + 1;
}

[[gnu::noipa]] void burnLess(std::uint64_t nanoseconds)
{
    const std::uint64_t end = ownProcessorTime() + nanoseconds;
    while (ownProcessorTime() < end)
        for (int i = 0; i < 1000; ++i)
            sink = sink + 2;
}

void nap()
{
    timespec rest{0, 1'000'000};
    while (::nanosleep(&rest, &rest) != 0)
        continue;
}

[[gnu::noipa]] void sleepMost()
{
    for (int i = 0; i < 7; ++i)
        nap();
    sink = 3;
}

[[gnu::noipa]] void sleepLess()
{
    for (int i = 0; i < 3; ++i)
        nap();
    sink = 4;
}

[[gnu::noipa]] void innermost(const std::atomic<bool>& isOver)
{
    while (!isOver)
        sink = sink + 5;
}

[[gnu::noipa]] void recursive(int depth, const std::atomic<bool>& isOver)
{
    if (depth > 0)
        recursive(depth - 1, isOver);
    else
        innermost(isOver);
    sink = 6;
}

[[gnu::noipa]] void waitFor(sem_t& semaphore)
{
    while (::sem_wait(&semaphore) != 0)
        continue;
    sink = 7;
}

// Whatever was sent to the thread while it blocked the signal arrives here.
[[gnu::noipa]] void answer()
{
    sigset_t one;
    ::sigemptyset(&one);
    ::sigaddset(&one, Diagnose::samplingSignal());
    ::pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
    sink = 8;
}

}  // namespace sampled

namespace {

using Diagnose::Sampler;
using Diagnose::Samples;
using profileTests::ParsedDot;

constexpr unsigned fast = 10000;

struct Graphs {
    ParsedDot processor;
    ParsedDot wait;
};

Graphs graphsOf(const Samples& samples, const std::string& function = "")
{
    const auto output = Diagnose::drawProfile(samples.stacks(), {}, function);
    return {profileTests::parseDot(output.processor.dot), profileTests::parseDot(output.wait.dot)};
}

double shareOf(std::uint64_t part, std::uint64_t other)
{
    return static_cast<double>(part) / static_cast<double>(part + other);
}

// Works on until a number of samples is there.
template <class Work>
void workUntil(const Samples& samples, std::uint64_t enough, Work work)
{
    const std::uint64_t known = samples.summary().counted.sum();
    while (samples.summary().counted.sum() < known + enough)
        work();
}

// A thread with the sampling signal blocked.
template <class Work>
std::thread startSilent(Work work)
{
    sigset_t one;
    ::sigemptyset(&one);
    ::sigaddset(&one, Diagnose::samplingSignal());
    ::pthread_sigmask(SIG_BLOCK, &one, nullptr);
    std::thread thread(work);
    ::pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
    return thread;
}

class Sampling : public testing::Test {
protected:
    void SetUp() override
    {
        if (const char* const reason = profileTests::whyAnswersAreLate())
            GTEST_SKIP() << reason;
    }

    Samples samples;
};

constexpr std::uint64_t millisecond = 1'000'000;
constexpr std::uint64_t samplesOfEachGraph = 4000;

TEST_F(Sampling, FindsAKnownSplitOfProcessorTimeAndOfWaitTime)
{
    std::atomic<bool> isOver{false};
    {
        const Sampler sampler(samples, fast);
        std::thread sleeper([&] {
            while (!isOver) {
                sampled::sleepMost();
                sampled::sleepLess();
            }
        });
        std::thread burner([&] {
            // Of the wait samples one half is this test's own thread, which waits for the others.
            while (samples.summary().counted.processor < samplesOfEachGraph * 6 / 5 ||
                   samples.summary().counted.wait < samplesOfEachGraph * 5 / 2) {
                sampled::burnMost(7 * millisecond);
                sampled::burnLess(3 * millisecond);
            }
        });
        burner.join();
        isOver = true;
        sleeper.join();
    }

    const Graphs graphs = graphsOf(samples);
    const std::uint64_t burntMost = graphs.processor.totalOf("sampled::burnMost(unsigned long)");
    const std::uint64_t burntLess = graphs.processor.totalOf("sampled::burnLess(unsigned long)");
    EXPECT_GE(burntMost + burntLess, samplesOfEachGraph);
    EXPECT_NEAR(shareOf(burntMost, burntLess), 0.7, 0.05);
    const std::uint64_t sleptMost = graphs.wait.totalOf("sampled::sleepMost()");
    const std::uint64_t sleptLess = graphs.wait.totalOf("sampled::sleepLess()");
    EXPECT_GE(sleptMost + sleptLess, samplesOfEachGraph);
    EXPECT_NEAR(shareOf(sleptMost, sleptLess), 0.7, 0.05);
    EXPECT_EQ(graphs.processor.sumOfSelf(), samples.summary().counted.processor);
    EXPECT_EQ(graphs.wait.sumOfSelf(), samples.summary().counted.wait);
}

TEST_F(Sampling, CutsToAFunction)
{
    std::atomic<bool> isOver{false};
    std::thread worker([&] { sampled::recursive(5, isOver); });
    {
        const Sampler sampler(samples, fast);
        workUntil(samples, 200, [] { sampled::nap(); });
    }
    isOver = true;
    worker.join();

    const Graphs graphs = graphsOf(samples, "sampled::recursive");

    const std::string recursive = "sampled::recursive(int, std::atomic<bool> const&)";
    const std::string innermost = "sampled::innermost(std::atomic<bool> const&)";
    EXPECT_EQ(graphs.processor.nodes.size(), 2U);
    EXPECT_TRUE(graphs.processor.nodes.at(recursive).isOutermost);
    EXPECT_EQ(graphs.processor.totalOf(recursive), graphs.processor.sumOfSelf());
    EXPECT_EQ(graphs.processor.nodes.at(innermost).self, graphs.processor.sumOfSelf());
    EXPECT_EQ(graphs.processor.calls.at({recursive, innermost}), graphs.processor.sumOfSelf());
    EXPECT_GT(graphs.processor.sumOfSelf(), 0U);
}

TEST_F(Sampling, FindsThreadsThatComeWhileItRuns)
{
    const Sampler sampler(samples, fast);
    workUntil(samples, 10, [] { sampled::nap(); });
    const std::size_t before = samples.summary().threads;
    std::atomic<bool> isOver{false};

    std::thread late([&] { sampled::innermost(isOver); });
    while (samples.summary().threads <= before)
        sampled::nap();
    const std::uint64_t known = samples.summary().counted.processor;
    while (samples.summary().counted.processor < known + 50)
        sampled::nap();
    isOver = true;
    late.join();

    EXPECT_GT(graphsOf(samples).processor.totalOf("sampled::innermost(std::atomic<bool> const&)"),
              0U);
}

TEST_F(Sampling, GoesOnThoughThreadsEndAllTheTime)
{
    const Sampler sampler(samples, fast);
    const auto startAndEndTwo = [] {
        std::thread first(&sampled::nap);
        std::thread second([] { sampled::burnMost(millisecond); });
        first.join();
        second.join();
    };

    // Most of them have ended before anybody looks for them.
    while (samples.summary().threads < 4)
        startAndEndTwo();
    workUntil(samples, 1000, startAndEndTwo);

    EXPECT_GT(graphsOf(samples).wait.sumOfSelf(), 0U);
}

// While it blocks the signal the thread gains weight for the stack that it has in the end.
TEST_F(Sampling, GivesAThreadThatAnswersLateTheWeightOfAllItsTurns)
{
    sem_t mayAnswer;
    ::sem_init(&mayAnswer, 0, 0);
    std::atomic<bool> isOver{false};
    std::thread late = startSilent([&] {
        sampled::waitFor(mayAnswer);
        sampled::answer();
        sampled::innermost(isOver);
    });
    std::uint64_t turns = 0;
    {
        const Sampler sampler(samples, fast);
        workUntil(samples, 500, [] { sampled::nap(); });
        // The other thread had as many turns as this one, and none of them is counted yet.
        turns = samples.summary().counted.sum();
        ::sem_post(&mayAnswer);
        workUntil(samples, turns + 500, [] { sampled::nap(); });
        isOver = true;
        late.join();
    }
    ::sem_destroy(&mayAnswer);

    EXPECT_GE(graphsOf(samples).wait.totalOf("sampled::answer()"), turns / 2);
    EXPECT_LT(samples.summary().dropped, turns / 2);
}

TEST_F(Sampling, DropsWhatAThreadGainedThatEndsWithoutAnAnswer)
{
    sem_t mayEnd;
    ::sem_init(&mayEnd, 0, 0);
    std::thread silent = startSilent([&] { sampled::waitFor(mayEnd); });
    {
        const Sampler sampler(samples, fast);
        workUntil(samples, 300, [] { sampled::nap(); });
        EXPECT_EQ(samples.summary().dropped, 0U);
        ::sem_post(&mayEnd);
        silent.join();
        while (samples.summary().dropped == 0)
            sampled::nap();
    }
    ::sem_destroy(&mayEnd);

    EXPECT_GE(samples.summary().dropped, 100U);
    EXPECT_EQ(samples.summary().threads, 2U);
}

TEST_F(Sampling, EndsThoughAThreadNeverAnswersAndTheProcessSurvivesTheSignal)
{
    sem_t mayEnd;
    ::sem_init(&mayEnd, 0, 0);
    std::thread silent = startSilent([&] {
        sampled::waitFor(mayEnd);
        // What is still pending now would end the process.
        sampled::answer();
        sampled::burnMost(millisecond);
    });
    {
        const Sampler sampler(samples, fast);
        workUntil(samples, 300, [] { sampled::nap(); });
    }
    EXPECT_GE(samples.summary().dropped, 100U);

    ::sem_post(&mayEnd);
    silent.join();
    ::sem_destroy(&mayEnd);
}

TEST_F(Sampling, BeginsAnewAfterAClear)
{
    // So slow that none of them can come again before they are counted.
    const Sampler sampler(samples, 10);
    workUntil(samples, 5, [] { sampled::nap(); });

    samples.clear();

    EXPECT_LT(samples.summary().counted.sum(), 5U);
    workUntil(samples, 1, [] { sampled::nap(); });
    EXPECT_EQ(samples.summary().dropped, 0U);
    EXPECT_GE(samples.summary().threads, 1U);
}

TEST_F(Sampling, SurvivesAStackThatIsNone)
{
    Diagnose::StackCopy copy{};
    Diagnose::StackWalker walker;
    EXPECT_TRUE(walker.walk(copy).empty());
    copy.wordCount = Diagnose::StackCopy::mostWords;
    copy.stackAddress = 0x7fff'0000'0000;
    for (std::uint64_t round = 0; round < 2000; ++round) {
        for (std::size_t i = 0; i < Diagnose::StackCopy::registerCount; ++i)
            copy.registers[i] = (round * 0x9e3779b97f4a7c15) >> (i % 40);
        for (std::size_t i = 0; i < 256; ++i)
            copy.words[i] = reinterpret_cast<std::uint64_t>(&sampled::nap) + (round * i) % 4096;
        copy.registers[7] = copy.stackAddress + 8 * (round % 64);
        copy.registers[16] = reinterpret_cast<std::uint64_t>(&sampled::nap) + round % 64;
        EXPECT_LE(walker.walk(copy).size(), Diagnose::StackWalker::mostFrames);
    }
}

TEST_F(Sampling, LeavesSignalsOfOthersAlone)
{
    // A ticket that nobody has given out, and one without.
    const Sampler sampler(samples, fast);
    workUntil(samples, 10, [] { sampled::nap(); });
    for (const std::uint64_t ticket :
         {std::uint64_t{0}, std::uint64_t{0x1000}, UINT64_MAX, std::uint64_t{255}}) {
        sigval value{};
        value.sival_ptr = reinterpret_cast<void*>(ticket);
        EXPECT_EQ(::pthread_sigqueue(::pthread_self(), Diagnose::samplingSignal(), value), 0);
    }
    EXPECT_EQ(::raise(Diagnose::samplingSignal()), 0);
    workUntil(samples, 10, [] { sampled::nap(); });
}

}  // namespace
