#include "Diagnose/Profiler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Diagnose/SamplingSignal.h"
#include "Diagnose/Shell.h"
#include "tests/services/Diagnose/Dot.h"
#include "tests/services/support/ChildProcess.h"
#include "tests/services/support/Files.h"

namespace {

using profileTests::parseDot;
using testing::HasSubstr;
using testing::MatchesRegex;
using unitTests::contentOf;
using unitTests::namesIn;

// The answer, or the reason of the refusal behind "refused: ".
std::string run(const std::string& command)
{
    std::ostringstream answer;
    try {
        dbgExecuteCommand(command.c_str(), answer, true);
    } catch (const Diagnose::CommandException& refusal) {
        return answer.str() + "refused: " + refusal.what();
    }
    return answer.str();
}

// Whether the kernel has a handler of the process for the sampling signal.
bool isHandled()
{
    for (const std::string& line : unitTests::linesOf("/proc/self/status")) {
        if (line.starts_with("SigCgt:"))
            return (std::stoull(line.substr(7), nullptr, 16) >> (Diagnose::samplingSignal() - 1) &
                    1) != 0;
    }
    return false;
}

bool hasSamplerThread()
{
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
        if (contentOf(entry.path() / "comm") == "profiler\n")
            return true;
    }
    return false;
}

// Processor time, so that there are samples of it whatever else the machine does.
void burn(long milliseconds)
{
    timespec begin{};
    timespec now{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &begin);
    do {
        ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    } while ((now.tv_sec - begin.tv_sec) * 1000 + (now.tv_nsec - begin.tv_nsec) / 1000000 <
             milliseconds);
}

class Profiler : public testing::Test {
protected:
    void SetUp() override { run("profiler clear"); }
    void TearDown() override
    {
        run("profiler stop");
        run("profiler clear");
    }

    // Both files are read and drawn.
    std::uint64_t samplesIn(const std::string& base)
    {
        std::uint64_t sum = 0;
        for (const char* const kind : {"-cpu.dot", "-wait.dot"}) {
            const std::string dot = contentOf(base + kind);
            profileTests::expectRenders(dot);
            sum += parseDot(dot).sumOfSelf();
        }
        return sum;
    }

    unitTests::WorkingDirectory directory;
};

constexpr uid_t anotherUser = 65534;

constexpr const char* stopped =
    "[0-9]+ samples of processor time and [0-9]+ of wait time from [0-9]+ threads, [0-9]+ "
    "dropped(, [0-9]+ turns missed)?\n";

TEST_F(Profiler, HasNoThreadAndNoHandlerUnlessItRuns)
{
    EXPECT_FALSE(isHandled());
    EXPECT_FALSE(hasSamplerThread());
    run("profiler start");
    EXPECT_TRUE(isHandled());
    while (!hasSamplerThread())
        std::this_thread::yield();

    run("profiler stop");

    EXPECT_FALSE(isHandled());
    // The kernel takes a thread out of its list a moment after it was joined.
    while (hasSamplerThread())
        std::this_thread::yield();
    struct sigaction now {};
    ::sigaction(Diagnose::samplingSignal(), nullptr, &now);
    EXPECT_EQ(now.sa_handler, SIG_DFL);
}

TEST_F(Profiler, SaysWhatItDid)
{
    EXPECT_EQ(run("profiler clear"), "all samples forgotten\n");
    EXPECT_EQ(run("profiler start"), "sampling 997 times a second\n");
    EXPECT_THAT(run("profiler stop"), MatchesRegex(stopped));
    EXPECT_EQ(run("profiler start -r 100"), "sampling 100 times a second\n");
    EXPECT_THAT(run("profiler stop"), MatchesRegex(stopped));
    EXPECT_THAT(run("profiler print -o a,b"),
                MatchesRegex("a: [0-9]+ samples in [0-9]+ functions\nb: [0-9]+ samples in [0-9]+ "
                             "functions\n"));
    EXPECT_THAT(run("profiler print -o a,b -f no::such"),
                MatchesRegex("a: 0( of [0-9]+)? samples in 0 functions\nb: .*\n"));
}

