// What the layer makes of the answers of a kernel that takes requests in part, refuses some, is
// interrupted and transfers less than it was asked for.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "tests/services/FileAccess/KernelStandIn.h"
#include "tests/services/FileAccess/LayerSupport.h"

namespace {

using fileLayerTests::Completions;
using fileLayerTests::KernelStandIn;
using fileLayerTests::Layer;
using fileLayerTests::memoryBase;
using fileLayerTests::page;
using fileLayerTests::Parameters;
using fileLayerTests::TemporaryDirectory;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::size_t pages = 200;

struct Way {
    const char* name;
    Parameters parameters;
};

// Counts the reports of each request: the context is its place in the list.
class Reports : public Completions {
public:
    void dataRead(const Status& finished) override
    {
        note(finished);
        Completions::dataRead(finished);
    }
    void dataWritten(const Status& finished) override
    {
        note(finished);
        Completions::dataWritten(finished);
    }
    void transferError(const Status& finished, const std::exception& error) override
    {
        note(finished);
        Completions::transferError(finished, error);
    }

    /// One more request is issued; returns its context.
    void* issue()
    {
        const std::scoped_lock lock(mutex);
        counts.push_back(0);
        return reinterpret_cast<void*>(counts.size());
    }
    /// The numbers of reports that requests have had, each number once.
    std::set<int> countsOfAll() const
    {
        const std::scoped_lock lock(mutex);
        return {counts.begin(), counts.end()};
    }

private:
    void note(const Status& finished)
    {
        const std::scoped_lock lock(mutex);
        ++counts.at(reinterpret_cast<std::uintptr_t>(finished.context) - 1);
    }

    mutable std::mutex mutex;
    std::vector<int> counts;
};

// An answer that some requests get so many times each. Several threads may ask.
class AnswerOfEach {
public:
    AnswerOfEach(int systemError, int times) : answer(systemError), timesOfEach(times) {}

    int operator()(const iocb& request)
    {
        const std::scoped_lock lock(mutex);
        return given[request.u.c.offset]++ < timesOfEach ? answer : 0;
    }

private:
    int answer;
    int timesOfEach;
    std::mutex mutex;
    std::map<long long, int> given;
};

long long pageOf(const iocb& request)
{
    return request.u.c.offset / static_cast<long long>(page);
}

class KernelAnswers : public testing::TestWithParam<Way> {
protected:
    KernelAnswers() { layer.fillPages(pages); }
    // With the factory all its threads have gone: what is reported twice is seen.
    void TearDown() override
    {
        layer.file.reset();
        layer.factory.reset();
        kernel.reset();
        EXPECT_THAT(reports.countsOfAll(), ElementsAre(1));
    }

    void readAll(std::size_t count = pages)
    {
        for (std::size_t i = 0; i < count; ++i)
            std::memset(layer.pageAt(i), 0xee, page);
        reports.expect(count);
        for (std::size_t i = 0; i < count; ++i) {
            layer.file->readAsync(i * page, layer.pageAt(i), page, 0, reports, layer.blocks[i],
                                  reports.issue());
        }
        reports.wait();
    }
    void writeAll(std::size_t count = pages)
    {
        for (std::size_t i = 0; i < count; ++i)
            std::memset(layer.pageAt(i), static_cast<int>(pages - i), page);
        reports.expect(count);
        for (std::size_t i = 0; i < count; ++i) {
            layer.file->writeAsync(i * page, layer.pageAt(i), page, false, reports, layer.blocks[i],
                                   reports.issue());
        }
        reports.wait();
    }
    void expectPage(std::size_t index, std::size_t byte) const
    {
        ASSERT_EQ(std::string(layer.pageAt(index), page),
                  std::string(page, static_cast<char>(byte)))
            << "page " << index;
    }
    void expectAllRead(std::size_t count = pages) const
    {
        EXPECT_EQ(reports.reads(), count);
        EXPECT_EQ(reports.errors(), 0U) << reports.errorText();
        for (std::size_t i = 0; i < count && !HasFatalFailure(); ++i)
            expectPage(i, i);
    }

