// A whole report: title, blocks in order, and what stands after an exception.

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

#include "FailingAllocator.h"
#include "RuleTest.h"

namespace vetraTests {

namespace {

constexpr RulePointer clocksource = &ValidateSystemInfo::validateClocksource;
constexpr RulePointer appliance = &ValidateSystemInfo::validateApplianceSystemType;
constexpr RulePointer runtime = &ValidateSystemInfo::validateRuntime;
constexpr RulePointer distribution = &ValidateSystemInfo::validateMemoryDistribution;

constexpr RulePointer rulesWithoutCommand[] = {
    &ValidateSystemInfo::validateDistribution,
    &ValidateSystemInfo::validateLinuxKernelVersion,
    &ValidateSystemInfo::validateClocksource,
    &ValidateSystemInfo::validateCPU,
    &ValidateSystemInfo::validateHypervisor,
    &ValidateSystemInfo::validateHTT,
    &ValidateSystemInfo::validateApplianceSystemType,
    &ValidateSystemInfo::validateTHP,
    &ValidateSystemInfo::validateMemory,
    &ValidateSystemInfo::validateMemoryDistribution,
    &ValidateSystemInfo::validateCoreMemoryRatio,
    &ValidateSystemInfo::validateCPUgovernor,
};

constexpr const char* doubleLine =
    "================================================================================\n";
constexpr const char* singleLine =
    "--------------------------------------------------------------------------------\n";

const std::string titleOfHost =
    "================================================================================\n"
    "EVALUATED SYSTEM SETUP ON zirn01:\n"
    "================================================================================\n";

class ValidateTest : public RuleTest {
protected:
    ValidateTest() { facts.clockInfo = "tsc"; }

    void validate(std::initializer_list<RulePointer> checks)
    {
        validate(checks.begin(), static_cast<int>(checks.size()));
    }

    void validate(const RulePointer* checks, int count)
    {
        rules.validate(checks, count, string("zirn01", domain.get()), facts,
                       string("x86", domain.get()));
    }