TEST_F(Profiler, RefusesAStartWhileItRunsAndAStopWhileItDoesNot)
{
    EXPECT_THAT(run("profiler stop"), HasSubstr("the profiler does not run"));
    run("profiler start");
    EXPECT_THAT(run("profiler start"), HasSubstr("the profiler runs already"));
    EXPECT_THAT(run("profiler stop"), MatchesRegex(stopped));
    EXPECT_THAT(run("profiler stop"), HasSubstr("the profiler does not run"));
}

TEST_F(Profiler, RefusesWordsThatItDoesNotKnowAndGoesOn)
{
    run("profiler start");
    EXPECT_THAT(run("profiler"), HasSubstr("profiler has no command ''"));
    EXPECT_THAT(run("profiler print"), HasSubstr("profiler print misses '-o'"));
    EXPECT_TRUE(isHandled());
    EXPECT_THAT(run("profiler stop"), MatchesRegex(stopped));
}

TEST_F(Profiler, RefusesToStartIfSomebodyElseHandlesItsSignal)
{
    struct sigaction action {};
    action.sa_handler = [](int) {};
    ::sigaction(Diagnose::samplingSignal(), &action, nullptr);

    EXPECT_THAT(run("profiler start"), HasSubstr("the profiler cannot sample by signal " +
                                                 std::to_string(Diagnose::samplingSignal()) +
                                                 ": Device or resource busy (16, EBUSY)"));

    struct sigaction now {};
    ::sigaction(Diagnose::samplingSignal(), nullptr, &now);
    EXPECT_EQ(now.sa_handler, action.sa_handler);
    action.sa_handler = SIG_DFL;
    ::sigaction(Diagnose::samplingSignal(), &action, nullptr);
    EXPECT_THAT(run("profiler stop"), HasSubstr("does not run"));
}

TEST_F(Profiler, LeavesNothingBehindIfThereCanBeNoThread)
{
    const unitTests::ChildEnd end = unitTests::inChild([] {
        // Another user's, who may have none.
        const rlimit none{0, 0};
        ::setrlimit(RLIMIT_NPROC, &none);
        if (::setuid(anotherUser) != 0)
            return;
        std::cout << run("profiler start") << isHandled() << run("profiler stop");
    });
    if (end.output.empty())
        GTEST_SKIP() << "only root can act for another user";

    EXPECT_THAT(end.output, HasSubstr("Resource temporarily unavailable (11, EAGAIN)"));
    EXPECT_THAT(end.output, HasSubstr(")0refused"));
    EXPECT_THAT(end.output, HasSubstr("does not run"));
}

TEST_F(Profiler, DoesNotRunInAForkedProcess)
{
    run("profiler start -r 1");
    const unitTests::ChildEnd end =
        unitTests::inChild([] { std::cout << isHandled() << run("profiler stop"); });

    EXPECT_EQ(end.output.substr(0, 1), "0");
    EXPECT_THAT(end.output, HasSubstr("the profiler does not run"));
    EXPECT_TRUE(isHandled());
    EXPECT_THAT(run("profiler stop"), MatchesRegex(stopped));
}

TEST_F(Profiler, OfAForkedProcessHasTheSamplesSoFar)
{
    std::string answer;
    do {
        run("profiler start -r 5000");
        burn(20);
        answer = run("profiler stop");
    } while (answer.starts_with("0 samples"));
    run("profiler start -r 1");

    const unitTests::ChildEnd end =
        unitTests::inChild([] { std::cout << run("profiler print -o p-cpu.dot,p-wait.dot"); });

    EXPECT_THAT(end.output, HasSubstr("p-cpu.dot: "));
    EXPECT_GT(samplesIn("p"), 0U);
}

