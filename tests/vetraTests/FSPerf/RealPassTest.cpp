#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iostream>
#include <set>

#include "tests/services/support/CapturedOutput.h"
#include "tests/services/support/Files.h"
#include "vetraTests/FSPerf/FSPerf.h"

namespace vetraTests {

namespace {

constexpr std::size_t fileSize = 1 << 20;
constexpr std::size_t blockSize = 4096;

class RealPass : public testing::Test {
protected:
    // A file of 1 MB in blocks of 4 KB, in the current directory.
    int run(const std::string& options)
    {
        const unitTests::CapturedOutput out(std::cout);
        const unitTests::CapturedOutput err(std::cerr);
        const std::string words = "fsperf -b 4K -f 1M -o json " + options + " " + directory.path();
        Basis::string args(words, &fsperfAllocator());
        const int code = runTestWrapper(args);
        output = out.text();
        errors = err.text();
        return code;
    }
    std::string content() const { return unitTests::contentOf("datavol.dat"); }

    const unitTests::WorkingDirectory directory;
    std::string output;
    std::string errors;
};

}  // namespace

TEST_F(RealPass, OfEverythingSucceedsAndLeavesNothingBehind)
{
    EXPECT_EQ(run("-m all"), runSucceeded) << errors;

    EXPECT_EQ(output, "");
    EXPECT_EQ(unitTests::namesIn("."), std::vector<std::string>());
    EXPECT_THAT(std::string(getJSONStats()), testing::Not(testing::HasSubstr("nan")));
    EXPECT_THAT(std::string(getJSONStats()), testing::Not(testing::HasSubstr("inf")));
}

TEST_F(RealPass, WithACleanedEarlierFileReplacesIt)
{
    unitTests::writeFile("datavol.dat", std::string(3 * fileSize, 'x'));

    EXPECT_EQ(run("-t initial_write -c noclean"), runSucceeded) << errors;

    EXPECT_EQ(content(), std::string(fileSize, '\x80'));
}

TEST_F(RealPass, WritesEveryBlockOfTheFileFromItsOwnPlaceInTheBuffer)
{
    for (const char* measurement : {"throughput", "latency"}) {
        EXPECT_EQ(run(std::string("-t write noclean -m ") + measurement), runSucceeded) << errors;

        const std::string bytes = content();
        ASSERT_EQ(bytes.size(), fileSize);
        std::set<std::string> distinct;
        for (std::size_t offset = 0; offset < fileSize; offset += blockSize)
            distinct.insert(bytes.substr(offset, blockSize));
        EXPECT_EQ(distinct.size(), fileSize / blockSize) << measurement;
    }
}

TEST_F(RealPass, WithASmallBufferRepeatsItsBlocks)
{
    EXPECT_EQ(run("-t write noclean -s 16K"), runSucceeded) << errors;

    const std::string bytes = content();
    ASSERT_EQ(bytes.size(), fileSize);
    for (std::size_t offset = 0; offset < fileSize; offset += 16384)
        ASSERT_EQ(bytes.compare(offset, 16384, bytes, 0, 16384), 0) << offset;
}

TEST_F(RealPass, PreparesTheFileWithTheConstantByte)
{
    EXPECT_EQ(run("-t read noclean -m all"), runSucceeded) << errors;

    EXPECT_EQ(content(), std::string(fileSize, '\x80'));
}

TEST_F(RealPass, ReadsTheFileOfAnEarlierRun)
{
    ASSERT_EQ(run("-t write noclean"), runSucceeded) << errors;
    const std::string before = content();

    EXPECT_EQ(run("-t read noinit noclean -m all"), runSucceeded) << errors;

    EXPECT_TRUE(content() == before) << "reading changed the file";
}

TEST_F(RealPass, TakesParametersOfTheFileLayer)
{
    EXPECT_EQ(run("--param num_submit_queues=02 --param async_read_submit=off"), runSucceeded)
        << errors;
    EXPECT_EQ(run("--param num_submit_queues=17"), runInitFailed);
    EXPECT_EQ(errors,
              "Parameter value \"16\" in file factory does not match specified\n"
              "value for parameter \"num_submit_queues=17\"\n"
              "ERROR: Parameter check failed!\n");
    EXPECT_EQ(run("--param async_read_submit=perhaps"), runInitFailed);
    EXPECT_THAT(errors, testing::HasSubstr("\n\non\n\nin file factory"));
}

TEST_F(RealPass, WithoutAFileToReadReturnsSeven)
{
    EXPECT_EQ(run("-t read noinit"), runDataFileMissing);

    EXPECT_EQ(errors, "");
}

}  // namespace vetraTests
