#include "FileAccess/IOStatistics.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Basis/Timer.h"
#include "tests/services/FileAccess/LayerSupport.h"

namespace {

using Basis::Timer;
using FileAccess::BusyTime;
using FileAccess::FileIOParameters;
using FileAccess::IOStatistics;
using FileAccess::QueueCounters;
using FileAccess::reading;
using FileAccess::SizeRecord;
using FileAccess::writing;
using fileLayerTests::command;
using testing::HasSubstr;

TEST(BusyTime, IsNoTimeWithoutRequests)
{
    const BusyTime busy;

    EXPECT_EQ(busy.ticks(), 0U);
}

TEST(BusyTime, CountsFromTheAcceptanceToTheEndOfARequest)
{
    BusyTime busy;
    const std::uint64_t before = Timer::s_fHiPerfTimer();
    busy.accepted();
    const std::uint64_t begun = Timer::s_fHiPerfTimer();

    busy.ended(1, begun + 5000);

    EXPECT_GE(busy.ticks(), 5000U);
    EXPECT_LE(busy.ticks(), begun + 5000 - before);
}

TEST(BusyTime, StandsStillWhileNothingIsUnderWay)
{
    BusyTime busy;
    busy.accepted();
    busy.ended(1, Timer::s_fHiPerfTimer());

    const std::uint64_t first = busy.ticks();
    std::this_thread::yield();

    EXPECT_EQ(busy.ticks(), first);
}

TEST(BusyTime, GrowsWhileARequestIsUnderWay)
{
    BusyTime busy;
    busy.accepted();

    const std::uint64_t first = busy.ticks();
    const std::uint64_t later = Timer::s_fHiPerfTimer() + 1000;
    while (Timer::s_fHiPerfTimer() < later)
        continue;

    EXPECT_GE(busy.ticks(), first + 1000);
}

TEST(BusyTime, CountsOverlappingRequestsOnce)
{
    BusyTime busy;
    const std::uint64_t before = Timer::s_fHiPerfTimer();
    for (int i = 0; i < 8; ++i)
        busy.accepted();
    const std::uint64_t begun = Timer::s_fHiPerfTimer();

    busy.ended(3, begun + 1000);
    busy.ended(4, begun + 2000);
    busy.ended(1, begun + 3000);

    EXPECT_GE(busy.ticks(), 3000U);
    EXPECT_LE(busy.ticks(), begun + 3000 - before);
}

// The period between the two requests, a million ticks, belongs to neither.
TEST(BusyTime, LeavesOutWhatLiesBetweenTwoPeriods)
{
    BusyTime busy;
    busy.accepted();
    busy.ended(1, Timer::s_fHiPerfTimer());
    const std::uint64_t first = busy.ticks();
    const std::uint64_t pause = Timer::s_fHiPerfTimer() + 1'000'000;
    while (Timer::s_fHiPerfTimer() < pause)
        continue;

    const std::uint64_t before = Timer::s_fHiPerfTimer();
    busy.accepted();
    busy.ended(1, Timer::s_fHiPerfTimer());

    EXPECT_LE(busy.ticks(), first + (Timer::s_fHiPerfTimer() - before));
}

// Never more than the time that has passed, whatever the order of beginnings and ends.
TEST(BusyTime, IsNeverMoreThanTheTimeThatHasPassed)
{
    BusyTime busy;
    const std::uint64_t before = Timer::s_fHiPerfTimer();
    {
        std::vector<std::jthread> threads;
        for (int number = 0; number < 3; ++number) {
            threads.emplace_back([&busy] {
                for (int i = 0; i < 20'000; ++i) {
                    busy.accepted();
                    busy.ended(1, Timer::s_fHiPerfTimer());
                }
            });
        }
    }

    EXPECT_GT(busy.ticks(), 0U);
    EXPECT_LE(busy.ticks(), Timer::s_fHiPerfTimer() - before);
}

TEST(AcceptingShards, GiveAThreadTheSameCountersAlways)
{
    const std::size_t first = FileAccess::acceptingShardOfThread();

    EXPECT_EQ(FileAccess::acceptingShardOfThread(), first);
    EXPECT_LT(first, FileAccess::acceptingShards);
}

TEST(AcceptingShards, GiveAnotherThreadOtherCounters)
{
    std::size_t other = 0;

    std::thread([&other] { other = FileAccess::acceptingShardOfThread(); }).join();

    EXPECT_NE(other, FileAccess::acceptingShardOfThread());
    EXPECT_LT(other, FileAccess::acceptingShards);
}

TEST(QueueCounters, KeepCallsRequestsAndTheExtremesOfBatches)
{
    QueueCounters counters;

    for (const std::uint64_t batch : {5U, 2U, 9U})
        counters.count(batch);
    counters.noteInFlight(7);
    counters.noteInFlight(3);

    EXPECT_EQ(counters.calls, 3U);
    EXPECT_EQ(counters.requests, 16U);
    EXPECT_EQ(counters.smallest, 2U);
    EXPECT_EQ(counters.largest, 9U);
    EXPECT_EQ(counters.mostInFlight, 7U);
}

TEST(QueueCounters, BeginAnewAfterAReset)
{
    QueueCounters counters;
    counters.count(5);
    counters.noteInFlight(7);

    counters.reset();
    counters.count(6);

    EXPECT_EQ(counters.calls, 1U);
    EXPECT_EQ(counters.smallest, 6U);
    EXPECT_EQ(counters.largest, 6U);
    EXPECT_EQ(counters.mostInFlight, 0U);
}

TEST(QueueCounters, LieOnCacheLinesOfTheirOwn)
{
    EXPECT_EQ(sizeof(QueueCounters) % FileAccess::cacheLine, 0U);
    EXPECT_EQ(sizeof(FileAccess::AcceptingShard) % FileAccess::cacheLine, 0U);
    EXPECT_EQ(sizeof(FileAccess::SubmittingShard) % FileAccess::cacheLine, 0U);
    EXPECT_EQ(sizeof(FileAccess::CompletingShard) % FileAccess::cacheLine, 0U);
}

class StatisticsOfAFactory : public testing::Test {
protected:
    void registerDomains()
    {
        statistics.registerDomains([this] { ++settled; });
    }
    void countRequests(std::uint64_t size, FileAccess::Direction direction, std::uint64_t count)
    {
        SizeRecord& record = statistics.recordOf(size);
        FileAccess::add(record.completing[direction][0].requests, count);
        FileAccess::add(record.completing[direction][0].requestTicks, 10 * count);
        FileAccess::add(record.acceptingHere(direction).triggerTicks, 3 * count);
        FileAccess::add(record.acceptingHere(direction).syncSubmitTicks, 2 * count);
        FileAccess::add(record.submitting[direction].asyncSubmitTicks, count);
    }

