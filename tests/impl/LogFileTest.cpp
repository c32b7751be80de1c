#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <string>
#include <type_traits>
#include <vector>

#include "impl/VetraHelper.h"
#include "tests/impl/DriverTest.h"

namespace {

using testing::ElementsAre;
using testing::MatchesRegex;
using unitTests::contentOf;
using unitTests::linesOf;
using unitTests::openDescriptors;
using Vetra::TRACE_ERROR;
using Vetra::TRACE_INFO;
using Vetra::TRACE_TYPE;
using Vetra::VetraHelper;

static_assert(std::has_virtual_destructor_v<VetraHelper>);
static_assert(TRACE_ERROR == 0 && TRACE_INFO == 1);

constexpr const char* logFile = "vetra.trc";

std::string lineOf(const std::string& severityAndMessage)
{
    return "[0-9]{4}-[01][0-9]-[0-3][0-9] [0-2][0-9]:[0-5][0-9]:[0-6][0-9]\\.[0-9]{6} " +
           severityAndMessage;
}

class LogFileTest : public unitTests::DriverTest {
protected:
    std::vector<int> descriptorsOpenedByALine()
    {
        const auto before = openDescriptors();
        helper.writeToTrace(TRACE_INFO, "line");
        const auto after = openDescriptors();
        std::vector<int> opened;
        std::set_difference(after.begin(), after.end(), before.begin(), before.end(),
                            std::back_inserter(opened));
        return opened;
    }

    VetraHelper helper{*domain};
};

TEST_F(LogFileTest, InfoLineIsTimeSeverityMessage)
{
    helper.writeToTrace(TRACE_INFO, "a message");

    EXPECT_THAT(contentOf(logFile), MatchesRegex(lineOf("TRACE INFO: a message\n")));
}

TEST_F(LogFileTest, ErrorLineIsTimeSeverityMessage)
{
    helper.writeToTrace(TRACE_ERROR, "a message");

    EXPECT_THAT(contentOf(logFile), MatchesRegex(lineOf("TRACE ERROR: a message\n")));
}

TEST_F(LogFileTest, UnknownSeverityWritesNothing)
{
    helper.writeToTrace(TRACE_INFO, "kept");
    const std::string before = contentOf(logFile);

    helper.writeToTrace(static_cast<TRACE_TYPE>(2), "x");
    helper.writeToTrace(static_cast<TRACE_TYPE>(-1), "x");

    EXPECT_EQ(contentOf(logFile), before);
}

TEST_F(LogFileTest, UnknownSeverityWritesNothingIntoANewFile)
{
    helper.writeToTrace(static_cast<TRACE_TYPE>(2), "x");

    EXPECT_THAT(linesOf(logFile), testing::IsEmpty());
}

TEST_F(LogFileTest, MessageMaySpanLinesOrBeEmpty)
{
    helper.writeToTrace(TRACE_INFO, "\nfirst\nsecond");
    helper.writeToTrace(TRACE_INFO, "");

    EXPECT_THAT(linesOf(logFile), ElementsAre(MatchesRegex(lineOf("TRACE INFO: ")), "first",
                                              "second", MatchesRegex(lineOf("TRACE INFO: "))));
}

TEST_F(LogFileTest, GrowsByEachLineAcrossHelpers)
{
    helper.writeToTrace(TRACE_INFO, "first");
    helper.writeToTrace(TRACE_ERROR, "second");
    VetraHelper(*domain).writeToTrace(TRACE_INFO, "third");

    EXPECT_THAT(linesOf(logFile), ElementsAre(MatchesRegex(lineOf("TRACE INFO: first")),
                                              MatchesRegex(lineOf("TRACE ERROR: second")),
                                              MatchesRegex(lineOf("TRACE INFO: third"))));
}

TEST_F(LogFileTest, KeepsWhatStoodThereBefore)
{
    unitTests::writeFile(logFile, "an older run\n");

    helper.writeToTrace(TRACE_INFO, "line");

    EXPECT_THAT(linesOf(logFile),
                ElementsAre("an older run", MatchesRegex(lineOf("TRACE INFO: line"))));
}

TEST_F(LogFileTest, LiesInTheCurrentDirectoryOfTheLine)
{
    helper.writeToTrace(TRACE_INFO, "here");
    std::filesystem::create_directory("there");
    std::filesystem::current_path("there");
    helper.writeToTrace(TRACE_INFO, "there");

    EXPECT_THAT(linesOf("../vetra.trc"), ElementsAre(testing::EndsWith("INFO: here")));
    EXPECT_THAT(linesOf(logFile), ElementsAre(testing::EndsWith("INFO: there")));
}

TEST_F(LogFileTest, HasTheModeThatTheUmaskLeaves)
{
    const mode_t before = ::umask(027);

    helper.writeToTrace(TRACE_INFO, "line");

    ::umask(before);
    EXPECT_EQ(unitTests::modeOf(logFile), 0640U);
}

TEST_F(LogFileTest, ProbeOfAMissingFileLeavesNoDescriptor)
{
    EXPECT_THAT(descriptorsOpenedByALine(), testing::IsEmpty());
}

TEST_F(LogFileTest, EachLineInAnExistingFileLeavesTheDescriptorOfItsProbe)
{
    unitTests::writeFile(logFile, "");

    EXPECT_EQ(descriptorsOpenedByALine().size(), 1U);
    EXPECT_EQ(descriptorsOpenedByALine().size(), 1U);
}

TEST_F(LogFileTest, CommandsDoNotInheritTheDescriptorOfTheProbe)
{
    unitTests::writeFile(logFile, "");

    const auto opened = descriptorsOpenedByALine();

    ASSERT_EQ(opened.size(), 1U);
    EXPECT_EQ(::fcntl(opened[0], F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

TEST_F(LogFileTest, FileThatCannotBeWrittenIsNoReasonToStop)
{
    std::filesystem::create_directory(logFile);
    unitTests::CapturedOutput errors(std::cerr);

    helper.writeToTrace(TRACE_ERROR, "line");

    EXPECT_EQ(output.text(), "");
    EXPECT_EQ(errors.text(), "");
}

TEST_F(LogFileTest, RemovedCurrentDirectoryIsNoReasonToStop)
{
    std::filesystem::create_directory("gone");
    std::filesystem::current_path("gone");
    std::filesystem::remove(directory.path() + "/gone");

    helper.writeToTrace(TRACE_ERROR, "line");

    EXPECT_EQ(output.text(), "");
}

TEST_F(LogFileTest, PrintsNothing)
{
    helper.writeToTrace(TRACE_INFO, "line");

    EXPECT_EQ(output.text(), "");
}

}  // namespace
