// The runtime packages of each distribution.

#include <gtest/gtest.h>

#include "FakeHost.h"
#include "RuleTest.h"

namespace vetraTests {

namespace {

constexpr const char* suse12 = "SUSE Linux Enterprise Server 12 (x86_64)";
constexpr const char* redHat72 = "Red Hat Enterprise Linux Server release 7.2 (Maipo)";
constexpr const char* redHat73 = "Red Hat Enterprise Linux Server release 7.3 (Maipo)";

constexpr const char* unclear = "Problem in identifying Runtime Environment in OS Distribution.";
constexpr const char* notReadyOnRedHat =
    "Runtime environment in this distribution is not ready for ZIRN 2.0.\n"
    "Please see KOR Note 2455582 for more details.";
constexpr const char* notReadyOnSuse =
    "Runtime environment is not ready for ZIRN 2.0. \n"
    "Please see KOR Note 2455582 for more details.";

constexpr const char* passedRecord = "('runtime','',0,'')";

std::string failedRecord(std::string_view message)
{
    return "('runtime','',4,'" + plain(message) + "')";
}

class RuntimeRule : public RuleTest {
protected:
    Judgement judgeRuntime(std::string_view distribution, std::string_view packages)
    {
        facts.distribution = distribution;
        host.answer("rpm", "-q -a", packages);
        return judge(&ValidateSystemInfo::validateRuntime);
    }

    using Variant = string (ValidateSystemInfo::*)(const SystemInfo&);

    Judgement judgeVariant(Variant variant)
    {
        const std::string block = plain((rules.*variant)(facts));
        return {block, plain(rules.getCheckAction()), ""};
    }

    void expectPassed(const Judgement& judgement)
    {
        EXPECT_EQ(judgement.block, passedBlock("validateRuntime"));
        EXPECT_EQ(judgement.record, passedRecord);
        EXPECT_EQ(judgement.output, "");
    }

    void expectFailed(const Judgement& judgement, std::string_view message)
    {
        EXPECT_EQ(judgement.block, failedBlock("validateRuntime", message));
        EXPECT_EQ(judgement.record, failedRecord(message));
        EXPECT_EQ(judgement.output, "");
    }

