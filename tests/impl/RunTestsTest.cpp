#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iostream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "impl/VetraHelper.h"
#include "tests/impl/DriverTest.h"
#include "tests/impl/FactoryHook.h"
#include "tests/impl/ScriptedTest.h"

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using unitTests::CallLog;
using unitTests::linesOf;
using unitTests::Script;
using unitTests::ScriptedTest;
using Vetra::TestPointer;

/// Runs scripted tests; a class without a script is not registered.
class RunTestsTest : public unitTests::ConfiguredTest {
protected:
    TestPointer create(Basis::Allocator& allocator, const Basis::string& testClass)
    {
        const auto script = scripts.find(std::string(testClass));
        if (script == scripts.end())
            return nullptr;
        return std::allocate_shared<ScriptedTest>(
            std::pmr::polymorphic_allocator<ScriptedTest>(&allocator), allocator, script->first,
            script->second, calls);
    }
    void run(const std::string& arrayOfTests)
    {
        ASSERT_EQ(read("{\"output_dir\":\"out\",\"tests\":" + arrayOfTests + "}"), "");
        helper.runTests(config, tests);
    }
    /// The calls without those of other tests.
    std::vector<std::string> order(const std::string& call) const
    {
        std::vector<std::string> found;
        for (const std::string& line : calls) {
            if (line.ends_with(": " + call))
                found.push_back(line.substr(0, line.find(':')));
        }
        return found;
    }

    CallLog calls;
    std::map<std::string, Script> scripts;
    unitTests::FactoryHook hook{[this](Basis::Allocator& allocator, const Basis::string& name) {
        return create(allocator, name);
    }};
    Vetra::VetraHelper helper{*domain};
    Vetra::TestMap tests{domain.get()};
};

TEST_F(RunTestsTest, DrivesATestThroughItsContractInOrder)
{
    scripts["A"] = {};

    run(R"([{"id":1,"class":"A","config":{"x":1}}])");

    EXPECT_THAT(calls, ElementsAre("A: getTestUsage", R"(A: setTestConfig {"x":1})",
                                   "A: getTestEstimatedDuration", "A: setTestOutputLocation out",
                                   "A: getTestName", "A: runTest", "A: setTestResult true",
                                   "A: getTestName", "A: getTestHumanReadableResult"));
}

TEST_F(RunTestsTest, DoesNotAskAFailedTestForItsReport)
{
    scripts["A"] = {.result = -1};

    run(R"([{"id":1,"class":"A"}])");

    EXPECT_THAT(calls,
                ElementsAre("A: getTestUsage", "A: setTestConfig", "A: getTestEstimatedDuration",
                            "A: setTestOutputLocation out", "A: getTestName", "A: runTest",
                            "A: setTestResult false", "A: getTestName"));
}

TEST_F(RunTestsTest, PrintsEachStepOfATestThatRan)
{
    scripts["A"] = {.usage = "how to use\n", .report = "all\nis well", .duration = 1234567890123};

    run(R"([{"id":1,"class":"A","config":{"x":1}}])");

    EXPECT_EQ(output.text(),
              "Test usage:\nhow to use\n\n"
              "Setting test configuration: {\"x\":1}\n"
              "Estimated testDuration:\n1234567890123ms\n"
              "Start running test:\n A\n"
              "A run OK.\n"
              "all\nis well\n");
}

TEST_F(RunTestsTest, PrintsTheFailureWithoutABlank)
{
    scripts["A"] = {.usage = "u", .result = -1};

    run(R"([{"id":1,"class":"A"}])");

    EXPECT_EQ(output.text(),
              "Test usage:\nu\nSetting test configuration: \nEstimated testDuration:\n80ms\n"
              "Start running test:\n A\nArun failed\n");
}

