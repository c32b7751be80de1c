#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Diagnose/SystemError.h"
#include "impl/vetra.h"
#include "tests/impl/DriverTest.h"
#include "tests/impl/FactoryHook.h"
#include "tests/impl/ScriptedTest.h"

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::MatchesRegex;
using unitTests::contentOf;
using unitTests::linesOf;
using unitTests::namesIn;
using unitTests::Script;
using unitTests::ScriptedTest;

/// `vetra -f config.json` with scripted tests, in one process with the test.
class WholeRunTest : public unitTests::DriverTest {
protected:
    Vetra::TestPointer create(Basis::Allocator& allocator, const Basis::string& testClass)
    {
        const auto script = scripts.find(std::string(testClass));
        if (script == scripts.end())
            return nullptr;
        return std::allocate_shared<ScriptedTest>(
            std::pmr::polymorphic_allocator<ScriptedTest>(&allocator), allocator, script->first,
            script->second, calls);
    }
    int run(const char* file = "config.json")
    {
        std::string arguments[] = {"vetra", "-f", file};
        char* pointers[] = {arguments[0].data(), arguments[1].data(), arguments[2].data(), nullptr};
        return Vetra::runVetra(3, pointers);
    }
    int runWith(const std::string& json)
    {
        unitTests::writeFile("config.json", json);
        return run();
    }

    unitTests::CallLog calls;
    std::map<std::string, Script> scripts;
    unitTests::FactoryHook hook{[this](Basis::Allocator& allocator, const Basis::string& name) {
        return create(allocator, name);
    }};
};

std::string announced(const std::string& outputDir, const std::string& tests)
{
    return "\nTests will be running with following configurations:\nuseZdb: 0\nblades: \n"
           "output directory: " +
           outputDir + "\n\nConfigured tests:\n" + tests + "\n";
}

TEST_F(WholeRunTest, ShowsConfigurationThenTestsThenResultFiles)
{
    scripts["A"] = {.usage = "u", .report = "report of A", .json = "{\"a\":1}"};
    scripts["B"] = {.usage = "u", .json = "", .result = -1};

    EXPECT_EQ(runWith(R"({"output_dir":"out","tests":[{"id":2.5,"class":"B"},
                                                      {"id":1,"class":"A"}]})"),
              0);

    const std::string all = output.text();
    const std::string expected =
        announced("out", "1 A\n2.5 B\n") +
        "Test usage:\nu\nSetting test configuration: \nEstimated testDuration:\n80ms\n"
        "Start running test:\n A\nA run OK.\nreport of A\n"
        "Test usage:\nu\nSetting test configuration: \nEstimated testDuration:\n80ms\n"
        "Start running test:\n B\nBrun failed\n";
    EXPECT_EQ(all.substr(0, expected.size()), expected);
    EXPECT_THAT(all.substr(expected.size()),
                MatchesRegex("Writing output to out/test_1_[0-9]+_Vetra_A\n"
                             "Writing output to out/test_2\\.5_[0-9]+_Vetra_B\n"));
}

TEST_F(WholeRunTest, WritesOneFilePerTest)
{
    scripts["A"] = {.json = "{\"a\":1}"};
    scripts["B"] = {.json = "", .result = -1};

    runWith(R"({"output_dir":"out","tests":[{"id":1,"class":"A"},{"id":2,"class":"B"}]})");

    const auto names = namesIn("out");
    ASSERT_THAT(names, ElementsAre(MatchesRegex("test_1_[0-9]+_Vetra_A"),
                                   MatchesRegex("test_2_[0-9]+_Vetra_B")));
    EXPECT_EQ(contentOf("out/" + names[0]), "{\"a\":1}\n");
    EXPECT_EQ(contentOf("out/" + names[1]), "\n");
}

TEST_F(WholeRunTest, AsksForResultsWhenAllTestsHaveRunAndReleasesThemLast)
{
    scripts["A"] = {};
    scripts["B"] = {};

    runWith(R"({"tests":[{"id":1,"class":"A"},{"id":2,"class":"B"}]})");

    const std::vector<std::string> last(calls.end() - 6, calls.end());
    EXPECT_THAT(last, testing::UnorderedElementsAre("A: getTestName", "A: getTestJsonResult",
                                                    "B: getTestName", "B: getTestJsonResult",
                                                    "A: gone", "B: gone"));
    EXPECT_EQ(last[0], "A: getTestName");
    EXPECT_EQ(last[3], "B: getTestJsonResult");
}

TEST_F(WholeRunTest, LogsReadingConfigurationTestsAndOutput)
{
    scripts["A"] = {.report = "fine"};

    runWith(R"({"tests":[{"id":1,"class":"A"}]})");

    EXPECT_THAT(
        linesOf("vetra.trc"),
        ElementsAre(EndsWith(" TRACE INFO: Reading from file config.json"),
                    EndsWith(" TRACE INFO: "),
                    "Tests will be running with following configurations:", "useZdb: 0",
                    "blades: ", "output directory: " + directory.path(), "",
                    "Configured tests:", "1 A", "", EndsWith(" TRACE INFO: Start running test:A"),
                    EndsWith(" TRACE INFO: Get test result:fine"),
                    EndsWith(" TRACE INFO: Writing output to:"),
                    MatchesRegex(".* TRACE INFO: /.*/test_1_[0-9]+_Vetra_A")));
}

