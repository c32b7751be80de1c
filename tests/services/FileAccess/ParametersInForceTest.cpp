// What the parameters of the section "fileio" change, as the kernel sees it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "FileAccess/FileSystem.h"
#include "tests/services/FileAccess/KernelStandIn.h"
#include "tests/services/FileAccess/LayerSupport.h"
#include "tests/services/support/CapturedOutput.h"

namespace {

using fileLayerTests::KernelStandIn;
using fileLayerTests::Layer;
using fileLayerTests::makeFactory;
using fileLayerTests::memoryBase;
using fileLayerTests::page;
using fileLayerTests::Parameters;
using fileLayerTests::Submission;
using fileLayerTests::TemporaryDirectory;
using testing::Each;
using testing::ElementsAre;
using testing::Field;

constexpr std::size_t filePages = 16;

std::vector<std::uint64_t> batchesOf(const std::vector<Submission>& submissions)
{
    std::vector<std::uint64_t> batches;
    for (const Submission& submission : submissions)
        batches.push_back(submission.offered);
    return batches;
}

std::vector<std::string> threadsOf(const std::vector<Submission>& submissions)
{
    std::vector<std::string> names;
    for (const Submission& submission : submissions)
        names.push_back(submission.threadName);
    return names;
}

std::set<io_context_t> contextsOf(const std::vector<Submission>& submissions)
{
    std::set<io_context_t> contexts;
    for (const Submission& submission : submissions)
        contexts.insert(submission.context);
    return contexts;
}

class KernelWatch : public testing::Test {
protected:
    void TearDown() override
    {
        layer.reset();
        kernel.reset();
    }

    void open(const Parameters& parameters, std::size_t requests = 64)
    {
        layer.emplace(directory.path(), parameters, requests);
        layer->fillPages(filePages);
    }
    void issue(std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i)
            layer->read(i, i % filePages * page);
    }
    // With nothing that ends meanwhile, the submit thread brings all that it may to the kernel.
    void issueAndFill(std::size_t count)
    {
        kernel.holdSubmissions();
        kernel.holdReaps();
        layer->completions.expect(count);
        issue(count);
        kernel.waitForHeldSubmission();
        kernel.releaseSubmissions();
        layer->factory->getStatistics();  // returns when the submit thread has done its work
    }
    void serveAll()
    {
        kernel.releaseReaps();
        layer->completions.wait();
        EXPECT_EQ(layer->completions.errors(), 0U);
    }
    void serveOneByOne(std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i) {
            layer->completions.expect(1);
            layer->read(i, i % filePages * page);
            layer->completions.wait();
        }
    }

    KernelStandIn& kernel = KernelStandIn::instance();
    TemporaryDirectory directory{memoryBase()};
    std::optional<Layer> layer;
};

TEST_F(KernelWatch, SeesOneContextOfTheSizeGivenPerCompletionQueue)
{
    const auto factory = makeFactory(
        directory.path(), {{"num_completion_queues", "3"}, {"size_kernel_io_queue", "256"}});

    EXPECT_THAT(kernel.contextSizes(), ElementsAre(256, 256, 256));
}

TEST_F(KernelWatch, SeesOneContextOf512WithoutParameters)
{
    const auto factory = makeFactory(directory.path());

    EXPECT_THAT(kernel.contextSizes(), ElementsAre(512));
}

TEST_F(KernelWatch, SeesEachContextFilledAndReapedByOneThread)
{
    open({{"num_completion_queues", "3"}, {"max_parallel_io_requests", "4"}});

    issueAndFill(12);
    EXPECT_EQ(contextsOf(kernel.submissions()).size(), 3U);
    serveAll();

    std::set<std::string> names;
    for (const auto& [context, threads] : kernel.reapers()) {
        EXPECT_EQ(threads.size(), 1U);
        names.insert(threads.begin(), threads.end());
    }
    EXPECT_THAT(names, ElementsAre("completion-0", "completion-1", "completion-2"));
}

TEST_F(KernelWatch, SeesSynchronousSubmissionsTakeTheContextsInTurn)
{
    open({{"num_completion_queues", "3"}, {"async_read_submit", "off"}});

    serveOneByOne(6);

    const std::vector<Submission> submissions = kernel.submissions();
    ASSERT_EQ(submissions.size(), 6U);
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_EQ(submissions[i].context, submissions[i + 3].context);
    EXPECT_EQ(contextsOf(submissions).size(), 3U);
}

TEST_F(KernelWatch, SeesTheSubmitThreadsInTurn)
{
    open({{"num_submit_queues", "3"}});

    serveOneByOne(6);

    EXPECT_THAT(threadsOf(kernel.submissions()), ElementsAre("submit-0", "submit-1", "submit-2",
                                                             "submit-0", "submit-1", "submit-2"));
}

