#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tests/services/support/CapturedOutput.h"
#include "tests/services/support/Files.h"
#include "tests/services/support/Guards.h"
#include "tests/vetraTests/Neighbours.h"
#include "vetraTests/LandscapeTest.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using vetraTests::EvalOS;
using vetraTests::RulePointer;
using vetraTests::ValidateSystemInfo;

class EvalOSRunTest : public testing::Test {
protected:
    std::string json() { return std::string(test.getTestJsonResult()); }
    std::string report() { return std::string(test.getTestHumanReadableResult()); }

    unitTests::WorkingDirectory directory;
    std::shared_ptr<Basis::Allocator> domain =
        Basis::Allocator::createChild(Basis::Allocator::global(), "run", 0);
    unitTests::EnvironmentVariable host{"HOST", "this host"};
    unitTests::CapturedOutput output;
    unitTests::Neighbours neighbours;
    EvalOS test{*domain};
};

TEST_F(EvalOSRunTest, HandsThirteenChecksToTheValidationInTheirOrder)
{
    const std::vector<RulePointer> expected = {
        &ValidateSystemInfo::validateDistribution,
        &ValidateSystemInfo::validateLinuxKernelVersion,
        &ValidateSystemInfo::validateClocksource,
        &ValidateSystemInfo::validateCPU,
        &ValidateSystemInfo::validateHypervisor,
        &ValidateSystemInfo::validateHTT,
        &ValidateSystemInfo::validateApplianceSystemType,
        &ValidateSystemInfo::validateTHP,
        &ValidateSystemInfo::validateRuntime,
        &ValidateSystemInfo::validateMemory,
        &ValidateSystemInfo::validateMemoryDistribution,
        &ValidateSystemInfo::validateCoreMemoryRatio,
        &ValidateSystemInfo::validateCPUgovernor,
    };

    EXPECT_EQ(test.runTest(), 0);

    ASSERT_EQ(neighbours.validations.size(), 1U);
    EXPECT_EQ(neighbours.validations[0].count, 13);
    EXPECT_TRUE(neighbours.validations[0].checks == expected);
}

TEST_F(EvalOSRunTest, HandsHostAndArchitectureToTheValidation)
{
    test.runTest();

    ASSERT_EQ(neighbours.validations.size(), 1U);
    EXPECT_EQ(neighbours.validations[0].title, "this host");
    EXPECT_EQ(neighbours.validations[0].arch, "x86");
}

TEST_F(EvalOSRunTest, KeepsFactsAndReport)
{
    neighbours.facts = "{ \"facts\" }";

    EXPECT_EQ(test.runTest(), 0);

    EXPECT_EQ(json(), "{ \"facts\" }");
    EXPECT_THAT(report(), HasSubstr("this host"));
    EXPECT_TRUE(test.getTestResult());
}

TEST_F(EvalOSRunTest, AsksItsOwnVirtualOperationForTheHost)
{
    class OnAnotherHost : public EvalOS {
    public:
        using EvalOS::EvalOS;
        Basis::string getTestHost() override { return {"another host", testAllocator}; }
        std::pmr::memory_resource* testAllocator = nullptr;
    } another(*domain);
    another.testAllocator = domain.get();

    another.runTest();

    EXPECT_EQ(neighbours.validations.at(0).title, "another host");
}

TEST_F(EvalOSRunTest, RunsAsUsualWithoutAHost)
{
    host.set(nullptr);

    EXPECT_EQ(test.runTest(), 0);

    EXPECT_EQ(neighbours.validations.at(0).title, "");
    EXPECT_EQ(json(), neighbours.facts);
    EXPECT_NE(report(), "");
    EXPECT_TRUE(test.getTestResult());
}

TEST_F(EvalOSRunTest, LongerArchitectureWithX86InItCounts)
{
    neighbours.arch = "an x86_64 machine";

    EXPECT_EQ(test.runTest(), 0);

    EXPECT_EQ(neighbours.validations.at(0).arch, "an x86_64 machine");
}

TEST_F(EvalOSRunTest, OtherArchitectureFailsBeforeAnyFactIsGathered)
{
    for (const char* arch : {"not valid", "", "X86", "ppc64", "aarch64"}) {
        neighbours.arch = arch;

        EXPECT_EQ(test.runTest(), -1) << arch;
    }
    EXPECT_EQ(neighbours.gatherings, 0);
    EXPECT_THAT(neighbours.validations, IsEmpty());
    EXPECT_EQ(json(), "");
    EXPECT_EQ(report(), "");
    EXPECT_FALSE(test.getTestResult());
}