TEST_F(RunTestsTest, AnyResultButZeroIsAFailure)
{
    scripts["Plus"] = {.result = 1};
    scripts["Minus"] = {.result = -2147483647};

    run(R"([{"id":1,"class":"Plus"},{"id":2,"class":"Minus"}])");

    EXPECT_THAT(order("setTestResult false"), ElementsAre("Plus", "Minus"));
}

TEST_F(RunTestsTest, LogsStartAndReport)
{
    scripts["A"] = {.report = "all is well"};

    run(R"([{"id":1,"class":"A"}])");

    EXPECT_THAT(linesOf("vetra.trc"),
                ElementsAre(EndsWith(" TRACE INFO: Start running test:A"),
                            EndsWith(" TRACE INFO: Get test result:all is well")));
}

TEST_F(RunTestsTest, LogsAFailureAsInformation)
{
    scripts["A"] = {.result = -1};

    run(R"([{"id":1,"class":"A"}])");

    EXPECT_THAT(linesOf("vetra.trc"), ElementsAre(EndsWith(" TRACE INFO: Start running test:A"),
                                                  EndsWith(" TRACE INFO: Arun failed")));
}

TEST_F(RunTestsTest, WhatIsPrintedBeforeTheTestIsFlushedWhenItRuns)
{
    class NotesFlushes : public std::stringbuf {
    public:
        std::string flushed;

    protected:
        int sync() override
        {
            flushed = str();
            return 0;
        }
    } buffer;
    std::string flushedBefore;
    scripts["A"] = {.whileRunning = [&] { flushedBefore = buffer.flushed; }};
    std::streambuf* const original = std::cout.rdbuf(&buffer);

    run(R"([{"id":1,"class":"A"}])");

    std::cout.rdbuf(original);
    EXPECT_THAT(flushedBefore, EndsWith("Start running test:\n A\n"));
    EXPECT_EQ(buffer.flushed, buffer.str());
}

TEST_F(RunTestsTest, RunsInAscendingOrderOfTheKeys)
{
    scripts["A"] = scripts["B"] = scripts["C"] = {};

    run(R"([{"id":2,"class":"C"},{"id":1.5,"class":"B"},{"id":1,"class":"A"}])");

    EXPECT_THAT(order("runTest"), ElementsAre("A", "B", "C"));
    EXPECT_EQ(tests.at(1.5)->getTestName(), "B");
}

TEST_F(RunTestsTest, OneTestEndsBeforeTheNextIsMade)
{
    scripts["A"] = {};
    scripts["B"] = {};

    run(R"([{"id":1,"class":"A"},{"id":2,"class":"B"}])");

    EXPECT_EQ(calls[8], "A: getTestHumanReadableResult");
    EXPECT_EQ(calls[9], "B: getTestUsage");
}

TEST_F(RunTestsTest, EmptyMapReturnsAtOnceAndLeavesNoFile)
{
    helper.runTests(config, tests);

    EXPECT_TRUE(tests.empty());
    EXPECT_EQ(output.text(), "");
    EXPECT_THAT(unitTests::namesIn("."), IsEmpty());
}

TEST_F(RunTestsTest, UnregisteredClassIsLoggedAndSkipped)
{
    scripts["B"] = {};

    run(R"([{"id":1,"class":"Unheard"},{"id":2,"class":"B"}])");

    EXPECT_EQ(tests.size(), 1U);
    EXPECT_TRUE(tests.contains(2.0));
    EXPECT_THAT(linesOf("vetra.trc")[0],
                EndsWith(" TRACE ERROR: Error while creating test object."));
    EXPECT_THAT(output.text(), testing::StartsWith("Test usage:\n"));
}

TEST_F(RunTestsTest, FailureDoesNotStopTheOthers)
{
    scripts["A"] = {.result = -1};
    scripts["B"] = {};

    run(R"([{"id":1,"class":"A"},{"id":2,"class":"B"}])");

    EXPECT_THAT(order("runTest"), ElementsAre("A", "B"));
    EXPECT_EQ(tests.size(), 2U);
}

