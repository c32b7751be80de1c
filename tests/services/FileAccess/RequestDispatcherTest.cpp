// The way of requests from several threads through all kinds of queues to their callbacks: short
// passes in great number, since what is lost is lost at the edges of a pass.
#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "Synchronization/Barrier.h"
#include "tests/services/FileAccess/LayerSupport.h"

namespace {

using fileLayerTests::Layer;
using fileLayerTests::memoryBase;
using fileLayerTests::page;
using fileLayerTests::Parameters;
using fileLayerTests::TemporaryDirectory;

/// More passes for a long run.
int passes(int standard)
{
    const char* factor = std::getenv("VETRA_TEST_PASSES");
    return factor ? standard * std::atoi(factor) : standard;
}

constexpr std::size_t filePages = 64;
constexpr std::size_t mostRequests = 400;

// What a pass does: so many requests by so many threads, with or without pauses between them.
struct Pass {
    std::size_t requests;
    std::size_t threads;
    bool hasPauses;
    bool hasWrites;
};

// From nothing to some microseconds, and now and then the processor to others.
void pause(std::uint_fast32_t random)
{
    for (auto turns = random % 200; turns > 0; --turns)
        __builtin_ia32_pause();
    if (random % 64 == 0)
        std::this_thread::yield();
}

class Flow {
public:
    Flow(const std::string& base, const Parameters& parameters)
        : directory(base), layer(directory.path(), parameters, mostRequests)
    {
        layer.fillPages(filePages);
        fileLayerTests::resetAllDomains();
    }

    void run(const Pass& pass)
    {
        layer.completions.expect(pass.requests);
        {
            std::vector<std::jthread> threads;
            for (std::size_t number = 1; number < pass.threads; ++number)
                threads.emplace_back([this, pass, number] { issue(pass, number); });
            issue(pass, 0);
        }
        layer.completions.wait();
        verify(pass);
    }

    Layer& operator*() { return layer; }

private:
    void issue(const Pass& pass, std::size_t number)
    {
        std::minstd_rand random(static_cast<unsigned>(pass.requests * 8 + number));
        for (std::size_t i = number; i < pass.requests; i += pass.threads) {
            const std::size_t place = i % filePages;
            if (pass.hasWrites && i % 3 == 0) {
                std::memset(layer.pageAt(i), static_cast<int>(place), page);
                layer.write(i, place * page);
            } else {
                std::memset(layer.pageAt(i), 0xee, page);
                layer.read(i, place * page);
            }
            if (pass.hasPauses)
                pause(random());
        }
    }

    void verify(const Pass& pass)
    {
        const auto& record = layer.factory->getDetailedStatistics(page);
        const std::uint64_t counted = record.read.requests.getValueSinceReset(1) +
                                      record.write.requests.getValueSinceReset(1);
        issued += pass.requests;
        ASSERT_EQ(counted, issued);
        ASSERT_EQ(layer.completions.errors(), 0U);
        ASSERT_EQ(layer.completions.reads() + layer.completions.writes(), pass.requests);
        for (std::size_t i = 0; i < pass.requests; ++i) {
            ASSERT_EQ(layer.pageAt(i)[0], static_cast<char>(i % filePages)) << i;
            ASSERT_EQ(layer.pageAt(i)[page - 1], static_cast<char>(i % filePages)) << i;
        }
    }

    TemporaryDirectory directory;
    Layer layer;
    std::uint64_t issued = 0;
};

struct Setting {
    const char* submitQueues;
    const char* completionQueues;
    const char* depth;
    const char* leastBatch;
    const char* mostBatch;
    const char* reads;
    const char* writes;

