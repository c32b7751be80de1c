// Facts of the platform: hypervisor, frequency settings, product name.

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>
#include <stdexcept>

#include "CapturedOutput.h"
#include "FailingAllocator.h"
#include "FakeHost.h"
#include "HostFacts.h"

namespace vetraTests {

namespace {

constexpr const char* dumpPath = "/usr/kor/K01/SYS/global/zdb/install/hwinfo/bios_zirn01.txt";
constexpr const char* frequencyFile = "/sys/devices/system/cpu/cpu0/cpufreq/scaling_max_freq";
constexpr const char* driverFile = "/sys/devices/system/cpu/cpu0/cpufreq/scaling_driver";
constexpr const char* governorFile = "/sys/devices/system/cpu/cpu0/cpufreq/scaling_governor";

class PlatformTest : public testing::Test {
protected:
    void SetUp() override
    {
        setEnvironment("KORSYSTEMNAME", "K01");
        setEnvironment("HOST", "zirn01");
    }

    FakeHost host;
    std::shared_ptr<Basis::Allocator> domain = testDomain();
    HostFacts facts{*domain};
};

class HypervisorGatherer : public PlatformTest {
protected:
    void scan(std::string_view output)
    {
        host.answer("./scanhypervisorCheck", "", output);
        facts.gatherHypervisorInfo();
    }
};

class GovernorGatherer : public PlatformTest {
protected:
    std::string maximumOf(const std::string& text)
    {
        std::istringstream file(text);
        facts.readMaxFrequency(file);
        return plain(facts.getMaxFreq());
    }

    void frequencies(std::string_view output)
    {
        host.answer("/usr/sbin/dmidecode", "-s processor-frequency", output);
    }
};

class ProductGatherer : public PlatformTest {
protected:
    std::string productIn(std::string_view text)
    {
        facts.readProductName(text);
        return plain(facts.getProductName());
    }

