// Memory modules.

#include <gtest/gtest.h>

#include "RuleTest.h"

namespace vetraTests {

namespace {

constexpr const char* inAGuest =
    "Memory rules for hypervisor configurations have to follow hypervisor specific guidelines. "
    "Please see KOR Note 1788665 and the IAAS section of the ZIRN Hardware Directory for details.";
constexpr const char* different =
    "Different memory modules are used! This will have impact on memory performance";
constexpr const char* tooSlow = "DIMM speed too slow! This will have impact on memory performance";
constexpr const char* notAllowed = "Total memory size is not an allowed memory configuration";

constexpr const char* allowedTotals[] = {
    "24576",   "49152",   "65536",   "131072",  "196608",   "262144",
    "327680",  "393216",  "524288",  "1048576", "1572864",  "2097152",
    "3145728", "4194304", "6291456", "9437184", "12582912",
};
static_assert(std::size(allowedTotals) == 17);

std::string repeated(std::string_view number, int times)
{
    std::string list(number);
    for (int i = 1; i < times; ++i)
        list.append(",").append(number);
    return list;
}

class MemoryRule : public RuleTest {
protected:
    MemoryRule() { becomeBareMetal(); }

    Judgement judgeModules(std::string_view sizes, std::string_view speeds, std::string_view total)
    {
        facts.dimmsizeListItems = sizes;
        facts.dimmSpeedphysical = speeds;
        facts.dimmSize = total;
        return judge(&ValidateSystemInfo::validateMemory);
    }

    void expectPassed(const Judgement& judgement)
    {
        EXPECT_EQ(judgement.block, passedBlock("validateMemory"));
        EXPECT_EQ(judgement.record, "('memorycheck','',0,'')");
        EXPECT_EQ(judgement.output, "");
    }

    void expectDifferent(const Judgement& judgement, std::string_view count)
    {
        EXPECT_EQ(judgement.block, failedBlock("validateMemory", different));
        EXPECT_EQ(judgement.record,
                  "('invalid modulesize count','" + plain(count) + "',4,'" + different + "')");
    }

    // The record of slow modules carries the text about their sizes.
    void expectTooSlow(const Judgement& judgement, std::string_view count)
    {
        EXPECT_EQ(judgement.block, failedBlock("validateMemory", tooSlow));
        EXPECT_EQ(judgement.record,
                  "('invalid modulesspeed count','" + plain(count) + "',4,'" + different + "')");
    }

