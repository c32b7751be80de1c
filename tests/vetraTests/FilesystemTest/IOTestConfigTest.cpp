#include <gtest/gtest.h>

#include "tests/vetraTests/FilesystemTest/ScriptedEngine.h"

namespace ioTests {

using vetraTests::BackupIO;
using vetraTests::DataVolumeIO;

TEST(IOTestConfig, UsesTheDefaultForAnEmptyText)
{
    OnHost<DataVolumeIO> host("db1");

    EXPECT_EQ(host.configure(""),
              "setting the default configuratiion for the test:"
              R"({"mount" : {"db1":["/zirn/data/"]},"duration" : "short"})"
              "\n");
    host.run();
    EXPECT_EQ(host.status, 0);
    ASSERT_EQ(engine().commandLines.size(), 6U);
    EXPECT_EQ(engine().commandLines[0],
              "fsperf -m all -b 16K -f 5G -o json_short -i random /zirn/data/");
}

TEST(IOTestConfig, HasAnEntryForAnUnsetHostInTheDefault)
{
    OnHost<DataVolumeIO> host(nullptr);

    EXPECT_EQ(host.configure(""),
              "setting the default configuratiion for the test:"
              R"({"mount" : {"":["/zirn/data/"]},"duration" : "short"})"
              "\n");
    host.run();
    EXPECT_EQ(host.status, 0);
    EXPECT_EQ(engine().commandLines.size(), 6U);
}

TEST(IOTestConfig, NeedsAnEmptyKeyForAnUnsetHost)
{
    OnHost<BackupIO> named(nullptr);
    named.configure(R"({"mount":{"db1":["/x"]},"duration":"short"})");
    EXPECT_EQ(named.run(), "hostname doesn't exist\n");
    EXPECT_EQ(named.status, -1);

    OnHost<BackupIO> unnamed(nullptr);
    unnamed.configure(R"({"mount":{"":["/x"]},"duration":"short"})");
    unnamed.run();
    EXPECT_EQ(unnamed.status, 0);
    EXPECT_EQ(engine().commandLines.size(), 1U);
}

TEST(IOTestConfig, MakesItselfUnreadableForAHostWithAQuotationMark)
{
    OnHost<BackupIO> host("a\"b");

    const std::string said = host.configure("");
    EXPECT_NE(said.find("Failed to parse test config, size="), std::string::npos);
    EXPECT_EQ(host.run(), "hostname doesn't exist\n");
    EXPECT_EQ(host.status, -1);
}

TEST(IOTestConfig, FailsTheRunForATextThatIsNoJson)
{
    OnHost<BackupIO> host("db1");

    EXPECT_EQ(host.configure("{\"mount"), "Failed to parse test config, size=7\n");
    EXPECT_EQ(host.run(), "hostname doesn't exist\n");
    EXPECT_EQ(host.status, -1);
    EXPECT_EQ(host.json(), "");
    EXPECT_EQ(host.report(), "");
}

TEST(IOTestConfig, FailsTheRunForAnotherHost)
{
    OnHost<BackupIO> host("db1");

    EXPECT_EQ(host.configure(R"({"mount":{"db2":["/x"]},"duration":"short"})"), "");
    EXPECT_EQ(host.run(), "hostname doesn't exist\n");
    EXPECT_EQ(host.status, -1);
}

TEST(IOTestConfig, ComparesHostNamesWhole)
{
    OnHost<BackupIO> host("db1");

    host.configure(R"({"mount":{"db":["/x"],"db11":["/x"],"DB1":["/x"]},"duration":"short"})");
    host.run();
    EXPECT_EQ(host.status, -1);
}

TEST(IOTestConfig, SaysThatAMountObjectIsEmpty)
{
    OnHost<BackupIO> host("db1");

    EXPECT_EQ(host.configure(R"({"mount":{},"duration":"short"})"),
              "There is no mount value, size=0\n");
    EXPECT_EQ(host.run(), "hostname doesn't exist\n");
    EXPECT_EQ(host.status, -1);
}

TEST(IOTestConfig, RefusesAPathThatIsNoString)
{
    OnHost<BackupIO> host("db1");

    EXPECT_EQ(host.configure(R"({"mount":{"db1":[1,"/x",null]},"duration":"short"})"),
              "Invalid Json list\nInvalid Json list\n");
    EXPECT_EQ(host.run(), "");
    EXPECT_EQ(host.status, -1);
}

TEST(IOTestConfig, FailsWithoutAWordAboutJsonForAMountThatIsNoArray)
{
    OnHost<BackupIO> host("db1");

    EXPECT_EQ(host.configure(R"({"mount":{"db1":"/x"},"duration":"short"})"), "");
    EXPECT_EQ(host.run(), "hostname doesn't exist\n");
    EXPECT_EQ(host.status, -1);
}

TEST(IOTestConfig, TestsTheFirstOfSeveralPaths)
{
    OnHost<BackupIO> host("db1");

    host.configure(R"({"mount":{"db1":["/first","/second"]},"duration":"short"})");
    host.run();
    EXPECT_EQ(
        engine().commandLines,
        std::vector<std::string>{"fsperf -m all -b 64M -f 5G -o json_short -i sequential /first"});
}

TEST(IOTestConfig, RunsNothingForAnEmptyArrayOfPaths)
{
    OnHost<BackupIO> host("db1");

    host.configure(R"({"mount":{"db1":[]},"duration":"short"})");
    EXPECT_EQ(host.run(), "");
    EXPECT_EQ(host.status, 0);
    EXPECT_EQ(host.json(), "{\n}");
    EXPECT_TRUE(engine().commandLines.empty());
}

TEST(IOTestConfig, RefusesAnUnknownKeyAndGoesOn)
{
    OnHost<BackupIO> host("db1");

    EXPECT_EQ(host.configure(R"({"block":5,"duration":7,"mount":{"db1":["/x"]}})"),
              "Invalid test configuration\nInvalid test configuration\n");
    EXPECT_EQ(host.run(), "");
    EXPECT_EQ(host.status, -1);
}

TEST(IOTestConfig, TakesTheWordsOfDurationWhole)
{
    for (const char* word : {"Short", "short ", "", "longer"}) {
        OnHost<BackupIO> host("db1");
        host.configure(std::string(R"({"mount":{"db1":["/x"]},"duration":")") + word + "\"}");
        EXPECT_EQ(host.test->getTestEstimatedDuration(), 0) << word;
        EXPECT_EQ(host.run(), "") << word;
        EXPECT_EQ(host.status, 0) << word;
        EXPECT_TRUE(engine().commandLines.empty()) << word;
    }
}

TEST(IOTestConfig, RunsNothingWithoutADuration)
{
    OnHost<DataVolumeIO> host("db1");

    host.configure(R"({"mount":{"db1":["/x"]}})");
    EXPECT_EQ(host.test->getTestEstimatedDuration(), 0);
    EXPECT_EQ(host.run(), "");
    EXPECT_EQ(host.status, 0);
    EXPECT_EQ(host.json(), "{\n}");
    EXPECT_EQ(host.report(),
              "************************************************************\n"
              "         Summary of Data Volume Test            \n"
              "************************************************************\n"
              "Block  Test Initial    Over       Read       Latency        \n"
              "Size   File Write      Write      (MB/s)     (micro         \n"
              "       Size (MB/s)     (MB/s)                sec)           \n"
              "************************************************************\n");
    EXPECT_TRUE(host.test->getTestResult());
}

TEST(IOTestConfig, PassesTextParametersToTheEngineAndDropsOthers)
{
    OnHost<BackupIO> host("db1");

    EXPECT_EQ(host.configure(R"({"mount":{"db1":["/x"]},"duration":"short",)"
                             R"("parameter":{"b":"2","a":"1","c":3}})"),
              "");
    host.run();
    EXPECT_EQ(host.status, 0);
    EXPECT_EQ(engine().commandLines,
              std::vector<std::string>{"fsperf -m all -b 64M -f 5G -o json_short -i sequential "
                                       "--param a=1 --param b=2  /x"});
}

TEST(IOTestConfig, SaysThatParametersAreEmptyAndRunsWithABlankMore)
{
    OnHost<BackupIO> host("db1");

    EXPECT_EQ(host.configure(R"({"mount":{"db1":["/x"]},"duration":"short","parameter":{}})"),
              "There is no parameter value, size=0\n");
    host.run();
    EXPECT_EQ(host.status, 0);
    EXPECT_EQ(
        engine().commandLines,
        std::vector<std::string>{"fsperf -m all -b 64M -f 5G -o json_short -i sequential  /x"});
}

TEST(IOTestConfig, AddsToWhatAnEarlierOneHasLeft)
{
    OnHost<BackupIO> host("db1");

    host.configure(R"({"mount":{"db1":["/first"]},"duration":"short","parameter":{"a":"1"}})");
    host.configure(R"({"mount":{"db1":["/second"]},"parameter":{"b":"2"}})");
    host.run();
    EXPECT_EQ(engine().commandLines,
              std::vector<std::string>{"fsperf -m all -b 64M -f 5G -o json_short -i sequential "
                                       "--param a=1 --param b=2  /first"});
}

}  // namespace ioTests
