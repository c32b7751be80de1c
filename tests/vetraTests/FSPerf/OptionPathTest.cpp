#include <gtest/gtest.h>

#include <filesystem>
#include <iostream>

#include "tests/services/support/CapturedOutput.h"
#include "tests/services/support/Files.h"
#include "tests/vetraTests/FSPerf/Options.h"

namespace vetraTests {

namespace {

namespace fs = std::filesystem;

// What an argument string is refused with.
void expectRefused(std::string_view args, std::string_view message)
{
    const Evaluation evaluation(args);
    EXPECT_FALSE(evaluation.succeeded) << args;
    EXPECT_EQ(evaluation.errors, std::string(message) + "\n") << args;
    EXPECT_EQ(evaluation.output, "evaluation is unsuccessful\n") << args;
    EXPECT_EQ(evaluation.options.m_directory_path, "") << args;
    EXPECT_TRUE(evaluation.options.m_test_initial_write) << args;
}

std::string resolved(std::string_view args)
{
    const Evaluation evaluation(args);
    EXPECT_TRUE(evaluation.succeeded) << args << ": " << evaluation.errors;
    return std::string(evaluation.options.m_directory_path);
}

class OptionPath : public testing::Test {
protected:
    const unitTests::WorkingDirectory directory;
};

}  // namespace

TEST_F(OptionPath, IsWhatStandsBehindTheLastBlank)
{
    fs::create_directories("sub/deeper");
    EXPECT_EQ(resolved("fsperf ."), directory.path());
    EXPECT_EQ(resolved("fsperf sub"), directory.path() + "/sub");
    EXPECT_EQ(resolved("fsperf sub/deeper"), directory.path() + "/sub/deeper");
    EXPECT_EQ(resolved("fsperf ./sub"), directory.path() + "/./sub");
    EXPECT_EQ(resolved("fsperf sub/.."), directory.path() + "/sub/..");
    EXPECT_EQ(resolved("fsperf " + directory.path()), directory.path());
    EXPECT_EQ(resolved("fsperf " + directory.path() + "/sub/"), directory.path() + "/sub/");
}

TEST_F(OptionPath, MayBeginWithADash)
{
    fs::create_directory("-dash");
    EXPECT_EQ(resolved("fsperf -dash"), directory.path() + "/-dash");
}

TEST_F(OptionPath, TakesAFlagAtTheVeryEndForTheDirectory)
{
    expectRefused("fsperf noclean", "ERROR: Unknown directory specified!");
    fs::create_directory("noclean");
    EXPECT_EQ(resolved("fsperf noclean"), directory.path() + "/noclean");
    EXPECT_TRUE(Evaluation("fsperf noclean").options.m_cleanup);
}

TEST_F(OptionPath, IsMissingInAStringWithoutABlank)
{
    expectRefused("", "ERROR: Path to directory for test file missing!");
    expectRefused(".", "ERROR: Path to directory for test file missing!");
    expectRefused("-c", "ERROR: Path to directory for test file missing!");
    expectRefused("k=v", "ERROR: Path to directory for test file missing!");
}

TEST_F(OptionPath, IsEmptyBehindABlankAtTheEnd)
{
    expectRefused(" ", "ERROR: No path provided!");
    expectRefused("   ", "ERROR: No path provided!");
    expectRefused("fsperf -t read . ", "ERROR: No path provided!");
}

TEST_F(OptionPath, IsTakenForAnUnknownOptionIfItBeginsWithADash)
{
    expectRefused("fsperf -t read -x", "ERROR: Unknown command line argument found!");
    expectRefused("fsperf . -test-mode", "ERROR: Unknown command line argument found!");
    expectRefused("fsperf . -c", "ERROR: Unknown command line argument found!");
}

TEST_F(OptionPath, MustNameADirectory)
{
    unitTests::writeFile("file", "");
    expectRefused("fsperf -t read missing", "ERROR: Unknown directory specified!");
    expectRefused("fsperf -t read file", "ERROR: Unknown directory specified!");
    expectRefused("fsperf -t read " + directory.path() + "/missing",
                  "ERROR: Unknown directory specified!");
    expectRefused("fsperf -t read " + directory.path() + "/file",
                  "ERROR: Unknown directory specified!");
}

TEST_F(OptionPath, NeedsOneOfTheWriteBitsWhateverTheTests)
{
    fs::create_directory("kept");
    fs::permissions("kept", fs::perms{0555});
    expectRefused("fsperf -t write kept", "ERROR: No write permission on directory!");
    expectRefused("fsperf -t read kept", "ERROR: No write permission on directory!");
    for (const unsigned bit : {0200U, 0020U, 0002U}) {
        fs::permissions("kept", fs::perms{0444U | bit});
        EXPECT_EQ(resolved("fsperf kept"), directory.path() + "/kept");
    }
}

TEST_F(OptionPath, NeedsOneOfTheReadBitsForTheReadTest)
{
    fs::create_directory("kept");
    fs::permissions("kept", fs::perms{0333});
    expectRefused("fsperf -t read kept", "ERROR: No read permission on directory!");
    EXPECT_EQ(resolved("fsperf -t write kept"), directory.path() + "/kept");
    for (const unsigned bit : {0400U, 0040U, 0004U}) {
        fs::permissions("kept", fs::perms{0222U | bit});
        EXPECT_EQ(resolved("fsperf kept"), directory.path() + "/kept");
    }
}

TEST_F(OptionPath, ChecksTheBitsOfTheCurrentDirectoryToo)
{
    fs::permissions(".", fs::perms{0500});
    expectRefused("fsperf .", "ERROR: No write permission on directory!");
    fs::permissions(".", fs::perms{0700});
}

TEST_F(OptionPath, SaysWhyThereIsNoCurrentDirectory)
{
    const std::string gone = directory.path() + "/gone";
    fs::create_directory(gone);
    fs::current_path(gone);
    fs::remove(gone);

    expectRefused("fsperf -t read .", "ERROR: No such file or directory (2, ENOENT)");
    expectRefused("fsperf -t read sub", "ERROR: No such file or directory (2, ENOENT)");
    EXPECT_EQ(resolved("fsperf " + directory.path()), directory.path());

    fs::current_path(directory.path());
}

TEST_F(OptionPath, RelativeToACurrentDirectoryBeyond511BytesIsRefused)
{
    const std::string component(200, 'd');
    for (int depth = 0; depth < 3; ++depth) {
        fs::create_directory(component);
        fs::current_path(component);
    }
    fs::create_directory("sub");

    expectRefused("fsperf -t read sub", "ERROR: Numerical result out of range (34, ERANGE)");
    const std::string here = fs::current_path().string();
    EXPECT_EQ(resolved("fsperf ."), here);
    EXPECT_EQ(resolved("fsperf " + here + "/sub"), here + "/sub");

    fs::current_path(directory.path());
}

TEST_F(OptionPath, ResetsByItselfOnlyWithoutACurrentDirectory)
{
    const unitTests::CapturedOutput err(std::cerr);
    CCmdOptions options;
    options.m_test_overwrite = false;
    EXPECT_FALSE(options.getPath(nullptr));
    EXPECT_FALSE(options.getPath(""));
    EXPECT_FALSE(options.getPath("missing"));
    EXPECT_FALSE(options.getPath("/missing"));
    EXPECT_FALSE(options.m_test_overwrite);
    EXPECT_EQ(err.text(),
              "ERROR: No path provided!\nERROR: No path provided!\n"
              "ERROR: Unknown directory specified!\nERROR: Unknown directory specified!\n");

    fs::create_directory("gone");
    fs::current_path("gone");
    fs::remove(directory.path() + "/gone");
    EXPECT_FALSE(options.getPath("."));
    EXPECT_TRUE(options.m_test_overwrite);

    fs::current_path(directory.path());
}

TEST_F(OptionPath, EndsAtAZeroByte)
{
    EXPECT_EQ(resolved(std::string_view("fsperf .\0/missing", 17)), directory.path());
}

}  // namespace vetraTests