    int settled = 0;
    IOStatistics statistics{FileIOParameters{}};
};

TEST_F(StatisticsOfAFactory, GiveOneRecordPerSize)
{
    SizeRecord& small = statistics.recordOf(512);
    SizeRecord& large = statistics.recordOf(4096);

    EXPECT_NE(&small, &large);
    EXPECT_EQ(&statistics.recordOf(512), &small);
    EXPECT_EQ(large.blockSize, 4096U);
}

TEST_F(StatisticsOfAFactory, LetSizesBeyondTheLimitShareTheLastRecord)
{
    for (std::uint64_t size = 1; size < 64; ++size)
        statistics.recordOf(size);

    SizeRecord& last = statistics.recordOf(64);

    EXPECT_EQ(&statistics.recordOf(65), &last);
    EXPECT_EQ(&statistics.recordOf(1'000'000), &last);
    EXPECT_NE(&statistics.recordOf(63), &last);
}

TEST_F(StatisticsOfAFactory, AreZeroForASizeThatWasNotUsed)
{
    EXPECT_EQ(statistics.detailed(4096).read.requests.getValueSinceReset(1), 0U);
    EXPECT_EQ(statistics.detailed(4096).write.requestTicks.getValueSinceReset(1), 0U);
}

TEST_F(StatisticsOfAFactory, KeepDirectionsAndSizesApart)
{
    countRequests(4096, reading, 5);
    countRequests(4096, writing, 7);
    countRequests(512, reading, 11);

    const auto& page = statistics.detailed(4096);
    EXPECT_EQ(page.blockSize, 4096U);
    EXPECT_EQ(page.read.requests.getValueSinceReset(1), 5U);
    EXPECT_EQ(page.read.requestTicks.getValueSinceReset(1), 50U);
    EXPECT_EQ(page.read.triggerTicks.getValueSinceReset(1), 15U);
    EXPECT_EQ(page.read.syncSubmitTicks.getValueSinceReset(1), 10U);
    EXPECT_EQ(page.read.asyncSubmitTicks.getValueSinceReset(1), 5U);
    EXPECT_EQ(page.write.requests.getValueSinceReset(1), 7U);
    EXPECT_EQ(statistics.detailed(512).read.requests.getValueSinceReset(1), 11U);
    EXPECT_EQ(statistics.detailed(512).write.requests.getValueSinceReset(1), 0U);
}

TEST_F(StatisticsOfAFactory, CountAnewAfterAResetOfTheDetailedDomain)
{
    registerDomains();
    countRequests(4096, reading, 5);

    command(std::string("statreg reset -n ") + fileLayerTests::detailedDomain);
    countRequests(4096, reading, 2);

    EXPECT_EQ(statistics.detailed(4096).read.requests.getValueSinceReset(1), 2U);
    EXPECT_EQ(statistics.detailed(4096).read.triggerTicks.getValueSinceReset(1), 6U);
    EXPECT_EQ(statistics.detailed(4096).read.requests.getValue(), 7U);
}

TEST_F(StatisticsOfAFactory, CountAnewAfterAResetOfTheTotals)
{
    registerDomains();
    statistics.busy(reading).accepted();
    statistics.busy(reading).ended(1, Timer::s_fHiPerfTimer() + 1000);
    ASSERT_GE(statistics.getTotalReadTicks(1), 1000U);

    command(std::string("statreg reset -n ") + fileLayerTests::totalDomain);

    EXPECT_EQ(statistics.getTotalReadTicks(1), 0U);
    EXPECT_EQ(statistics.getTotalWriteTicks(1), 0U);
}

TEST_F(StatisticsOfAFactory, SettleBeforeEachResetAndEachPrint)
{
    registerDomains();

    fileLayerTests::resetAllDomains();
    EXPECT_EQ(settled, 4);

    command(std::string("statreg print -h -n ") + fileLayerTests::totalDomain);
    EXPECT_EQ(settled, 5);
}

TEST_F(StatisticsOfAFactory, PrintRequestsBySizeAndDirectionReadably)
{
    registerDomains();
    countRequests(4096, reading, 5);
    countRequests(8192, writing, 6);

    const std::string text =
        command(std::string("statreg print -h -n ") + fileLayerTests::detailedDomain);

    EXPECT_THAT(text, HasSubstr("Requests by size and direction since the last reset:\n"));
    EXPECT_THAT(text, HasSubstr("   4096 bytes, read: 5 requests, mean 0 us, trigger 0 us, "
                                "asynchronous submit 0 us, synchronous submit 0 us\n"));
    EXPECT_THAT(text, HasSubstr("   8192 bytes, write: 6 requests, mean "));
    EXPECT_THAT(text, testing::Not(HasSubstr("4096 bytes, write")));
}

TEST_F(StatisticsOfAFactory, PrintWhatTheQueuesDid)
{
    registerDomains();
    statistics.submitCounters(0).count(3);
    statistics.submitCounters(0).count(6);
    statistics.submitCounters(0).noteInFlight(9);
    statistics.submitCounters(1).count(1);
    statistics.completionCounters(0).count(9);

    EXPECT_EQ(command(std::string("statreg print -h -n ") + fileLayerTests::queueDomain),
              "Work of the submit queues since the last reset:\n"
              "   queue 0: 2 calls, 9 requests, batches of 3 to 6, mean 4, at most 9 in flight\n"
              "   calling threads: 1 calls, 1 requests, batches of 1 to 1, mean 1, at most 0 in "
              "flight\n");
    EXPECT_THAT(command(std::string("statreg print -n ") + fileLayerTests::completionDomain),
                HasSubstr("   queue 0: 1 calls, 9 requests, batches of 9 to 9"));

    command(std::string("statreg reset -n ") + fileLayerTests::queueDomain);
    EXPECT_EQ(command(std::string("statreg print -h -n ") + fileLayerTests::queueDomain),
              "Work of the submit queues since the last reset:\n"
              "   queue 0: 0 calls, 0 requests\n"
              "   calling threads: 0 calls, 0 requests\n");
}

TEST_F(StatisticsOfAFactory, PrintTheTotalsInMicroseconds)
{
    registerDomains();

    EXPECT_EQ(command(std::string("statreg print -n ") + fileLayerTests::totalDomain),
              "Totals since the last reset:\n"
              "   read: I/O time 0 us\n"
              "   write: I/O time 0 us\n");
}

TEST_F(StatisticsOfAFactory, AreUnknownToTheShellBeforeAndAfter)
{
    const std::string names = command("statreg list");
    EXPECT_THAT(names, testing::Not(HasSubstr(fileLayerTests::totalDomain)));

    registerDomains();
    EXPECT_THAT(command("statreg list"), HasSubstr(fileLayerTests::totalDomain));
    statistics.withdrawDomains();

    EXPECT_EQ(command("statreg list"), names);
}

TEST_F(StatisticsOfAFactory, ReportTheParametersInForce)
{
    std::ostringstream text;

    statistics.getConfigStatisticsString(text, true);

    EXPECT_THAT(text.str(), HasSubstr("max_parallel_io_requests=64,"));
}

}  // namespace
