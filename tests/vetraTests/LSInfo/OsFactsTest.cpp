// Facts of the operating system: distribution, kernel, runtime packages, clock, huge pages.

#include <gtest/gtest.h>

#include <sstream>

#include "FakeHost.h"
#include "HostFacts.h"

namespace vetraTests {

namespace {

constexpr const char* suseFile = "/etc/SuSE-release";
constexpr const char* redHatFile = "/etc/redhat-release";
constexpr const char* clockFile =
    "/sys/devices/system/clocksource/clocksource0/current_clocksource";
constexpr const char* hugePageFile = "/sys/kernel/mm/transparent_hugepage/enabled";

constexpr const char* suse12Sp1 =
    "SUSE Linux Enterprise Server 12 (x86_64)\nVERSION = 12\nPATCHLEVEL = 1\n";
constexpr const char* redHat73 = "Red Hat Enterprise Linux Server release 7.3 (Maipo)\n";

class OsFactsTest : public testing::Test {
protected:
    void readSuse(const std::string& text)
    {
        std::istringstream file(text);
        facts.readSuseRelease(file);
    }

    void readRedHat(const std::string& text)
    {
        std::istringstream file(text);
        facts.readRedHatRelease(file);
    }

    std::string kernelText()
    {
        return plain(facts.getKernelVersion()) + "|" + plain(facts.getMajorVersion()) + "|" +
               plain(facts.getMinorVersion()) + "|" + plain(facts.getKernelRelease());
    }

    std::shared_ptr<Basis::Allocator> domain = testDomain();
    HostFacts facts{*domain};
};

class SuseRelease : public OsFactsTest {};
class RedHatRelease : public OsFactsTest {};

class KernelRelease : public OsFactsTest {
protected:
    KernelRelease() { facts.distribution = "SUSE Linux Enterprise Server 12 (x86_64)"; }
};

class OsGatherer : public OsFactsTest {
protected:
    void gather() { facts.gatherDistribution_LinuxKernelVersion_Info(); }

