// How memory is spread over the NUMA nodes.

#include <gtest/gtest.h>

#include "RuleTest.h"

namespace vetraTests {

namespace {

constexpr const char* afterSkipped =
    "Since validate Memory is skipped, memory distribution is not applicable";
constexpr const char* afterFailed =
    "Since validateMemory failed and the memory distribution is \nnot applicable";
constexpr const char* uneven =
    "TotalMemory Size is not an allowed memory configuration. \n"
    "Also, the measured TotalMemory - TotalNodeMemory exceeds the  \n"
    "average size of a DIMM module. Please check if all DIMMs are \n"
    "in place and work properly. \n"
    "If so, this comment can be ignored";
constexpr const char* outlier = "nodesize is too far from average nodesize\n";

class MemoryDistributionRule : public RuleTest {
protected:
    MemoryDistributionRule()
    {
        becomeBareMetal();
        facts.dimmsizeListItems = "16384,16384,16384,16384";
        facts.dimmsizeListLength = "4";
        facts.dimmSpeedphysical = "2133";
        facts.dimmSize = "65536";
    }

    Judgement judgeNodes(std::string_view nodes)
    {
        facts.nodesizeListItems = nodes;
        return judge(&ValidateSystemInfo::validateMemoryDistribution);
    }

    // The nodes decide alone if the total allows for any sum of theirs.
    void forgetMissingMemory() { facts.dimmsizeListLength = "1"; }

    void expectPassed(const Judgement& judgement)
    {
        EXPECT_EQ(judgement.block, passedBlock("validateMemoryDistribution"));
        EXPECT_EQ(judgement.record, "('memorydistribution','',0,'')");
        EXPECT_EQ(judgement.output, "");
    }