    Parameters parameters() const
    {
        return {{"num_submit_queues", submitQueues},   {"num_completion_queues", completionQueues},
                {"size_kernel_io_queue", "2048"},      {"max_parallel_io_requests", depth},
                {"min_submit_batch_size", leastBatch}, {"max_submit_batch_size", mostBatch},
                {"async_read_submit", reads},          {"async_write_submit_active", writes}};
    }
    std::string name() const
    {
        const std::string ways = std::string(reads) + writes;
        return std::string("Queues") + submitQueues + "x" + completionQueues + "Depth" + depth +
               "Batches" + leastBatch + "to" + mostBatch +
               (ways == "onon"     ? ""
                : ways == "offoff" ? "Synchronous"
                                   : "Mixed");
    }
};

class RequestDispatcher : public testing::TestWithParam<Setting> {};

TEST_P(RequestDispatcher, BringsEachRequestOfEachPassToItsEnd)
{
    Flow flow(memoryBase(), GetParam().parameters());
    constexpr std::size_t counts[] = {1, 2, 3, 15, 16, 17, 63, 64, 65, 400};
    const int rounds = passes(10);

    for (int round = 0; round < rounds && !HasFatalFailure(); ++round) {
        for (const std::size_t count : counts) {
            const auto threads =
                std::min<std::size_t>(count, 1 + static_cast<std::size_t>(round) % 3);
            flow.run({count, threads, round % 2 == 1, round % 4 >= 2});
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Queues, RequestDispatcher,
                         testing::Values(Setting{"1", "1", "1", "1", "1", "on", "on"},
                                         Setting{"1", "1", "2", "1", "2", "on", "on"},
                                         Setting{"1", "1", "64", "16", "64", "on", "on"},
                                         Setting{"1", "1", "64", "63", "64", "on", "on"},
                                         Setting{"1", "1", "2048", "1", "2048", "on", "on"},
                                         Setting{"1", "1", "2048", "2047", "2048", "on", "on"},
                                         Setting{"2", "1", "64", "16", "64", "on", "on"},
                                         Setting{"4", "1", "16", "8", "16", "on", "on"},
                                         Setting{"1", "2", "64", "16", "64", "on", "on"},
                                         Setting{"1", "4", "16", "15", "16", "on", "on"},
                                         Setting{"2", "2", "3", "2", "3", "on", "on"},
                                         Setting{"2", "2", "64", "1", "2", "on", "on"},
                                         Setting{"4", "4", "1", "1", "1", "on", "on"},
                                         Setting{"4", "4", "64", "16", "64", "on", "on"},
                                         Setting{"4", "4", "512", "100", "200", "on", "on"}),
                         [](const auto& tested) { return tested.param.name(); });

INSTANTIATE_TEST_SUITE_P(SynchronousSubmission, RequestDispatcher,
                         testing::Values(Setting{"1", "1", "1", "1", "1", "off", "off"},
                                         Setting{"1", "1", "64", "16", "64", "off", "off"},
                                         Setting{"2", "4", "3", "1", "2", "off", "off"},
                                         Setting{"1", "1", "1", "1", "1", "on", "off"},
                                         Setting{"1", "1", "8", "7", "8", "on", "off"},
                                         Setting{"2", "2", "2", "1", "2", "off", "on"},
                                         Setting{"4", "4", "64", "16", "64", "on", "off"}),
                         [](const auto& tested) { return tested.param.name(); });

// The flow ends and begins again with each request.
TEST(RequestDispatcherAtItsEdge, StartsAgainAfterEachSingleRequest)
{
    Flow flow(memoryBase(), {{"num_submit_queues", "2"}, {"num_completion_queues", "2"}});
    const int rounds = passes(2000);

    for (int round = 0; round < rounds && !testing::Test::HasFatalFailure(); ++round)
        flow.run({1, 1, false, false});
}

// With the last request of the one thread under way the other one pushes its first.
TEST(RequestDispatcherAtItsEdge, ForgetsNoRequestBesideTheLastOneOfTheOtherThread)
{
    Flow flow(memoryBase(), {});
    const int rounds = passes(500);

    for (int round = 0; round < rounds && !testing::Test::HasFatalFailure(); ++round)
        flow.run({2, 2, round % 2 == 0, false});
}

TEST(RequestDispatcherOnDisk, BringsEachRequestToItsEnd)
{
    Flow flow({}, {{"num_submit_queues", "2"}, {"num_completion_queues", "2"}});
    const int rounds = passes(5);

    for (int round = 0; round < rounds && !testing::Test::HasFatalFailure(); ++round) {
        for (const std::size_t count : {1U, 17U, 64U, 400U})
            flow.run({count, std::min<std::size_t>(count, 3), round % 2 == 1, round % 2 == 1});
    }
}

// Issues the next request of its block as soon as the last one has ended.
class Chain : public FileAccess::FileCallback {
public:
    Chain(Layer& tested, std::size_t requests)
        : layer(tested), left(static_cast<std::ptrdiff_t>(requests))
    {
    }

    /// So many chains, each on its own block.
    void run(std::size_t chains)
    {
        running = chains;
        for (std::size_t i = 0; i < chains; ++i)
            issue(i);
        gate.wait();
    }
    std::size_t ended() const { return endedCount; }

    void dataRead(const Status& status) override
    {
        ++endedCount;
        if (left.fetch_sub(1) > 0)
            issue(reinterpret_cast<std::uintptr_t>(status.context));
        else if (--running == 0)
            gate.signal();
    }
    void dataWritten(const Status&) override {}
    void transferError(const Status&, const std::exception& error) override
    {
        ADD_FAILURE() << error.what();
    }

private:
    void issue(std::size_t number)
    {
        layer.file->readAsync(number * page, layer.pageAt(number), page, 0, *this,
                              layer.blocks[number], reinterpret_cast<void*>(number));
    }

    Layer& layer;
    std::atomic<std::ptrdiff_t> left;
    std::atomic<std::size_t> running{0};
    std::atomic<std::size_t> endedCount{0};
    Synchronization::Barrier gate;
};

TEST(RequestDispatcherInCallbacks, TakesTheRequestsThatCallbacksIssue)
{
    constexpr std::size_t requests = 2000;
    for (const std::size_t chains : {1U, 2U, 16U, 64U}) {
        const TemporaryDirectory directory(memoryBase());
        Layer layer(directory.path(), {{"num_submit_queues", "2"}, {"num_completion_queues", "2"}},
                    mostRequests);
        layer.fillPages(filePages);
        Chain chain(layer, requests);

        chain.run(chains);

        EXPECT_EQ(chain.ended(), requests + chains);
    }
}

// The destructor waits for what has been accepted.
TEST(RequestDispatcherAtTheEnd, LosesNothingWhenTheFactoryGoesAtOnce)
{
    const int rounds = passes(3);
    for (int round = 0; round < rounds; ++round) {
        const TemporaryDirectory directory(memoryBase());
        auto layer = std::make_unique<Layer>(
            directory.path(),
            Parameters{{"num_submit_queues", "2"}, {"num_completion_queues", "2"}}, mostRequests);
        layer->fillPages(filePages);
        layer->completions.expect(mostRequests);

        for (std::size_t i = 0; i < mostRequests; ++i)
            layer->read(i, i % filePages * page);
        layer->factory.reset();

        EXPECT_EQ(layer->completions.reads(), mostRequests);
    }
}

}  // namespace
