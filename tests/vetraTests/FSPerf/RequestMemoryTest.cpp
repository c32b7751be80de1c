#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstdlib>
#include <memory>
#include <new>

#include "tests/vetraTests/FSPerf/CountedAllocations.h"
#include "tests/vetraTests/FSPerf/RequestHandler.h"

namespace vetraTests {

namespace {

constexpr std::size_t blocks = 5000;

class PassMemory : public testing::TestWithParam<Completion> {
protected:
    PassMemory() { options.m_alloc_size = testBlock; }

    void SetUp() override
    {
        layer.completion = GetParam();
        ASSERT_TRUE(handler.init(options) && handler.initDataFile(options));
        // The threads of the fake layer start with the first pass.
        ASSERT_TRUE(handler.executeAsynchronousReadTest(options, throughput));
        countFromTheFirstRequestToTheLast();
    }
    void countFromTheFirstRequestToTheLast()
    {
        layer.forgetRequests();
        layer.onRequest = [this](const SeenRequest&) {
            if (++seen == 1)
                CountedAllocations::begin();
            else if (seen == blocks)
                allocations = CountedAllocations::end();
        };
    }

    FakeFileLayer layer;
    TestOptions options{blocks};
    OpenHandler handler;
    _SFSThroughputStatistics throughput;
    _SFSLatencyStatistics latency;
    std::size_t seen = 0;
    std::size_t allocations = SIZE_MAX;
};

INSTANTIATE_TEST_SUITE_P(Each, PassMemory, testing::Values(Completion::ATONCE, Completion::THREADS),
                         [](const auto& test) {
                             return test.param == Completion::ATONCE ? "EndingAtOnce"
                                                                     : "EndingOnThreads";
                         });

}  // namespace

TEST(CountedAllocations, SeesEveryKind)
{
    CountedAllocations::begin();
    const auto number = std::make_unique<volatile int>(5);
    EXPECT_EQ(CountedAllocations::end(), 1U);

    CountedAllocations::begin();
    void* volatile block = std::malloc(100);
    EXPECT_EQ(CountedAllocations::end(), 1U);
    std::free(block);
}

TEST_P(PassMemory, IsReadyBeforeAnAsynchronousRead)
{
    EXPECT_TRUE(handler.executeAsynchronousReadTest(options, throughput));
    EXPECT_EQ(allocations, 0U);
}

TEST_P(PassMemory, IsReadyBeforeAnAsynchronousWrite)
{
    EXPECT_TRUE(handler.executeAsynchronousWriteTest(options, true, throughput));
    EXPECT_EQ(allocations, 0U);
}

TEST_P(PassMemory, IsReadyBeforeASynchronousRead)
{
    EXPECT_TRUE(handler.executeSynchronousReadTest(options, latency));
    EXPECT_EQ(allocations, 0U);
}

TEST_P(PassMemory, IsReadyBeforeASynchronousWrite)
{
    EXPECT_TRUE(handler.executeSynchronousWriteTest(options, latency));
    EXPECT_EQ(allocations, 0U);
}

TEST(ControlBlockList, FailsInitIfItCannotBeHad)
{
    FakeFileLayer layer;
    TestOptions options(1 << 20);
    options.m_alloc_size = testBlock;
    layer.controlBlockSize = 1;
    OpenHandler handler;
    bool succeeded = true;

    const Printed printed = printedBy([&] {
        const RefusedAllocations refused((std::size_t{1} << 20) * sizeof(void*));
        succeeded = handler.init(options);
    });

    EXPECT_FALSE(succeeded);
    EXPECT_EQ(printed.errors, "ERROR: Exception: Could not allocate IO control block list!\n");
}

TEST(AlignedMemory, IsOfPagesOfZeros)
{
    const AlignedMemory memory(10000);

    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory.data()) % 4096, 0U);
    EXPECT_EQ(memory.size(), 10000U);
    for (std::size_t i = 0; i < memory.size(); ++i)
        ASSERT_EQ(memory.data()[i], std::byte{0});
}

TEST(AlignedMemory, OfNoBytesIsNone)
{
    EXPECT_EQ(AlignedMemory(0).data(), nullptr);
    EXPECT_EQ(AlignedMemory().data(), nullptr);
}

TEST(AlignedMemory, ThrowsIfItCannotBeHad)
{
    EXPECT_THROW(AlignedMemory(std::size_t{1} << 60), std::bad_alloc);
}

TEST(AlignedMemory, CanBeLargerThanAHugePage)
{
    const AlignedMemory memory(std::size_t{5} << 20);

    memory.data()[memory.size() - 1] = std::byte{1};

    EXPECT_EQ(memory.data()[0], std::byte{0});
}

TEST(AlignedMemory, GoesBackToTheKernel)
{
    void* address = nullptr;
    {
        const AlignedMemory memory(4096);
        address = memory.data();
        ASSERT_EQ(::msync(address, 4096, MS_ASYNC), 0);
    }
    EXPECT_NE(::msync(address, 4096, MS_ASYNC), 0) << "still mapped";
}

TEST(AlignedMemory, MovesWithItsOwner)
{
    AlignedMemory first(4096);
    std::byte* const address = first.data();

    AlignedMemory second;
    second = std::move(first);
    EXPECT_EQ(second.data(), address);
    EXPECT_EQ(second.size(), 4096U);

    const AlignedMemory third(std::move(second));
    EXPECT_EQ(third.data(), address);
    EXPECT_EQ(second.data(), nullptr);
    EXPECT_EQ(second.size(), 0U);
}

}  // namespace vetraTests