    void expectFailed(const Judgement& judgement, int outliers)
    {
        std::string output;
        for (int i = 0; i < outliers; ++i)
            output += outlier;
        EXPECT_EQ(judgement.block, failedBlock("validateMemoryDistribution", uneven));
        EXPECT_EQ(judgement.record, "('memorydistribution','" + plain(facts.dimmSize) + "',4,'" +
                                        plain(uneven) + "')");
        EXPECT_EQ(judgement.output, output);
    }
};

}  // namespace

TEST_F(MemoryDistributionRule, PassesEvenNodesThatShowAlmostAllMemory)
{
    expectPassed(judgeNodes("32768,32768"));
    expectPassed(judgeNodes("32000,32100"));
    expectPassed(judgeNodes("65000"));
}

TEST_F(MemoryDistributionRule, FailsIfAWholeModuleIsMissing)
{
    expectPassed(judgeNodes("24577,24576"));
    expectFailed(judgeNodes("24576,24576"), 0);
    expectFailed(judgeNodes("1,1"), 0);
}

TEST_F(MemoryDistributionRule, TruncatesTheAverageModule)
{
    facts.dimmsizeListLength = "3";  // 21845 each, and one megabyte over

    expectFailed(judgeNodes("43691"), 0);
    expectPassed(judgeNodes("43692"));
}

TEST_F(MemoryDistributionRule, FailsWithoutNodes)
{
    expectFailed(judgeNodes(""), 0);

    facts.dimmsizeListLength = "1";
    expectFailed(judgeNodes(""), 0);
}

TEST_F(MemoryDistributionRule, PassesNodesThatShowMoreThanAllMemory)
{
    expectPassed(judgeNodes("40000,40000"));
}

TEST_F(MemoryDistributionRule, AcceptsNodesAtTheEdgeOfTheTolerance)
{
    forgetMissingMemory();
    expectPassed(judgeNodes("95,105"));
    expectPassed(judgeNodes("31122,34398"));
    expectPassed(judgeNodes("19,20,21"));
}

TEST_F(MemoryDistributionRule, RefusesNodesOneMegabyteBeyondTheTolerance)
{
    forgetMissingMemory();
    expectFailed(judgeNodes("94,100,100,100,106"), 2);
    expectFailed(judgeNodes("31121,34399"), 2);
    expectFailed(judgeNodes("94,102,102,102"), 1);
    expectFailed(judgeNodes("98,98,98,106"), 1);
}

TEST_F(MemoryDistributionRule, ComparesWithFractionsOfAMegabyte)
{
    forgetMissingMemory();
    // 0.95 and 1.05 times 32767 are 31128.65 and 34405.35.
    expectPassed(judgeNodes("31129,34405"));
    expectFailed(judgeNodes("31128,34406"), 2);
    expectFailed(judgeNodes("31128,33586,33587"), 1);
    // 0.95 and 1.05 times 7 are 6.65 and 7.35.
    expectFailed(judgeNodes("7,7,6,7,8"), 2);
    // 0.95 and 1.05 times 10 are 9.5 and 10.5.
    expectFailed(judgeNodes("9,10,10,11"), 2);
}

TEST_F(MemoryDistributionRule, TruncatesTheAverageNodeBeforeItCompares)
{
    forgetMissingMemory();
    // The average of 302 in three nodes counts as 100, of which 95 is the least.
    expectPassed(judgeNodes("95,103,104"));
    // The average of 323 in three nodes counts as 107, of which 112.35 is the most.
    expectFailed(judgeNodes("113,105,105"), 1);
}

TEST_F(MemoryDistributionRule, SaysSoForEachOutlierAtEachRun)
{
    expectFailed(judgeNodes("60000,5536"), 2);
    expectFailed(judgeNodes("60000,5536"), 2);
    expectFailed(judgeNodes("16384,16384,16384,8192,24576"), 2);
}

TEST_F(MemoryDistributionRule, TakesANodeThatIsNoNumberForAnEmptyOne)
{
    expectFailed(judgeNodes("65536,none"), 2);
    expectFailed(judgeNodes("32768,,32768"), 3);
}

TEST_F(MemoryDistributionRule, WrapsTheSumOfTheNodesInThirtyTwoBits)
{
    // Nothing remains of their sum, so that the average is 0.
    expectFailed(judgeNodes("1073741824,1073741824,1073741824,1073741824"), 4);
}

TEST_F(MemoryDistributionRule, RecordsTheTotalAsItsText)
{
    facts.dimmSize = "65536 MB";

    expectFailed(judgeNodes("1"), 0);
}

TEST_F(MemoryDistributionRule, IsSkippedIfTheModulesWereSkipped)
{
    becomeSupportedGuest();
    const Judgement judgement = judgeNodes("32768,32768");

    EXPECT_EQ(judgement.block, skippedBlock("validateMemoryDistribution", afterSkipped));
    EXPECT_EQ(judgement.record, "('memorydistribution','',3,'" + plain(afterSkipped) + "')");
    EXPECT_EQ(judgement.output, "");
}

TEST_F(MemoryDistributionRule, IsSkippedIfTheModulesFailed)
{
    facts.dimmSpeedphysical = "1065";
    const Judgement judgement = judgeNodes("60000,5536");

    EXPECT_EQ(judgement.block, skippedBlock("validateMemoryDistribution", afterFailed));
    EXPECT_EQ(judgement.record, "('memorydistribution','',3,'" + plain(afterFailed) + "')");
    EXPECT_EQ(judgement.output, "");
}

TEST_F(MemoryDistributionRule, IsSkippedWithoutModules)
{
    facts.dimmsizeListItems = "";
    facts.dimmsizeListLength = "0";
    facts.dimmSize = "0";

    EXPECT_EQ(judgeNodes("32768").block, skippedBlock("validateMemoryDistribution", afterFailed));
}

TEST_F(MemoryDistributionRule, IsSkippedOnAnotherArchitectureWhereTheModulesFail)
{
    const Judgement judgement = judge(&ValidateSystemInfo::validateMemoryDistribution, "not valid");

    EXPECT_EQ(judgement.block, skippedBlock("validateMemoryDistribution", afterFailed));
    EXPECT_EQ(judgement.record, "('memorydistribution','',3,'" + plain(afterFailed) + "')");
}

TEST_F(MemoryDistributionRule, JudgesAnUnsupportedGuestInFull)
{
    becomeUnsupportedGuest();

    expectPassed(judgeNodes("32768,32768"));
}

}  // namespace vetraTests
