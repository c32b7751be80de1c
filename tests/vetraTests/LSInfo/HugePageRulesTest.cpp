// The switch of transparent huge pages.

#include <gtest/gtest.h>

#include "RuleTest.h"

namespace vetraTests {

namespace {

constexpr const char* adviceOnSuse =
    "Transparent hugepages is enabled, this can lead to a system \n"
    "stall during memory defragmentation operation. \n"
    "For More details: KOR Note 2205917";
constexpr const char* adviceOnRedHat =
    "Transparent hugepages is enabled, this can lead to a system \n"
    "stall during memory defragmentation operation. \n"
    "For More details: KOR Note 2292690";
constexpr const char* suse12 = "SUSE Linux Enterprise Server 12 (x86_64)";

class HugePageRule : public RuleTest {
protected:
    HugePageRule()
    {
        facts.distribution = suse12;
        facts.patchLevel = "1";
    }

    Judgement judgeSwitch(std::string_view thp)
    {
        facts.thp = thp;
        return judge(&ValidateSystemInfo::validateTHP);
    }

    void expectUnknown(const Judgement& judgement)
    {
        EXPECT_EQ(judgement.block,
                  failedBlock("validateTHP", "Variable ARCHITECTURE not valid. Continue ..."));
        EXPECT_EQ(judgement.record,
                  "('ARCHITECTURE','',5,'Variable ARCHITECTURE not valid. Continue ...')");
    }
};

}  // namespace

TEST_F(HugePageRule, PassesTheSwitchAtNever)
{
    const Judgement judgement = judgeSwitch("always madvise [never]");

    EXPECT_EQ(judgement.block, passedBlock("validateTHP"));
    EXPECT_EQ(judgement.record, "('thp','always madvise [never]',0,'')");
    EXPECT_EQ(judgement.output, "");
}

TEST_F(HugePageRule, FailsOnAnyOtherPosition)
{
    for (const char* thp :
         {"[always] madvise never", "always [madvise] never", "never", "[Never]", "[ never]", ""}) {
        const Judgement judgement = judgeSwitch(thp);
        EXPECT_EQ(judgement.block, failedBlock("validateTHP", adviceOnSuse)) << thp;
        EXPECT_EQ(judgement.record, "('thp','" + plain(thp) + "',4,'" + adviceOnSuse + "')");
    }
}

TEST_F(HugePageRule, PointsToAnotherNoteOnRedHat)
{
    for (const char* name : {"Red Hat Enterprise Linux Server release 7.2 (Maipo)",
                             "Red Hat Enterprise Linux Server release 7.3 (Maipo)"}) {
        facts.distribution = name;
        facts.patchLevel = "";
        const Judgement judgement = judgeSwitch("[always] madvise never");
        EXPECT_EQ(judgement.block, failedBlock("validateTHP", adviceOnRedHat)) << name;
        EXPECT_EQ(judgement.record,
                  "('thp','[always] madvise never',4,'" + plain(adviceOnRedHat) + "')");
    }
}

TEST_F(HugePageRule, KnowsServicePacksThatHoldAOneOrATwo)
{
    for (const char* level : {"1", "2", "11", "21", "31", " 2 "}) {
        facts.patchLevel = level;
        EXPECT_EQ(judgeSwitch("[always]").block, failedBlock("validateTHP", adviceOnSuse)) << level;
        EXPECT_EQ(judgeSwitch("[never]").record, "('thp','[never]',0,'')") << level;
    }
}

TEST_F(HugePageRule, CannotRunOnAServicePackThatItDoesNotKnow)
{
    for (const char* level : {"3", "0", "4", ""}) {
        SCOPED_TRACE(level);
        facts.patchLevel = level;
        expectUnknown(judgeSwitch("always madvise [never]"));
        expectUnknown(judgeSwitch("[always] madvise never"));
    }
}

TEST_F(HugePageRule, CannotRunOnAnUnknownDistribution)
{
    for (const char* name : {"", "SUSE Linux Enterprise Server 11 (x86_64)", "Debian GNU/Linux 12",
                             "Red Hat Enterprise Linux Server release 7.4 (Maipo)"}) {
        SCOPED_TRACE(name);
        facts.distribution = name;
        expectUnknown(judgeSwitch("always madvise [never]"));
    }
}

TEST_F(HugePageRule, TriesTheOtherDistributionAfterAnUnknownServicePack)
{
    facts.distribution =
        "SUSE Linux Enterprise Server 12, formerly "
        "Red Hat Enterprise Linux Server release 7.3 (Maipo)";
    facts.patchLevel = "3";

    EXPECT_EQ(judgeSwitch("").block, failedBlock("validateTHP", adviceOnRedHat));
}

TEST_F(HugePageRule, DoesNotLookAtTheArchitecture)
{
    facts.thp = "[never]";

    EXPECT_EQ(judge(&ValidateSystemInfo::validateTHP, "not valid").record,
              "('thp','[never]',0,'')");
}

}  // namespace vetraTests
