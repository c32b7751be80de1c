// Distribution and kernel.

#include <gtest/gtest.h>

#include "RuleTest.h"

namespace vetraTests {

namespace {

constexpr const char* suse12 = "SUSE Linux Enterprise Server 12 (x86_64)";
constexpr const char* redHat72 = "Red Hat Enterprise Linux Server release 7.2 (Maipo)";
constexpr const char* redHat73 = "Red Hat Enterprise Linux Server release 7.3 (Maipo)";

constexpr const char* notSufficient =
    "The operating system distribution is not sufficient \n to operate KOR ZIRN for production "
    "environments. \n Please see KOR Note 2235581 for more details.";
constexpr const char* kernelTooLowOnSuse =
    "Kernelversion is too low and might have bugs related to XFS. \n"
    "For more details review KOR Note: 2205917";
constexpr const char* kernelTooLowOnRedHat =
    "Kernelversion is too low and might have bugs related to XFS. \n"
    "For more details review KOR Note: 2292690";
constexpr const char* noValidDistribution = "Not a valid distribution.";

class DistributionRule : public RuleTest {
protected:
    Judgement judgeHost(std::string_view line, std::string_view level,
                        std::string_view arch = "x86")
    {
        facts.distribution = line;
        facts.patchLevel = level;
        return judge(&ValidateSystemInfo::validateDistribution, arch);
    }
};

class KernelRule : public RuleTest {
protected:
    Judgement judgeKernel(std::string_view kernel, std::string_view major, std::string_view minor)
    {
        facts.kernelVersion = kernel;
        facts.majorVersion = major;
        facts.minorVersion = minor;
        return judge(&ValidateSystemInfo::validateLinuxKernelVersion);
    }

    void becomeSuse(std::string_view level)
    {
        facts.distribution = suse12;
        facts.patchLevel = level;
    }

