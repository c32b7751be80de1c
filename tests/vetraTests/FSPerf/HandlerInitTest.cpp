#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>

#include "tests/vetraTests/FSPerf/RequestHandler.h"

namespace vetraTests {

namespace {

class HandlerInit : public testing::Test {
protected:
    // Runs init and keeps what it printed.
    bool init()
    {
        bool succeeded = false;
        printed = printedBy([&] { succeeded = handler.init(options); });
        return succeeded;
    }

    FakeFileLayer layer;
    TestOptions options;
    OpenHandler handler;
    Printed printed;
};

bool holdsOnly(const AlignedMemory& memory, std::uint64_t bytes, unsigned char byte)
{
    const auto* const start = reinterpret_cast<const unsigned char*>(memory.data());
    return std::all_of(start, start + bytes, [byte](unsigned char one) { return one == byte; });
}

}  // namespace

TEST_F(HandlerInit, PassesOptionsAndNumbersToTheFactory)
{
    options.m_configuration.setParameterValue("fileio", "num_submit_queues", nullptr, 3);
    options.m_configuration.reconfigure();

    EXPECT_TRUE(init());

    EXPECT_EQ(layer.takeJournal(),
              "createInstance /data type 2 436 4 usage 1 num_submit_queues=3\n");
    EXPECT_EQ(printed.output + printed.errors, "");
}

TEST_F(HandlerInit, FailsWithoutAFactory)
{
    layer.refusesFactory = true;

    EXPECT_FALSE(init());

    EXPECT_EQ(printed.errors, "ERROR: Creation of file factory failed!\n");
    EXPECT_EQ(printed.output, "");
    EXPECT_EQ(handler.m_data_buffer.data(), nullptr);
}

TEST_F(HandlerInit, FillsAPageAlignedBufferWithTheConstantByte)
{
    EXPECT_TRUE(init());

    EXPECT_EQ(handler.m_data_buffer.size(), options.m_alloc_size);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(handler.m_data_buffer.data()) % 4096, 0U);
    EXPECT_TRUE(holdsOnly(handler.m_data_buffer, options.m_alloc_size, 128));
}

TEST_F(HandlerInit, MakesRoomForAControlBlockOfEachRequest)
{
    layer.controlBlockSize = 192;

    EXPECT_TRUE(init());

    EXPECT_EQ(handler.m_control_block_buffer.size(), 10U * 192U);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(handler.m_control_block_buffer.data()) % 64, 0U);
    EXPECT_GE(handler.m_control_blocks.capacity(), 10U);
    EXPECT_TRUE(handler.m_control_blocks.empty());
    EXPECT_TRUE(layer.controlBlocks.empty()) << "blocks are made before each pass";
}

TEST_F(HandlerInit, ChecksParametersBeforeItTakesMemory)
{
    options.parameter("no_such_key=1");

    EXPECT_FALSE(init());

    EXPECT_EQ(handler.m_data_buffer.data(), nullptr);
}

TEST_F(HandlerInit, FailsForAKeyThatTheFactoryDoesNotReport)
{
    options.parameter("no_such_key=1");

    EXPECT_FALSE(init());

    EXPECT_EQ(printed.errors, "ERROR: Parameter check failed!\n");
    EXPECT_EQ(printed.output, "");
}

TEST_F(HandlerInit, FailsIfTheBufferCannotBeHad)
{
    options.m_alloc_size = std::uint64_t{1} << 60;

    EXPECT_FALSE(init());

    EXPECT_EQ(printed.errors, "ERROR: Exception: Could not allocate buffer!\n");
}

TEST_F(HandlerInit, FailsIfTheBufferIsNone)
{
    options.m_alloc_size = 0;

    EXPECT_FALSE(init());

    EXPECT_EQ(printed.errors, "ERROR: Could not allocate buffer!\n");
}

TEST_F(HandlerInit, FailsIfTheControlBlockMemoryCannotBeHad)
{
    options.m_file_size = std::uint64_t{1} << 62;

    EXPECT_FALSE(init());

    EXPECT_EQ(printed.errors, "ERROR: Exception: Could not allocate IO control block buffer!\n");
}

TEST_F(HandlerInit, FailsIfTheSizeOfTheControlBlocksIsBeyond64Bits)
{
    // Ten times this wraps around to a size that could be had.
    layer.controlBlockSize = std::numeric_limits<std::size_t>::max() / 10 + 1;

    EXPECT_FALSE(init());

    EXPECT_EQ(printed.errors, "ERROR: Exception: Could not allocate IO control block buffer!\n");
}

TEST_F(HandlerInit, FailsIfTheControlBlocksAreNone)
{
    layer.controlBlockSize = 0;

    EXPECT_FALSE(init());

    EXPECT_EQ(printed.errors, "ERROR: Could not allocate IO control block buffer!\n");
}

TEST_F(HandlerInit, NamesItsMutexAndHasNoError)
{
    EXPECT_STREQ(handler.m_output_mutex.name(), "FSPers::Output");
    EXPECT_EQ(handler.m_output_mutex.component(), 32U);
    EXPECT_EQ(handler.getError(), 0);
}

TEST(HandlerEnd, ReleasesTheFileBeforeTheFactory)
{
    FakeFileLayer layer;
    TestOptions options;
    {
        OpenHandler handler;
        ASSERT_TRUE(handler.init(options));
        ASSERT_TRUE(handler.initDataFile(options));
        layer.takeJournal();
    }
    EXPECT_EQ(layer.takeJournal(), "close\nfactory ends\n");
}

TEST(HandlerEnd, ReportsAGateThatNobodyWaitedFor)
{
    EXPECT_EQ(printedBy([] {
                  OpenHandler handler;
                  handler.m_barrier.signal();
              }).errors,
              "vetra: barrier not signaled and waited in destructor\n");
}

TEST(HandlerEnd, AcceptsAFreshGateAndOneThatWasWaitedFor)
{
    EXPECT_EQ(printedBy([] {
                  OpenHandler fresh;
                  OpenHandler used;
                  used.m_barrier.signal();
                  used.waitFinished();
              }).errors,
              "");
}

TEST(HandlerEnd, GivesAllMemoryBackToTheDomain)
{
    FakeFileLayer layer;
    const std::size_t before = fsperfAllocator().bytes();
    {
        TestOptions options;
        OpenHandler handler;
        ASSERT_TRUE(handler.init(options));
        ASSERT_TRUE(handler.initDataFile(options));
        _SFSThroughputStatistics stats;
        ASSERT_TRUE(handler.executeAsynchronousWriteTest(options, true, stats));
        EXPECT_GT(fsperfAllocator().bytes(), before);
    }
    EXPECT_EQ(fsperfAllocator().bytes(), before);
}

}  // namespace vetraTests