// A child that waited for what only the sampler would give back would never end.
TEST_F(Profiler, LeavesAForkedProcessNothingToWaitFor)
{
    run("profiler start -r 10000");
    burn(20);
    for (int i = 0; i < 200; ++i) {
        const auto end =
            unitTests::inChild([] { std::cout << run("profiler clear") << isHandled(); });
        ASSERT_EQ(end.output, "all samples forgotten\n0") << "child " << i;
    }
    EXPECT_THAT(run("profiler stop"), MatchesRegex(stopped));
}

TEST_F(Profiler, OfAForkedProcessCanBeStartedAgain)
{
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the thread sanitizer allows a forked process no threads";
#endif
    run("profiler start -r 10000");
    burn(20);
    for (int i = 0; i < 20; ++i) {
        const auto end = unitTests::inChild([] {
            run("profiler clear");
            std::string answer;
            do {
                run("profiler start -r 10000");
                burn(20);
                answer = run("profiler stop");
            } while (answer.starts_with("0 samples"));
            std::cout << answer << isHandled();
        });
        ASSERT_THAT(end.output, MatchesRegex(std::string(stopped) + "0")) << "child " << i;
    }
}

TEST_F(Profiler, AddsUpTheSamplesOfSeveralPeriods)
{
    std::uint64_t sum = 0;
    for (int period = 0; period < 3; ++period) {
        run("profiler start -r 5000");
        burn(50);
        run("profiler stop");
        run("profiler print -o p-cpu.dot,p-wait.dot");
        const std::uint64_t samples = samplesIn("p");
        EXPECT_GT(samples, sum);
        sum = samples;
    }
    EXPECT_THAT(contentOf("p-cpu.dot"), HasSubstr("at 5000 a second"));
    run("profiler start -r 100");
    run("profiler stop");
    run("profiler print -o p-cpu.dot,p-wait.dot");
    EXPECT_THAT(contentOf("p-cpu.dot"), HasSubstr("at several rates"));
}

TEST_F(Profiler, ForgetsEverythingAtAClear)
{
    run("profiler start -r 5000");
    burn(50);
    run("profiler stop");

    run("profiler clear");
    run("profiler print -o p-cpu.dot,p-wait.dot");

    EXPECT_EQ(samplesIn("p"), 0U);
    EXPECT_THAT(contentOf("p-cpu.dot"), HasSubstr("0 samples in 0.00 s"));
    EXPECT_THAT(contentOf("p-cpu.dot"), HasSubstr("0 threads, 0 samples dropped"));
}

TEST_F(Profiler, CanBeClearedAndPrintedWhileItRuns)
{
    run("profiler start -r 5000");
    burn(50);
    EXPECT_EQ(run("profiler clear"), "all samples forgotten\n");
    burn(50);
    EXPECT_THAT(run("profiler print -o p-cpu.dot,p-wait.dot"), HasSubstr("p-cpu.dot: "));

    EXPECT_TRUE(isHandled());
    EXPECT_GT(samplesIn("p"), 0U);
    EXPECT_THAT(run("profiler stop"), MatchesRegex(stopped));
}

TEST_F(Profiler, PrintsBothFilesOrNone)
{
    unitTests::writeFile("old", "as it was");

    EXPECT_THAT(run("profiler print -o old,missing/b"),
                HasSubstr("cannot write 'missing/b': No such file or directory (2, "
                          "ENOENT)"));
    EXPECT_THAT(run("profiler print -o missing/a,b"), HasSubstr("cannot write 'missing/a'"));

    EXPECT_THAT(namesIn("."), testing::ElementsAre("old"));
    EXPECT_EQ(contentOf("old"), "as it was");
    EXPECT_THAT(run("profiler print -o old,b"), MatchesRegex("old: 0 samples.*\nb: 0 .*\n"));
}

TEST_F(Profiler, TakesCommandsFromSeveralThreads)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([i] {
            for (int round = 0; round < 10; ++round) {
                run("profiler start -r 10000");
                run("profiler clear");
                const std::string base = "t" + std::to_string(i);
                run("profiler print -o " + base + "a," + base + "b");
                run("profiler stop");
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_THAT(run("profiler stop"), HasSubstr("does not run"));
    EXPECT_FALSE(isHandled());
}

}  // namespace
