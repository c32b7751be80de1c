#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <fstream>
#include <string>

#include "tests/services/FileAccess/LayerSupport.h"
#include "tests/services/support/CapturedOutput.h"

namespace {

using fileLayerTests::AlignedBuffer;
using fileLayerTests::Layer;
using fileLayerTests::page;
using fileLayerTests::Parameters;
using fileLayerTests::TemporaryDirectory;
using testing::HasSubstr;

bool isFilledWith(const char* memory, std::size_t size, int byte)
{
    return std::all_of(memory, memory + size,
                       [byte](char c) { return c == static_cast<char>(byte); });
}

struct Submission {
    const char* name;
    Parameters parameters;
};

// Each behaviour of a file holds for all ways to the kernel.
class FileOfAFactory : public testing::TestWithParam<Submission> {
protected:
    TemporaryDirectory directory;
    Layer layer{directory.path(), GetParam().parameters, 200};
};

TEST_P(FileOfAFactory, ReadsEachPageIntoItsOwnMemory)
{
    constexpr std::size_t count = 200;
    layer.fillPages(count);
    layer.completions.expect(count);

    for (std::size_t i = 0; i < count; ++i)
        layer.read(i, (count - 1 - i) * page);
    layer.completions.wait();

    EXPECT_EQ(layer.completions.reads(), count);
    EXPECT_EQ(layer.completions.writes(), 0U);
    EXPECT_EQ(layer.completions.errors(), 0U);
    for (std::size_t i = 0; i < count; ++i)
        ASSERT_TRUE(isFilledWith(layer.pageAt(i), page, static_cast<int>(count - 1 - i))) << i;
}

TEST_P(FileOfAFactory, WritesWhatAReadGivesBack)
{
    constexpr std::size_t count = 100;
    layer.completions.expect(count);
    for (std::size_t i = 0; i < count; ++i) {
        std::memset(layer.pageAt(i), static_cast<int>(i + 1), page);
        layer.write(i, i * page);
    }
    layer.completions.wait();
    EXPECT_EQ(layer.completions.writes(), count);
    EXPECT_EQ(layer.completions.reads(), 0U);

    const AlignedBuffer content(count * page);
    layer.file->read(0, content.data(), content.size());

    for (std::size_t i = 0; i < count; ++i)
        ASSERT_TRUE(isFilledWith(content.data() + i * page, page, static_cast<int>(i + 1))) << i;
}

TEST_P(FileOfAFactory, TellsTheCallbackWhatEnded)
{
    layer.fillPages(3);
    int context = 0;
    layer.completions.expect(1);

    layer.file->readAsync(2 * page, layer.pageAt(0), page, 0, layer.completions, layer.blocks[0],
                          &context);
    layer.completions.wait();

    EXPECT_EQ(layer.completions.lastStatus().offset, 2 * page);
    EXPECT_EQ(layer.completions.lastStatus().size, page);
    EXPECT_EQ(layer.completions.lastStatus().context, &context);
}

TEST_P(FileOfAFactory, TakesABlockAgainAsSoonAsItsRequestHasEnded)
{
    layer.fillPages(2);

    for (int i = 0; i < 100; ++i) {
        layer.completions.expect(1);
        layer.read(0, static_cast<std::size_t>(i % 2) * page);
        layer.completions.wait();
        ASSERT_TRUE(isFilledWith(layer.pageAt(0), page, i % 2));
        ASSERT_NE(layer.factory->getStatistics(), nullptr);
    }
}

TEST_P(FileOfAFactory, ReportsAReadBehindTheEndAsAnError)
{
    layer.fillPages(1);
    layer.completions.expect(1);

    layer.read(0, 5 * page);
    layer.completions.wait();

    EXPECT_EQ(layer.completions.errors(), 1U);
    EXPECT_EQ(layer.completions.lastStatus().offset, 5 * page);
    EXPECT_EQ(layer.completions.lastStatus().size, page);
    EXPECT_THAT(
        layer.completions.errorText(),
        HasSubstr("read of " + directory.path() + "/datavol.dat at offset 20480, size 4096"));
    EXPECT_THAT(layer.completions.errorText(), HasSubstr("ENODATA"));
}

TEST_P(FileOfAFactory, ReportsAReadAcrossTheEndAsAnErrorOfTheWholeRequest)
{
    layer.fillPages(3);
    layer.completions.expect(1);

    layer.file->readAsync(2 * page, layer.pageAt(0), 4 * page, 0, layer.completions,
                          layer.blocks[0], nullptr);
    layer.completions.wait();

    EXPECT_EQ(layer.completions.errors(), 1U);
    EXPECT_EQ(layer.completions.lastStatus().offset, 2 * page);
    EXPECT_EQ(layer.completions.lastStatus().size, 4 * page);
    EXPECT_TRUE(isFilledWith(layer.pageAt(0), page, 2));
}

TEST_P(FileOfAFactory, ReportsWhatTheKernelRefusesAtOnceAndGoesOn)
{
    layer.fillPages(1);
    layer.completions.expect(3);

    layer.read(0, 0);
    layer.read(1, std::uint64_t{1} << 63);
    layer.read(2, 0);
    layer.completions.wait();

    EXPECT_EQ(layer.completions.reads(), 2U);
    EXPECT_EQ(layer.completions.errors(), 1U);
    EXPECT_THAT(layer.completions.errorText(), HasSubstr("at offset 9223372036854775808, size"));
    EXPECT_THAT(layer.completions.errorText(), HasSubstr("EINVAL"));
}

TEST_P(FileOfAFactory, ReportsABadAddressAsAnError)
{
    layer.fillPages(1);
    layer.completions.expect(1);

    layer.file->readAsync(0, reinterpret_cast<void*>(page), page, 0, layer.completions,
                          layer.blocks[0], nullptr);
    layer.completions.wait();

    EXPECT_EQ(layer.completions.errors(), 1U);
    EXPECT_THAT(layer.completions.errorText(), HasSubstr("EFAULT"));
}

TEST_P(FileOfAFactory, CountsRequestsThatFailedToo)
{
    layer.fillPages(1);
    fileLayerTests::resetAllDomains();
    layer.completions.expect(2);

    layer.read(0, 9 * page);
    layer.read(1, std::uint64_t{1} << 63);
    layer.completions.wait();

    EXPECT_EQ(layer.factory->getDetailedStatistics(page).read.requests.getValueSinceReset(1), 2U);
}

TEST_P(FileOfAFactory, ServesEmptyRequests)
{
    layer.completions.expect(1);

    layer.file->readAsync(0, layer.pageAt(0), 0, 0, layer.completions, layer.blocks[0], nullptr);
    layer.completions.wait();

    EXPECT_EQ(layer.completions.reads(), 1U);
}

INSTANTIATE_TEST_SUITE_P(Submission, FileOfAFactory,
                         testing::Values(Submission{"Asynchronous",
                                                    {{"async_write_submit_active", "on"}}},
                                         Submission{"Synchronous",
                                                    {{"async_read_submit", "off"},
                                                     {"async_write_submit_active", "off"}}},
                                         Submission{"SynchronousOneByOne",
                                                    {{"async_read_submit", "off"},
                                                     {"async_write_submit_active", "off"},
                                                     {"max_parallel_io_requests", "1"}}},
                                         Submission{"AsynchronousOneByOne",
                                                    {{"async_write_submit_active", "on"},
                                                     {"max_parallel_io_requests", "1"}}},
                                         Submission{"FourOfEachQueue",
                                                    {{"async_write_submit_active", "on"},
                                                     {"num_submit_queues", "4"},
                                                     {"num_completion_queues", "4"},
                                                     {"max_parallel_io_requests", "5"}}}),
                         [](const auto& tested) { return std::string(tested.param.name); });

class FileWithDefaults : public testing::Test {
protected:
    TemporaryDirectory directory;
    Layer layer{directory.path()};
};

TEST_F(FileWithDefaults, HasTheRootAndTheNameAsItsFullName)
{
    EXPECT_EQ(std::string(layer.file->getFullName()), directory.path() + "/datavol.dat");
}

TEST_F(FileWithDefaults, ReadsAndWritesSynchronously)
{
    const AlignedBuffer out(8 * page);
    std::memset(out.data(), 'x', out.size());
    const AlignedBuffer in(8 * page);

    layer.file->write(page, out.data(), out.size());
    layer.file->read(page, in.data(), in.size());

    EXPECT_TRUE(isFilledWith(in.data(), in.size(), 'x'));
}

TEST_F(FileWithDefaults, CountsSynchronousRequests)
{
    layer.fillPages(4);
    fileLayerTests::resetAllDomains();

    for (std::size_t i = 0; i < 4; ++i)
        layer.file->read(i * page, layer.pageAt(0), page);

    const auto& record = layer.factory->getDetailedStatistics(page);
    EXPECT_EQ(record.read.requests.getValueSinceReset(1), 4U);
    EXPECT_GT(record.read.requestTicks.getValueSinceReset(1), 0U);
    EXPECT_EQ(record.read.triggerTicks.getValueSinceReset(1), 0U);
    EXPECT_EQ(record.write.requests.getValueSinceReset(1), 0U);
    EXPECT_GE(layer.factory->getStatistics()->getTotalReadTicks(1),
              record.read.requestTicks.getValueSinceReset(1));
    EXPECT_EQ(layer.factory->getStatistics()->getTotalWriteTicks(1), 0U);
}

TEST_F(FileWithDefaults, ServesUnalignedRequestsThroughThePageCacheAndSaysSoOnce)
{
    std::string text;
    {
        const unitTests::CapturedOutput errors(std::cerr);
        layer.fillPages(4);
        layer.completions.expect(2);
        layer.file->readAsync(page + 100, layer.pageAt(0), 1000, 0, layer.completions,
                              layer.blocks[0], nullptr);
        layer.file->readAsync(2 * page, layer.pageAt(1) + 1, 512, 0, layer.completions,
                              layer.blocks[1], nullptr);
        layer.completions.wait();
        // A file that is opened anew does not repeat it.
        layer.file = layer.factory->openFile("datavol.dat", 2, 0, 33);
        layer.file->read(1, layer.pageAt(2), 1);
        text = errors.text();
    }

    EXPECT_EQ(layer.completions.reads(), 2U);
    EXPECT_TRUE(isFilledWith(layer.pageAt(0), 1000, 1));
    EXPECT_TRUE(isFilledWith(layer.pageAt(1) + 1, 512, 2));
    EXPECT_EQ(text, "vetra: requests to " + directory.path() +
                        "/datavol.dat are not multiples of 4096 bytes and run through the page "
                        "cache: their figures are not the device's\n");
}

TEST_F(FileWithDefaults, ReadsTheOddRestOfAFile)
{
    {
        std::ofstream file(directory / "datavol.dat", std::ios_base::binary);
        file << std::string(page + 100, 'z');
    }
    const unitTests::CapturedOutput errors(std::cerr);

    layer.file->read(0, layer.pageAt(0), page + 100);

    EXPECT_TRUE(isFilledWith(layer.pageAt(0), page + 100, 'z'));
}

TEST_F(FileWithDefaults, GoesOnWithThePartBehindAShortDirectRead)
{
    {
        std::ofstream file(directory / "datavol.dat", std::ios_base::binary);
        file << std::string(page + 512, 'y');
    }
    layer.completions.expect(1);

    layer.file->readAsync(0, layer.pageAt(0), 2 * page, 0, layer.completions, layer.blocks[0],
                          nullptr);
    layer.completions.wait();

    // The file ends in the middle of the request: what is there arrives, and the end is an error.
    EXPECT_EQ(layer.completions.errors(), 1U);
    EXPECT_TRUE(isFilledWith(layer.pageAt(0), page + 512, 'y'));
    EXPECT_THAT(layer.completions.errorText(), HasSubstr("at offset 0, size 8192"));
}

using FileDeathTest = FileWithDefaults;

TEST_F(FileDeathTest, EndsTheProcessWhenASynchronousReadFails)
{
    layer.fillPages(1);

    EXPECT_EXIT(
        layer.file->read(7 * page, layer.pageAt(0), page), testing::KilledBySignal(SIGABRT),
        testing::MatchesRegex("vetra: fatal: [^\n]*ENODATA[^\n]*read of " + directory.path() +
                              "/datavol.dat at offset 28672, size 4096[^\n]*\n"));
}

}  // namespace