    KernelStandIn& kernel = KernelStandIn::instance();
    TemporaryDirectory directory{memoryBase()};
    Reports reports;
    Layer layer{directory.path(), GetParam().parameters, pages};
};

TEST_P(KernelAnswers, StandInIsBetweenTheLayerAndTheKernel)
{
    kernel.reset();

    readAll();

    expectAllRead();
    EXPECT_EQ(kernel.requestsTaken(), pages);
    EXPECT_GT(kernel.reaps, 0U);
}

TEST_P(KernelAnswers, GoesOnAfterASubmissionThatWasTakenInPart)
{
    for (const long most : {1, 3, 7}) {
        kernel.mostPerSubmission = most;

        readAll();

        expectAllRead();
    }
}

TEST_P(KernelAnswers, RepeatsWhatWasInterrupted)
{
    kernel.interruptedSubmissions = 5;
    kernel.interruptedReaps = 5;

    readAll();

    expectAllRead();
    EXPECT_EQ(kernel.interruptedSubmissions, 0);
    EXPECT_EQ(kernel.interruptedReaps, 0);
}

TEST_P(KernelAnswers, ReportsWhatIsInterruptedForEver)
{
    kernel.interruptedSubmissions = KernelStandIn::forEver;

    readAll(4);

    EXPECT_EQ(reports.errors(), 4U);
    EXPECT_THAT(reports.errorText(), AllOf(HasSubstr("EINTR"), HasSubstr("read of ")));
}

TEST_P(KernelAnswers, ComesAgainAfterAReapOfNothing)
{
    kernel.emptyReaps = 7;

    readAll();

    expectAllRead();
    EXPECT_EQ(kernel.emptyReaps, 0);
}

TEST_P(KernelAnswers, LosesNothingWhenCompletionsComeAFewAtATime)
{
    for (const long most : {1, 2, 5}) {
        kernel.mostPerReap = most;

        readAll();

        expectAllRead();
    }
}

TEST_P(KernelAnswers, ComesAgainWhenTheKernelIsShortOfSomething)
{
    kernel.busySubmissions = 3;

    readAll();

    expectAllRead();
    EXPECT_EQ(kernel.busySubmissions, 0);
    EXPECT_GE(kernel.pauses, 3U);
}

TEST_P(KernelAnswers, ComesAgainForTheRequestsThatTheKernelHadNoRoomFor)
{
    AnswerOfEach noRoom(EAGAIN, 2);
    kernel.refusal = [&](const iocb& request) {
        return pageOf(request) % 7 == 2 ? noRoom(request) : 0;
    };

    readAll();

    expectAllRead();
}

TEST_P(KernelAnswers, ReportsARefusalThatLasts)
{
    kernel.refusal = [](const iocb& request) { return pageOf(request) == 9 ? EAGAIN : 0; };

    readAll();

    EXPECT_EQ(reports.errors(), 1U);
    EXPECT_EQ(reports.reads(), pages - 1);
    EXPECT_THAT(reports.errorText(),
                AllOf(HasSubstr("EAGAIN"), HasSubstr("Resource temporarily unavailable"),
                      HasSubstr("/datavol.dat at offset 36864, size 4096")));
}

TEST_P(KernelAnswers, ReportsEachRefusedRequestAndServesTheOthers)
{
    kernel.refusal = [](const iocb& request) { return pageOf(request) % 5 == 3 ? EBADF : 0; };

    readAll();

    EXPECT_EQ(reports.errors(), pages / 5);
    EXPECT_EQ(reports.reads(), pages - pages / 5);
    EXPECT_THAT(reports.errorText(), HasSubstr("EBADF"));
    EXPECT_THAT(reports.errorText(), HasSubstr("read of " + directory.path()));
}

// With nothing in flight no completion follows a refusal, and the next request must go all the
// same.
TEST_P(KernelAnswers, GoesOnAfterARefusalOfEverything)
{
    kernel.refusal = [](const iocb&) { return EIO; };
    readAll();
    EXPECT_EQ(reports.errors(), pages);

    kernel.refusal = nullptr;
    readAll();

    expectAllRead();
}

TEST_P(KernelAnswers, CountsTheTimeOfRefusedRequestsToTheirEnd)
{
    kernel.refusal = [](const iocb&) { return EIO; };
    readAll();

    const std::uint64_t after = layer.factory->getStatistics()->getTotalReadTicks(1);

    EXPECT_GT(after, 0U);
    EXPECT_EQ(layer.factory->getStatistics()->getTotalReadTicks(1), after);
}

TEST_P(KernelAnswers, ContinuesShortTransfersToTheirEnd)
{
    kernel.transferred = [](const iocb& request) {
        return request.u.c.nbytes > 1024 ? 1024 : request.u.c.nbytes;
    };

    readAll();

    expectAllRead();
}

TEST_P(KernelAnswers, ContinuesShortWrites)
{
    kernel.transferred = [](const iocb& request) {
        return request.u.c.nbytes > 512 ? request.u.c.nbytes - 512 : request.u.c.nbytes;
    };
    writeAll();
    EXPECT_EQ(reports.writes(), pages);

    kernel.transferred = nullptr;
    readAll();

    for (std::size_t i = 0; i < pages && !HasFatalFailure(); ++i)
        expectPage(i, pages - i);
}

// The slot of such a request comes back without a completion.
TEST_P(KernelAnswers, ReportsARestThatIsRefusedAndGoesOn)
{
    kernel.transferred = [](const iocb& request) {
        return request.u.c.nbytes == page ? 512 : request.u.c.nbytes;
    };
    kernel.refusal = [](const iocb& request) { return request.u.c.nbytes == page ? 0 : ENXIO; };
    readAll();
    EXPECT_EQ(reports.errors(), pages);
    EXPECT_THAT(reports.errorText(), HasSubstr("size 4096"));
    EXPECT_EQ(reports.lastStatus().size, page);
    EXPECT_EQ(reports.lastStatus().offset % page, 0U);

    kernel.transferred = nullptr;
    kernel.refusal = nullptr;
    readAll();

    expectAllRead();
}

TEST_P(KernelAnswers, ReportsAnErrorOfTheDeviceOnce)
{
    kernel.failure = [](const iocb& request) { return pageOf(request) == 7 ? EIO : 0; };

    readAll();

    EXPECT_EQ(reports.errors(), 1U);
    EXPECT_EQ(reports.reads(), pages - 1);
    EXPECT_THAT(reports.errorText(), HasSubstr("read of " + directory.path() +
                                               "/datavol.dat at offset 28672, size 4096"));
    EXPECT_THAT(reports.errorText(), HasSubstr("EIO"));
    EXPECT_THAT(reports.errorText(), HasSubstr("Input/output error"));
}

TEST_P(KernelAnswers, ReportsAFailedWriteAsOne)
{
    kernel.failure = [](const iocb& request) { return pageOf(request) == 3 ? EIO : 0; };

    writeAll();

    EXPECT_EQ(reports.errors(), 1U);
    EXPECT_EQ(reports.writes(), pages - 1);
    EXPECT_THAT(reports.errorText(),
                AllOf(HasSubstr("EIO"), HasSubstr("write of " + directory.path() +
                                                  "/datavol.dat at offset 12288, size 4096")));
}

TEST_P(KernelAnswers, TakesAWriteOfNothingForAFullFileSystem)
{
    kernel.transferred = [](const iocb&) { return std::uint64_t{0}; };

    writeAll(1);

    EXPECT_EQ(reports.errors(), 1U);
    EXPECT_THAT(reports.errorText(), AllOf(HasSubstr("ENOSPC"), HasSubstr("write of ")));
}

TEST_P(KernelAnswers, TakesAReadOfNothingForTheEndOfTheFile)
{
    kernel.transferred = [](const iocb&) { return std::uint64_t{0}; };

    readAll(1);

    EXPECT_EQ(reports.errors(), 1U);
    EXPECT_THAT(reports.errorText(), AllOf(HasSubstr("ENODATA"), HasSubstr("read of ")));
}

TEST_P(KernelAnswers, TriesAgainWhatEndedWithAnInterruptionOrAShortage)
{
    for (const int passing : {EINTR, EAGAIN}) {
        AnswerOfEach answer(passing, 3);
        kernel.failure = [&](const iocb& request) {
            return pageOf(request) % 4 == 1 ? answer(request) : 0;
        };
        const std::uint64_t before = kernel.requestsTaken();

        readAll();

        expectAllRead();
        EXPECT_EQ(kernel.requestsTaken() - before, pages + 3 * pages / 4);
    }
}

TEST_P(KernelAnswers, GoesOnFromWhereAnInterruptedRestBegan)
{
    AnswerOfEach answer(EINTR, 1);
    kernel.transferred = [](const iocb& request) {
        return request.u.c.nbytes > 1024 ? 1024 : request.u.c.nbytes;
    };
    kernel.failure = [&](const iocb& request) {
        return request.u.c.offset % static_cast<long long>(page) == 2048 ? answer(request) : 0;
    };

    readAll();

    expectAllRead();
}

TEST_P(KernelAnswers, ReportsWhatEndsWithAnInterruptionForEver)
{
    for (const int passing : {EINTR, EAGAIN}) {
        kernel.failure = [&](const iocb& request) { return pageOf(request) == 2 ? passing : 0; };

        readAll(8);

        EXPECT_EQ(reports.errors(), 1U);
        EXPECT_EQ(reports.reads(), 7U);
        EXPECT_THAT(reports.errorText(), AllOf(HasSubstr(passing == EINTR ? "EINTR" : "EAGAIN"),
                                               HasSubstr("at offset 8192, size 4096")));
    }
}

// A block that has used its trials up gets new ones with its next request.
TEST_P(KernelAnswers, CountsTheTrialsOfEachRequestAnew)
{
    kernel.failure = [](const iocb&) { return EINTR; };
    readAll(1);
    EXPECT_EQ(reports.errors(), 1U);

    AnswerOfEach answer(EINTR, 1);
    kernel.failure = [&](const iocb& request) { return answer(request); };
    readAll(1);

    expectAllRead(1);
}

// All of it at once, many times: requests must neither be lost nor end twice.
TEST_P(KernelAnswers, LosesNothingWhenEverythingComesTogether)
{
    kernel.mostPerSubmission = 5;
    kernel.transferred = [](const iocb& request) {
        return request.u.c.nbytes > 1536 ? 1536 : request.u.c.nbytes;
    };
    kernel.refusal = [](const iocb& request) { return pageOf(request) % 9 == 4 ? EIO : 0; };
    for (int round = 0; round < 20; ++round) {
        kernel.interruptedSubmissions = round;
        kernel.interruptedReaps = round;
        const std::size_t count = 1 + static_cast<std::size_t>(round) * 10;

        readAll(count);

        ASSERT_EQ(reports.errors(), (count + 4) / 9);
        ASSERT_EQ(reports.reads(), count - (count + 4) / 9);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Ways, KernelAnswers,
    testing::Values(
        Way{"Asynchronous", {{"async_write_submit_active", "on"}}},
        Way{"Synchronous", {{"async_read_submit", "off"}, {"async_write_submit_active", "off"}}},
        Way{"OneByOne", {{"async_write_submit_active", "on"}, {"max_parallel_io_requests", "1"}}},
        Way{"SynchronousOneByOne",
            {{"async_read_submit", "off"},
             {"async_write_submit_active", "off"},
             {"max_parallel_io_requests", "1"}}},
        Way{"SeveralQueues",
            {{"async_write_submit_active", "on"},
             {"num_submit_queues", "3"},
             {"num_completion_queues", "2"},
             {"max_parallel_io_requests", "8"}}}),
    [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