    std::string report() { return plain(rules.getHumanReadableReport()); }
};

}  // namespace

TEST_F(ValidateTest, PutsATitleBetweenTwoLinesOfEighty)
{
    const RulePointer none[] = {nullptr};

    validate(none, 0);

    EXPECT_EQ(plain(doubleLine).size(), 81U);
    EXPECT_EQ(report(), titleOfHost);
}

TEST_F(ValidateTest, HoldsTheTitleOnlyForANegativeCount)
{
    const RulePointer checks[] = {clocksource};

    validate(checks, -1);

    EXPECT_EQ(report(), titleOfHost);
    EXPECT_EQ(plain(rules.lastResult), "");
}

TEST_F(ValidateTest, PutsALineOfEightyBehindEachBlock)
{
    facts.productName = "7145";

    validate({clocksource, appliance});

    EXPECT_EQ(plain(singleLine).size(), 81U);
    EXPECT_EQ(report(), titleOfHost +
                            "validateClocksource           :"
                            "                                         "
                            "\033[1;32mSUCESS\033[0m\t\n" +
                            singleLine +
                            "validateApplianceSystemType   :"
                            "                                         "
                            "\033[1;32mSUCESS\033[0m\t\n" +
                            singleLine);
}

TEST_F(ValidateTest, RunsAsManyRulesAsItIsTold)
{
    const RulePointer checks[] = {clocksource, appliance};

    validate(checks, 1);

    EXPECT_EQ(report(), titleOfHost + passedBlock("validateClocksource") + singleLine);
}

TEST_F(ValidateTest, PutsALineAloneForAnEmptyBlock)
{
    facts.distribution = "An unknown distribution";

    validate({runtime});

    EXPECT_EQ(report(), titleOfHost + singleLine);
}

TEST_F(ValidateTest, AddsToAnEarlierReport)
{
    validate({clocksource});
    validate({clocksource});

    const std::string once = titleOfHost + passedBlock("validateClocksource") + singleLine;
    EXPECT_EQ(report(), once + once);
}

TEST_F(ValidateTest, JudgesOnAnObjectOfItsOwn)
{
    validate({clocksource});

    EXPECT_EQ(plain(rules.getCheckAction()), "");
}

TEST_F(ValidateTest, LeavesTheRecordOfAnEarlierRule)
{
    const std::string record = judge(clocksource).record;

    validate({appliance});

    EXPECT_EQ(plain(rules.getCheckAction()), record);
}

TEST_F(ValidateTest, KeepsTheBlockOfTheLastRule)
{
    facts.productName = "7145";

    validate({clocksource, appliance});

    EXPECT_EQ(plain(rules.lastResult), passedBlock("validateApplianceSystemType"));
}

TEST_F(ValidateTest, PassesTheArchitectureToTheRules)
{
    const RulePointer checks[] = {&ValidateSystemInfo::validateHypervisor};

    rules.validate(checks, 1, string("zirn01", domain.get()), facts,
                   string("not valid", domain.get()));

    EXPECT_EQ(report(), titleOfHost +
                            failedBlock("validateHypervisor", "Variable ARCHITECTURE not valid.") +
                            singleLine);
}

TEST_F(ValidateTest, LetsRulesPrintAtEachRun)
{
    becomeBareMetal();
    facts.dimmsizeListItems = "32768,32768";
    facts.dimmsizeListLength = "2";
    facts.dimmSize = "65536";
    facts.nodesizeListItems = "60000,5536";
    const CapturedOutput output;

    validate({distribution, distribution});

    EXPECT_EQ(output.text(),
              "nodesize is too far from average nodesize\n"
              "nodesize is too far from average nodesize\n"
              "nodesize is too far from average nodesize\n"
              "nodesize is too far from average nodesize\n");
}

TEST_F(ValidateTest, KeepsWhatStandsWhenARuleThrows)
{
    FailingAllocator failing;
    HostFacts fragile(failing);
    fragile.clockInfo = "tsc";
    fragile.productName = "A server with a name that needs the heap";
    failing.throwAtAllocationOf(1, 0, std::make_exception_ptr(std::runtime_error("no more")));
    const RulePointer checks[] = {clocksource, appliance, clocksource};

    EXPECT_THROW(rules.validate(checks, 3, string("zirn01", domain.get()), fragile,
                                string("x86", domain.get())),
                 std::runtime_error);

    EXPECT_FALSE(failing.isArmed());
    EXPECT_EQ(report(), titleOfHost + passedBlock("validateClocksource") + singleLine);
    EXPECT_EQ(plain(rules.lastResult), passedBlock("validateClocksource"));
    EXPECT_EQ(plain(rules.getCheckAction()), "");
}

TEST_F(ValidateTest, LetsTheToolsOwnExceptionPassOutOfAnyOtherRule)
{
    FailingAllocator failing;
    HostFacts fragile(failing);
    fragile.thp = "a text that needs the heap";
    failing.throwAtAllocationOf(1, 0, toolException().exception);
    const RulePointer checks[] = {&ValidateSystemInfo::validateTHP};

    EXPECT_THROW(rules.validate(checks, 1, string("zirn01", domain.get()), fragile,
                                string("x86", domain.get())),
                 Vetra::VetraException);

    EXPECT_EQ(report(), titleOfHost);
}

TEST_F(ValidateTest, LetsAFailedAllocationPassOutOfEachRule)
{
    facts.distribution = "SUSE Linux Enterprise Server 12 (x86_64)";
    facts.patchLevel = "1";
    facts.dimmsizeListLength = "1";  // the divisor of a rule that goes on after a cut block
    const string arch("x86", domain.get());
    for (const RulePointer& rule : rulesWithoutCommand) {
        FailingAllocator failing;
        Judge fragile(failing);
        (fragile.*rule)(facts, arch);
        const std::size_t steps = failing.allocations();
        for (std::size_t step = 0; step < steps; ++step) {
            failing.throwAtAllocationOf(1, step, std::make_exception_ptr(std::bad_alloc()));
            EXPECT_THROW((fragile.*rule)(facts, arch), std::bad_alloc)
                << "rule " << (&rule - rulesWithoutCommand) << " step " << step;
            failing.disarm();
        }
    }
}

TEST_F(ValidateTest, ReturnsCopiesInTheDomainOfTheRules)
{
    validate({clocksource});

    EXPECT_EQ(rules.getHumanReadableReport().get_allocator().resource(), domain.get());
    EXPECT_EQ(rules.getCheckAction().get_allocator().resource(), domain.get());
}

TEST_F(ValidateTest, StartsWithoutReportRecordAndFindings)
{
    EXPECT_EQ(report(), "");
    EXPECT_EQ(plain(rules.getCheckAction()), "");
    EXPECT_EQ(plain(rules.lastResult), "");
    EXPECT_TRUE(rules.deviatingFrequencies.empty());
    EXPECT_FALSE(rules.noCpuFrequencies);
    EXPECT_FALSE(rules.maxFreqListed);
}

}  // namespace vetraTests