class MostInFlight : public KernelWatch, public testing::WithParamInterface<std::size_t> {
protected:
    Parameters parameters(const char* readSubmit) const
    {
        return {{"max_parallel_io_requests", std::to_string(GetParam())},
                {"size_kernel_io_queue", "2048"},
                {"min_submit_batch_size", "1"},
                {"max_submit_batch_size", "2048"},
                {"async_read_submit", readSubmit}};
    }
};

TEST_P(MostInFlight, IsReachedAndNeverExceeded)
{
    const std::size_t count = 3 * GetParam();
    open(parameters("on"), count);

    issueAndFill(count);
    kernel.waitForInFlight(GetParam());
    serveAll();

    EXPECT_EQ(kernel.mostInFlightOfOneContext(), GetParam());
}

TEST_P(MostInFlight, IsReachedAndNeverExceededByCallersOfSynchronousSubmission)
{
    const std::size_t count = 3 * GetParam();
    open(parameters("off"), count);
    kernel.holdReaps();
    layer->completions.expect(count);

    const std::jthread caller([&] { issue(count); });
    kernel.waitForInFlight(GetParam());
    serveAll();

    EXPECT_EQ(kernel.mostInFlightOfOneContext(), GetParam());
}

INSTANTIATE_TEST_SUITE_P(Limits, MostInFlight, testing::Values(1, 2, 7, 64, 500),
                         testing::PrintToStringParamName());

TEST_F(KernelWatch, SeesTheMostInFlightInEachOfSeveralContexts)
{
    open({{"num_completion_queues", "2"},
          {"max_parallel_io_requests", "5"},
          {"min_submit_batch_size", "1"}});

    issueAndFill(30);
    kernel.waitForInFlight(10);
    serveAll();

    EXPECT_EQ(kernel.mostInFlightOfOneContext(), 5U);
}

struct BatchLimits {
    std::size_t inFlight;
    std::size_t least;
    std::size_t most;

    Parameters parameters() const
    {
        return {{"size_kernel_io_queue", "2048"},
                {"max_parallel_io_requests", std::to_string(inFlight)},
                {"min_submit_batch_size", std::to_string(least)},
                {"max_submit_batch_size", std::to_string(most)}};
    }
    std::string name() const
    {
        return std::to_string(least) + "To" + std::to_string(most) + "Of" +
               std::to_string(inFlight);
    }
};

class Batches : public KernelWatch, public testing::WithParamInterface<BatchLimits> {
protected:
    static constexpr std::size_t count = 1000;

    // Of the submissions beside which requests were in flight and behind which more were waiting.
    std::vector<std::uint64_t> batchesInFullFlow() const
    {
        std::vector<std::uint64_t> batches;
        std::uint64_t submitted = 0;
        for (const Submission& submission : kernel.submissions()) {
            submitted += submission.taken;
            if (submission.inFlightBefore > 0 && submitted < count)
                batches.push_back(submission.offered);
        }
        return batches;
    }
};

TEST_P(Batches, StayBetweenTheirLimitsInFullFlow)
{
    open(GetParam().parameters(), count);
    kernel.mostPerReap = 5;

    issueAndFill(count);
    serveAll();

    const auto batches = batchesOf(kernel.submissions());
    EXPECT_THAT(batches, Each(testing::Le(GetParam().most)));
    EXPECT_THAT(batchesInFullFlow(), testing::Not(testing::IsEmpty()));
    EXPECT_THAT(batchesInFullFlow(), Each(testing::Ge(GetParam().least)));
    EXPECT_EQ(std::accumulate(batches.begin(), batches.end(), std::uint64_t{0}), count);
}

TEST_P(Batches, FillAnEmptyQueueInGrowingSteps)
{
    open(GetParam().parameters(), count);

    issueAndFill(count);
    std::vector<std::uint64_t> steps = batchesOf(kernel.submissions());
    serveAll();

    EXPECT_LE(steps.front(), GetParam().least);
    steps.pop_back();  // what was left of the slots
    EXPECT_TRUE(std::is_sorted(steps.begin(), steps.end())) << testing::PrintToString(steps);
}

INSTANTIATE_TEST_SUITE_P(Limits, Batches,
                         testing::Values(BatchLimits{64, 16, 64}, BatchLimits{256, 8, 32},
                                         BatchLimits{64, 1, 2}, BatchLimits{64, 48, 64},
                                         BatchLimits{512, 100, 200}),
                         [](const auto& tested) { return tested.param.name(); });

TEST_F(KernelWatch, SeesTheLargestBatchWhileThereAreSlotsForIt)
{
    open(BatchLimits{256, 8, 32}.parameters(), 1000);

    issueAndFill(1000);
    const auto batches = batchesOf(kernel.submissions());
    serveAll();

    EXPECT_EQ(*std::max_element(batches.begin(), batches.end()), 32U);
}

// Nothing in flight means nothing to wait for, however few they are.
TEST_F(KernelWatch, SeesFewerRequestsThanTheSmallestBatch)
{
    open({{"min_submit_batch_size", "16"}});

    issueAndFill(3);
    serveAll();

    EXPECT_EQ(layer->completions.reads(), 3U);
}

