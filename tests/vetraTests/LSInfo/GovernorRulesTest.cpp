// How the frequency of the processors is managed.

#include <gtest/gtest.h>

#include <new>

#include "FailingAllocator.h"
#include "RuleTest.h"

namespace vetraTests {

namespace {

constexpr RulePointer governorRule = &ValidateSystemInfo::validateCPUgovernor;

constexpr const char* switching =
    "CPU power governor allows switching C-states, or CPUs are not running with nominal frequency";
constexpr const char* noFrequencies = "There are no CPU frequencies";

class GovernorRule : public RuleTest {
protected:
    // A host whose maximum frequency is not among its speeds.
    GovernorRule()
    {
        facts.cpuSpeed = "1200,1200";
        facts.maxFreq = "2400";
        facts.procCmdline = "root=/dev/sda2 quiet";
        facts.scalingDriver = "acpi-cpufreq";
        facts.scalingGovernor = "powersave";
    }

    void expectPassed(std::string_view record)
    {
        const Judgement judgement = judge(governorRule);
        EXPECT_EQ(judgement.block, passedBlock("validateCPUgovernor"));
        EXPECT_EQ(judgement.record, plain(record));
        EXPECT_EQ(judgement.output, "");
    }

    void expectSwitching(std::string_view count)
    {
        const Judgement judgement = judge(governorRule);
        EXPECT_EQ(judgement.block, failedBlock("validateCPUgovernor", switching));
        EXPECT_EQ(judgement.record, "('pstate','" + plain(count) + "',4,'" + switching + "')");
        EXPECT_EQ(judgement.output, "");
    }

    void prepare() { rules.CPUgovernorParameters(facts); }
};

class GovernorParameters : public GovernorRule {};

// Rules or facts whose memory fails once.
class GovernorException : public RuleTest {
protected:
    void expectCaught(const SystemInfo& host, ValidateSystemInfo& judgedBy)
    {
        const CapturedOutput output;
        const std::string block =
            plain(judgedBy.validateCPUgovernor(host, string("x86", domain.get())));
        EXPECT_EQ(block, failedBlock("validateCPUgovernor", noFrequencies));
        EXPECT_EQ(plain(judgedBy.getCheckAction()), "('pstate','',5,'" + plain(switching) + "')");
        EXPECT_EQ(output.text(), noFrequencies + thrown.text + "\n");
    }

