#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <set>
#include <vector>

#include "Diagnose/Shell.h"
#include "tests/vetraTests/FSPerf/RequestHandler.h"

namespace vetraTests {

namespace {

constexpr std::size_t blocks = 10;

constexpr const char* resetEntries = "reset total\nreset detailed\nreset queue\nreset completion\n";

constexpr const char* fullStatistics =
    "Full statistics:\n"
    "counters of print total\n"
    "counters of print detailed\n"
    "counters of print queue\n"
    "counters of print completion\n"
    "\n";

// The four passes by their names.
struct Pass {
    const char* name;
    const char* request;
    bool (*run)(OpenHandler& handler, const CCmdOptions& options);
    bool isAsynchronous;
    bool isRead;
};

const Pass passes[] = {
    {"read-async", "readAsync",
     [](OpenHandler& handler, const CCmdOptions& options) {
         _SFSThroughputStatistics stats;
         return handler.executeAsynchronousReadTest(options, stats);
     },
     true, true},
    {"write-async", "writeAsync",
     [](OpenHandler& handler, const CCmdOptions& options) {
         _SFSThroughputStatistics stats;
         return handler.executeAsynchronousWriteTest(options, true, stats);
     },
     true, false},
    {"read-sync", "read",
     [](OpenHandler& handler, const CCmdOptions& options) {
         _SFSLatencyStatistics stats;
         return handler.executeSynchronousReadTest(options, stats);
     },
     false, true},
    {"write-sync", "write",
     [](OpenHandler& handler, const CCmdOptions& options) {
         _SFSLatencyStatistics stats;
         return handler.executeSynchronousWriteTest(options, stats);
     },
     false, false},
};

class AnyPass : public testing::TestWithParam<Pass> {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(handler.init(options) && handler.initDataFile(options));
        layer.takeJournal();
    }
    bool run()
    {
        bool succeeded = false;
        printed = printedBy([&] { succeeded = GetParam().run(handler, options); });
        return succeeded;
    }
    std::size_t placeOf(const SeenRequest& request) const
    {
        return static_cast<std::size_t>(static_cast<const std::byte*>(request.buffer) -
                                        handler.m_data_buffer.data());
    }
    std::string bufferBytes() const
    {
        return {reinterpret_cast<const char*>(handler.m_data_buffer.data()), options.m_alloc_size};
    }
    std::vector<std::uint64_t> offsets() const
    {
        std::vector<std::uint64_t> seen;
        for (const SeenRequest& request : layer.requests)
            seen.push_back(request.offset);
        return seen;
    }

    FakeFileLayer layer;
    TestOptions options{blocks};
    OpenHandler handler;
    Printed printed;
};

class AsynchronousPass : public AnyPass {};
class SynchronousPass : public AnyPass {};
class ReadingPass : public AnyPass {};
class WritingPass : public AnyPass {};

std::string passName(const testing::TestParamInfo<Pass>& info)
{
    std::string name = info.param.name;
    name.erase(name.find('-'), 1);
    return name;
}

std::vector<Pass> passesThat(bool (*matches)(const Pass&))
{
    std::vector<Pass> found;
    for (const Pass& pass : passes)
        if (matches(pass))
            found.push_back(pass);
    return found;
}

INSTANTIATE_TEST_SUITE_P(Each, AnyPass, testing::ValuesIn(passes), passName);
INSTANTIATE_TEST_SUITE_P(Each, AsynchronousPass, testing::ValuesIn(passesThat([](const Pass& pass) {
                             return pass.isAsynchronous;
                         })),
                         passName);
INSTANTIATE_TEST_SUITE_P(Each, SynchronousPass, testing::ValuesIn(passesThat([](const Pass& pass) {
                             return !pass.isAsynchronous;
                         })),
                         passName);
INSTANTIATE_TEST_SUITE_P(Each, ReadingPass, testing::ValuesIn(passesThat([](const Pass& pass) {
                             return pass.isRead;
                         })),
                         passName);
INSTANTIATE_TEST_SUITE_P(Each, WritingPass, testing::ValuesIn(passesThat([](const Pass& pass) {
                             return !pass.isRead;
                         })),
                         passName);

}  // namespace

TEST_P(AnyPass, PreparesThenResetsThenRequestsThenCollects)
{
    EXPECT_TRUE(run());

    EXPECT_EQ(layer.takeJournal(),
              std::string("construct\n") + resetEntries + GetParam().request + "\ngetDetailed\n");
    EXPECT_EQ(printed.output + printed.errors, "");
}

