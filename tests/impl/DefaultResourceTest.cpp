#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

#include "impl/VetraHelper.h"
#include "impl/vetra.h"
#include "tests/impl/DriverTest.h"
#include "tests/services/support/ChildProcess.h"
#include "tests/services/support/Guards.h"

namespace {

constexpr const char* longJson =
    R"({"blades":["a blade whose name no string keeps within itself",1],
        "output_dir":"an/output/directory/whose/name/is/of/some/length",
        "report_id":"a report whose name no string keeps within itself",
        "tests":[{"id":2,"class":"A class whose name no string keeps within itself",
                  "package":"a package whose name no string keeps within itself",
                  "config":{"a key that no string keeps within itself":
                            ["a text that no string keeps within itself"]}}],
        "use_zdb":false})";

/// A copy that falls back to the default memory resource fails here.
class DefaultResourceTest : public unitTests::ConfiguredTest {
protected:
    Vetra::VetraHelper helper{*domain};
    unitTests::NoDefaultResource guard;
};

TEST_F(DefaultResourceTest, IsNotUsedToReadAConfiguration)
{
    EXPECT_EQ(read(longJson), "");
    EXPECT_NE(read("{\"tests\":[{\"a key that no string keeps within itself\":1}]}"), "");
    EXPECT_NE(read("{\"a key that no string keeps within itself\":1}"), "");
    EXPECT_NE(read("no JSON, and longer than what a string keeps within itself"), "");
}

TEST_F(DefaultResourceTest, IsNotUsedToShowAConfiguration)
{
    read(longJson);

    EXPECT_GT(config.printUserConfigToString().size(), 100U);
}

TEST_F(DefaultResourceTest, IsNotUsedByGettersAndSetters)
{
    read(longJson);
    Basis::vector<Basis::string> blades(domain.get());
    Vetra::TestConfigMap tests(domain.get());

    config.getBladesList(blades);
    config.setBladesList(blades);
    config.getTestConfigMap(tests);
    config.setTestConfigMap(tests);
    config.setOutputDir(config.getOutputDir());
    config.setReportID(config.getReportID());
    Vetra::TestConfig& test = *tests.at(2.0);
    test.setTestClass(test.getTestClass());
    test.setTestPackage(test.getTestPackage());
    test.setConfigString(test.getConfigString());

    EXPECT_EQ(test.getTestClass(), "A class whose name no string keeps within itself");
}

TEST_F(DefaultResourceTest, IsNotUsedForTheLog)
{
    helper.writeToTrace(Vetra::TRACE_INFO, "a message that no string keeps within itself");
    helper.writeToTrace(Vetra::TRACE_ERROR, "a message that no string keeps within itself");

    EXPECT_EQ(unitTests::linesOf("vetra.trc").size(), 2U);
}

TEST_F(DefaultResourceTest, IsNotUsedToReadAFile)
{
    unitTests::writeFile("file", std::string(100, 'x'));
    Basis::string content(domain.get());

    helper.readFromFile(text("file"), content);
    EXPECT_EQ(content.size(), 100U);
    EXPECT_THROW(helper.readFromFile(text("a missing file with a name of some length"), content),
                 Vetra::VetraException);
}

TEST_F(DefaultResourceTest, IsNotUsedToWriteAResult)
{
    Basis::string location = text(directory.path());
    Basis::string name = text("A test whose name no string keeps within itself");
    Basis::string result = text("a result that no string keeps within itself");

    EXPECT_GT(helper.writeTestResultToFile(1, location, name, result).size(), 50U);
}

TEST_F(DefaultResourceTest, IsNotUsedToSkipAnUnregisteredClass)
{
    read(longJson);
    Vetra::TestMap tests(domain.get());

    helper.runTests(config, tests);

    EXPECT_TRUE(tests.empty());
}

TEST_F(DefaultResourceTest, IsNotUsedByTheCommandLine)
{
    unitTests::writeFile("config.json", longJson);
    std::string arguments[] = {"vetra", "-f", "config.json"};
    char* pointers[] = {arguments[0].data(), arguments[1].data(), arguments[2].data(), nullptr};

    EXPECT_EQ(Vetra::runVetra(3, pointers), 0);
    EXPECT_EQ(Vetra::runVetra(1, pointers), -1);
    Vetra::vetraVersion();
}

// The test of this very host, with an empty search path, so that it is quick whatever is installed.
TEST_F(DefaultResourceTest, IsNotUsedByARunOfEvalOS)
{
    ASSERT_EQ(read(R"({"tests":[{"id":1,"class":"EvalOS","config":{"ignored":true}}]})"), "");

    const auto end = unitTests::inChild([this] {
        ::setenv("PATH", directory.path().c_str(), 1);
        Vetra::TestMap tests(domain.get());
        helper.runTests(config, tests);
        const Vetra::TestPointer test = tests.at(1.0);
        const bool hasBoth =
            !test->getTestJsonResult().empty() && !test->getTestHumanReadableResult().empty();
        unitTests::writeFile("seen", hasBoth ? "both results" : "a result is missing");
    });

    EXPECT_EQ(end.signal, 0);
    EXPECT_EQ(unitTests::contentOf("seen"), "both results");
}

}  // namespace