    FakeHost host;
};

class SuseRuntime : public RuntimeRule {
protected:
    Judgement judgePackages(std::string_view packages) { return judgeRuntime(suse12, packages); }
};

}  // namespace

TEST_F(RuntimeRule, CannotRunOnAnotherArchitecture)
{
    facts.distribution = suse12;
    const Judgement judgement = judge(&ValidateSystemInfo::validateRuntime, "not valid");

    EXPECT_EQ(judgement.block, failedBlock("validateRuntime", unclear));
    EXPECT_EQ(judgement.record, "('runtime','',5,'" + plain(unclear) + "')");
    EXPECT_EQ(host.takeLog(), std::vector<std::string>{});
}

TEST_F(RuntimeRule, GivesAnEmptyBlockForAnUnknownDistribution)
{
    for (const char* name : {"", "SUSE Linux Enterprise Server 11 (x86_64)",
                             "Red Hat Enterprise Linux Server release 7.4 (Maipo)"})
        EXPECT_EQ(judgeRuntime(name, "").block, "") << name;
    EXPECT_EQ(host.takeLog(), std::vector<std::string>{});
}

TEST_F(RuntimeRule, LeavesTheOldRecordForAnUnknownDistribution)
{
    facts.clockInfo = "tsc";
    judge(&ValidateSystemInfo::validateClocksource);

    EXPECT_EQ(judgeRuntime("An unknown distribution", "").record, "('clocksource','tsc',0,'')");
}

TEST_F(RuntimeRule, AsksForAllPackagesOnce)
{
    judgeRuntime(redHat73, "");

    EXPECT_EQ(host.takeLog(), std::vector<std::string>{"$ rpm -q -a 2>&1"});
}

TEST_F(RuntimeRule, PassesRedHat72WithItsPackage)
{
    expectPassed(judgeRuntime(redHat72, "bash-4.2\ncompat-kor-c++-6.el7_2.x86_64\n"));
    expectPassed(judgeRuntime(redHat72, "x compat-kor-c++-6.el7_2.x86_64 y"));
}

TEST_F(RuntimeRule, FailsRedHat72WithoutItsPackage)
{
    expectFailed(judgeRuntime(redHat72, ""), notReadyOnRedHat);
    expectFailed(judgeRuntime(redHat72,
                              "compat-kor-c++-6-6.3.1-1.el7_3.x86_64\n"
                              "compat-kor-c++-6.el7_2.i686\ncompat-kor-c++-6.el7_2\n"
                              ".x86_64\nCompat-kor-c++-6.el7_2.x86_64\n"),
                 notReadyOnRedHat);
}

TEST_F(RuntimeRule, PassesRedHat73WithTheCompatibilityPackageAlone)
{
    expectPassed(judgeRuntime(redHat73, "compat-kor-c++-6-6.3.1-1.el7_3.x86_64\n"));
    expectPassed(judgeRuntime(redHat73,
                              "glibc-2.17-105.el7.x86_64\n"
                              "compat-kor-c++-6-6.3.1-1.el7_3.x86_64\n"));
}

TEST_F(RuntimeRule, FailsRedHat73WithTheCLibraryAlone)
{
    expectFailed(judgeRuntime(redHat73,
                              "glibc-2.17-157.el7_3.x86_64\n"
                              "compat-kor-c++-6.el7_2.x86_64\n"),
                 notReadyOnRedHat);
    expectFailed(judgeRuntime(redHat73, ""), notReadyOnRedHat);
}

TEST_F(RuntimeRule, FailsWithoutRpm)
{
    host.remove("/usr/bin/rpm");
    for (const auto& [name, message] : Pairs{{suse12, notReadyOnSuse},
                                             {redHat72, notReadyOnRedHat},
                                             {redHat73, notReadyOnRedHat}}) {
        facts.distribution = name;
        expectFailed(judge(&ValidateSystemInfo::validateRuntime), message);
    }
}

TEST_F(RuntimeRule, RunsEachVariantWhoseDistributionIsNamedAndKeepsTheLast)
{
    const Judgement judgement =
        judgeRuntime(plain(redHat73) + ", not " + redHat72 + " and not " + suse12, "");

    expectFailed(judgement, notReadyOnRedHat);
    EXPECT_EQ(host.takeLog(), (std::vector<std::string>{"$ rpm -q -a 2>&1", "$ rpm -q -a 2>&1",
                                                        "$ rpm -q -a 2>&1"}));
}

TEST_F(RuntimeRule, FindsADistributionInsideALongerLine)
{
    expectFailed(judgeRuntime("SUSE Linux Enterprise Server 12 SP5", ""), notReadyOnSuse);
    expectFailed(judgeRuntime(" Red Hat Enterprise Linux Server release 7.2 (Maipo)\r", ""),
                 notReadyOnRedHat);
}

TEST_F(RuntimeRule, VariantsOfRedHatRefuseAnotherDistribution)
{
    facts.distribution = redHat73;
    expectFailed(judgeVariant(&ValidateSystemInfo::validateRuntime_X86_RHEL7_2), unclear);
    facts.distribution = redHat72;
    expectFailed(judgeVariant(&ValidateSystemInfo::validateRuntime_X86_RHEL7_3), unclear);
    facts.distribution = "";
    expectFailed(judgeVariant(&ValidateSystemInfo::validateRuntime_X86_RHEL7_2), unclear);
    expectFailed(judgeVariant(&ValidateSystemInfo::validateRuntime_X86_RHEL7_3), unclear);
    EXPECT_EQ(host.takeLog(), std::vector<std::string>{});
}

TEST_F(RuntimeRule, VariantOfSuseDoesNotLookAtTheDistribution)
{
    host.answer("rpm", "-q -a",
                "libstdc++6-5.3.1+r233831-10.1.x86_64\nlibgcc_s1-5.3.1+r233831-10.1.x86_64\n");
    facts.distribution = "Debian";

    expectPassed(judgeVariant(&ValidateSystemInfo::validateRuntime_X86SuSE12));
}

TEST_F(SuseRuntime, PassesWithBothLibrariesOfEachReleaseInAnyMixture)
{
    const char* const standard[] = {"libstdc++6-5.3.1+r233831", "libstdc++6-6.2.1+r239768"};
    const char* const gcc[] = {"libgcc_s1-5.3.1+r233831", "libgcc_s1-6.2.1+r239768"};
    const char* const releases[] = {"10.1", "10.1.x86_64", "9.1.x86_64", "2.4.x86_64",
                                    "12.4.x86_64"};
    for (const char* first : standard) {
        for (const char* second : gcc) {
            for (const char* release : releases) {
                SCOPED_TRACE(plain(first) + "-" + release + " " + second);
                expectPassed(judgePackages(plain(second) + "-9.1.x86_64\nbash-4.3\n" + first + "-" +
                                           release + "\n"));
            }
        }
    }
}

TEST_F(SuseRuntime, FailsIfEitherLibraryIsMissing)
{
    expectFailed(judgePackages("libstdc++6-5.3.1+r233831-10.1.x86_64\n"
                               "libstdc++6-6.2.1+r239768-2.4.x86_64\n"),
                 notReadyOnSuse);
    expectFailed(judgePackages("libgcc_s1-5.3.1+r233831-10.1.x86_64\n"
                               "libgcc_s1-6.2.1+r239768-2.4.x86_64\n"),
                 notReadyOnSuse);
    expectFailed(judgePackages(""), notReadyOnSuse);
}

TEST_F(SuseRuntime, FailsWithAnotherReleaseOrVersion)
{
    for (const char* package :
         {"libstdc++6-5.3.1+r233831-9.1.i586", "libstdc++6-5.3.1+r233831-2.4",
          "libstdc++6-5.3.1+r233831-11.2.x86_64", "libstdc++6-5.3.1+r233832-10.1.x86_64",
          "libstdc++6-4.8.5-10.1.x86_64", "libstdc++5-5.3.1+r233831-10.1.x86_64"}) {
        SCOPED_TRACE(package);
        expectFailed(judgePackages("libgcc_s1-5.3.1+r233831-10.1.x86_64\n" + plain(package) + "\n"),
                     notReadyOnSuse);
    }
}

TEST_F(SuseRuntime, PassesOverALineWithoutThirdField)
{
    expectFailed(judgePackages("libgcc_s1-5.3.1+r233831-10.1.x86_64\n"
                               "libstdc++6-5.3.1+r233831\nlibstdc++6-5.3.1+r233831-\n"),
                 notReadyOnSuse);
}

TEST_F(SuseRuntime, LooksForTheReleaseInTheThirdFieldOnly)
{
    expectFailed(judgePackages("libgcc_s1-5.3.1+r233831-10.1.x86_64\n"
                               "10.1-libstdc++6-5.3.1+r233831-10.1.x86_64\n"
                               "libstdc++6-5.3.1+r233831-3-10.1.x86_64\n"),
                 notReadyOnSuse);
}

TEST_F(SuseRuntime, FindsThePackageWordInsideTheFirstFields)
{
    expectPassed(
        judgePackages("libgcc_s1-5.3.1+r233831.2-10.1.x86_64\n"
                      "mylibstdc++6-5.3.1+r233831-10.1.x86_64-more\n"));
}

}  // namespace vetraTests