    void tables(std::string_view output) { host.answer("/usr/sbin/dmidecode", "", output); }
};

// Files are opened with the rights of an ordinary user while it lives.
class OrdinaryUser {
public:
    OrdinaryUser()
    {
        if (::geteuid() == 0)
            isChanged = ::seteuid(65534) == 0;
    }
    ~OrdinaryUser()
    {
        if (isChanged)
            isChanged = ::seteuid(0) != 0;
    }
    OrdinaryUser(const OrdinaryUser&) = delete;
    OrdinaryUser& operator=(const OrdinaryUser&) = delete;

private:
    bool isChanged = false;
};

}  // namespace

TEST_F(HypervisorGatherer, TakesNameAndVendorFromTheScanner)
{
    scan("Hypervisor: VMware \nVendor ID:\tVMwareVMware\n");

    EXPECT_EQ(plain(facts.getHypervisor()), "VMware");
    EXPECT_EQ(plain(facts.getHyVendorId()), "VMwareVMware");
    EXPECT_EQ(facts.group("validateHypervisor"),
              (Entries{{"hypervisor", "VMware"}, {"vendor id", "VMwareVMware"}}));
    EXPECT_EQ(facts.pending(), Entries{});
}

TEST_F(HypervisorGatherer, KeepsEmptyValuesOfBareMetal)
{
    scan("Hypervisor: \nVendor ID: \n");

    EXPECT_EQ(facts.group("validateHypervisor"), (Entries{{"hypervisor", ""}, {"vendor id", ""}}));
}

TEST_F(HypervisorGatherer, FillsBothFactsFromALineWithBothWords)
{
    scan("Hypervisor Vendor ID: a: b\n");

    EXPECT_EQ(plain(facts.getHypervisor()), "a: b");
    EXPECT_EQ(plain(facts.getHyVendorId()), "a: b");
}

TEST_F(HypervisorGatherer, TakesTheLastLineOfEachKind)
{
    scan("Hypervisor: one\nHypervisor: two\nVendor ID: three\nVendor ID: four\n");

    EXPECT_EQ(facts.group("validateHypervisor"),
              (Entries{{"hypervisor", "two"}, {"vendor id", "four"}}));
}

TEST_F(HypervisorGatherer, TakesALineWithoutColonWhole)
{
    scan("Hypervisor none \n");

    EXPECT_EQ(plain(facts.getHypervisor()), "Hypervisor none");
}

TEST_F(HypervisorGatherer, HeedsTheCaseOfItsWords)
{
    scan("hypervisor: a\nHYPERVISOR: b\nvendor id: c\nVendor Id: d\n");

    EXPECT_EQ(facts.group("validateHypervisor"), (Entries{{"hypervisor", ""}, {"vendor id", ""}}));
}

TEST_F(HypervisorGatherer, RunsNothingWithoutAScanner)
{
    facts.gatherHypervisorInfo();

    EXPECT_EQ(facts.group("validateHypervisor"), (Entries{{"hypervisor", ""}, {"vendor id", ""}}));
    EXPECT_EQ(host.takeLog(), std::vector<std::string>{"scanhypervisorCheck"});
}

TEST_F(HypervisorGatherer, TakesAScannerThatCannotBeWrittenForAMissingOne)
{
    using std::filesystem::perms;
    host.answer("./scanhypervisorCheck", "", "Hypervisor: VMware\nVendor ID: VMwareVMware\n");
    std::filesystem::permissions(host.directory(), perms::all);
    std::filesystem::permissions(
        host.directory() / "scanhypervisorCheck",
        perms::owner_read | perms::owner_exec | perms::others_read | perms::others_exec);
    host.takeLog();

    {
        const OrdinaryUser user;
        facts.gatherHypervisorInfo();
    }

    EXPECT_EQ(facts.group("validateHypervisor"), (Entries{{"hypervisor", ""}, {"vendor id", ""}}));
    EXPECT_EQ(host.takeLog(), std::vector<std::string>{"scanhypervisorCheck"});
}

TEST_F(HypervisorGatherer, FindsNothingInTheMessageAboutAScannerThatCannotBeRun)
{
    const CapturedOutput output;
    host.file("scanhypervisorCheck", "Hypervisor: VMware\nVendor ID: VMwareVMware\n");

    facts.gatherHypervisorInfo();

    EXPECT_EQ(facts.group("validateHypervisor"), (Entries{{"hypervisor", ""}, {"vendor id", ""}}));
    EXPECT_EQ(host.takeLog(),
              (std::vector<std::string>{"scanhypervisorCheck", "$ ./scanhypervisorCheck 2>&1"}));
    EXPECT_EQ(output.text(), "");
}

TEST_F(HypervisorGatherer, StoresAnEmptyGroupOnAnotherArchitecture)
{
    host.machine = "ppc64le";
    scan("Hypervisor: VMware\nVendor ID: VMwareVMware\n");

    EXPECT_EQ(facts.group("validateHypervisor"), Entries{});
    EXPECT_EQ(host.takeLog(), std::vector<std::string>{});
}

TEST_F(HypervisorGatherer, GoesOnWithWhatItHasAfterAnException)
{
    FailingAllocator failing;
    HostFacts fragile(failing);
    const std::string name(180, 'h');
    host.answer("./scanhypervisorCheck", "", "Vendor ID: XEN\nHypervisor: " + name + "\n");
    // The first block of that size is the output, the second the name.
    failing.throwAtAllocationOf(150, 1, std::make_exception_ptr(std::length_error("too long")));

    const CapturedOutput output;
    fragile.gatherHypervisorInfo();

    EXPECT_FALSE(failing.isArmed());
    EXPECT_EQ(output.text(),
              "Cannot determine hypervisor, because scanhypervisor program is not executable. "
              "Continue ...too long\n");
    EXPECT_EQ(fragile.group("validateHypervisor"),
              (Entries{{"hypervisor", ""}, {"vendor id", "XEN"}}));
}

TEST_F(GovernorGatherer, TakesKilohertzForWholeMegahertz)
{
    EXPECT_EQ(maximumOf("2600000\n"), "2600");
    EXPECT_EQ(maximumOf(" 2599999 \n"), "2599");
    EXPECT_EQ(maximumOf("999\n"), "0");
    EXPECT_EQ(maximumOf("-1999\n"), "-1");
    EXPECT_EQ(maximumOf("unknown\n"), "0");
}

TEST_F(GovernorGatherer, CutsKilohertzToThirtyTwoBitsBeforeTheDivision)
{
    EXPECT_EQ(maximumOf("4294967296\n"), "0");
    EXPECT_EQ(maximumOf("4294969296\n"), "2");
    EXPECT_EQ(maximumOf("2147483648\n"), "-2147483");
}

TEST_F(GovernorGatherer, KeepsTheFirstMaximumInTheEntryAndTheLastInTheMember)
{
    EXPECT_EQ(maximumOf("1000000\n2000000\n"), "2000");

    EXPECT_EQ(facts.pending(), (Entries{{"max freq", "1000"}}));
}

TEST_F(GovernorGatherer, HasNoMaximumInAnEmptyFile)
{
    EXPECT_EQ(maximumOf(""), "");
    EXPECT_EQ(facts.pending(), Entries{});
}

TEST_F(GovernorGatherer, StoresAllItsFacts)
{
    host.file(frequencyFile, "2600000\n");
    host.file(driverFile, " intel_pstate\n");
    host.file(governorFile, "performance \n");
    host.file("/proc/cmdline", "quiet intel_idle.max_cstate=1 \n");
    frequencies("2600 MHz\n2601 MHz\n");

    facts.gatherCPUgovernorInfo();

    EXPECT_EQ(facts.group("validateCPUgovernor"),
              (Entries{{"max freq", "2600"},
                       {"scaling driver", "intel_pstate"},
                       {"scaling governor", "performance"},
                       {"proc cmdline", "quiet intel_idle.max_cstate=1"},
                       {"dimmfreq list", "2600,2601"}}));
    EXPECT_EQ(plain(facts.getMaxFreq()), "2600");
    EXPECT_EQ(plain(facts.getScalingDriver()), "intel_pstate");
    EXPECT_EQ(plain(facts.getScalingGovernor()), "performance");
    EXPECT_EQ(plain(facts.getProcCmdline()), "quiet intel_idle.max_cstate=1");
    EXPECT_EQ(plain(facts.getDimmfreqList()), "2600,2601");
    EXPECT_EQ(facts.pending(), Entries{});
}

TEST_F(GovernorGatherer, StoresAnEmptyGroupWithoutAnySource)
{
    facts.gatherCPUgovernorInfo();

    EXPECT_EQ(facts.group("validateCPUgovernor"), Entries{});
    EXPECT_EQ(plain(facts.produceJson(facts.factGroups)),
              "{\n   \"validateCPUgovernor\" : {\n   }\n}\n");
}

TEST_F(GovernorGatherer, HasNothingButFrequenciesWithoutScaling)
{
    frequencies("2600 MHz\n");

    facts.gatherCPUgovernorInfo();

    EXPECT_EQ(facts.group("validateCPUgovernor"), (Entries{{"dimmfreq list", "2600"}}));
}

TEST_F(GovernorGatherer, PassesQuotationMarksIntoTheDocument)
{
    host.file("/proc/cmdline", "dyndbg=\"file drivers/*.c +p\" quiet\n");

    facts.gatherCPUgovernorInfo();

    EXPECT_EQ(plain(facts.produceJson(facts.factGroups)),
              "{\n"
              "   \"validateCPUgovernor\" : {\n"
              "      \"proc cmdline\" :\"dyndbg=\"file drivers/*.c +p\" quiet\"\n"
              "   }\n"
              "}\n");
}

TEST_F(GovernorGatherer, ReadsFrequenciesUpToTheirFirstBlank)
{
    facts.readProcessorFrequencies("2600 MHz\n 2601 MHz\n2602MHz\nabout 3 MHz\n\n");

    EXPECT_EQ(plain(facts.getDimmfreqList()), "2600,0,2602,0,0");
}

TEST_F(GovernorGatherer, HasNoEntryForNoFrequencies)
{
    facts.readProcessorFrequencies("");

    EXPECT_EQ(plain(facts.getDimmfreqList()), "");
    EXPECT_EQ(facts.pending(), Entries{});
}

TEST_F(GovernorGatherer, TakesFrequenciesOfTheDumpIfTheCommandPrintsNothing)
{
    host.file(dumpPath,
              "Max Speed: 4000 MHz\n  Current Speed: 2600 MHz\nCurrent Speed: Unknown\n"
              "Speed: 2133 MHz\nCurrent Speed: 2700 MHz \n");

    facts.gatherCPUgovernorInfo();

    EXPECT_EQ(facts.group("validateCPUgovernor"), (Entries{{"dimmfreq list", "2600,2700"}}));
}

TEST_F(GovernorGatherer, LeavesTheDumpAloneIfTheCommandPrintsSomething)
{
    frequencies("2600 MHz\n");
    host.file(dumpPath, "Current Speed: 2700 MHz\n");

    facts.gatherCPUgovernorInfo();

    EXPECT_EQ(facts.group("validateCPUgovernor"), (Entries{{"dimmfreq list", "2600"}}));
}

TEST_F(GovernorGatherer, AnEmptyFrequencyAloneInTheDumpGivesNoEntry)
{
    host.file(dumpPath, "Current Speed in MHz: \n");

    facts.gatherCPUgovernorInfo();

    EXPECT_EQ(facts.group("validateCPUgovernor"), Entries{});
}

TEST_F(GovernorGatherer, AnEmptyFrequencyAtTheEndOfTheDumpGivesNoLine)
{
    host.file(dumpPath, "Current Speed: 2600 MHz\nCurrent Speed in MHz: \n");

    facts.gatherCPUgovernorInfo();

    EXPECT_EQ(facts.group("validateCPUgovernor"), (Entries{{"dimmfreq list", "2600"}}));
}

TEST_F(ProductGatherer, TakesTheTextBehindTheFirstColon)
{
    EXPECT_EQ(productIn("Product Name: PowerEdge R920"), "PowerEdge R920");
    EXPECT_EQ(productIn("Product Name:\t a: b "), "a: b");
    EXPECT_EQ(productIn("Product Name:"), "");
}

TEST_F(ProductGatherer, TakesATextWithoutColonWhole)
{
    EXPECT_EQ(productIn(" PowerEdge R920 "), "PowerEdge R920");
    EXPECT_EQ(productIn(""), "");
}

TEST_F(ProductGatherer, CutsAnAssetTagOff)
{
    EXPECT_EQ(productIn("Product Name: System x3950 X6 -[3837AC4]-"), "System x3950 X6");
    EXPECT_EQ(productIn("Product Name: a -[b]- -[c]-"), "a");
    EXPECT_EQ(productIn("Product Name: -[7145]-"), "");
    EXPECT_EQ(productIn("Product Name: 738325Z]-"), "738325Z]-");
    EXPECT_EQ(productIn("Product Name: Express5800/A1080a [NE3100-xxxx]"),
              "Express5800/A1080a [NE3100-xxxx]");
}

TEST_F(ProductGatherer, TakesTheFirstNameOfTheTables)
{
    tables(
        "System Information\n\tManufacturer: Somebody\n\tProduct Name: PowerEdge R920\n"
        "Base Board\n\tProduct Name: 0Y4CJF\n");

    facts.gatherApplianceSystemTypeInfo();

    EXPECT_EQ(plain(facts.getProductName()), "PowerEdge R920");
    EXPECT_EQ(facts.group("validateApplianceSystemType"),
              (Entries{{"Product Name", "PowerEdge R920"}}));
    EXPECT_EQ(facts.pending(), Entries{});
}

TEST_F(ProductGatherer, EmptiesTheGroupUnderConstructionFirst)
{
    tables("\tProduct Name: PowerEdge R920\n");
    facts.insert("Product Name", "left by another gatherer");
    facts.insert("foreign", "left by another gatherer");

    facts.gatherApplianceSystemTypeInfo();

    EXPECT_EQ(facts.group("validateApplianceSystemType"),
              (Entries{{"Product Name", "PowerEdge R920"}}));
}

TEST_F(ProductGatherer, TakesTheLastNameAtTheBeginningOfADumpLine)
{
    host.file(dumpPath,
              "Product Name: first\nProduct Name: PowerEdge R930 \n"
              "\tProduct Name: indented\n Product Name: indented\nproduct Name: no\n");

    facts.gatherApplianceSystemTypeInfo();

    EXPECT_EQ(plain(facts.getProductName()), "PowerEdge R930");
}

TEST_F(ProductGatherer, LeavesTheDumpAloneIfTheTablesHoldALine)
{
    tables("\tProduct Name:   \n");
    host.file(dumpPath, "Product Name: PowerEdge R930\n");

    facts.gatherApplianceSystemTypeInfo();

    EXPECT_EQ(plain(facts.getProductName()), "");
}

TEST_F(ProductGatherer, StoresAnEmptyNameWithoutAnySource)
{
    facts.gatherApplianceSystemTypeInfo();

    EXPECT_EQ(facts.group("validateApplianceSystemType"), (Entries{{"Product Name", ""}}));
}

}  // namespace vetraTests
