#include "Diagnose/SampledThreads.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <semaphore.h>
#include <sys/resource.h>
#include <unistd.h>

#include <string>
#include <thread>

namespace {

using Diagnose::readThreadState;
using Diagnose::SampledThreads;
using Activity = Diagnose::ThreadState::Activity;

std::string statText(const std::string& name, char state)
{
    return "12 (" + name + ") " + state +
           " 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 777 20 21\n";
}

TEST(ReadThreadState, TellsWhoRunsFromWhoSleeps)
{
    EXPECT_EQ(readThreadState(statText("a", 'R')).activity, Activity::Running);
    for (const char state : {'S', 'D', 'T', 't', 'I', 'P', 'K', 'W'})
        EXPECT_EQ(readThreadState(statText("a", state)).activity, Activity::Asleep) << state;
    for (const char state : {'Z', 'X', 'x'})
        EXPECT_EQ(readThreadState(statText("a", state)).activity, Activity::Gone) << state;
}

TEST(ReadThreadState, ReadsTheTimeOfStart)
{
    EXPECT_EQ(readThreadState(statText("a", 'R')).startTime, 777U);
}

TEST(ReadThreadState, IsNotDeceivedByNames)
{
    for (const char* const name : {"a) S 1", "((", ") R ", "", " ) Z"}) {
        EXPECT_EQ(readThreadState(statText(name, 'R')).activity, Activity::Running) << name;
        EXPECT_EQ(readThreadState(statText(name, 'R')).startTime, 777U) << name;
    }
}

TEST(ReadThreadState, TakesWhatIsNoSuchTextForAThreadThatHasGone)
{
    for (const char* const text :
         {"", "12", "12 (a)", "12 (a) ", "12 (a) R", "12 (a) R 1 2 3", "a", ") R"})
        EXPECT_EQ(readThreadState(text).activity, Activity::Gone) << text;
    EXPECT_EQ(readThreadState("1 (a) R 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 x").activity,
              Activity::Gone);
}

// A thread that sleeps until it is let go.
class Sleeper {
public:
    Sleeper()
    {
        ::sem_init(&begun, 0, 0);
        ::sem_init(&mayEnd, 0, 0);
        thread = std::thread([this] {
            number = ::gettid();
            ::sem_post(&begun);
            ::sem_wait(&mayEnd);
        });
        ::sem_wait(&begun);
    }
    ~Sleeper() { end(); }
    void end()
    {
        ::sem_post(&mayEnd);
        if (thread.joinable())
            thread.join();
    }

    pid_t number = 0;

private:
    sem_t begun;
    sem_t mayEnd;
    std::thread thread;
};

std::ptrdiff_t timesListed(SampledThreads& threads, pid_t number)
{
    return std::count_if(threads.all().begin(), threads.all().end(),
                         [number](const auto& thread) { return thread.number == number; });
}

TEST(SampledThreads, AreAllButTheOneThatAsks)
{
    const Sleeper sleeper;
    SampledThreads threads;
    threads.refresh();

    EXPECT_EQ(timesListed(threads, sleeper.number), 1);
    EXPECT_EQ(timesListed(threads, ::gettid()), 0);
}

TEST(SampledThreads, AddThoseThatHaveComeAndKeepTheOthersOnce)
{
    const Sleeper first;
    SampledThreads threads;
    threads.refresh();
    const Sleeper second;
    EXPECT_EQ(timesListed(threads, second.number), 0);

    threads.refresh();

    EXPECT_EQ(timesListed(threads, first.number), 1);
    EXPECT_EQ(timesListed(threads, second.number), 1);
}

TEST(SampledThreads, CountThoseThatCannotBeLookedAt)
{
    sem_t mayEnd;
    ::sem_init(&mayEnd, 0, 0);
    std::thread other([&] { ::sem_wait(&mayEnd); });
    SampledThreads threads;
    rlimit usual{};
    ::getrlimit(RLIMIT_NOFILE, &usual);
    // What is open stays open, and no more can be opened.
    const rlimit none{0, usual.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
    threads.refresh();
    const std::size_t unseen = threads.unseen();
    const std::size_t seen = threads.all().size();
    ::setrlimit(RLIMIT_NOFILE, &usual);
    threads.refresh();

    EXPECT_EQ(seen, 0U);
    EXPECT_GE(unseen, 1U);
    EXPECT_EQ(threads.unseen(), 0U);
    EXPECT_EQ(threads.all().size(), unseen);
    ::sem_post(&mayEnd);
    other.join();
    ::sem_destroy(&mayEnd);
}

TEST(SampledThreads, KnowWhereAThreadSleeps)
{
    const Sleeper sleeper;
    SampledThreads threads;
    threads.refresh();
    for (const auto& thread : threads.all()) {
        if (thread.number != sleeper.number)
            continue;
        while (thread.state().activity == Activity::Running)
            std::this_thread::yield();
        EXPECT_THAT(thread.waitChannel(),
                    testing::AnyOf(testing::HasSubstr("futex"), testing::IsEmpty()));
    }
}

TEST(SampledThreads, SeeThatAThreadHasGone)
{
    Sleeper sleeper;
    SampledThreads threads;
    threads.refresh();
    const pid_t number = sleeper.number;
    sleeper.end();

    for (std::size_t i = 0; i < threads.all().size(); ++i) {
        if (threads.all()[i].number != number)
            continue;
        while (threads.all()[i].state().activity != Activity::Gone)
            std::this_thread::yield();
        threads.remove(i);
        break;
    }

    EXPECT_EQ(timesListed(threads, number), 0);
}

}  // namespace
