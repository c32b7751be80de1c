#include <gtest/gtest.h>

#include <iomanip>
#include <limits>
#include <sstream>

#include "tests/vetraTests/FSPerf/StatisticsCases.h"
#include "vetraTests/FSPerf/FSPerfHelper.h"

namespace vetraTests {

namespace {

const StatisticsOutput output(fsperfAllocatorHandle());

std::string row(const CCmdOptions& options, const _SFSStatistics& stats = someStatistics())
{
    return std::string(output.outputConsolidatedStatistics(options, stats));
}

}  // namespace

TEST(ConsolidatedRow, HasThreeThroughputsAndTheSumOfTheLatencies)
{
    CCmdOptions options;
    newOptions(options);
    options.m_measurements = 3;
    EXPECT_EQ(row(options), "16K    1G        106.50     206.50     306.50          69.75\n");
}

TEST(ConsolidatedRow, KeepsTheLatencyColumnWithoutALatency)
{
    CCmdOptions options;
    newOptions(options);
    options.m_measurements = 1;
    EXPECT_EQ(row(options), "16K    1G        106.50     206.50     306.50           0.00\n");
}

TEST(ConsolidatedRow, HasNoThroughputColumnWithLatencyAlone)
{
    CCmdOptions options;
    newOptions(options);
    options.m_measurements = 2;
    EXPECT_EQ(row(options), "16K    1G             69.75\n");
}

TEST(ConsolidatedRow, MovesColumnsLeftWhereATestIsOff)
{
    const char* const rows[] = {
        "     306.50           0.00\n",
        "          33.25\n",
        "     306.50          33.25\n",
        "     206.50           0.00\n",
        "          23.25\n",
        "     206.50          23.25\n",
        "     206.50     306.50           0.00\n",
        "          56.50\n",
        "     206.50     306.50          56.50\n",
        "     106.50           0.00\n",
        "          13.25\n",
        "     106.50          13.25\n",
        "     106.50     306.50           0.00\n",
        "          46.50\n",
        "     106.50     306.50          46.50\n",
        "     106.50     206.50           0.00\n",
        "          36.50\n",
        "     106.50     206.50          36.50\n",
        "     106.50     206.50     306.50           0.00\n",
        "          69.75\n",
        "     106.50     206.50     306.50          69.75\n",
    };
    const char* const* expected = rows;
    forAllFlagsAndMasks([&expected](const CCmdOptions& options) {
        EXPECT_EQ(row(options), std::string("16K    1G   ") + *expected);
        ++expected;
    });
    EXPECT_EQ(expected, std::end(rows));
}

TEST(ConsolidatedRow, RoundsToTwoDecimals)
{
    CCmdOptions options;
    newOptions(options);
    options.m_measurements = 3;
    _SFSStatistics stats;
    stats.initialWriteThroughput.ioThroughput = 12.9999;
    stats.overwriteThroughput.ioThroughput = 1e6;
    stats.readThroughput.ioThroughput = 0.004;
    stats.readLatency.latency = 0.996;
    EXPECT_EQ(row(options, stats),
              "16K    1G         13.00 1000000.00       0.00           1.00\n");
}

TEST(ConsolidatedRow, WidensForTextsAndNumbersBeyondTheirFields)
{
    CCmdOptions options;
    newOptions(options);
    options.m_test_overwrite = false;
    options.m_test_read = false;
    options.m_block_size_text = "12345678";
    options.m_file_size_text = "123456";
    _SFSStatistics stats;
    stats.initialWriteThroughput.ioThroughput = 123456789.25;
    EXPECT_EQ(row(options, stats), "12345678123456123456789.25           0.00\n");
}

TEST(ConsolidatedRow, PrintsInfinityAsAStreamDoes)
{
    CCmdOptions options;
    newOptions(options);
    options.m_test_overwrite = false;
    options.m_test_read = false;
    options.m_measurements = 3;
    _SFSStatistics stats;
    stats.initialWriteThroughput.ioThroughput = std::numeric_limits<double>::infinity();
    stats.initialWriteLatency.latency = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(row(options, stats), "16K    1G           inf            nan\n");
}

TEST(ConsolidatedFigures, AreTheThroughputAndTheLatency)
{
    const _SFSStatistics stats = someStatistics();
    EXPECT_EQ(getoutputConsolidatedThroughputStatistics(stats.readThroughput), 306.5);
    EXPECT_EQ(getoutputConsolidatedLatencyStatistics(stats.overwriteLatency), 23.25);
}

TEST(StatisticsRecords, StartWithZeros)
{
    const _SFSStatistics stats;
    EXPECT_EQ(stats.initialWriteThroughput.numOperations, 0);
    EXPECT_EQ(stats.readThroughput.triggerTime, 0);
    EXPECT_EQ(stats.readLatency.ioThroughput, 0);
}

}  // namespace vetraTests