TEST_P(AnyPass, TouchesEveryBlockOnce)
{
    EXPECT_TRUE(run());

    const std::vector<std::uint64_t> seen = offsets();
    std::set<std::uint64_t> expected;
    for (std::uint64_t i = 0; i < blocks; ++i)
        expected.insert(i * testBlock);
    EXPECT_EQ(seen.size(), blocks);
    EXPECT_EQ(std::set<std::uint64_t>(seen.begin(), seen.end()), expected);
    for (const SeenRequest& request : layer.requests) {
        EXPECT_EQ(request.size, testBlock);
        EXPECT_EQ(request.isRead, GetParam().isRead);
    }
}

TEST_P(AnyPass, SequentialOrderGoesFromTheBeginningToTheEnd)
{
    options.m_random_io_order = false;

    EXPECT_TRUE(run());

    for (std::size_t i = 0; i < blocks; ++i)
        EXPECT_EQ(layer.requests[i].offset, i * testBlock);
}

TEST_P(AnyPass, GivesEveryBlockItsOwnPlaceInABufferOfTheFilesSize)
{
    EXPECT_TRUE(run());

    for (const SeenRequest& request : layer.requests)
        EXPECT_EQ(placeOf(request), request.offset);
}

TEST_P(AnyPass, UsesTheStartOfABufferOfOneBlock)
{
    options.m_alloc_size = testBlock;

    EXPECT_TRUE(run());

    for (const SeenRequest& request : layer.requests)
        EXPECT_EQ(placeOf(request), 0U);
}

TEST_P(AnyPass, UsesASmallerBufferAgainAndAgain)
{
    options.m_alloc_size = 4 * testBlock;

    EXPECT_TRUE(run());

    for (const SeenRequest& request : layer.requests)
        EXPECT_EQ(placeOf(request), request.offset % (4 * testBlock));
}

TEST_P(AnyPass, DrawsANewOrderEachTime)
{
    EXPECT_TRUE(run());
    const std::vector<std::uint64_t> first = offsets();
    // Of ten blocks one shuffle in 3.6 million is like the one before; three in a row never are.
    bool differs = false;
    for (int attempt = 0; attempt < 3 && !differs; ++attempt) {
        layer.forgetRequests();
        EXPECT_TRUE(run());
        differs = offsets() != first;
    }
    EXPECT_TRUE(differs);
}

TEST_P(AnyPass, PrintsTheFullStatisticsOnlyForFullOutput)
{
    options.output(OutputType::FULL);
    EXPECT_TRUE(run());
    EXPECT_EQ(printed.output, std::string("Preparing I/O buffer... done.\n") + fullStatistics);
    EXPECT_EQ(layer.takeJournal(),
              std::string("construct\n") + resetEntries + GetParam().request +
                  "\nprint total\nprint detailed\nprint queue\nprint completion\ngetDetailed\n");

    options.output(OutputType::VERBOSE);
    EXPECT_TRUE(run());
    EXPECT_EQ(printed.output, "Preparing I/O buffer... done.\n");
}

TEST_P(AnyPass, PassesAFailedResetOn)
{
    layer.failingCommand = "reset queue";

    EXPECT_THROW(run(), Diagnose::CommandException);

    EXPECT_EQ(layer.takeJournal(), "construct\nreset total\nreset detailed\nreset queue\n");
    EXPECT_TRUE(layer.requests.empty());
}

TEST_P(AnyPass, PassesAFailedPrintOn)
{
    layer.failingCommand = "print total";
    options.output(OutputType::FULL);

    EXPECT_THROW(run(), Diagnose::CommandException);

    EXPECT_EQ(layer.requests.size(), blocks);
}

TEST_P(ReadingPass, FillsTheBufferWithTheConstantByte)
{
    options.m_randomize_data = true;
    std::memset(handler.m_data_buffer.data(), 7, options.m_alloc_size);

    EXPECT_TRUE(run());

    EXPECT_EQ(bufferBytes(), std::string(options.m_alloc_size, '\x80'));
}

TEST_P(WritingPass, FillsTheBufferWithNewRandomData)
{
    EXPECT_TRUE(run());
    const std::string first = bufferBytes();
    EXPECT_NE(first, std::string(options.m_alloc_size, '\x80'));

    // The clock that seeds the data is one of microseconds, and a pass takes longer.
    EXPECT_TRUE(run());
    EXPECT_NE(bufferBytes(), first);
}

TEST_P(WritingPass, FillsTheBufferWithTheConstantByteForConstantData)
{
    options.m_randomize_data = false;

    EXPECT_TRUE(run());

    EXPECT_EQ(bufferBytes(), std::string(options.m_alloc_size, '\x80'));
}