TEST_F(KernelWatch, SeesAsynchronousReadsOnThreadsOfTheLayerAlone)
{
    open({{"async_read_submit", "on"}});

    layer->completions.expect(64);
    issue(64);
    layer->completions.wait();

    EXPECT_THAT(threadsOf(kernel.submissions()), Each(testing::AnyOf("submit-0", "completion-0")));
}

TEST_F(KernelWatch, SeesSynchronousReadsOnTheCallingThreadOneByOne)
{
    open({{"async_read_submit", "off"}});

    layer->completions.expect(64);
    issue(64);
    layer->completions.wait();

    EXPECT_THAT(kernel.submissions(), Each(Field(&Submission::thread, std::this_thread::get_id())));
    EXPECT_THAT(batchesOf(kernel.submissions()), Each(1U));
}

// The rest of a short transfer goes from the thread that has learnt of it.
TEST_F(KernelWatch, SeesTheRestOfAShortTransferOnTheCompletionThread)
{
    open({{"async_read_submit", "off"}});
    kernel.transferred = [](const iocb& request) {
        return request.u.c.nbytes == page ? page / 2 : request.u.c.nbytes;
    };
    const unitTests::CapturedOutput errors(std::cerr);

    serveOneByOne(1);

    EXPECT_THAT(threadsOf(kernel.submissions()), ElementsAre(testing::_, "completion-0"));
}

struct WriteRule {
    const char* active;
    const char* blocks;
    bool oldAreAsynchronous;  // blocks that the file has already
    bool newAreAsynchronous;

    Parameters parameters() const
    {
        return {{"async_write_submit_active", active}, {"async_write_submit_blocks", blocks}};
    }
};

class Writes : public KernelWatch, public testing::WithParamInterface<WriteRule> {
protected:
    bool isSubmittedByTheLayer(bool newBlocks)
    {
        const std::size_t before = kernel.submissions().size();
        layer->completions.expect(1);
        layer->file->writeAsync(0, layer->pageAt(0), page, newBlocks, layer->completions,
                                layer->blocks[0], nullptr);
        layer->completions.wait();
        const std::vector<Submission> submissions = kernel.submissions();
        EXPECT_EQ(submissions.size(), before + 1);
        return submissions.back().thread != std::this_thread::get_id();
    }
    void expectRule()
    {
        EXPECT_EQ(isSubmittedByTheLayer(false), GetParam().oldAreAsynchronous);
        EXPECT_EQ(isSubmittedByTheLayer(true), GetParam().newAreAsynchronous);
    }
};

std::string nameOf(const testing::TestParamInfo<WriteRule>& tested)
{
    return std::string(tested.param.active) + "_" + tested.param.blocks;
}

TEST_P(Writes, GoTheWayThatTheParametersSay)
{
    open(GetParam().parameters());

    expectRule();
}

// A file system in memory never waits inside a submission.
INSTANTIATE_TEST_SUITE_P(
    InMemory, Writes,
    testing::Values(WriteRule{"on", "all", true, true}, WriteRule{"on", "new", false, true},
                    WriteRule{"on", "none", false, false}, WriteRule{"off", "all", false, false},
                    WriteRule{"off", "new", false, false}, WriteRule{"off", "none", false, false},
                    WriteRule{"auto", "all", false, false}, WriteRule{"auto", "new", false, false},
                    WriteRule{"auto", "none", false, false}),
    nameOf);

using WritesToDisk = Writes;

TEST_P(WritesToDisk, GoTheWayThatTheParametersSay)
{
    const TemporaryDirectory onDisk;
    const Basis::string path(onDisk.path(), Basis::Allocator::global().get());
    if (!FileAccess::FileSystem(path, true, true).isValid())
        GTEST_SKIP() << "temporary files lie on no real file system";
    layer.emplace(onDisk.path(), GetParam().parameters());

    expectRule();
    layer.reset();
}

INSTANTIATE_TEST_SUITE_P(OnDisk, WritesToDisk,
                         testing::Values(WriteRule{"auto", "all", true, true},
                                         WriteRule{"auto", "new", false, true},
                                         WriteRule{"auto", "none", false, false},
                                         WriteRule{"off", "all", false, false}),
                         nameOf);

TEST_F(KernelWatch, SeesReadsAndWritesGoTheirOwnWays)
{
    open({{"async_read_submit", "off"}, {"async_write_submit_active", "on"}});
    layer->completions.expect(2);

    layer->read(0, 0);
    layer->write(1, page);
    layer->completions.wait();

    const std::vector<Submission> submissions = kernel.submissions();
    ASSERT_EQ(submissions.size(), 2U);
    EXPECT_EQ(submissions[0].thread, std::this_thread::get_id());
    EXPECT_NE(submissions[1].thread, std::this_thread::get_id());
}

}  // namespace
