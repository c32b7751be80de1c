#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>

#include <cstdint>
#include <filesystem>
#include <iostream>
#include <string>

#include "impl/VetraHelper.h"
#include "tests/impl/DriverTest.h"
#include "tests/impl/FixedMilliTime.h"
#include "tests/services/support/ChildProcess.h"

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::MatchesRegex;
using unitTests::contentOf;

class ResultFileTest : public unitTests::DriverTest {
protected:
    std::string write(double id, std::string_view outputDir = "out",
                      std::string_view name = "EvalOS", std::string_view result = "{}")
    {
        Basis::string location = text(outputDir);
        Basis::string testName = text(name);
        Basis::string content = text(result);
        return std::string(helper.writeTestResultToFile(id, location, testName, content));
    }
    void SetUp() override { std::filesystem::create_directory("out"); }

    Vetra::VetraHelper helper{*domain};
};

TEST_F(ResultFileTest, NameIsMadeOfKeyTimeAndTest)
{
    const unitTests::FixedMilliTime time(1479081600123);

    EXPECT_EQ(write(1.5), "out/test_1.5_1479081600123_Vetra_EvalOS");
}

TEST_F(ResultFileTest, KeyShowsInTheDefaultFormOfADouble)
{
    const unitTests::FixedMilliTime time(7);

    EXPECT_EQ(write(2.5), "out/test_2.5_7_Vetra_EvalOS");
    EXPECT_EQ(write(0), "out/test_0_7_Vetra_EvalOS");
    EXPECT_EQ(write(-3), "out/test_-3_7_Vetra_EvalOS");
    EXPECT_EQ(write(999999), "out/test_999999_7_Vetra_EvalOS");
    EXPECT_EQ(write(1.0 / 3.0), "out/test_0.333333_7_Vetra_EvalOS");
}

TEST_F(ResultFileTest, KeyOfAMillionTurnsIntoExponentNotation)
{
    const unitTests::FixedMilliTime time(7);

    EXPECT_EQ(write(1000000), "out/test_1e+06_7_Vetra_EvalOS");
    EXPECT_EQ(write(1234567), "out/test_1.23457e+06_7_Vetra_EvalOS");
}

TEST_F(ResultFileTest, TimeIsThatOfTheLocalWallClock)
{
    const auto end = unitTests::inChild([this] {
        ::setenv("TZ", "EAST-5:30", 1);
        ::tzset();
        constexpr std::int64_t offset = 5 * 3600 + 30 * 60;
        const std::int64_t before = ::time(nullptr) + offset;
        const std::string path = write(1);
        timespec now{};
        ::clock_gettime(CLOCK_REALTIME, &now);
        const std::int64_t shown = std::stoll(path.substr(std::string("out/test_1_").size()));
        const bool isBetween = before * 1000 <= shown && shown <= (now.tv_sec + offset + 1) * 1000;
        std::cerr << (isBetween ? "between" : "outside");
    });
    EXPECT_EQ(end.errors, "between");
}

TEST_F(ResultFileTest, DirectoryIsUsedAsItIsGiven)
{
    EXPECT_THAT(write(1, "out/"), testing::StartsWith("out//test_1_"));
    EXPECT_THAT(write(1, directory.path()), testing::StartsWith(directory.path() + "/test_1_"));
}

TEST_F(ResultFileTest, HoldsTheResultAndOneLineEnd)
{
    EXPECT_EQ(contentOf(write(1, "out", "EvalOS", "{\n}\n")), "{\n}\n\n");
}

TEST_F(ResultFileTest, HoldsOneLineEndIfTheResultIsEmpty)
{
    EXPECT_EQ(contentOf(write(1, "out", "EvalOS", "")), "\n");
}

TEST_F(ResultFileTest, IsAnnouncedOnStandardOutputAndInTwoLinesOfTheLog)
{
    const std::string path = write(1);

    EXPECT_EQ(output.text(), "Writing output to " + path + "\n");
    EXPECT_THAT(
        unitTests::linesOf("vetra.trc"),
        ElementsAre(EndsWith(" TRACE INFO: Writing output to:"), EndsWith(" TRACE INFO: " + path)));
}

TEST_F(ResultFileTest, ReplacesAFileOfTheSameName)
{
    const unitTests::FixedMilliTime time(1479081600123);
    unitTests::writeFile("out/test_1_1479081600123_Vetra_EvalOS", "longer than the new result");

    write(1, "out", "EvalOS", "short");

    EXPECT_EQ(contentOf("out/test_1_1479081600123_Vetra_EvalOS"), "short\n");
    EXPECT_EQ(unitTests::namesIn("out").size(), 1U);
}

TEST_F(ResultFileTest, HasTheModeThatTheUmaskLeaves)
{
    const mode_t before = ::umask(027);

    const std::string path = write(1);

    ::umask(before);
    EXPECT_EQ(unitTests::modeOf(path), 0640U);
}

TEST_F(ResultFileTest, DirectoryThatIsMissingIsNotReported)
{
    const std::string path = write(1, "nowhere");

    EXPECT_THAT(path, MatchesRegex("nowhere/test_1_[0-9]+_Vetra_EvalOS"));
    EXPECT_FALSE(std::filesystem::exists("nowhere"));
    EXPECT_EQ(output.text(), "Writing output to " + path + "\n");
}

TEST_F(ResultFileTest, PathStandsInTheHelpersDomain)
{
    Basis::string location = text("out");
    Basis::string name = text("EvalOS");
    Basis::string result = text("{}");

    const auto path = helper.writeTestResultToFile(1, location, name, result);

    EXPECT_EQ(path.get_allocator().resource(), domain.get());
}

}  // namespace
