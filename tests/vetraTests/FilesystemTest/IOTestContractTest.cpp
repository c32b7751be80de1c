#include <gtest/gtest.h>

#include "Version/Version.h"
#include "tests/vetraTests/FilesystemTest/ScriptedEngine.h"
#include "vetraTests/FSPerf/FSPerfHelper.h"

namespace ioTests {

using vetraTests::BackupIO;
using vetraTests::DataVolumeIO;
using vetraTests::LogVolumeIO;
using vetraTests::MixedStressIO;

namespace {

Basis::string textOf(const char* text)
{
    return Basis::string(text, Basis::Allocator::global().get());
}

}  // namespace

TEST(IOTestContract, NamesEachTestAfterItsClass)
{
    EXPECT_EQ(OnHost<DataVolumeIO>("h").test->getTestName(), "DataVolumeIO");
    EXPECT_EQ(OnHost<LogVolumeIO>("h").test->getTestName(), "LogVolumeIO");
    EXPECT_EQ(OnHost<BackupIO>("h").test->getTestName(), "BackupIO");
    EXPECT_EQ(OnHost<MixedStressIO>("h").test->getTestName(), "MixedStressIO");
}

TEST(IOTestContract, ShowsTheVersionUnderTheEnginesName)
{
    const std::string expected =
        std::string("fsperf-") + zdbver_version() + " (" + zdbver_compiledate() + ")";
    EXPECT_EQ(OnHost<DataVolumeIO>("h").test->getTestVersion(), expected.c_str());
}

TEST(IOTestContract, ShowsTheEnginesUsage)
{
    EXPECT_EQ(OnHost<DataVolumeIO>("h").test->getTestUsage(), vetraTests::testUsage());
}

TEST(IOTestContract, KeepsTheHostOfItsConstruction)
{
    OnHost<BackupIO> host("db1");
    ::setenv("HOST", "db2", 1);
    EXPECT_EQ(host.test->getTestHost(), "db1");

    Basis::string other = textOf("db3");
    host.test->setTestHost(other);
    EXPECT_EQ(host.test->getTestHost(), "db3");
}

TEST(IOTestContract, AnswersWhatTheDriverDoesNotAsk)
{
    OnHost<BackupIO> host("db1");
    Basis::string text = textOf("text");

    host.test->setTestTrigger(text);
    EXPECT_EQ(host.test->getTestTrigger(), "");
    host.test->setTestOutputLocation(text);
    EXPECT_EQ(host.test->getTestOutputLocation(), "text");
    host.test->setTestContactInfo(text);
    EXPECT_EQ(host.test->getTestContactInfo(), "text");
    EXPECT_EQ(host.test->getTestProgressPercentage(), 100.0F);
    EXPECT_EQ(host.test->interruptTest(), -1);
    host.test->setUp();
    host.test->tearDown();
    host.test->notifyTestStatus();
    EXPECT_FALSE(host.test->getTestResult());
    host.test->setTestResult(true);
    EXPECT_TRUE(host.test->getTestResult());
}

TEST(IOTestContract, SaysThatNothingFollows)
{
    OnHost<BackupIO> host("db1");
    const unitTests::CapturedOutput out;
    host.test->postTestAction();
    EXPECT_EQ(out.text(), "No action is required for post Test\n");
}

TEST(IOTestContract, KeepsItsConfigurationAsItWasGiven)
{
    OnHost<BackupIO> host("db1");
    host.configure(R"({ "duration" : "short" })");
    EXPECT_EQ(host.test->getTestConfig(), R"({ "duration" : "short" })");
    EXPECT_EQ(host.test->getDefaultTestConfig(),
              R"({"mount" : {"db1":["/zirn/data/"]},"duration" : "short"})");
}

TEST(IOTestContract, DestroysAnObjectMadeByNew)
{
    Basis::Allocator& domain = *Basis::Allocator::global();
    const std::size_t before = domain.bytes();
    (new DataVolumeIO(domain))->Destroy();
    (new LogVolumeIO(domain))->Destroy();
    (new BackupIO(domain))->Destroy();
    (new MixedStressIO(domain))->Destroy();
    EXPECT_EQ(domain.bytes(), before);
}

}  // namespace ioTests