TEST_F(RunTestsTest, TestsStayAliveInTheCallersMap)
{
    scripts["A"] = {};

    run(R"([{"id":1,"class":"A"}])");

    EXPECT_EQ(tests.at(1.0).use_count(), 1);
    EXPECT_THAT(order("gone"), IsEmpty());
    tests.clear();
    EXPECT_THAT(order("gone"), ElementsAre("A"));
}

TEST_F(RunTestsTest, TestWithoutAnIdGoesUnderZero)
{
    scripts["A"] = {};

    run(R"([{"class":"A"}])");

    EXPECT_EQ(tests.size(), 1U);
    EXPECT_TRUE(tests.contains(0.0));
}

TEST_F(RunTestsTest, OfTwoTestsWithoutIdsTheOlderIsReleasedAtOnce)
{
    scripts["A"] = scripts["B"] = scripts["C"] = {};

    run(R"([{"class":"A"},{"id":2,"class":"Displaced"},{"class":"B"},{"id":3,"class":"C"}])");

    EXPECT_EQ(tests.size(), 2U);
    EXPECT_EQ(tests.at(0.0)->getTestName(), "B");
    const auto gone = std::find(calls.begin(), calls.end(), "A: gone");
    const auto reportOfB = std::find(calls.begin(), calls.end(), "B: getTestHumanReadableResult");
    const auto startOfC = std::find(calls.begin(), calls.end(), "C: getTestUsage");
    EXPECT_TRUE(reportOfB < gone && gone < startOfC) << testing::PrintToString(calls);
}

TEST_F(RunTestsTest, TakesThePlaceOfWhatTheCallersMapHeldUnderTheId)
{
    scripts["A"] = {};
    scripts["Old"] = {};
    tests.emplace(1.0, create(*domain, text("Old")));
    tests.emplace(5.0, create(*domain, text("Old")));

    run(R"([{"id":1,"class":"A"}])");

    EXPECT_EQ(tests.at(1.0)->getTestName(), "A");
    EXPECT_EQ(tests.at(5.0)->getTestName(), "Old");
    EXPECT_EQ(order("gone").size(), 1U);
}

TEST_F(RunTestsTest, ExceptionOfATestEndsTheRunAndReleasesTheTest)
{
    scripts["A"] = {};
    scripts["B"] = {.whileRunning = [] { Vetra::raise(Vetra__ERR_GENERIC(), {"1"}); }};
    scripts["C"] = {};

    EXPECT_THROW(run(R"([{"id":1,"class":"A"},{"id":2,"class":"B"},{"id":3,"class":"C"}])"),
                 Vetra::VetraException);

    EXPECT_EQ(tests.size(), 1U);
    EXPECT_THAT(order("gone"), ElementsAre("B"));
    EXPECT_THAT(order("getTestUsage"), ElementsAre("A", "B"));
}

TEST_F(RunTestsTest, OtherExceptionsPassThroughAsTheyAre)
{
    scripts["A"] = {.whileRunning = [] { throw std::out_of_range("of a test"); }};

    EXPECT_THROW(run(R"([{"id":1,"class":"A"}])"), std::out_of_range);
}

TEST_F(RunTestsTest, SecondRunMakesNewTests)
{
    scripts["A"] = {};

    run(R"([{"id":1,"class":"A"}])");
    helper.runTests(config, tests);

    EXPECT_EQ(order("runTest").size(), 2U);
    EXPECT_EQ(order("gone").size(), 1U);
    EXPECT_EQ(tests.size(), 1U);
}

TEST_F(RunTestsTest, LeavesTheConfigurationAsItIs)
{
    scripts["A"] = {};
    run(R"([{"id":1,"class":"A"},{"id":2,"class":"Unheard"}])");

    Vetra::TestConfigMap entries(domain.get());
    config.getTestConfigMap(entries);

    EXPECT_EQ(entries.size(), 2U);
    EXPECT_EQ(entries.at(1.0)->getTestClass(), "A");
}

}  // namespace