TEST_F(EvalOSRunTest, PowerKeepsItsFactsAndFailsUnjudged)
{
    neighbours.arch = "ppc64le";

    EXPECT_EQ(test.runTest(), -1);

    EXPECT_EQ(json(), neighbours.facts);
    EXPECT_EQ(report(), "");
    EXPECT_THAT(neighbours.validations, IsEmpty());
    EXPECT_FALSE(test.getTestResult());
}

TEST_F(EvalOSRunTest, EmptyFactsRunButAreNoSuccess)
{
    neighbours.facts = "";

    EXPECT_EQ(test.runTest(), 0);

    EXPECT_NE(report(), "");
    EXPECT_FALSE(test.getTestResult());
}

TEST_F(EvalOSRunTest, EmptyReportRunsButIsNoSuccess)
{
    neighbours.isReportEmpty = true;

    EXPECT_EQ(test.runTest(), 0);

    EXPECT_EQ(report(), "");
    EXPECT_EQ(json(), neighbours.facts);
    EXPECT_FALSE(test.getTestResult());
}

TEST_F(EvalOSRunTest, RepeatRebuildsBothTexts)
{
    neighbours.facts = "first";
    test.runTest();
    const std::string firstReport = report();

    neighbours.facts = "second";
    host.set("another host");
    EXPECT_EQ(test.runTest(), 0);

    EXPECT_EQ(neighbours.gatherings, 2);
    EXPECT_EQ(json(), "second");
    EXPECT_THAT(report(), HasSubstr("another host"));
    EXPECT_THAT(report(), testing::Not(HasSubstr("this host")));
    EXPECT_NE(report(), firstReport);
}

TEST_F(EvalOSRunTest, ConfigurationIsIgnored)
{
    test.runTest();
    const std::string without = report();
    Basis::string config("{\"arch\":\"ppc64le\"}", domain.get());

    test.setTestConfig(config);

    EXPECT_EQ(test.runTest(), 0);
    EXPECT_EQ(report(), without);
}

TEST_F(EvalOSRunTest, SetsTheTraceUpForTheCurrentDirectory)
{
    neighbours.isTraceConfigured = false;

    test.runTest();

    EXPECT_THAT(neighbours.traceSetUps, ElementsAre(directory.path() + " 1 1"));
}

TEST_F(EvalOSRunTest, LeavesATraceThatIsSetUp)
{
    neighbours.isTraceConfigured = true;

    test.runTest();

    EXPECT_THAT(neighbours.traceSetUps, IsEmpty());
}

TEST_F(EvalOSRunTest, SetsTheTraceUpBeforeItLooksAtTheArchitecture)
{
    neighbours.isTraceConfigured = false;
    neighbours.arch = "not valid";

    EXPECT_EQ(test.runTest(), -1);

    EXPECT_EQ(neighbours.traceSetUps.size(), 1U);
}

TEST_F(EvalOSRunTest, ExceptionOfANeighbourPassesThroughAndLeavesTheTexts)
{
    neighbours.whileGathering = [] { Vetra::raise(Vetra__ERR_GENERIC(), {"1"}); };
    const auto before = domain->bytes();

    EXPECT_THROW(test.runTest(), Vetra::VetraException);

    EXPECT_EQ(domain->bytes(), before);
    EXPECT_EQ(json(), "");
}

TEST_F(EvalOSRunTest, HoldsNothingButItsTextsAfterwards)
{
    neighbours.facts = std::string(100, 'f');
    test.runTest();
    const auto once = domain->bytes();

    test.runTest();

    EXPECT_EQ(domain->bytes(), once);
}

TEST_F(EvalOSRunTest, NeedsNoDefaultResource)
{
    const unitTests::NoDefaultResource guard;
    neighbours.isTraceConfigured = false;
    neighbours.facts = std::string(100, 'f');

    EXPECT_EQ(test.runTest(), 0);
}

TEST_F(EvalOSRunTest, PrintsNothingByItself)
{
    test.runTest();

    EXPECT_EQ(output.text(), "");
}

}  // namespace
