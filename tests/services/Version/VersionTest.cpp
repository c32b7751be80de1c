#include "Version/Version.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "tests/services/support/Files.h"
#include "tests/services/support/Guards.h"

namespace {

using unitTests::contentOf;

TEST(Version, IsThatOfTheProject)
{
    EXPECT_STREQ(zdbver_version(), VERSION_OF_PROJECT);
}

TEST(Version, BuildDateIsADay)
{
    EXPECT_THAT(zdbver_compiledate(), testing::MatchesRegex("20[0-9][0-9]-[01][0-9]-[0-3][0-9]"));
}

/// Runs the script that writes the version header, in a directory of its own that no version
/// control knows.
class VersionScript : public testing::Test {
protected:
    int run() const
    {
        const std::string command = std::string(CMAKE_PROGRAM) + " -DSOURCE=" + directory.path() +
                                    " -DVERSION=9.8.7 -DOUTPUT=out.h -P " + VERSION_SCRIPT +
                                    " > log 2>&1";
        return std::system(command.c_str());
    }

    unitTests::WorkingDirectory directory;
    unitTests::EnvironmentVariable epoch{"SOURCE_DATE_EPOCH", nullptr};
};

TEST_F(VersionScript, TakesTheDateOfSourceDateEpoch)
{
    epoch.set("86400");

    ASSERT_EQ(run(), 0) << contentOf("log");

    EXPECT_EQ(contentOf("out.h"),
              "#define VETRA_VERSION \"9.8.7\"\n#define VETRA_BUILD_DATE \"1970-01-02\"\n");
}

TEST_F(VersionScript, FallsBackToTheDayOfTheBuild)
{
    ASSERT_EQ(run(), 0) << contentOf("log");

    EXPECT_THAT(contentOf("out.h"),
                testing::ContainsRegex("VETRA_BUILD_DATE \"20[0-9][0-9]-[01][0-9]-[0-3][0-9]\""));
}

TEST_F(VersionScript, LeavesAnUnchangedFileUntouched)
{
    epoch.set("86400");
    ASSERT_EQ(run(), 0) << contentOf("log");
    const auto longAgo = std::filesystem::file_time_type{};
    std::filesystem::last_write_time("out.h", longAgo);

    ASSERT_EQ(run(), 0) << contentOf("log");
    EXPECT_EQ(std::filesystem::last_write_time("out.h"), longAgo);

    epoch.set("172800");
    ASSERT_EQ(run(), 0) << contentOf("log");
    EXPECT_NE(std::filesystem::last_write_time("out.h"), longAgo);
}

}  // namespace