    FakeHost host;
};

class RuntimeGatherer : public OsGatherer {
protected:
    void packages(std::string_view text) { host.answer("rpm", "-qa", text); }
};

}  // namespace

TEST_F(SuseRelease, ReadsNameVersionAndPatchLevel)
{
    readSuse(
        "SUSE Linux Enterprise Server 12 (x86_64) \nVERSION = 12\nPATCHLEVEL =\t1\r\n"
        "# This file is deprecated\n");

    EXPECT_EQ(facts.group("validateDistribution"),
              (Entries{{"Distribution name", "SUSE Linux Enterprise Server 12 (x86_64)"},
                       {"Version", "12"},
                       {"Patchlevel", "1"}}));
    EXPECT_EQ(plain(facts.getDistribution()), "SUSE Linux Enterprise Server 12 (x86_64)");
    EXPECT_EQ(plain(facts.getVersion()), "12");
    EXPECT_EQ(plain(facts.getPatchLevel()), "1");
}

TEST_F(SuseRelease, StoresNoGroupWithoutAPatchLevel)
{
    readSuse("SUSE Linux Enterprise Server 12 (x86_64)\nVERSION = 12\n");

    EXPECT_EQ(facts.group("validateDistribution"), std::nullopt);
    EXPECT_EQ(plain(facts.getVersion()), "12");
}

TEST_F(SuseRelease, LooksAtTheBeginningOfALineOnly)
{
    readSuse(" SUSE Linux\n# SUSE\nOS VERSION = 1\n\tPATCHLEVEL = 2\nsuse\n");

    EXPECT_EQ(facts.pending(), Entries{});
    EXPECT_EQ(facts.group("validateDistribution"), std::nullopt);
}

TEST_F(SuseRelease, TakesTheTextBehindTheFirstEqualsSign)
{
    readSuse("VERSION=a = b\nPATCHLEVEL\n");

    EXPECT_EQ(plain(facts.getVersion()), "a = b");
    EXPECT_EQ(plain(facts.getPatchLevel()), "PATCHLEVEL");
}

TEST_F(SuseRelease, StoresTheGroupAtTheFirstPatchLevel)
{
    readSuse("PATCHLEVEL = 1\nSUSE Linux\nVERSION = 12\nPATCHLEVEL = 2\n");

    EXPECT_EQ(facts.group("validateDistribution"), (Entries{{"Patchlevel", "1"}}));
    EXPECT_EQ(plain(facts.getPatchLevel()), "2");
    EXPECT_EQ(plain(facts.getDistribution()), "SUSE Linux");
}

TEST_F(RedHatRelease, SplitsTheReleaseAtItsFirstDot)
{
    readRedHat("Red Hat Enterprise Linux Server release 7.2 (Maipo)\n");

    EXPECT_EQ(facts.group("validateDistribution"),
              (Entries{{"Distribution name", "Red Hat Enterprise Linux Server release 7.2 (Maipo)"},
                       {"Version", "Red Hat Enterprise Linux Server release 7"},
                       {"Patchlevel", "2"}}));
    EXPECT_EQ(plain(facts.getVersion()), "Red Hat Enterprise Linux Server release 7");
    EXPECT_EQ(plain(facts.getPatchLevel()), "2");
}

TEST_F(RedHatRelease, DoesNotTrimTheLine)
{
    readRedHat("Red Hat Enterprise Linux Server release 7.2 (Maipo) \t\r\n");

    EXPECT_EQ(plain(facts.getDistribution()),
              "Red Hat Enterprise Linux Server release 7.2 (Maipo) \t\r");
    EXPECT_EQ(facts.pending().at("Distribution name"),
              "Red Hat Enterprise Linux Server release 7.2 (Maipo) \t\r");
}

TEST_F(RedHatRelease, KeepsWhatFollowsTheFirstDot)
{
    readRedHat("Red Hat release 7.3.1611 (Core) (again)\n");

    EXPECT_EQ(plain(facts.getVersion()), "Red Hat release 7");
    EXPECT_EQ(plain(facts.getPatchLevel()), "3.1611");
}

TEST_F(RedHatRelease, TakesTheWholeLineWithoutBracketAndDot)
{
    readRedHat("Red Hat Linux release 7 \n");

    EXPECT_EQ(plain(facts.getVersion()), "Red Hat Linux release 7");
    EXPECT_EQ(plain(facts.getPatchLevel()), "Red Hat Linux release 7");
}

TEST_F(RedHatRelease, LooksAtTheBeginningOfALineOnly)
{
    readRedHat("CentOS Linux release 7.3.1611 (Core)\n Red Hat 7.3\nDerived from Red Hat 7.3\n");

    EXPECT_EQ(facts.group("validateDistribution"), std::nullopt);
    EXPECT_EQ(plain(facts.getDistribution()), "");
}

TEST_F(RedHatRelease, KeepsTheFirstLineInTheGroupAndTheLastInTheMembers)
{
    readRedHat("Red Hat first 1.2 (A)\nRed Hat second 3.4 (B)\n");

    EXPECT_EQ(facts.group("validateDistribution"),
              (Entries{{"Distribution name", "Red Hat first 1.2 (A)"},
                       {"Version", "Red Hat first 1"},
                       {"Patchlevel", "2"}}));
    EXPECT_EQ(plain(facts.getDistribution()), "Red Hat second 3.4 (B)");
    EXPECT_EQ(plain(facts.getVersion()), "Red Hat second 3");
    EXPECT_EQ(plain(facts.getPatchLevel()), "4");
}

TEST_F(KernelRelease, IsSplitOnAKnownDistribution)
{
    facts.readKernelRelease("4.4.21-69-default");

    EXPECT_EQ(kernelText(), "4|4|21|69");
    EXPECT_EQ(facts.group("validateLinuxKernelVersion"), (Entries{{"kernel version", "4"},
                                                                  {"major version", "4"},
                                                                  {"minor version", "21"},
                                                                  {"kernel release", "69"}}));
}

TEST_F(KernelRelease, TakesTheFirstDottedPartBehindTheFirstDash)
{
    facts.readKernelRelease("3.10.0-514.21.1.el7.x86_64-debug");

    EXPECT_EQ(kernelText(), "3|10|0|514");
}

TEST_F(KernelRelease, HasNoReleaseOfItsOwnWithoutADash)
{
    facts.readKernelRelease("4.4.21");

    EXPECT_EQ(kernelText(), "4|4|21|");
    EXPECT_EQ(facts.group("validateLinuxKernelVersion"), (Entries{{"kernel version", "4"},
                                                                  {"major version", "4"},
                                                                  {"minor version", "21"},
                                                                  {"kernel release", ""}}));
}

TEST_F(KernelRelease, LeavesMissingNumbersEmpty)
{
    facts.readKernelRelease("4-1");
    EXPECT_EQ(kernelText(), "4|||1");

    facts.readKernelRelease("");
    EXPECT_EQ(kernelText(), "|||");
}

TEST_F(KernelRelease, IsSplitOnEachOfTheFourDistributions)
{
    for (const char* name :
         {"SUSE Linux Enterprise Server 12 (ppc64le)", "SUSE Linux Enterprise Server 12 (x86_64)",
          "Red Hat Enterprise Linux Server release 7.2 (Maipo)",
          "Red Hat Enterprise Linux Server release 7.3 (Maipo)",
          "before SUSE Linux Enterprise Server 12 SP5 behind"}) {
        HostFacts fresh(*domain);
        fresh.distribution = name;
        fresh.readKernelRelease("3.12.74-60-default");
        EXPECT_EQ(plain(fresh.getMinorVersion()), "74") << name;
    }
}

TEST_F(KernelRelease, IsKeptWholeOnAnyOtherDistribution)
{
    for (const char* name :
         {"", "SUSE Linux Enterprise Server 11 (x86_64)",
          "Red Hat Enterprise Linux Server release 7.4 (Maipo)",
          "Red Hat Enterprise Linux Server release 7.3", "suse linux enterprise server 12"}) {
        HostFacts fresh(*domain);
        fresh.distribution = name;
        fresh.readKernelRelease("3.12.74-60-default");
        EXPECT_EQ(fresh.group("validateLinuxKernelVersion"),
                  (Entries{{"kernel version", "3.12.74-60-default"}}))
            << name;
        EXPECT_EQ(plain(fresh.getKernelVersion()), "") << name;
        EXPECT_EQ(plain(fresh.getMajorVersion()), "") << name;
        EXPECT_EQ(plain(fresh.getMinorVersion()), "") << name;
        EXPECT_EQ(plain(fresh.getKernelRelease()), "") << name;
    }
}

TEST_F(OsGatherer, ReadsAReleaseFileAndTheKernel)
{
    host.file(suseFile, suse12Sp1);
    host.kernelRelease = " 3.12.74-60.64.40-default\n";

    gather();

    EXPECT_EQ(facts.group("validateDistribution"),
              (Entries{{"Distribution name", "SUSE Linux Enterprise Server 12 (x86_64)"},
                       {"Version", "12"},
                       {"Patchlevel", "1"}}));
    EXPECT_EQ(kernelText(), "3|12|74|60");
    EXPECT_EQ(facts.pending(), Entries{});
}

TEST_F(OsGatherer, RunsNoCommand)
{
    gather();

    EXPECT_EQ(host.takeLog(), (std::vector<std::string>{suseFile, redHatFile}));
}

TEST_F(OsGatherer, TakesTheShortWayWithoutAReleaseFile)
{
    host.kernelRelease = " 6.1.0-13-amd64 ";

    gather();

    EXPECT_EQ(plain(facts.getDistribution()), "");
    EXPECT_EQ(facts.group("validateDistribution"), std::nullopt);
    EXPECT_EQ(facts.group("validateLinuxKernelVersion"),
              (Entries{{"kernel version", "6.1.0-13-amd64"}}));
    EXPECT_EQ(kernelText(), "|||");
}

TEST_F(OsGatherer, TakesTheShortWayOnSuse11)
{
    host.file(suseFile, "SUSE Linux Enterprise Server 11 (x86_64)\nVERSION = 11\nPATCHLEVEL = 4\n");
    host.kernelRelease = "3.0.101-63-default";

    gather();

    EXPECT_EQ(facts.group("validateDistribution"),
              (Entries{{"Distribution name", "SUSE Linux Enterprise Server 11 (x86_64)"},
                       {"Version", "11"},
                       {"Patchlevel", "4"}}));
    EXPECT_EQ(facts.group("validateLinuxKernelVersion"),
              (Entries{{"kernel version", "3.0.101-63-default"}}));
    EXPECT_EQ(kernelText(), "|||");
}

TEST_F(OsGatherer, KeepsTheFirstOfBothReleaseFilesInTheGroupAndTheSecondInTheMembers)
{
    host.file(suseFile, suse12Sp1);
    host.file(redHatFile, redHat73);

    gather();

    EXPECT_EQ(facts.group("validateDistribution"),
              (Entries{{"Distribution name", "SUSE Linux Enterprise Server 12 (x86_64)"},
                       {"Version", "12"},
                       {"Patchlevel", "1"}}));
    EXPECT_EQ(plain(facts.getDistribution()),
              "Red Hat Enterprise Linux Server release 7.3 (Maipo)");
    EXPECT_EQ(plain(facts.getVersion()), "Red Hat Enterprise Linux Server release 7");
    EXPECT_EQ(plain(facts.getPatchLevel()), "3");
}

TEST_F(OsGatherer, CompletesASuseGroupWithoutPatchLevelFromTheOtherFile)
{
    host.file(suseFile, "SUSE Linux Enterprise Server 12 (x86_64)\nVERSION = 12\n");
    host.file(redHatFile, redHat73);

    gather();

    EXPECT_EQ(facts.group("validateDistribution"),
              (Entries{{"Distribution name", "SUSE Linux Enterprise Server 12 (x86_64)"},
                       {"Version", "12"},
                       {"Patchlevel", "3"}}));
}

TEST_F(OsGatherer, LeavesNothingOfAnUnfinishedDistributionToTheKernel)
{
    host.file(suseFile, "SUSE Linux Enterprise Server 11 (x86_64)\nVERSION = 11\n");
    host.kernelRelease = "3.0.101-63-default";

    gather();

    EXPECT_EQ(facts.group("validateDistribution"), std::nullopt);
    EXPECT_EQ(facts.group("validateLinuxKernelVersion"),
              (Entries{{"kernel version", "3.0.101-63-default"}}));
}

TEST_F(RuntimeGatherer, ListsPackagesWithCommas)
{
    packages(
        "bash-4.3\nlibstdc++6-5.3.1+r233831-10.1.x86_64\nlibgcc_s1-5.3.1+r233831-10.1.x86_64\n"
        "libstdc++48-4.8.5\ncompat-kor-c++-6-6.3.1-1.el7_3.x86_64\n");

    facts.gatherRuntimeInfo();

    EXPECT_EQ(
        facts.group("validateRuntime"),
        (Entries{{"rpm libstd list", "libstdc++6-5.3.1+r233831-10.1.x86_64,libstdc++48-4.8.5"},
                 {"rpm libgcc list", "libgcc_s1-5.3.1+r233831-10.1.x86_64"},
                 {"rpm compat-kor list", "compat-kor-c++-6-6.3.1-1.el7_3.x86_64"}}));
    EXPECT_EQ(plain(facts.getRpmlibstdList()),
              "libstdc++6-5.3.1+r233831-10.1.x86_64,libstdc++48-4.8.5");
    EXPECT_EQ(plain(facts.getRpmlibgccList()), "libgcc_s1-5.3.1+r233831-10.1.x86_64");
    EXPECT_EQ(plain(facts.getRpmCompatkorList()), "compat-kor-c++-6-6.3.1-1.el7_3.x86_64");
    EXPECT_EQ(facts.pending(), Entries{});
}

TEST_F(RuntimeGatherer, HasEmptyListsWithoutSuchPackages)
{
    packages("bash-4.3\n");

    facts.gatherRuntimeInfo();

    EXPECT_EQ(
        facts.group("validateRuntime"),
        (Entries{{"rpm libstd list", ""}, {"rpm libgcc list", ""}, {"rpm compat-kor list", ""}}));
}

TEST_F(RuntimeGatherer, HasEmptyListsWithoutRpm)
{
    host.remove("/usr/bin/rpm");
    testing::internal::CaptureStderr();
    facts.gatherRuntimeInfo();
    const std::string diagnostics = testing::internal::GetCapturedStderr();

    EXPECT_EQ(
        facts.group("validateRuntime"),
        (Entries{{"rpm libstd list", ""}, {"rpm libgcc list", ""}, {"rpm compat-kor list", ""}}));
    EXPECT_NE(diagnostics.find("rpm"), std::string::npos);
}

TEST_F(RuntimeGatherer, LosesTheLastCharacterWhateverItIs)
{
    packages("anything\n");
    host.remove("/usr/bin/grep");
    host.script("grep", "printf 'one\\n\\ntwo'\n");

    facts.gatherRuntimeInfo();

    EXPECT_EQ(plain(facts.getRpmlibstdList()), "one,,tw");
}

TEST_F(RuntimeGatherer, LeavesNothingOfASingleCharacter)
{
    packages("anything\n");
    host.remove("/usr/bin/grep");
    host.script("grep", "printf '\\n'\n");

    facts.gatherRuntimeInfo();

    EXPECT_EQ(plain(facts.getRpmlibstdList()), "");
    EXPECT_EQ(plain(facts.getRpmlibgccList()), "");
    EXPECT_EQ(plain(facts.getRpmCompatkorList()), "");
}

TEST_F(OsGatherer, TakesTheClockSourceTrimmed)
{
    host.file(clockFile, " tsc \n");

    facts.gatherClockSourceInfo();

    EXPECT_EQ(plain(facts.getClockInfo()), "tsc");
    EXPECT_EQ(facts.group("validateClocksource"), (Entries{{"clock info", "tsc"}}));
    EXPECT_EQ(facts.pending(), Entries{});
}

TEST_F(OsGatherer, KeepsTheFirstClockSourceInTheGroupAndTheLastInTheMember)
{
    host.file(clockFile, "tsc\nhpet\n");

    facts.gatherClockSourceInfo();

    EXPECT_EQ(plain(facts.getClockInfo()), "hpet");
    EXPECT_EQ(facts.group("validateClocksource"), (Entries{{"clock info", "tsc"}}));
}

TEST_F(OsGatherer, StoresNoClockSourceOfAnEmptyOrMissingFile)
{
    facts.gatherClockSourceInfo();
    EXPECT_EQ(facts.group("validateClocksource"), std::nullopt);

    host.file(clockFile, "");
    facts.gatherClockSourceInfo();
    EXPECT_EQ(facts.group("validateClocksource"), std::nullopt);
}

TEST_F(OsGatherer, TakesAClockSourceWithoutLineEnd)
{
    host.file(clockFile, "tsc");

    facts.gatherClockSourceInfo();

    EXPECT_EQ(facts.group("validateClocksource"), (Entries{{"clock info", "tsc"}}));
}

TEST_F(OsGatherer, TakesADirectoryForAFileWithoutLines)
{
    for (const char* path : {suseFile, redHatFile, clockFile, hugePageFile})
        host.file(plain(path) + "/inside", "SUSE\n");

    gather();
    facts.gatherClockSourceInfo();
    facts.gatherTHPInfo();

    EXPECT_EQ(facts.group("validateDistribution"), std::nullopt);
    EXPECT_EQ(facts.group("validateClocksource"), std::nullopt);
    EXPECT_EQ(facts.group("validateTHP"), (Entries{{"thp", ""}}));
}

TEST_F(OsGatherer, StoresAnEmptyLineAsClockSource)
{
    host.file(clockFile, "\n");

    facts.gatherClockSourceInfo();

    EXPECT_EQ(facts.group("validateClocksource"), (Entries{{"clock info", ""}}));
}

TEST_F(OsGatherer, TakesTheHugePageSwitchWithItsBrackets)
{
    host.file(hugePageFile, "always [madvise] never\n");

    facts.gatherTHPInfo();

    EXPECT_EQ(plain(facts.getThp()), "always [madvise] never");
    EXPECT_EQ(facts.group("validateTHP"), (Entries{{"thp", "always [madvise] never"}}));
    EXPECT_EQ(facts.pending(), Entries{});
}

TEST_F(OsGatherer, TakesTheLastLineOfTheHugePageSwitchForBoth)
{
    host.file(hugePageFile, "first\n last \t\n");

    facts.gatherTHPInfo();

    EXPECT_EQ(plain(facts.getThp()), "last");
    EXPECT_EQ(facts.group("validateTHP"), (Entries{{"thp", "last"}}));
}

TEST_F(OsGatherer, StoresAnEmptyHugePageSwitchWithoutItsFile)
{
    facts.gatherTHPInfo();

    EXPECT_EQ(facts.group("validateTHP"), (Entries{{"thp", ""}}));
}

}  // namespace vetraTests
