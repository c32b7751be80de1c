// What the network test answers without measuring anything, and how it is configured.
#include <gmock/gmock.h>

#include <memory>
#include <sstream>
#include <string>

#include "JoltUtils/Json.h"
#include "Version/Version.h"
#include "impl/network/NetworkTest.h"
#include "tests/services/support/CapturedOutput.h"
#include "tests/services/support/Guards.h"

namespace {

using Basis::string;
using unitTests::CapturedOutput;
using vetraTests::NetworkTest;

class NetworkTestContract : public testing::Test {
protected:
    string text(std::string_view characters) { return string(characters, domain.get()); }

    // What configuring prints.
    std::string configure(std::string_view config)
    {
        const CapturedOutput out;
        string given = text(config);
        test.setTestConfig(given);
        return out.text();
    }

    unitTests::EnvironmentVariable host{"HOST", "here"};
    std::shared_ptr<Basis::Allocator> domain =
        Basis::Allocator::createChild(Basis::Allocator::global(), "network test", 0);
    NetworkTest test{*domain};
};

TEST_F(NetworkTestContract, HasConstantAnswers)
{
    EXPECT_EQ(test.getTestName(), "NetworkTest");
    EXPECT_EQ(test.getTestUsage(), "This test is used to measure network speed");
    EXPECT_EQ(test.getDefaultTestConfig(), "This is the test configuration");
    EXPECT_EQ(test.getTestTrigger(), "");
    EXPECT_EQ(test.getTestConfig(), "This is a dummy TestConfig");
    EXPECT_EQ(test.getTestHost(), "Sample Host");
    EXPECT_EQ(test.getTestContactInfo(), "test Contact Info");
    EXPECT_EQ(test.getTestProgressPercentage(), 0.0F);
    EXPECT_EQ(test.interruptTest(), 0);
    EXPECT_EQ(test.getTestEstimatedDuration(), 0);
}

TEST_F(NetworkTestContract, TellsTheVersionOfTheProgram)
{
    EXPECT_EQ(std::string(test.getTestVersion()),
              std::string("NetworkTest-") + zdbver_version() + " (" + zdbver_compiledate() + ")");
}

TEST_F(NetworkTestContract, KeepsNothingOfWhatItDoesNotUse)
{
    string given = text("something else");
    test.setTestTrigger(given);
    test.setTestHost(given);
    test.setTestContactInfo(given);
    test.setUp();
    test.tearDown();
    test.Destroy();
    test.notifyTestStatus();
    test.postTestAction();
    JoltUtils::JsonObject object{JoltUtils::JsonAllocator(*domain)};
    test.createInputJO(object);
    test.createResultJO(object);
    test.createTypesJO(object);

    EXPECT_EQ(test.getTestTrigger(), "");
    EXPECT_EQ(test.getTestHost(), "Sample Host");
    EXPECT_EQ(test.getTestContactInfo(), "test Contact Info");
    EXPECT_TRUE(object.empty());
}

TEST_F(NetworkTestContract, KeepsResultAndOutputLocation)
{
    EXPECT_FALSE(test.getTestResult());
    test.setTestResult(true);
    EXPECT_TRUE(test.getTestResult());
    test.setTestResult(false);
    EXPECT_FALSE(test.getTestResult());

    EXPECT_EQ(test.getTestOutputLocation(), "");
    string location = text("/some/where");
    test.setTestOutputLocation(location);
    EXPECT_EQ(test.getTestOutputLocation(), "/some/where");
}

TEST_F(NetworkTestContract, DoesNotGiveBackItsConfiguration)
{
    configure(R"({"InternHosts":{"localhost":"a"}})");
    EXPECT_EQ(test.getTestConfig(), "This is a dummy TestConfig");
}

TEST_F(NetworkTestContract, EstimatesByItsPeers)
{
    configure(R"({"InternHosts":{"here":"a","localhost":"b"}})");
    EXPECT_EQ(test.getTestEstimatedDuration(), 200);
}

TEST_F(NetworkTestContract, HasNoPeersWithoutInternHosts)
{
    for (const char* config :
         {"{}", R"({"internHosts":{"localhost":"a"}})", R"({"InternHosts ":{"localhost":"a"}})",
          R"({"InternHosts":"localhost"})", R"({"InternHosts":["localhost"]})",
          R"({"other":{"InternHosts":{"localhost":"a"}}})"}) {
        EXPECT_EQ(configure(config), "Configuring NetworkTest for host here\n") << config;
        EXPECT_EQ(test.getTestEstimatedDuration(), 0) << config;
    }
}

TEST_F(NetworkTestContract, SaysThatItsConfigurationCannotBeParsed)
{
    EXPECT_EQ(configure("{\"InternHosts\":"),
              "Configuring NetworkTest for host here\n"
              "Failed to parse json size=15 , TestConfig={\"InternHosts\":\n");
    EXPECT_EQ(test.getTestEstimatedDuration(), 0);
    EXPECT_EQ(configure(""),
              "Configuring NetworkTest for host here\n"
              "Failed to parse json size=0 , TestConfig=\n");
}

TEST_F(NetworkTestContract, TakesTheEntriesOfThisHostAndOfLocalhost)
{
    EXPECT_EQ(configure(R"({"InternHosts":{"here":"a","localhost":"b"}})"),
              "Configuring NetworkTest for host here\n");
    host.set("another");
    configure(R"({"InternHosts":{"here":"a","localhost":"b"}})");
    EXPECT_EQ(test.getTestEstimatedDuration(), 100);
}

TEST_F(NetworkTestContract, CountsLocalhostOnAHostWithoutAName)
{
    host.set(nullptr);
    EXPECT_EQ(configure(R"({"InternHosts":{"localhost":"b","here":"a"}})"),
              "Configuring NetworkTest for host \n"
              "Skip NetworkTest InternHosts item \"here\":\"\"a\"\" as client is here\n");
    EXPECT_EQ(test.getTestEstimatedDuration(), 100);
    configure(R"({"InternHosts":{"":"b"}})");
    EXPECT_EQ(test.getTestEstimatedDuration(), 100);
}

TEST_F(NetworkTestContract, NamesTheEntriesOfOtherHostsWithTheirOwnClient)
{
    EXPECT_EQ(configure(R"({"InternHosts":{"there":"a","Here":"b","here.org":{"x":1},"n":7}})"),
              "Configuring NetworkTest for host here\n"
              "Skip NetworkTest InternHosts item \"Here\":\"\"b\"\" as client is Here\n"
              "Skip NetworkTest InternHosts item \"here.org\":\"{\"x\":1}\" as client is here.org\n"
              "Skip NetworkTest InternHosts item \"n\":\"7\" as client is n\n"
              "Skip NetworkTest InternHosts item \"there\":\"\"a\"\" as client is there\n");
}

TEST_F(NetworkTestContract, PassesOverOwnEntriesThatAreNoText)
{
    EXPECT_EQ(configure(R"({"InternHosts":{"here":7,"localhost":{"a":"b"}}})"),
              "Configuring NetworkTest for host here\n");
    EXPECT_EQ(test.getTestEstimatedDuration(), 0);
}

TEST_F(NetworkTestContract, ForgetsThePeersOfTheConfigurationBefore)
{
    configure(R"({"InternHosts":{"here":"a","localhost":"b"}})");
    configure(R"({"InternHosts":{"localhost":"b"}})");
    EXPECT_EQ(test.getTestEstimatedDuration(), 100);
    configure("no JSON");
    EXPECT_EQ(test.getTestEstimatedDuration(), 0);
}

TEST_F(NetworkTestContract, WithoutPeersSucceedsWithEmptyResults)
{
    for (const char* config : {"{}", "no JSON"}) {
        configure(config);
        test.setTestResult(false);
        EXPECT_EQ(test.runTest(), 0);
        EXPECT_TRUE(test.getTestResult());
        EXPECT_EQ(test.getTestJsonResult(), "{}");
        EXPECT_EQ(test.getTestHumanReadableResult(), "NetworkTest Result:\n");
    }
}

TEST_F(NetworkTestContract, TakesItsMemoryFromItsOwner)
{
    const unitTests::NoDefaultResource guard;
    EXPECT_NE(configure(R"({"InternHosts":{"localhost":"a host with a name that is not short",)"
                        R"("another client with a long name":["and what it measures",1]}})"),
              "");
    EXPECT_EQ(test.getTestEstimatedDuration(), 100);
    EXPECT_EQ(test.getTestVersion().get_allocator().resource(), domain.get());
    EXPECT_EQ(test.getTestHumanReadableResult().get_allocator().resource(), domain.get());
}

}  // namespace