    void becomeRedHat73()
    {
        facts.distribution = redHat73;
        facts.patchLevel = "3";
    }
};

}  // namespace

TEST_F(DistributionRule, PassesTheFourOfX86)
{
    for (const auto& [line, level] :
         Pairs{{suse12, "1"}, {suse12, "2"}, {redHat72, "2"}, {redHat73, "3"}}) {
        const Judgement judgement = judgeHost(line, level);
        EXPECT_EQ(judgement.block, passedBlock("validateDistribution")) << line << level;
        EXPECT_EQ(judgement.record, "('distribution_patchlevel','" + plain(level) + "',0,'')");
        EXPECT_EQ(judgement.output, "");
    }
}

TEST_F(DistributionRule, FailsOnAnyOtherLineOrLevel)
{
    for (const auto& [line, level] : Pairs{{suse12, "3"},
                                           {suse12, "11"},
                                           {suse12, "21"},
                                           {suse12, ""},
                                           {redHat72, "3"},
                                           {redHat73, "2"},
                                           {"SUSE Linux Enterprise Server 12", "1"},
                                           {"SUSE Linux Enterprise Server 12 (x86_64) ", "1"},
                                           {"SUSE Linux Enterprise Server 11 (x86_64)", "4"},
                                           {"", ""}}) {
        const Judgement judgement = judgeHost(line, level);
        EXPECT_EQ(judgement.block, failedBlock("validateDistribution", notSufficient))
            << line << level;
        EXPECT_EQ(judgement.record, "('distribution_patchlevel','" + plain(level) + "',4,'" +
                                        plain(notSufficient) + "')");
    }
}

TEST_F(DistributionRule, FailsOnTheDistributionsOfTheOtherArchitectureEvenThere)
{
    for (const char* arch : {"x86", "ppc64le"}) {
        const Judgement judgement =
            judgeHost("SUSE Linux Enterprise Server 12 (ppc64le)", "1", arch);
        EXPECT_EQ(judgement.block, failedBlock("validateDistribution", notSufficient)) << arch;
    }
}

TEST_F(DistributionRule, DoesNotLookAtTheArchitecture)
{
    for (const char* arch : {"not valid", "ppc64le", ""}) {
        const Judgement judgement = judgeHost(suse12, "1", arch);
        EXPECT_EQ(judgement.block, passedBlock("validateDistribution")) << arch;
        EXPECT_EQ(judgement.record, "('distribution_patchlevel','1',0,'')");
    }
}

TEST_F(DistributionRule, ComparesTheTrimmedLevelAndRecordsTheUntrimmed)
{
    const Judgement judgement = judgeHost(suse12, " 2\t");

    EXPECT_EQ(judgement.block, passedBlock("validateDistribution"));
    EXPECT_EQ(judgement.record, "('distribution_patchlevel',' 2\t',0,'')");
    EXPECT_EQ(plain(facts.getPatchLevel()), " 2\t");
}

TEST_F(DistributionRule, RecordsTheUntrimmedLevelOfAFailureToo)
{
    EXPECT_EQ(judgeHost(suse12, " 3 ").record,
              "('distribution_patchlevel',' 3 ',4,'" + plain(notSufficient) + "')");
}

TEST_F(KernelRule, PassesTheLeastKernelOfSuse)
{
    for (const char* level : {"1", "2", " 1 "}) {
        becomeSuse(level);
        const Judgement judgement = judgeKernel("3", "12", "74");
        EXPECT_EQ(judgement.block, passedBlock("validateLinuxKernelVersion")) << level;
        EXPECT_EQ(judgement.record, "('linuxkernelversion','3-12-74',0,'')");
        EXPECT_EQ(judgement.output, "");
    }
}

TEST_F(KernelRule, PassesWhereEachNumberIsHighEnough)
{
    becomeSuse("1");
    EXPECT_EQ(judgeKernel("4", "12", "74").record, "('linuxkernelversion','4-12-74',0,'')");
    EXPECT_EQ(judgeKernel("3", "13", "75").record, "('linuxkernelversion','3-13-75',0,'')");
    EXPECT_EQ(judgeKernel("10", "100", "1000").record, "('linuxkernelversion','10-100-1000',0,'')");
}

TEST_F(KernelRule, WarnsAboutALowerKernelOfSuse)
{
    becomeSuse("1");
    const Judgement judgement = judgeKernel("3", "12", "73");

    EXPECT_EQ(judgement.block, warningBlock("validateLinuxKernelVersion", kernelTooLowOnSuse));
    EXPECT_EQ(judgement.record,
              "('linuxkernelversion','3-12-73',1,'" + plain(kernelTooLowOnSuse) + "')");
    EXPECT_EQ(judgement.output, "");
}

TEST_F(KernelRule, ComparesEachNumberByItself)
{
    becomeSuse("2");
    for (const auto& [kernel, major, minor] : Triples{{"4", "4", "21"},
                                                      {"3", "13", "0"},
                                                      {"2", "12", "74"},
                                                      {"3", "11", "74"},
                                                      {"4", "4", "74"},
                                                      {"4", "12", "73"},
                                                      {"10", "0", "1000"}}) {
        const Judgement judgement = judgeKernel(kernel, major, minor);
        EXPECT_EQ(judgement.block, warningBlock("validateLinuxKernelVersion", kernelTooLowOnSuse))
            << kernel << '.' << major << '.' << minor;
        EXPECT_EQ(judgement.record, "('linuxkernelversion','" + plain(kernel) + "-" + plain(major) +
                                        "-" + plain(minor) + "',1,'" + plain(kernelTooLowOnSuse) +
                                        "')");
    }
}

TEST_F(KernelRule, PassesKernelsOfRedHat73FromTheThirdOnward)
{
    becomeRedHat73();
    EXPECT_EQ(judgeKernel("3", "10", "0").record, "('linuxkernelversion','3-10-0',0,'')");
    EXPECT_EQ(judgeKernel("4", "10", "7").block, passedBlock("validateLinuxKernelVersion"));
}

TEST_F(KernelRule, WarnsAboutALowerKernelOfRedHat73)
{
    becomeRedHat73();
    for (const auto& [kernel, major, minor] :
         Triples{{"3", "9", "99"}, {"2", "10", "0"}, {"4", "9", "0"}, {"3", "10", "-1"}}) {
        const Judgement judgement = judgeKernel(kernel, major, minor);
        EXPECT_EQ(judgement.block, warningBlock("validateLinuxKernelVersion", kernelTooLowOnRedHat))
            << kernel << '.' << major << '.' << minor;
        EXPECT_EQ(judgement.record, "('linuxkernelversion','" + plain(kernel) + "-" + plain(major) +
                                        "-" + plain(minor) + "',1,'" + plain(kernelTooLowOnRedHat) +
                                        "')");
    }
}

TEST_F(KernelRule, WarnsAboutAnyKernelOfRedHat72)
{
    facts.distribution = redHat72;
    facts.patchLevel = "2";
    for (const char* number : {"3", "9998"}) {
        const Judgement judgement = judgeKernel(number, "9999", "9999");
        EXPECT_EQ(judgement.block, warningBlock("validateLinuxKernelVersion", noValidDistribution));
        EXPECT_EQ(judgement.record, "('linuxkernelversion','" + plain(number) +
                                        "-9999-9999',1,'Not a valid distribution.')");
    }
}

TEST_F(KernelRule, TakesEmptyNumbersForZero)
{
    becomeSuse("1");
    EXPECT_EQ(judgeKernel("", "", "").record,
              "('linuxkernelversion','--',1,'" + plain(kernelTooLowOnSuse) + "')");

    becomeRedHat73();
    EXPECT_EQ(judgeKernel("3", "10", "").record, "('linuxkernelversion','3-10-',0,'')");
}

TEST_F(KernelRule, ReadsNumbersAsTheLowThirtyTwoBitsOfASaturatedNumber)
{
    becomeRedHat73();
    EXPECT_EQ(judgeKernel("99999999999999999999", "10", "0").block,
              warningBlock("validateLinuxKernelVersion", kernelTooLowOnRedHat));
    EXPECT_EQ(judgeKernel("4294967299", "10el", "0").block,
              passedBlock("validateLinuxKernelVersion"));
}

TEST_F(KernelRule, IsSkippedAfterAFailedDistribution)
{
    for (const char* level : {"3", "11", "21", ""}) {
        becomeSuse(level);
        const Judgement judgement = judgeKernel("3", "12", "74");
        EXPECT_EQ(judgement.block,
                  skippedBlock("validateLinuxKernelVersion", "validateDistribution is a failure"))
            << level;
        EXPECT_EQ(judgement.record,
                  "('linuxkernelversion','3-12-74',3,'validateDistribution is a failure')");
    }
}

TEST_F(KernelRule, CannotRunOnAnotherArchitecture)
{
    becomeSuse("1");
    const Judgement judgement = judge(&ValidateSystemInfo::validateLinuxKernelVersion, "not valid");

    EXPECT_EQ(judgement.block,
              failedBlock("validateLinuxKernelVersion", "Variable ARCHITECTURE not valid."));
    EXPECT_EQ(judgement.record, "('ARCHITECTURE','',5,'Variable ARCHITECTURE not valid.')");
}

TEST_F(KernelRule, PutsTheArchitectureBeforeAFailedDistribution)
{
    becomeSuse("3");

    EXPECT_EQ(judge(&ValidateSystemInfo::validateLinuxKernelVersion, "ppc64le").record,
              "('ARCHITECTURE','',5,'Variable ARCHITECTURE not valid.')");
}

TEST_F(KernelRule, AcceptsAnArchitectureThatHoldsTheWord)
{
    becomeSuse("1");
    facts.kernelVersion = "3";
    facts.majorVersion = "12";
    facts.minorVersion = "74";

    EXPECT_EQ(judge(&ValidateSystemInfo::validateLinuxKernelVersion, "x86_64").record,
              "('linuxkernelversion','3-12-74',0,'')");
}

}  // namespace vetraTests
