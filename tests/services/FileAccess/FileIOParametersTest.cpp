#include "FileAccess/FileIOParameters.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "Configuration/TempConfiguration.h"
#include "tests/services/FileAccess/LayerSupport.h"

namespace {

using FileAccess::FileIOParameters;
using fileLayerTests::Parameters;

FileIOParameters parametersOf(const Parameters& values)
{
    Configuration::TempConfiguration configuration(*Basis::Allocator::global(), "test", nullptr);
    for (const auto& [key, value] : values)
        configuration.setParameterValue("fileio", key, nullptr, std::string_view(value));
    configuration.reconfigure();
    return FileIOParameters::read(configuration);
}

std::string textOf(const Parameters& values)
{
    std::ostringstream stream;
    stream << parametersOf(values);
    return stream.str();
}

TEST(FileIOParameters, AreTheDocumentedDefaultsWithoutAConfiguration)
{
    EXPECT_EQ(textOf({}),
              "num_completion_queues=1,num_submit_queues=1,size_kernel_io_queue=512,"
              "max_parallel_io_requests=64,min_submit_batch_size=16,max_submit_batch_size=64,"
              "async_read_submit=on,async_write_submit_active=auto,async_write_submit_blocks=all");
}

TEST(FileIOParameters, TakeEachValueThatIsAllowed)
{
    EXPECT_EQ(textOf({{"num_completion_queues", "4"},
                      {"num_submit_queues", "16"},
                      {"size_kernel_io_queue", "2048"},
                      {"max_parallel_io_requests", "1024"},
                      {"min_submit_batch_size", "7"},
                      {"max_submit_batch_size", "8"},
                      {"async_read_submit", "off"},
                      {"async_write_submit_active", "on"},
                      {"async_write_submit_blocks", "new"}}),
              "num_completion_queues=4,num_submit_queues=16,size_kernel_io_queue=2048,"
              "max_parallel_io_requests=1024,min_submit_batch_size=7,max_submit_batch_size=8,"
              "async_read_submit=off,async_write_submit_active=on,async_write_submit_blocks=new");
}

TEST(FileIOParameters, KnowEachWordOfTheWriteParameters)
{
    using Submit = FileIOParameters::WriteSubmit;
    using Written = FileIOParameters::WriteBlocks;

    EXPECT_EQ(parametersOf({{"async_write_submit_active", "off"}}).asyncWriteSubmitActive,
              Submit::off);
    EXPECT_EQ(parametersOf({{"async_write_submit_active", "auto"}}).asyncWriteSubmitActive,
              Submit::automatic);
    EXPECT_EQ(parametersOf({{"async_write_submit_blocks", "none"}}).asyncWriteSubmitBlocks,
              Written::none);
    EXPECT_EQ(parametersOf({{"async_write_submit_blocks", "all"}}).asyncWriteSubmitBlocks,
              Written::all);
}

struct Range {
    const char* key;
    std::uint32_t FileIOParameters::*member;
    std::uint32_t least;
    std::uint32_t most;
};

class RangeOfParameter : public testing::TestWithParam<Range> {
protected:
    std::uint32_t valueFor(const std::string& text) const
    {
        return parametersOf({{GetParam().key, text}}).*GetParam().member;
    }
};

TEST_P(RangeOfParameter, KeepsItsEndsAndMovesWhatLiesOutsideToThem)
{
    const Range& range = GetParam();

    EXPECT_EQ(valueFor(std::to_string(range.least)), range.least);
    EXPECT_EQ(valueFor(std::to_string(range.most)), range.most);
    EXPECT_EQ(valueFor(std::to_string(range.least - 1)), range.least);
    EXPECT_EQ(valueFor(std::to_string(range.most + 1)), range.most);
    EXPECT_EQ(valueFor("99999999999999999999999999"), range.most);
}

TEST_P(RangeOfParameter, TakesTheDefaultForWhatIsNoNumber)
{
    const std::uint32_t standard = FileIOParameters{}.*GetParam().member;

    for (const char* text : {"", "-1", "+7", "1.5", "many", "0x10", " 5", "5 "})
        EXPECT_EQ(valueFor(text), standard) << "'" << text << "'";
}

TEST_P(RangeOfParameter, TakesLeadingZeros)
{
    EXPECT_EQ(valueFor("000" + std::to_string(GetParam().most)), GetParam().most);
}

// The batch sizes are bounded by the other defaults here.
INSTANTIATE_TEST_SUITE_P(
    FileIOParameters, RangeOfParameter,
    testing::Values(Range{"num_completion_queues", &FileIOParameters::numCompletionQueues, 1, 16},
                    Range{"num_submit_queues", &FileIOParameters::numSubmitQueues, 1, 16},
                    Range{"size_kernel_io_queue", &FileIOParameters::sizeKernelIoQueue, 128, 2048},
                    Range{"max_parallel_io_requests", &FileIOParameters::maxParallelIoRequests, 1,
                          512},
                    Range{"min_submit_batch_size", &FileIOParameters::minSubmitBatchSize, 1, 63},
                    Range{"max_submit_batch_size", &FileIOParameters::maxSubmitBatchSize, 2, 64}),
    [](const auto& tested) { return std::string(tested.param.key); });

TEST(FileIOParameters, TakeTheDefaultForAnUnknownWord)
{
    EXPECT_EQ(textOf({{"async_read_submit", "ON"},
                      {"async_write_submit_active", "yes"},
                      {"async_write_submit_blocks", ""}}),
              textOf({}));
    EXPECT_EQ(textOf({{"async_read_submit", "auto"}}), textOf({}));
}

TEST(FileIOParameters, HoldTheParallelRequestsWithinTheKernelQueue)
{
    const FileIOParameters parameters =
        parametersOf({{"size_kernel_io_queue", "128"}, {"max_parallel_io_requests", "300"}});

    EXPECT_EQ(parameters.sizeKernelIoQueue, 128U);
    EXPECT_EQ(parameters.maxParallelIoRequests, 128U);
}

TEST(FileIOParameters, HoldTheLargestBatchWithinTheParallelRequests)
{
    const FileIOParameters parameters =
        parametersOf({{"max_parallel_io_requests", "8"}, {"max_submit_batch_size", "32"}});

    EXPECT_EQ(parameters.maxSubmitBatchSize, 8U);
    EXPECT_EQ(parameters.minSubmitBatchSize, 7U);
}

TEST(FileIOParameters, HoldTheSmallestBatchBelowTheLargest)
{
    const FileIOParameters parameters =
        parametersOf({{"min_submit_batch_size", "40"}, {"max_submit_batch_size", "40"}});

    EXPECT_EQ(parameters.maxSubmitBatchSize, 40U);
    EXPECT_EQ(parameters.minSubmitBatchSize, 39U);
}

TEST(FileIOParameters, LetBothBatchesBeOneForAQueueOfOne)
{
    const FileIOParameters parameters = parametersOf({{"max_parallel_io_requests", "1"}});

    EXPECT_EQ(parameters.maxParallelIoRequests, 1U);
    EXPECT_EQ(parameters.maxSubmitBatchSize, 1U);
    EXPECT_EQ(parameters.minSubmitBatchSize, 1U);
}

TEST(FileIOParameters, FitIntoTheTextThatReportsThemWhateverTheirValues)
{
    EXPECT_LT(textOf({{"num_completion_queues", "16"},
                      {"num_submit_queues", "16"},
                      {"size_kernel_io_queue", "2048"},
                      {"max_parallel_io_requests", "2048"},
                      {"min_submit_batch_size", "2047"},
                      {"max_submit_batch_size", "2048"},
                      {"async_read_submit", "off"}})
                  .size(),
              1024U);
}

}  // namespace