    void expectNotAllowed(const Judgement& judgement, std::string_view total)
    {
        EXPECT_EQ(judgement.block, failedBlock("validateMemory", notAllowed));
        EXPECT_EQ(judgement.record,
                  "('totalmemory','" + plain(total) + "',4,'" + notAllowed + "')");
    }
};

}  // namespace

TEST_F(MemoryRule, PassesEqualModulesThatAddUp)
{
    expectPassed(judgeModules(repeated("32768", 32), repeated("2133", 32), "1048576"));
}

TEST_F(MemoryRule, FailsOnOneSlowModule)
{
    expectTooSlow(judgeModules(repeated("32768", 32), repeated("2133", 31) + ",1065", "1048576"),
                  "1");
}

TEST_F(MemoryRule, PassesTheFirstSpeedThatIsFastEnough)
{
    expectPassed(judgeModules(repeated("32768", 32), repeated("2133", 31) + ",1066", "1048576"));
    expectPassed(judgeModules(repeated("32768", 32), "1066", "1048576"));
}

TEST_F(MemoryRule, CountsSlowModules)
{
    expectTooSlow(judgeModules("32768,32768", "800,2133,1065,1066,0,-1", "65536"), "4");
}

TEST_F(MemoryRule, TakesASpeedThatIsNoNumberForASlowOne)
{
    expectTooSlow(judgeModules("32768,32768", "2133,Unknown", "65536"), "1");
    expectTooSlow(judgeModules("32768,32768", "2133,,2133", "65536"), "1");
}

TEST_F(MemoryRule, FindsNoSlowModuleWithoutSpeeds)
{
    expectPassed(judgeModules("32768,32768", "", "65536"));
}

TEST_F(MemoryRule, FailsOnModulesOfDifferentSizes)
{
    expectDifferent(judgeModules("32768,16384,16384", "2133,2133,2133", "65536"), "2");
    expectDifferent(judgeModules("8192,32768,16384,8192", "2133", "65536"), "3");
}

TEST_F(MemoryRule, FailsWithoutModules)
{
    expectDifferent(judgeModules("", "", "0"), "0");
}

TEST_F(MemoryRule, TakesASizeThatIsNoNumberForZero)
{
    expectDifferent(judgeModules("32768,none", "2133", "65536"), "2");
    expectDifferent(judgeModules("32768,,32768", "2133", "65536"), "2");
    expectPassed(judgeModules("none,0,x", "2133", "65536"));
}

TEST_F(MemoryRule, ComparesSizesInThirtyTwoBits)
{
    expectPassed(judgeModules("32768,4295000064", "2133", "65536"));
}

TEST_F(MemoryRule, PutsSizesBeforeSpeedsAndSpeedsBeforeTheTotal)
{
    expectDifferent(judgeModules("32768,16384", "800", "1"), "2");
    expectTooSlow(judgeModules("32768,32768", "800", "1"), "1");
    expectNotAllowed(judgeModules("32768,32768", "1066", "1"), "1");
}

TEST_F(MemoryRule, PassesAllSeventeenTotals)
{
    for (const char* total : allowedTotals) {
        SCOPED_TRACE(total);
        expectPassed(judgeModules("32768", "2133", total));
    }
}

TEST_F(MemoryRule, FailsBesideEachOfTheSeventeenTotals)
{
    for (const char* total : allowedTotals) {
        for (const int change : {-1, 1}) {
            const std::string beside = std::to_string(std::stoi(total) + change);
            SCOPED_TRACE(beside);
            expectNotAllowed(judgeModules("32768", "2133", beside), beside);
        }
    }
}

TEST_F(MemoryRule, FailsOnTotalsInBetween)
{
    for (const char* total :
         {"1310720", "786432", "32768", "16384", "98304", "8388608", "25165824", "0", "-65536"}) {
        SCOPED_TRACE(total);
        expectNotAllowed(judgeModules("32768", "2133", total), total);
    }
}

TEST_F(MemoryRule, RecordsTheTotalAsTheNumberThatWasRead)
{
    expectNotAllowed(judgeModules("32768", "2133", ""), "0");
    expectNotAllowed(judgeModules("32768", "2133", "0012 MB"), "12");
    expectNotAllowed(judgeModules("32768", "2133", "99999999999999999999"), "-1");
    expectPassed(judgeModules("32768", "2133", "4295032832"));
}

TEST_F(MemoryRule, IsSkippedInASupportedGuest)
{
    becomeSupportedGuest();
    const Judgement judgement = judgeModules("", "", "");

    EXPECT_EQ(judgement.block, skippedBlock("validateMemory", inAGuest));
    EXPECT_EQ(judgement.record, "('hypervisormemory','',3,'" + plain(inAGuest) + "')");
    EXPECT_EQ(judgement.output, "");
}

TEST_F(MemoryRule, JudgesAnUnsupportedGuestInFull)
{
    becomeUnsupportedGuest();

    expectPassed(judgeModules("32768,32768", "2133", "65536"));
    expectDifferent(judgeModules("32768,16384", "2133", "65536"), "2");
}

TEST_F(MemoryRule, CannotRunOnAnotherArchitecture)
{
    becomeSupportedGuest();
    const Judgement judgement = judge(&ValidateSystemInfo::validateMemory, "not valid");

    EXPECT_EQ(judgement.block, failedBlock("validateMemory", "Variable ARCHITECTURE not valid."));
    EXPECT_EQ(judgement.record, "('ARCHITECTURE','',5,'Variable ARCHITECTURE not valid.')");
}

}  // namespace vetraTests