TEST_F(WholeRunTest, EmptyListOfTestsPrintsTheConfigurationAlone)
{
    EXPECT_EQ(runWith(R"({"output_dir":"out","tests":[]})"), 0);

    EXPECT_EQ(output.text(), announced("out", ""));
    EXPECT_THAT(namesIn("out"), IsEmpty());
}

TEST_F(WholeRunTest, MissingFileEndsWithStatusZeroAfterTheErrorLine)
{
    EXPECT_EQ(run("missing.json"), 0);

    EXPECT_THAT(output.text(),
                MatchesRegex("Error while running VETRA:4 ERR_INVALID_FILEDESCRIPTOR: Invalid file "
                             "descriptor: Error while opening the file. "
                             "\\(VetraHelper\\.cpp:[0-9]+\\)\n"));
    EXPECT_THAT(namesIn("."), ElementsAre("vetra.trc"));
}

TEST_F(WholeRunTest, FaultyJsonIsPrintedAndThenTheErrorLine)
{
    EXPECT_EQ(runWith("{"), 0);

    EXPECT_THAT(output.text(),
                MatchesRegex("Failed to parse json size=1 ,data=\\{\nError while running VETRA:5 "
                             "ERR_INVALID_JSON: Invalid json: Failed to parse user config json "
                             "\\(UserConfig\\.cpp:[0-9]+\\)\n"));
}

TEST_F(WholeRunTest, UnknownKeyStartsNoTest)
{
    scripts["A"] = {};

    EXPECT_EQ(runWith(R"({"tests":[{"class":"A"}],"zzz":1})"), 0);

    EXPECT_THAT(output.text(), testing::StartsWith("Invalid user configuration zzz\n"
                                                   "Error while running VETRA:6 "));
    EXPECT_THAT(calls, IsEmpty());
}

TEST_F(WholeRunTest, ErrorLineStaysOneLineWhenTheKeyHoldsLineFeeds)
{
    EXPECT_EQ(runWith(R"({"tests":[{"a\nb":1}]})"), 0);

    EXPECT_THAT(output.text(), MatchesRegex("Error while running VETRA:6 [^\n]*a\\\\nb[^\n]*\n"));
}

TEST_F(WholeRunTest, UnregisteredClassIsSkippedAndGetsNoFile)
{
    EXPECT_EQ(runWith(R"({"output_dir":"out","tests":[{"id":1,"class":"Unheard"}]})"), 0);

    EXPECT_EQ(output.text(), announced("out", "1 Unheard\n"));
    EXPECT_THAT(namesIn("out"), IsEmpty());
}

TEST_F(WholeRunTest, ExceptionOfATestLeavesNoResultFileAtAll)
{
    scripts["A"] = {};
    scripts["B"] = {.whileRunning = [] { Vetra::raise(Vetra__ERR_GENERIC(), {"17"}); }};

    EXPECT_EQ(runWith(R"({"output_dir":"out","tests":[{"id":1,"class":"A"},
                                                      {"id":2,"class":"B"}]})"),
              0);

    EXPECT_THAT(output.text(), testing::HasSubstr("A run OK.\n"));
    EXPECT_THAT(output.text(),
                testing::HasSubstr("Start running test:\n B\nError while running VETRA:1 "
                                   "ERR_GENERIC: Generic vetra error 17  (WholeRunTest.cpp:"));
    EXPECT_THAT(namesIn("out"), IsEmpty());
    EXPECT_THAT(calls.back(), EndsWith(": gone"));
}

TEST_F(WholeRunTest, ExceptionsOfOtherTypesAreNotCaught)
{
    scripts["A"] = {.whileRunning = [] { throw std::out_of_range("of a test"); }};
    EXPECT_THROW(runWith(R"({"tests":[{"class":"A"}]})"), std::out_of_range);

    scripts["A"] = {.whileRunning = [] { throw Diagnose::SystemException("x.cpp", 1, {ENOENT}); }};
    EXPECT_THROW(runWith(R"({"tests":[{"class":"A"}]})"), Diagnose::SystemException);
    EXPECT_THAT(output.text(), testing::Not(testing::HasSubstr("Error while running")));
}

TEST_F(WholeRunTest, TwoTestsWithoutIdsGiveOneFileUnderZero)
{
    scripts["A"] = scripts["B"] = {};

    runWith(R"({"output_dir":"out","tests":[{"class":"A"},{"class":"B"}]})");

    EXPECT_THAT(namesIn("out"), ElementsAre(MatchesRegex("test_0_[0-9]+_Vetra_B")));
}

TEST_F(WholeRunTest, ResultsThatCannotBeWrittenAreNotReported)
{
    scripts["A"] = {};
    unitTests::writeFile("file", "");

    EXPECT_EQ(runWith(R"({"output_dir":"file/below","tests":[{"id":1,"class":"A"}]})"), 0);

    EXPECT_THAT(
        output.text(),
        MatchesRegex("(.|\n)*report\nWriting output to file/below/test_1_[0-9]+_Vetra_A\n"));
    EXPECT_THAT(namesIn("."), ElementsAre("config.json", "file", "vetra.trc"));
}

TEST_F(WholeRunTest, LogGrowsAcrossRuns)
{
    runWith("{}");
    const auto linesOfOneRun = linesOf("vetra.trc").size();

    run();

    EXPECT_EQ(linesOf("vetra.trc").size(), 2 * linesOfOneRun);
}

}  // namespace