    ToolException thrown = toolException();
    FailingAllocator failing;
};

}  // namespace

TEST_F(GovernorParameters, FindNoFrequenciesInAnEmptyList)
{
    facts.cpuSpeed = "";
    facts.maxFreq = "0";
    prepare();

    EXPECT_TRUE(rules.noCpuFrequencies);
    EXPECT_FALSE(rules.maxFreqListed);
}

TEST_F(GovernorParameters, LookForTheMaximumAmongTheSpeeds)
{
    facts.cpuSpeed = "2400,1200,1200,2400,1800";
    for (const char* maximum : {"2400", "1200", "1800", "1800 MHz", "4294969696"}) {
        facts.maxFreq = maximum;
        prepare();
        EXPECT_TRUE(rules.maxFreqListed) << maximum;
        EXPECT_FALSE(rules.noCpuFrequencies);
    }
    for (const char* maximum : {"2401", "120", "", "-1200"}) {
        facts.maxFreq = maximum;
        prepare();
        EXPECT_FALSE(rules.maxFreqListed) << maximum;
    }
}

TEST_F(GovernorParameters, TakeAPartThatIsNoNumberForZero)
{
    facts.cpuSpeed = "unknown,1200";
    facts.maxFreq = "";
    prepare();

    EXPECT_TRUE(rules.maxFreqListed);
    EXPECT_FALSE(rules.noCpuFrequencies);
}

TEST_F(GovernorParameters, AreOverwrittenEachTime)
{
    facts.cpuSpeed = "";
    prepare();
    facts.cpuSpeed = "2400";
    prepare();
    EXPECT_FALSE(rules.noCpuFrequencies);
    EXPECT_TRUE(rules.maxFreqListed);

    facts.cpuSpeed = "";
    prepare();
    EXPECT_TRUE(rules.noCpuFrequencies);
    EXPECT_FALSE(rules.maxFreqListed);
}

TEST_F(GovernorParameters, DoNotLookForTheMaximumAmongNominalFrequencies)
{
    facts.dimmfreqList = "2400,2400";
    prepare();

    EXPECT_FALSE(rules.maxFreqListed);
}

TEST_F(GovernorParameters, NeverFindDeviatingFrequencies)
{
    for (const char* speeds : {"", "1200", "100,5000,9000", "1200,1200,1201"}) {
        facts.cpuSpeed = speeds;
        prepare();
        EXPECT_TRUE(rules.deviatingFrequencies.empty()) << speeds;
    }
}

// Only a sanitizer sees it fail, since the average has no part in the outcome.
TEST_F(GovernorParameters, WrapTheSumOfTheSpeeds)
{
    facts.cpuSpeed = "2147483647,2147483647,2147483647";
    facts.maxFreq = "2147483647";
    prepare();

    EXPECT_TRUE(rules.maxFreqListed);
}

TEST_F(GovernorRule, PassesWithoutFrequencies)
{
    facts.cpuSpeed = "";
    facts.procCmdline = "max_cstate=0";
    facts.scalingDriver = "intel_pstate";
    facts.scalingGovernor = "performance";

    expectPassed("('pstate','performance',0,'')");
}

TEST_F(GovernorRule, PassesIfTheMaximumIsListed)
{
    facts.cpuSpeed = "2400,1200";

    expectPassed("('pstate','powersave',0,'')");
}

TEST_F(GovernorRule, PutsAListedMaximumBeforeTheIdleLimit)
{
    facts.cpuSpeed = "2400,1200";
    facts.procCmdline = "max_cstate=0";

    expectPassed("('pstate','powersave',0,'')");
}

TEST_F(GovernorRule, PassesWithAnIdleLimit)
{
    facts.procCmdline = "quiet intel_idle.max_cstate=1 x";
    expectPassed("('cstate','quiet intel_idle.max_cstate=1 x',0,'')");

    facts.procCmdline = "processor.max_cstate=0";
    expectPassed("('cstate','processor.max_cstate=0',0,'')");
}

TEST_F(GovernorRule, TakesALimitOfTenForOne)
{
    facts.procCmdline = "max_cstate=10";

    expectPassed("('cstate','max_cstate=10',0,'')");
}

TEST_F(GovernorRule, TakesNoOtherIdleLimit)
{
    for (const char* cmdline : {"max_cstate=2", "max_cstate= 1", "MAX_CSTATE=1", "cstate=0", ""}) {
        SCOPED_TRACE(cmdline);
        facts.procCmdline = cmdline;
        expectPassed("('pstate','0',0,'')");
    }
}

TEST_F(GovernorRule, PutsTheIdleLimitBeforeTheScaling)
{
    facts.procCmdline = "max_cstate=0";
    facts.scalingDriver = "intel_pstate";
    facts.scalingGovernor = "performance";

    expectPassed("('cstate','max_cstate=0',0,'')");
}

TEST_F(GovernorRule, PassesWithScalingForPerformance)
{
    facts.scalingDriver = "the intel_pstate driver";
    facts.scalingGovernor = "high performance mode";

    expectPassed("('pstate','the intel_pstate driver',0,'')");
}

TEST_F(GovernorRule, PassesWithoutAnyOfThese)
{
    for (const auto& [driver, governor] : Pairs{{"intel_pstate", "powersave"},
                                                {"acpi-cpufreq", "performance"},
                                                {"intel_pstat", "performance"},
                                                {"intel_pstate", "Performance"},
                                                {"", ""}}) {
        SCOPED_TRACE(driver);
        facts.scalingDriver = driver;
        facts.scalingGovernor = governor;
        expectPassed("('pstate','0',0,'')");
    }
}

TEST_F(GovernorRule, DoesNotLookAtTheArchitecture)
{
    EXPECT_EQ(judge(governorRule, "not valid").record, "('pstate','0',0,'')");
}

TEST_F(GovernorRule, FailsOnDeviatingFrequencies)
{
    rules.deviatingFrequencies = {1200, 1300, 1400};

    expectSwitching("3");
}

TEST_F(GovernorRule, FailsOnDeviatingFrequenciesInSpiteOfTheirAbsenceElsewhere)
{
    rules.deviatingFrequencies = {1200};
    facts.cpuSpeed = "";
    expectSwitching("1");

    facts.cpuSpeed = "2400";
    expectSwitching("1");
}

TEST_F(GovernorRule, FailsOnDeviatingFrequenciesInSpiteOfAnIdleLimit)
{
    rules.deviatingFrequencies = {1200};
    facts.procCmdline = "max_cstate=0";

    expectSwitching("1");
}

TEST_F(GovernorRule, PassesDeviatingFrequenciesWithScalingForPerformance)
{
    rules.deviatingFrequencies = {1200};
    facts.procCmdline = "max_cstate=0";
    facts.scalingDriver = "intel_pstate";
    facts.scalingGovernor = "performance";

    expectPassed("('pstate','intel_pstate',0,'')");
}

TEST_F(GovernorException, OfTheFactsIsReported)
{
    HostFacts fragile(failing);
    fragile.cpuSpeed = "2400,2400,2400,2400,2400,2400";
    failing.throwAtAllocationOf(1, 0, thrown.exception);

    expectCaught(fragile, rules);
}

TEST_F(GovernorException, OfAnyStepOfTheRuleIsReported)
{
    facts.cpuSpeed = "1200,2400,1200";
    facts.maxFreq = "2400";
    facts.scalingGovernor = "performance and more of it";
    ValidateSystemInfo undisturbed(failing);
    undisturbed.validateCPUgovernor(facts, string("x86", domain.get()));
    const std::size_t steps = failing.allocations();
    ASSERT_GT(steps, 3U);

    for (std::size_t step = 0; step < steps; ++step) {
        SCOPED_TRACE(step);
        ValidateSystemInfo fragile(failing);
        failing.throwAtAllocationOf(1, step, thrown.exception);
        expectCaught(facts, fragile);
        EXPECT_FALSE(failing.isArmed());
    }
}

TEST_F(GovernorException, OfAnotherTypePasses)
{
    HostFacts fragile(failing);
    fragile.cpuSpeed = "2400,2400,2400,2400,2400,2400";
    failing.throwAtAllocationOf(1, 0, std::make_exception_ptr(std::bad_alloc()));
    const CapturedOutput output;

    EXPECT_THROW(rules.validateCPUgovernor(fragile, string("x86", domain.get())), std::bad_alloc);

    EXPECT_EQ(output.text(), "");
    EXPECT_EQ(plain(rules.getCheckAction()), "");
}

}  // namespace vetraTests