TEST_P(AsynchronousPass, GivesEachRequestItsControlBlockAndTheHandler)
{
    for (int test = 0; test < 2; ++test) {
        layer.forgetRequests();
        EXPECT_TRUE(run());

        for (std::size_t i = 0; i < blocks; ++i) {
            EXPECT_EQ(layer.requests[i].block, handler.m_control_blocks[i]);
            EXPECT_EQ(layer.requests[i].callback, &handler);
            EXPECT_EQ(layer.requests[i].flags, 0U);
            EXPECT_EQ(layer.requests[i].context, nullptr);
        }
    }
}

TEST_P(AsynchronousPass, GoesOnAtOnceIfTheLastCompletionCameBeforeTheWait)
{
    layer.completion = Completion::ATONCE;

    EXPECT_TRUE(run());

    EXPECT_EQ(handler.m_num_requests_i.value, 0U);
    EXPECT_TRUE(handler.m_barrier.isAtRest());
}

TEST_P(AsynchronousPass, WaitsForCompletionsOnOtherThreads)
{
    layer.completion = Completion::THREADS;
    for (int test = 0; test < 20; ++test) {
        EXPECT_TRUE(run());
        ASSERT_EQ(handler.m_num_requests_i.value, 0U);
        ASSERT_TRUE(handler.m_barrier.isAtRest());
    }
}

TEST_P(AsynchronousPass, IssuesEverythingWithoutWaitingForACompletion)
{
    layer.completion = Completion::RELEASED;
    layer.onRequest = [this](const SeenRequest&) {
        if (layer.requests.size() == blocks - 1) {
            EXPECT_EQ(handler.m_num_requests_i.value, blocks);
            layer.release();
        }
    };

    EXPECT_TRUE(run());

    EXPECT_EQ(layer.requests.size(), blocks);
    EXPECT_EQ(handler.m_num_requests_i.value, 0U);
}

TEST_P(SynchronousPass, LeavesCounterAndGateArmed)
{
    EXPECT_TRUE(run());

    EXPECT_EQ(handler.m_num_requests_i.value, blocks);
    EXPECT_TRUE(handler.m_barrier.isAtRest());
}

TEST_P(SynchronousPass, CanBeFollowedByAnAsynchronousOne)
{
    EXPECT_TRUE(run());

    EXPECT_TRUE(passes[0].run(handler, options));

    EXPECT_EQ(handler.m_num_requests_i.value, 0U);
}

TEST(WritingPassOfNewBlocks, SaysSoToTheFileLayer)
{
    for (const bool newBlocks : {true, false}) {
        FakeFileLayer layer;
        TestOptions options;
        OpenHandler handler;
        ASSERT_TRUE(handler.init(options) && handler.initDataFile(options));
        _SFSThroughputStatistics stats;

        EXPECT_TRUE(handler.executeAsynchronousWriteTest(options, newBlocks, stats));

        for (const SeenRequest& request : layer.requests)
            EXPECT_EQ(request.newBlocks, newBlocks);
    }
}

TEST(Completion, LastOneOpensTheGate)
{
    OpenHandler handler;
    handler.m_num_requests_i.value = 2;

    handler.dataRead({0, testBlock, nullptr});
    EXPECT_EQ(handler.m_num_requests_i.value, 1U);
    EXPECT_TRUE(handler.m_barrier.isAtRest());

    handler.dataWritten({0, testBlock, nullptr});
    EXPECT_EQ(handler.m_num_requests_i.value, 0U);
    EXPECT_FALSE(handler.m_barrier.isAtRest());
    handler.waitFinished();
    EXPECT_TRUE(handler.m_barrier.isAtRest());
}

TEST(Completion, PrintsNothing)
{
    OpenHandler handler;
    handler.m_num_requests_i.value = 1000;

    EXPECT_EQ(printedBy([&] {
                  for (int i = 0; i < 1000; ++i)
                      handler.decRequestCount();
                  handler.waitFinished();
              }).output,
              "");
}

TEST(CompletionDeathTest, OneTooManyStopsTheProgram)
{
    OpenHandler handler;

    EXPECT_EXIT(handler.decRequestCount(), testing::KilledBySignal(SIGABRT),
                testing::HasSubstr("m_num_requests_i != 0"));
}

TEST(CompletionDeathTest, FailedTransferStopsTheProgramWithItsText)
{
    FakeFileLayer layer;
    layer.failingRequest = 3;
    TestOptions options;
    OpenHandler handler;
    ASSERT_TRUE(handler.init(options) && handler.initDataFile(options));
    _SFSThroughputStatistics stats;

    EXPECT_EXIT(handler.executeAsynchronousReadTest(options, stats),
                testing::KilledBySignal(SIGABRT),
                testing::HasSubstr("read of datavol.dat failed (RequestHandlerTests.cpp:"));
}

}  // namespace vetraTests
