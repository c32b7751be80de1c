#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <csignal>

#include "Basis/Timer.h"
#include "Diagnose/Shell.h"
#include "tests/vetraTests/FSPerf/RequestHandler.h"

namespace vetraTests {

namespace {

constexpr std::uint64_t mega = 1 << 20;

double seconds(std::uint64_t ticks)
{
    return static_cast<double>(Basis::Timer::s_fHiPerfTimerConvert(ticks)) / 1000000;
}

double microseconds(std::uint64_t ticks)
{
    return static_cast<double>(Basis::Timer::s_fHiPerfTimerConvert(ticks));
}

// A counter that was at 1000 when it was reset.
void count(Diagnose::StatisticsSimpleCounter& counter, std::uint64_t sinceReset)
{
    counter.publish(1000);
    counter.reset();
    counter.publish(1000 + sinceReset);
}

class Collection : public testing::Test {
protected:
    void SetUp() override
    {
        options.m_alloc_size = testBlock;
        ASSERT_TRUE(handler.init(options));
        layer.readTicks = 40'000'000'000;
        layer.writeTicks = 50'000'000'000;
        fill(layer.detailed.read, 1);
        fill(layer.detailed.write, 2);
    }
    static void fill(FileAccess::DirectionCounters& counters, std::uint64_t factor)
    {
        count(counters.triggerTicks, factor * 10'000'000'000);
        count(counters.asyncSubmitTicks, factor * 6'000'000'000);
        count(counters.syncSubmitTicks, factor * 3'000'000'000);
        count(counters.requests, 7);
        count(counters.requestTicks, factor * 100'000'000 + 6);
    }

    FakeFileLayer layer;
    TestOptions options{64 * mega / testBlock};
    OpenHandler handler;
};

}  // namespace

TEST_F(Collection, OfReadThroughputDividesTheFileByTheTimesOfReading)
{
    _SFSThroughputStatistics stats;

    EXPECT_TRUE(handler.collectThroughputStatistics(options, false, stats));

    EXPECT_EQ(stats.numOperations, 16384);
    EXPECT_EQ(stats.ioTime, seconds(40'000'000'000));
    EXPECT_EQ(stats.triggerTime, seconds(10'000'000'000));
    EXPECT_EQ(stats.asyncSubmitTime, seconds(6'000'000'000));
    EXPECT_EQ(stats.syncSubmitTime, seconds(3'000'000'000));
    EXPECT_EQ(stats.ioThroughput, 64 / stats.ioTime);
    EXPECT_EQ(stats.ratioTriggerToIO, stats.triggerTime / stats.ioTime);
    EXPECT_EQ(stats.triggerThroughput, 64 / stats.triggerTime);
    EXPECT_EQ(stats.asyncSubmitThroughput, 64 / stats.asyncSubmitTime);
    EXPECT_EQ(stats.syncSubmitThroughput, 64 / stats.syncSubmitTime);
}

TEST_F(Collection, OfWriteThroughputTakesTheTimesOfWriting)
{
    _SFSThroughputStatistics stats;

    EXPECT_TRUE(handler.collectThroughputStatistics(options, true, stats));

    EXPECT_EQ(stats.numOperations, 16384);
    EXPECT_EQ(stats.ioTime, seconds(50'000'000'000));
    EXPECT_EQ(stats.triggerTime, seconds(20'000'000'000));
    EXPECT_EQ(stats.asyncSubmitTime, seconds(12'000'000'000));
    EXPECT_EQ(stats.syncSubmitTime, seconds(6'000'000'000));
    EXPECT_EQ(stats.ioThroughput, 64 / stats.ioTime);
    EXPECT_EQ(stats.ratioTriggerToIO, stats.triggerTime / stats.ioTime);
    EXPECT_EQ(stats.triggerThroughput, 64 / stats.triggerTime);
    EXPECT_EQ(stats.asyncSubmitThroughput, 64 / stats.asyncSubmitTime);
    EXPECT_EQ(stats.syncSubmitThroughput, 64 / stats.syncSubmitTime);
}

TEST_F(Collection, AsksForTheBlockSizeAndForDomainOne)
{
    _SFSThroughputStatistics throughput;
    _SFSLatencyStatistics latency;

    handler.collectThroughputStatistics(options, true, throughput);
    handler.collectThroughputStatistics(options, false, throughput);
    handler.collectReadLatencyStatistics(options, latency);
    handler.collectWriteLatencyStatistics(options, latency);

    EXPECT_EQ(layer.askedBlockSize, testBlock);
    EXPECT_EQ(layer.askedDomains, (std::vector<unsigned>{1, 1, 1, 1}));
}

TEST_F(Collection, GivesNoThroughputToAWayOfSubmittingThatWasNotUsed)
{
    count(layer.detailed.read.asyncSubmitTicks, 0);
    count(layer.detailed.read.syncSubmitTicks, 0);
    _SFSThroughputStatistics stats;

    EXPECT_TRUE(handler.collectThroughputStatistics(options, false, stats));

    EXPECT_EQ(stats.asyncSubmitTime, 0);
    EXPECT_EQ(stats.asyncSubmitThroughput, 0);
    EXPECT_EQ(stats.syncSubmitTime, 0);
    EXPECT_EQ(stats.syncSubmitThroughput, 0);
}

TEST_F(Collection, DoesNotGuardTheOtherTimesAgainstNothing)
{
    layer.readTicks = 0;
    _SFSThroughputStatistics stats;
    EXPECT_TRUE(handler.collectThroughputStatistics(options, false, stats));
    EXPECT_EQ(stats.ioThroughput, INFINITY);
    EXPECT_EQ(stats.ratioTriggerToIO, INFINITY);

    count(layer.detailed.read.triggerTicks, 0);
    EXPECT_TRUE(handler.collectThroughputStatistics(options, false, stats));
    EXPECT_TRUE(std::isnan(stats.ratioTriggerToIO));
    EXPECT_EQ(stats.triggerThroughput, INFINITY);

    _SFSLatencyStatistics latency;
    EXPECT_TRUE(handler.collectReadLatencyStatistics(options, latency));
    EXPECT_EQ(latency.ioThroughput, INFINITY);
}

TEST_F(Collection, OfReadLatencyIsAWholeMeanInWholeMicroseconds)
{
    _SFSLatencyStatistics stats;

    EXPECT_TRUE(handler.collectReadLatencyStatistics(options, stats));

    EXPECT_EQ(stats.numOperations, 16384);
    EXPECT_EQ(stats.ioTime, seconds(40'000'000'000));
    EXPECT_EQ(stats.latency, microseconds(100'000'006 / 7));
    EXPECT_EQ(stats.latency, std::floor(stats.latency));
    EXPECT_EQ(stats.ioThroughput, 64 / stats.ioTime);
}

TEST_F(Collection, OfWriteLatencyTakesTheCountersOfWriting)
{
    _SFSLatencyStatistics stats;

    EXPECT_TRUE(handler.collectWriteLatencyStatistics(options, stats));

    EXPECT_EQ(stats.numOperations, 16384);
    EXPECT_EQ(stats.ioTime, seconds(50'000'000'000));
    EXPECT_EQ(stats.latency, microseconds(200'000'006 / 7));
    EXPECT_EQ(stats.ioThroughput, 64 / stats.ioTime);
}

TEST_F(Collection, GivesNoLatencyWithoutRequests)
{
    count(layer.detailed.read.requests, 0);
    count(layer.detailed.write.requests, 0);
    _SFSLatencyStatistics stats;
    stats.latency = 5;

    EXPECT_TRUE(handler.collectReadLatencyStatistics(options, stats));
    EXPECT_EQ(stats.latency, 0);

    stats.latency = 5;
    EXPECT_TRUE(handler.collectWriteLatencyStatistics(options, stats));
    EXPECT_EQ(stats.latency, 0);
}

TEST_F(Collection, RoundsTheOperationsToSinglePrecision)
{
    options.m_block_size = 512;
    options.m_file_size = 512 * ((std::uint64_t{1} << 24) + 1);
    _SFSThroughputStatistics stats;

    EXPECT_TRUE(handler.collectThroughputStatistics(options, false, stats));

    EXPECT_EQ(stats.numOperations, 16777216);
}

TEST_F(Collection, CountsPartsOfAMegabyte)
{
    options.m_file_size = 3 * mega / 2;
    _SFSThroughputStatistics stats;

    EXPECT_TRUE(handler.collectThroughputStatistics(options, false, stats));

    EXPECT_EQ(stats.ioThroughput, 1.5 / stats.ioTime);
}

TEST_F(Collection, WithoutStatisticsStopsTheProgram)
{
    layer.keepsStatistics = false;
    _SFSLatencyStatistics stats;

    EXPECT_EXIT(handler.collectReadLatencyStatistics(options, stats),
                testing::KilledBySignal(SIGABRT),
                testing::HasSubstr("the file factory keeps statistics"));
}

TEST_F(Collection, PassesFillTheirRecords)
{
    layer.onRequest = [](const SeenRequest&) {};
    ASSERT_TRUE(handler.initDataFile(options));
    _SFSThroughputStatistics read;
    _SFSThroughputStatistics write;
    _SFSLatencyStatistics readLatency;
    _SFSLatencyStatistics writeLatency;

    EXPECT_TRUE(handler.executeAsynchronousReadTest(options, read));
    EXPECT_TRUE(handler.executeAsynchronousWriteTest(options, true, write));
    EXPECT_TRUE(handler.executeSynchronousReadTest(options, readLatency));
    EXPECT_TRUE(handler.executeSynchronousWriteTest(options, writeLatency));

    EXPECT_EQ(read.ioTime, seconds(40'000'000'000));
    EXPECT_EQ(write.ioTime, seconds(50'000'000'000));
    EXPECT_EQ(readLatency.latency, microseconds(100'000'006 / 7));
    EXPECT_EQ(writeLatency.latency, microseconds(200'000'006 / 7));
}

TEST(ResetStatistics, ResetsTheFourDomainsInOrderAndPrintsNothing)
{
    FakeFileLayer layer;
    OpenHandler handler;

    const Printed printed = printedBy([&] { handler.resetStatistics(); });

    EXPECT_EQ(layer.takeJournal(), "reset total\nreset detailed\nreset queue\nreset completion\n");
    EXPECT_EQ(printed.output + printed.errors, "");
}

TEST(ResetStatistics, FailsWithTheCommandThatFails)
{
    const OpenHandler withoutFileLayer;
    OpenHandler handler;

    EXPECT_THROW(handler.resetStatistics(), Diagnose::CommandException);
}

TEST(PrintStatistics, PrintsTheFourDomainsInOrder)
{
    FakeFileLayer layer;
    const OpenHandler handler;

    const Printed printed = printedBy([&] { handler.printStatistics(); });

    EXPECT_EQ(printed.output,
              "Full statistics:\n"
              "counters of print total\n"
              "counters of print detailed\n"
              "counters of print queue\n"
              "counters of print completion\n"
              "\n");
    EXPECT_EQ(layer.takeJournal(), "print total\nprint detailed\nprint queue\nprint completion\n");
}

}  // namespace vetraTests
