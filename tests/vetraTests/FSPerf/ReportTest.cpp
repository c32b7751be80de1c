#include <gtest/gtest.h>

#include <limits>

#include "tests/vetraTests/FSPerf/StatisticsCases.h"
#include "vetraTests/FSPerf/FSPerfHelper.h"

namespace vetraTests {

namespace {

const StatisticsOutput output(fsperfAllocatorHandle());

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

constexpr const char* frame = "************************************************************\n";

constexpr const char* initialHeading =
    "Results of Initial Write Test\n"
    "=============================\n"
    "\n";
constexpr const char* overwriteHeading =
    "Results of Overwrite Test\n"
    "=========================\n"
    "\n";
constexpr const char* readHeading =
    "Results of Read Test\n"
    "====================\n"
    "\n";

std::string throughputText(const _SFSThroughputStatistics& stats)
{
    return std::string(output.outputHumanReadableThroughputStatistics(stats));
}

std::string latencyText(const _SFSLatencyStatistics& stats)
{
    return std::string(output.outputHumanReadableLatencyStatistics(stats));
}

// One of the lines of a text, counted from 0.
std::string lineOf(const std::string& text, int number)
{
    std::size_t start = 0;
    for (; number > 0; --number)
        start = text.find('\n', start) + 1;
    return text.substr(start, text.find('\n', start) - start);
}

std::string ioTimeRow(double time, double rate, double operations)
{
    _SFSLatencyStatistics stats;
    stats.ioTime = time;
    stats.ioThroughput = rate;
    stats.numOperations = operations;
    return lineOf(latencyText(stats), 3);
}

std::string latencyRow(double latency)
{
    _SFSLatencyStatistics stats;
    stats.latency = latency;
    return lineOf(latencyText(stats), 4);
}

std::string ratioRow(double ratio)
{
    _SFSThroughputStatistics stats;
    stats.ratioTriggerToIO = ratio;
    return lineOf(throughputText(stats), 7);
}

}  // namespace

TEST(ThroughputReport, HasFourTimesAndTheRatio)
{
    const _SFSThroughputStatistics stats = {
        .numOperations = 65536,
        .ioTime = 2.5,
        .ratioTriggerToIO = 0.123456,
        .asyncSubmitTime = 0.5,
        .syncSubmitTime = 0,
        .ioThroughput = 409.6,
        .asyncSubmitThroughput = 2048,
        .syncSubmitThroughput = 0,
        .triggerThroughput = 12345678.96,
        .triggerTime = 0.03125,
    };
    EXPECT_EQ(throughputText(stats),
              "Throughput Test:\n"
              "----------------\n"
              "\n"
              "   Trigger time:...................     0.0312 s   "
              "(Throughput: 12345678.9 MB/s,  2097152.0 op/s)\n"
              "   Asynchronous submit time:.......     0.5000 s   "
              "(Throughput:     2048.0 MB/s,   131072.0 op/s)\n"
              "   Synchronous submit time:........     0.0000 s   "
              "(Throughput:        0.0 MB/s,        0.0 op/s)\n"
              "   I/O time:.......................     2.5000 s   "
              "(Throughput:      409.6 MB/s,    26214.4 op/s)\n"
              "   Ratio trigger time to I/O time:.0.12345\n"
              "\n");
}

TEST(LatencyReport, HasTheTimeAndTheLatency)
{
    const _SFSLatencyStatistics stats = {
        .numOperations = 100, .ioTime = 12.5, .latency = 1234.99, .ioThroughput = 8};
    EXPECT_EQ(latencyText(stats),
              "Latency Test:\n"
              "-------------\n"
              "\n"
              "   I/O time:.......................    12.5000 s   "
              "(Throughput:        8.0 MB/s,        8.0 op/s)\n"
              "   Latency:........................    1234.9 us\n"
              "\n");
}

TEST(TimeRow, CutsDigitsOffAndNeverRounds)
{
    EXPECT_EQ(ioTimeRow(2.99996, 12.9999, 5.99988),
              "   I/O time:.......................     2.9999 s   "
              "(Throughput:       12.9 MB/s,        1.9 op/s)");
    EXPECT_EQ(ioTimeRow(0.00009, 0.09, 0),
              "   I/O time:.......................     0.0000 s   "
              "(Throughput:        0.0 MB/s,        0.0 op/s)");
    EXPECT_EQ(ioTimeRow(1.0625, 0.5, 0),
              "   I/O time:.......................     1.0625 s   "
              "(Throughput:        0.5 MB/s,        0.0 op/s)");
}

TEST(TimeRow, KeepsLeadingZerosOfTheFraction)
{
    EXPECT_EQ(ioTimeRow(3.0078125, 1.0625, 0),
              "   I/O time:.......................     3.0078 s   "
              "(Throughput:        1.0 MB/s,        0.0 op/s)");
}

TEST(TimeRow, WidensForNumbersBeyondTheirFields)
{
    EXPECT_EQ(ioTimeRow(1234567.5, 123456789.5, 1234567.5 * 1073741824),
              "   I/O time:.......................1234567.5000 s   "
              "(Throughput: 123456789.5 MB/s, 1073741824.0 op/s)");
}

TEST(TimeRow, DividesByNoTimeThatIsNotAboveZero)
{
    const std::string zeroTime =
        "   I/O time:.......................     0.0000 s   "
        "(Throughput:       77.0 MB/s,        0.0 op/s)";
    EXPECT_EQ(ioTimeRow(0, 77, 5), zeroTime);
    EXPECT_EQ(ioTimeRow(-0.0, 77, 5), zeroTime);
    EXPECT_EQ(ioTimeRow(-1, 77, 5), zeroTime);
    EXPECT_EQ(ioTimeRow(notANumber, 77, 5), zeroTime);
}

TEST(TimeRow, PrintsZeroForWhatIsNoNumber)
{
    const std::string zeros =
        "   I/O time:.......................     0.0000 s   "
        "(Throughput:        0.0 MB/s,        0.0 op/s)";
    EXPECT_EQ(ioTimeRow(infinity, infinity, 1), zeros);
    EXPECT_EQ(ioTimeRow(infinity, infinity, infinity), zeros);
    EXPECT_EQ(ioTimeRow(-infinity, -infinity, 1), zeros);
    EXPECT_EQ(ioTimeRow(notANumber, notANumber, notANumber), zeros);
    // The rate of operations may be infinite where its parts are not.
    EXPECT_EQ(ioTimeRow(std::numeric_limits<double>::denorm_min(), 0, 1e300), zeros);
    EXPECT_EQ(ioTimeRow(1e300, 18446744073709551616.0, 0), zeros);
}

TEST(TimeRow, PrintsTheLargestWholeNumberThatFits)
{
    EXPECT_EQ(ioTimeRow(1, 18446744073709549568.0, 0),
              "   I/O time:.......................     1.0000 s   "
              "(Throughput: 18446744073709549568.0 MB/s,        0.0 op/s)");
}

TEST(LatencyRow, CutsDigitsOffAndPrintsZeroForWhatIsNoNumber)
{
    EXPECT_EQ(latencyRow(99.99), "   Latency:........................      99.9 us");
    EXPECT_EQ(latencyRow(0), "   Latency:........................       0.0 us");
    EXPECT_EQ(latencyRow(infinity), "   Latency:........................       0.0 us");
    EXPECT_EQ(latencyRow(notANumber), "   Latency:........................       0.0 us");
    EXPECT_EQ(latencyRow(123456789.5), "   Latency:........................123456789.5 us");
}

TEST(RatioRow, HasFiveDigitsAndPrintsZeroForWhatIsNoNumber)
{
    EXPECT_EQ(ratioRow(0.999999), "   Ratio trigger time to I/O time:.0.99999");
    EXPECT_EQ(ratioRow(12.0000153), "   Ratio trigger time to I/O time:.12.00001");
    EXPECT_EQ(ratioRow(infinity), "   Ratio trigger time to I/O time:.0.00000");
    EXPECT_EQ(ratioRow(notANumber), "   Ratio trigger time to I/O time:.0.00000");
}

TEST(TestResultHeader, UnderlinesTheTextByItsBytes)
{
    EXPECT_EQ(output.printTestResultHeader("Latency Test:", '-'),
              "Latency Test:\n-------------\n\n");
    EXPECT_EQ(output.printTestResultHeader("x", '='), "x\n=\n\n");
    EXPECT_EQ(output.printTestResultHeader("\xc3\xa4", '='), "\xc3\xa4\n==\n\n");
}

TEST(TestResultHeader, IsNothingForNoText)
{
    EXPECT_EQ(output.printTestResultHeader("", '='), "");
    EXPECT_EQ(output.printTestResultHeader(nullptr, '='), "");
}

TEST(Report, BeginsWithTheSizesAndShowsEachTestUnderItsHeading)
{
    const _SFSStatistics stats = someStatistics();
    forAllFlagsAndMasks([&stats](const CCmdOptions& options) {
        std::string expected = frame;
        expected += "Output of Results for 16K blocksize 1G filesize \n";
        expected += std::string(frame) + "\n";
        const auto addTest = [&](bool isOn, const char* heading,
                                 const _SFSThroughputStatistics& throughput,
                                 const _SFSLatencyStatistics& latency) {
            if (!isOn)
                return;
            expected += heading;
            if (options.m_measurements != 2)
                expected += throughputText(throughput);
            if (options.m_measurements != 1)
                expected += latencyText(latency);
        };
        addTest(options.m_test_initial_write, initialHeading, stats.initialWriteThroughput,
                stats.initialWriteLatency);
        addTest(options.m_test_overwrite, overwriteHeading, stats.overwriteThroughput,
                stats.overwriteLatency);
        addTest(options.m_test_read, readHeading, stats.readThroughput, stats.readLatency);

        EXPECT_EQ(std::string(output.outputHumanReadableStatistics(options, stats)), expected);
    });
}

TEST(Report, OfOneTestWithBothMeasurements)
{
    CCmdOptions options;
    newOptions(options);
    options.m_measurements = 3;
    options.m_test_initial_write = false;
    options.m_test_read = false;
    EXPECT_EQ(std::string(output.outputHumanReadableStatistics(options, someStatistics())),
              "************************************************************\n"
              "Output of Results for 16K blocksize 1G filesize \n"
              "************************************************************\n"
              "\n"
              "Results of Overwrite Test\n"
              "=========================\n"
              "\n"
              "Throughput Test:\n"
              "----------------\n"
              "\n"
              "   Trigger time:...................   210.0000 s   "
              "(Throughput:      209.0 MB/s,        0.9 op/s)\n"
              "   Asynchronous submit time:.......   204.0000 s   "
              "(Throughput:      207.0 MB/s,        0.9 op/s)\n"
              "   Synchronous submit time:........   205.0000 s   "
              "(Throughput:      208.0 MB/s,        0.9 op/s)\n"
              "   I/O time:.......................   202.0000 s   "
              "(Throughput:      206.5 MB/s,        0.9 op/s)\n"
              "   Ratio trigger time to I/O time:.203.00000\n"
              "\n"
              "Latency Test:\n"
              "-------------\n"
              "\n"
              "   I/O time:.......................    22.0000 s   "
              "(Throughput:       24.0 MB/s,        0.9 op/s)\n"
              "   Latency:........................      23.2 us\n"
              "\n");
}

TEST(Report, OfNoTestHasItsHeadAlone)
{
    CCmdOptions options;
    options.m_test_initial_write = false;
    options.m_test_overwrite = false;
    options.m_test_read = false;
    EXPECT_EQ(
        std::string(output.outputHumanReadableStatistics(options, someStatistics())),
        std::string(frame) + "Output of Results for 4MB blocksize 16GB filesize \n" + frame + "\n");
}

}  // namespace vetraTests
