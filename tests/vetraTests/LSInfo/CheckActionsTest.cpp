// Single checks by the name of an action.

#include <gtest/gtest.h>

#include "RuleTest.h"

namespace vetraTests {

namespace {

constexpr const char* usage = "Please check the usage of vetraApi using \"./vetraApi -h\"";

class CheckActions : public RuleTest {
protected:
    CheckActions()
    {
        becomeBareMetal();
        facts.clockInfo = "hpet";
        facts.distribution = "SUSE Linux Enterprise Server 12 (x86_64)";
        facts.patchLevel = "1";
        facts.kernelVersion = "3";
        facts.majorVersion = "12";
        facts.minorVersion = "74";
        facts.modelName = "Intel(R) Xeon(R) CPU E7-8890 v3";
        facts.lpCount = "72";
        facts.ppCount = "72";
        facts.productName = "PowerEdge R920";
        facts.thp = "always madvise [never]";
        facts.dimmsizeListItems = "32768,32768";
        facts.dimmsizeListLength = "2";
        facts.dimmSize = "65536";
        facts.nodesizeListItems = "32768,32768";
        facts.coreMemoryRatio = "10";
        facts.cpuSpeed = "2500,2500";
        facts.maxFreq = "2500";
        facts.scalingGovernor = "performance";
    }

    std::string recordOf(std::string_view action, std::string_view arch = "x86")
    {
        const CapturedOutput output;
        return plain(
            rules.checkActions(facts, string(arch, domain.get()), string(action, domain.get())));
    }
};

}  // namespace

TEST_F(CheckActions, RunsTheRuleOfEachName)
{
    EXPECT_EQ(recordOf("CHECK_APPLIANCETYPE"), "('appliancetype','PowerEdge R920',0,'')");
    EXPECT_EQ(recordOf("CHECK_CLOCKSOURCE"),
              "('clocksource','hpet',1,'The clocksource can have a significant performance "
              "impact.')");
    EXPECT_EQ(recordOf("CHECK_COREMEMORYRATIO"), "('corememoryratio','10',0,'')");
    EXPECT_EQ(recordOf("CHECK_CPU"), "('cpu_name','Intel(R) Xeon(R) CPU E7-8890 v3',0,'')");
    EXPECT_EQ(recordOf("CHECK_CPUGOVERNOR"), "('pstate','performance',0,'')");
    EXPECT_EQ(recordOf("CHECK_DISTRIBUTION"), "('distribution_patchlevel','1',0,'')");
    EXPECT_EQ(recordOf("CHECK_HTT"), "('Hyperthreading','',0,'')");
    EXPECT_EQ(recordOf("CHECK_HYPERVISOR"), "('hypervisor','',3,'This is not a virtual machine')");
    EXPECT_EQ(recordOf("CHECK_MEMORY"), "('memorycheck','',0,'')");
    EXPECT_EQ(recordOf("CHECK_MEMORYDISTRIBUTION"), "('memorydistribution','',0,'')");
    EXPECT_EQ(recordOf("CHECK_THP"), "('thp','always madvise [never]',0,'')");
}

TEST_F(CheckActions, PassTheArchitectureOn)
{
    EXPECT_EQ(recordOf("CHECK_CPU", "not valid"),
              "('ARCHITECTURE','',5,'Variable ARCHITECTURE not valid.')");
}

TEST_F(CheckActions, KnowNoActionForKernelAndRuntime)
{
    for (const char* action : {"CHECK_LINUXKERNELVERSION", "CHECK_KERNEL", "CHECK_RUNTIME"})
        EXPECT_EQ(recordOf(action), usage) << action;
}

TEST_F(CheckActions, PointToTheUsageForAnUnknownName)
{
    for (const char* action : {"", "CHECK_", "check_cpu", "Check_Cpu", "CHECK_CPU ", " CHECK_CPU",
                               "CHECK_CPUS", "CHECK_CP", "validateCPU", "CHECK_TH", "--all"})
        EXPECT_EQ(recordOf(action), usage) << action;
}

TEST_F(CheckActions, LeaveRecordAndReportOfTheObjectAsTheyAre)
{
    recordOf("CHECK_CPU");

    EXPECT_EQ(plain(rules.getCheckAction()), "");
    EXPECT_EQ(plain(rules.getHumanReadableReport()), "");
}

TEST_F(CheckActions, ReturnTheirTextInTheDomainOfTheRules)
{
    for (const char* action : {"CHECK_CPU", "CHECK_NOTHING"}) {
        const string record =
            rules.checkActions(facts, string("x86", domain.get()), string(action, domain.get()));
        EXPECT_EQ(record.get_allocator().resource(), domain.get()) << action;
    }
}

TEST_F(CheckActions, LetARulePrintAtEachCall)
{
    facts.nodesizeListItems = "60000,5536";
    const string action("CHECK_MEMORYDISTRIBUTION", domain.get());
    const CapturedOutput output;

    rules.checkActions(facts, string("x86", domain.get()), action);
    rules.checkActions(facts, string("x86", domain.get()), action);

    EXPECT_EQ(output.text(),
              "nodesize is too far from average nodesize\n"
              "nodesize is too far from average nodesize\n"
              "nodesize is too far from average nodesize\n"
              "nodesize is too far from average nodesize\n");
}

TEST_F(CheckActions, AreListedInTheOrderOfTheirTable)
{
    const char* const expected[] = {
        "CHECK_APPLIANCETYPE",
        "CHECK_CLOCKSOURCE",
        "CHECK_COREMEMORYRATIO",
        "CHECK_CPU",
        "CHECK_CPUGOVERNOR",
        "CHECK_DISTRIBUTION",
        "CHECK_HTT",
        "CHECK_HYPERVISOR",
        "CHECK_MEMORY",
        "CHECK_MEMORYDISTRIBUTION",
        "CHECK_THP",
    };
    for (std::size_t i = 0; i < std::size(expected); ++i)
        EXPECT_STREQ(ValidateSystemInfo::actionName(i), expected[i]);
    EXPECT_EQ(ValidateSystemInfo::actionName(std::size(expected)), nullptr);
    EXPECT_EQ(ValidateSystemInfo::actionName(1000), nullptr);
}

}  // namespace vetraTests
