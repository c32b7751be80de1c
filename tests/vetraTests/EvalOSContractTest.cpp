#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <string>

#include "Version/Version.h"
#include "tests/services/support/CapturedOutput.h"
#include "tests/services/support/Files.h"
#include "tests/services/support/Guards.h"
#include "tests/vetraTests/Neighbours.h"
#include "vetraTests/LandscapeTest.h"

namespace {

using Basis::string;
using vetraTests::EvalOS;

constexpr const char* longText = "longer than what a string keeps within itself";

class EvalOSContractTest : public testing::Test {
protected:
    string text(std::string_view content) const { return string(content, domain.get()); }

    std::shared_ptr<Basis::Allocator> domain =
        Basis::Allocator::createChild(Basis::Allocator::global(), "contract", 0);
    unitTests::CapturedOutput output;
    EvalOS test{*domain};
};

TEST_F(EvalOSContractTest, NameIsTheClass)
{
    EXPECT_EQ(test.getTestName(), "EvalOS");
}

TEST_F(EvalOSContractTest, VersionIsShortNameVersionAndBuildDate)
{
    EXPECT_EQ(std::string_view(test.getTestVersion()),
              std::string("evalOS-") + zdbver_version() + " (" + zdbver_compiledate() + ")");
}

TEST_F(EvalOSContractTest, UsageIsTheBanner)
{
    EXPECT_EQ(test.getTestUsage(),
              "*******************************************************************************\n"
              "**  This test evaluates, landscape of the system for following parameters:   **\n"
              "*******************************************************************************\n"
              "*        validateDistribution                                                 *\n"
              "*  validateLinuxKernelVersion                                                 *\n"
              "*             validateRuntime                                                 *\n"
              "*                 validateHTT                                                 *\n"
              "*                 validateTHP                                                 *\n"
              "*                 validateCPU                                                 *\n"
              "*     validateCoreMemoryRatio                                                 *\n"
              "*              validateMemory                                                 *\n"
              "*  validateMemoryDistribution                                                 *\n"
              "*         validateCPUgovernor                                                 *\n"
              "*          validateHypervisor                                                 *\n"
              "*         validateClocksource                                                 *\n"
              "* validateApplianceSystemType                                                 *\n"
              "*                                                                             *\n"
              "* This test can be executed on following platforms:                           *\n"
              "*          Linux x86(SUSE and Redhat)                                         *\n"
              "*                      and Linux PPC.                                         *\n"
              "*                                                                             *\n"
              "*******************************************************************************\n");
}

TEST_F(EvalOSContractTest, TextsAreEmptyAtFirst)
{
    EXPECT_EQ(test.getDefaultTestConfig(), "");
    EXPECT_EQ(test.getTestTrigger(), "");
    EXPECT_EQ(test.getTestConfig(), "");
    EXPECT_EQ(test.getTestJsonResult(), "");
    EXPECT_EQ(test.getTestHumanReadableResult(), "");
    EXPECT_EQ(test.getTestOutputLocation(), "");
    EXPECT_EQ(test.getTestContactInfo(), "");
    EXPECT_FALSE(test.getTestResult());
}

TEST_F(EvalOSContractTest, TriggerIsNotKept)
{
    string trigger = text("now");

    test.setTestTrigger(trigger);

    EXPECT_EQ(test.getTestTrigger(), "");
}

TEST_F(EvalOSContractTest, ConfigurationIsKeptAsItIs)
{
    string config = text("{\"no\": JSON, ");

    test.setTestConfig(config);

    EXPECT_EQ(test.getTestConfig(), "{\"no\": JSON, ");
    EXPECT_EQ(test.getDefaultTestConfig(), "");
}

TEST_F(EvalOSContractTest, EstimatedDurationIs80WithoutRegardToAnything)
{
    EXPECT_EQ(test.getTestEstimatedDuration(), 80);

    string config = text("{\"duration\":5}");
    test.setTestConfig(config);
    EXPECT_EQ(test.getTestEstimatedDuration(), 80);
}

TEST_F(EvalOSContractTest, ProgressIsAlwaysComplete)
{
    EXPECT_EQ(test.getTestProgressPercentage(), 100.0F);
}

TEST_F(EvalOSContractTest, CannotBeInterrupted)
{
    EXPECT_EQ(test.interruptTest(), -1);
}

TEST_F(EvalOSContractTest, OperationsWithoutAnEffectPrintNothing)
{
    test.setUp();
    test.tearDown();
    test.notifyTestStatus();

    EXPECT_EQ(output.text(), "");
    EXPECT_EQ(test.getTestJsonResult(), "");
}

TEST_F(EvalOSContractTest, VerdictIsWhatWasSetLast)
{
    test.setTestResult(true);
    EXPECT_TRUE(test.getTestResult());
    test.setTestResult(false);
    EXPECT_FALSE(test.getTestResult());
}

TEST_F(EvalOSContractTest, OutputLocationAndContactAreKept)
{
    string location = text("/results");
    string contact = text("operator@example");

    test.setTestOutputLocation(location);
    test.setTestContactInfo(contact);

    EXPECT_EQ(test.getTestOutputLocation(), "/results");
    EXPECT_EQ(test.getTestContactInfo(), "operator@example");
}

TEST_F(EvalOSContractTest, HostIsReadFromTheEnvironmentAtEachCall)
{
    unitTests::EnvironmentVariable host("HOST", "first");
    EXPECT_EQ(test.getTestHost(), "first");

    host.set(" second ");
    EXPECT_EQ(test.getTestHost(), " second ");
}

TEST_F(EvalOSContractTest, HostIsEmptyWhenTheVariableIsUnset)
{
    const unitTests::EnvironmentVariable host("HOST", nullptr);

    EXPECT_EQ(test.getTestHost(), "");
}

TEST_F(EvalOSContractTest, HostThatWasSetIsNotWhatIsGiven)
{
    const unitTests::EnvironmentVariable variable("HOST", "of the environment");
    string host = text("of the caller");

    test.setTestHost(host);

    EXPECT_EQ(test.getTestHost(), "of the environment");
}

TEST_F(EvalOSContractTest, NoActionIsNeededAfterwards)
{
    test.postTestAction();

    EXPECT_EQ(output.text(), "No action is required for post Test\n");
}

TEST_F(EvalOSContractTest, DestroyDeletesAnObjectMadeByPlainNew)
{
    class Watched : public EvalOS {
    public:
        Watched(Basis::Allocator& owner, bool& flag) : EvalOS(owner), isGone(flag) {}
        ~Watched() override { isGone = true; }

    private:
        bool& isGone;
    };
    bool isGone = false;
    const auto before = domain->bytes();
    Vetra::VetraTestInterface* const made = new Watched(*domain, isGone);

    made->Destroy();

    EXPECT_TRUE(isGone);
    EXPECT_EQ(domain->bytes(), before);
}

TEST_F(EvalOSContractTest, TextsAreCopiesInTheTestsDomain)
{
    const unitTests::EnvironmentVariable host("HOST", longText);
    const unitTests::NoDefaultResource guard;
    string given = text(longText);
    test.setTestConfig(given);
    test.setTestOutputLocation(given);
    test.setTestContactInfo(given);
    test.setTestHost(given);
    test.setTestTrigger(given);
    EvalOS& constant = test;

    for (const string& copy :
         {constant.getTestName(), constant.getTestVersion(), constant.getTestUsage(),
          constant.getTestConfig(), test.getTestOutputLocation(), test.getTestContactInfo(),
          test.getTestHost()}) {
        EXPECT_EQ(copy.get_allocator().resource(), domain.get());
    }
    given.assign("changed");
    EXPECT_EQ(test.getTestConfig(), longText);
}

TEST_F(EvalOSContractTest, TakesNothingFromTheDefaultResource)
{
    const unitTests::NoDefaultResource guard;
    const EvalOS another(*domain);

    EXPECT_GT(another.getTestUsage().size(), 1000U);
}

TEST_F(EvalOSContractTest, ResultsAfterAFailedRunAreCallable)
{
    unitTests::Neighbours neighbours;
    neighbours.arch = "not valid";

    EXPECT_EQ(test.runTest(), -1);

    EXPECT_EQ(test.getTestJsonResult(), "");
    EXPECT_EQ(test.getTestHumanReadableResult(), "");
}

}  // namespace
