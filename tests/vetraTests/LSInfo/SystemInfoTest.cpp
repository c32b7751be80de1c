// The store itself: its accessors, the order of gathering, and the fact document.

#include "vetraTests/LSInfo/SystemInfo.h"

#include <gtest/gtest.h>

#include <new>

#include "FailingAllocator.h"
#include "FakeHost.h"
#include "HostFacts.h"

namespace vetraTests {

namespace {

class SystemInfoTest : public testing::Test {
protected:
    std::shared_ptr<Basis::Allocator> domain = testDomain();
    HostFacts facts{*domain};
};

using Accessor = string (SystemInfo::*)() const;

struct NamedFact {
    Accessor accessor;
    string HostFacts::*member;
};

// All facts that are text, in the order of the members.
const NamedFact textFacts[] = {
    {&SystemInfo::getDistribution, &HostFacts::distribution},
    {&SystemInfo::getVersion, &HostFacts::version},
    {&SystemInfo::getPatchLevel, &HostFacts::patchLevel},
    {&SystemInfo::getKernelVersion, &HostFacts::kernelVersion},
    {&SystemInfo::getMajorVersion, &HostFacts::majorVersion},
    {&SystemInfo::getMinorVersion, &HostFacts::minorVersion},
    {&SystemInfo::getKernelRelease, &HostFacts::kernelRelease},
    {&SystemInfo::getClockInfo, &HostFacts::clockInfo},
    {&SystemInfo::getCPUCores, &HostFacts::cpuCores},
    {&SystemInfo::getCPUFamily, &HostFacts::cpuFamily},
    {&SystemInfo::getCPUSpeed, &HostFacts::cpuSpeed},
    {&SystemInfo::getCPUFlags, &HostFacts::cpuFlags},
    {&SystemInfo::getLPCount, &HostFacts::lpCount},
    {&SystemInfo::getModel, &HostFacts::model},
    {&SystemInfo::getModelName, &HostFacts::modelName},
    {&SystemInfo::getPhysicalId, &HostFacts::physicalId},
    {&SystemInfo::getProcessor, &HostFacts::processor},
    {&SystemInfo::getSocketCount, &HostFacts::socketCount},
    {&SystemInfo::getVendorId, &HostFacts::vendorId},
    {&SystemInfo::getCPUName, &HostFacts::cpuName},
    {&SystemInfo::getCPUVersion, &HostFacts::cpuVersion},
    {&SystemInfo::getCpus, &HostFacts::cpus},
    {&SystemInfo::getCpuMode, &HostFacts::cpuMode},
    {&SystemInfo::getCpuModeNum, &HostFacts::cpuModeNum},
    {&SystemInfo::getServerModel, &HostFacts::serverModel},
    {&SystemInfo::getHypervisor, &HostFacts::hypervisor},
    {&SystemInfo::getHyVendorId, &HostFacts::hyVendorId},
    {&SystemInfo::getPPChypervisorVendor, &HostFacts::ppcHypervisorVendor},
    {&SystemInfo::getThp, &HostFacts::thp},
    {&SystemInfo::getProductName, &HostFacts::productName},
    {&SystemInfo::getCpuCoresCount, &HostFacts::cpuCoresCount},
    {&SystemInfo::getPPCount, &HostFacts::ppCount},
    {&SystemInfo::getLparType, &HostFacts::lparType},
    {&SystemInfo::getAms, &HostFacts::ams},
    {&SystemInfo::getAme, &HostFacts::ame},
    {&SystemInfo::getPowerMode, &HostFacts::powerMode},
    {&SystemInfo::getRpmCompatkorList, &HostFacts::rpmCompatkorList},
    {&SystemInfo::getRpmlibgccList, &HostFacts::rpmlibgccList},
    {&SystemInfo::getRpmlibstdList, &HostFacts::rpmlibstdList},
    {&SystemInfo::getDimmSize, &HostFacts::dimmSize},
    {&SystemInfo::getDimmSpeedphysical, &HostFacts::dimmSpeedphysical},
    {&SystemInfo::getDimmsizeListItems, &HostFacts::dimmsizeListItems},
    {&SystemInfo::getDimmsizeListLength, &HostFacts::dimmsizeListLength},
    {&SystemInfo::getNodesizeListItems, &HostFacts::nodesizeListItems},
    {&SystemInfo::getDimmfreqList, &HostFacts::dimmfreqList},
    {&SystemInfo::getMaxFreq, &HostFacts::maxFreq},
    {&SystemInfo::getProcCmdline, &HostFacts::procCmdline},
    {&SystemInfo::getScalingDriver, &HostFacts::scalingDriver},
    {&SystemInfo::getScalingGovernor, &HostFacts::scalingGovernor},
    {&SystemInfo::getCoreMemoryRatio, &HostFacts::coreMemoryRatio},
    {&SystemInfo::getTotalMemory, &HostFacts::totalMemory},
    {&SystemInfo::getPowerModelInfo, &HostFacts::powerModelInfo},
    {&SystemInfo::getPowerModelName, &HostFacts::powerModelName},
    {&SystemInfo::getPowerModelKORCLS, &HostFacts::powerModelKORCLS},
    {&SystemInfo::getPowerModelMXCPU, &HostFacts::powerModelMXCPU},
    {&SystemInfo::getPowerModelMXMEM, &HostFacts::powerModelMXMEM},
    {&SystemInfo::getPowerModelCPUGN, &HostFacts::powerModelCPUGN},
};
static_assert(std::size(textFacts) == 57);

// The facts that only a gatherer for another architecture could fill.
const Accessor unusedFacts[] = {
    &SystemInfo::getCPUName,
    &SystemInfo::getCPUVersion,
    &SystemInfo::getCpus,
    &SystemInfo::getCpuMode,
    &SystemInfo::getCpuModeNum,
    &SystemInfo::getServerModel,
    &SystemInfo::getLparType,
    &SystemInfo::getPPChypervisorVendor,
    &SystemInfo::getAms,
    &SystemInfo::getAme,
    &SystemInfo::getPowerMode,
    &SystemInfo::getPowerModelInfo,
    &SystemInfo::getPowerModelName,
    &SystemInfo::getPowerModelKORCLS,
    &SystemInfo::getPowerModelMXCPU,
    &SystemInfo::getPowerModelMXMEM,
    &SystemInfo::getPowerModelCPUGN,
};
static_assert(std::size(unusedFacts) == 17);

}  // namespace

TEST_F(SystemInfoTest, IsEmptyBeforeAnythingWasGathered)
{
    for (std::size_t i = 0; i < std::size(textFacts); ++i)
        EXPECT_EQ(plain((facts.*textFacts[i].accessor)()), "") << "fact " << i;
    EXPECT_EQ(facts.getSmt(), 0);
    EXPECT_EQ(facts.getPPCTotalMemory(), 0);
    EXPECT_EQ(plain(facts.getBiosFileName()), "");
    EXPECT_TRUE(facts.factGroups.empty());
    EXPECT_TRUE(facts.currentGroup.empty());
    EXPECT_EQ(plain(facts.jsonText), "");
    EXPECT_EQ(plain(facts.memTotalKb), "");
}

TEST_F(SystemInfoTest, EachAccessorReturnsItsOwnMember)
{
    for (std::size_t i = 0; i < std::size(textFacts); ++i)
        (facts.*textFacts[i].member).assign("fact number ").append(std::to_string(i));
    facts.smt = -2147483647;
    facts.ppcTotalMemory = 4294967296;

    for (std::size_t i = 0; i < std::size(textFacts); ++i)
        EXPECT_EQ(plain((facts.*textFacts[i].accessor)()), "fact number " + std::to_string(i));
    EXPECT_EQ(facts.getSmt(), -2147483647);
    EXPECT_EQ(facts.getPPCTotalMemory(), 4294967296);
}

TEST_F(SystemInfoTest, AccessorsReturnCopiesInTheDomainOfTheStore)
{
    for (std::size_t i = 0; i < std::size(textFacts); ++i) {
        const string copy = (facts.*textFacts[i].accessor)();
        EXPECT_EQ(copy.get_allocator().resource(), domain.get()) << "fact " << i;
    }
}

TEST_F(SystemInfoTest, ArchitectureIsX86ForAMachineWithTheseLettersAnywhere)
{
    FakeHost host;
    for (const char* machine : {"x86_64", "x86", "vax86"}) {
        host.machine = machine;
        EXPECT_EQ(plain(facts.getArch()), "x86") << machine;
    }
}

TEST_F(SystemInfoTest, ArchitectureIsNotValidForAnyOtherMachine)
{
    FakeHost host;
    for (const char* machine : {"ppc64le", "aarch64", "i686", "X86_64", "x_86", ""}) {
        host.machine = machine;
        EXPECT_EQ(plain(facts.getArch()), "not valid") << machine;
    }
}

TEST_F(SystemInfoTest, GathersNothingOnAnotherArchitecture)
{
    FakeHost host;
    host.machine = "ppc64le";
    host.file("/proc/cpuinfo", "processor : 0\n");
    host.file("/etc/SuSE-release", "SUSE Linux Enterprise Server 12 (ppc64le)\nPATCHLEVEL = 1\n");

    EXPECT_EQ(plain(facts.gatherInfo()), "{\n}\n");

    for (std::size_t i = 0; i < std::size(textFacts); ++i)
        EXPECT_EQ(plain((facts.*textFacts[i].accessor)()), "") << "fact " << i;
    EXPECT_EQ(facts.getSmt(), 0);
    EXPECT_EQ(facts.getPPCTotalMemory(), 0);
    EXPECT_EQ(host.takeLog(), std::vector<std::string>{});
}

TEST_F(SystemInfoTest, GathersInItsFixedOrder)
{
    FakeHost host;
    host.answer("./scanhypervisorCheck", "", "Hypervisor:\nVendor ID:\n");
    host.answer("/usr/sbin/dmidecode", "", "\tProduct Name: SR950\n");
    host.answer("/usr/sbin/dmidecode", "--type 17", "\tSize: 32 GB\n\tSpeed: 2133 MHz\n");
    host.answer("/usr/sbin/dmidecode", "-s processor-frequency", "2600 MHz\n");
    host.answer("rpm", "-qa", "");
    host.answer("numactl", "--hardware", "");

    facts.gatherInfo();

    const std::vector<std::string> expected = {
        "/etc/SuSE-release",
        "/etc/redhat-release",
        "/sys/devices/system/clocksource/clocksource0/current_clocksource",
        "/proc/cpuinfo",
        "/proc/meminfo",
        "scanhypervisorCheck",
        "$ ./scanhypervisorCheck 2>&1",
        "$ /usr/sbin/dmidecode | grep \"Product Name\" | head -1 2>&1",
        "/sys/kernel/mm/transparent_hugepage/enabled",
        "$ rpm -qa | grep libstd 2>&1",
        "$ rpm -qa | grep libgcc 2>&1",
        "$ rpm -qa | grep compat-kor 2>&1",
        "$ /usr/sbin/dmidecode --type 17 | grep \"Size\" | grep \"MB\" 2>&1",
        "$ /usr/sbin/dmidecode --type 17 | grep \"Size\" | grep \"GB\" 2>&1",
        "$ /usr/sbin/dmidecode --type 17 | grep \"Speed\" 2>&1",
        "$ numactl --hardware | grep \"size\" | grep \"MB\" 2>&1",
        "/sys/devices/system/cpu/cpu0/cpufreq/scaling_max_freq",
        "/sys/devices/system/cpu/cpu0/cpufreq/scaling_driver",
        "/sys/devices/system/cpu/cpu0/cpufreq/scaling_governor",
        "/proc/cmdline",
        "$ /usr/sbin/dmidecode -s processor-frequency | grep \"MHz\" 2>&1",
    };
    EXPECT_EQ(host.takeLog(), expected);
}

TEST_F(SystemInfoTest, LeavesNoFactInThePlacesOfAnotherArchitecture)
{
    FakeHost host;
    host.file("/proc/cpuinfo", "processor : 0\ncpu : POWER8\nmodel : 8247-22L\n");
    host.file("/proc/meminfo", "MemTotal: 1048576 kB\n");

    facts.gatherInfo();

    for (std::size_t i = 0; i < std::size(unusedFacts); ++i)
        EXPECT_EQ(plain((facts.*unusedFacts[i])()), "") << "fact " << i;
    EXPECT_EQ(facts.getSmt(), 0);
    EXPECT_EQ(facts.getPPCTotalMemory(), 0);
}

TEST_F(SystemInfoTest, StoresAllThirteenGroupsOfAHostThatShowsNothing)
{
    FakeHost host;
    host.file("/sys/devices/system/clocksource/clocksource0/current_clocksource", "tsc\n");
    host.file("/etc/redhat-release", "Red Hat Enterprise Linux Server release 7.3 (Maipo)\n");
    host.kernelRelease = "3.10.0-514.el7.x86_64";

    EXPECT_EQ(
        plain(facts.gatherInfo()),
        "{\n"
        "   \"validateApplianceSystemType\" : {\n"
        "      \"Product Name\" :\"\"\n"
        "   }\n"
        "   ,\"validateCPU\" : {\n"
        "      \"cpu speed\" :\"\"\n"
        "      ,\"logical processor count\" :\"0\"\n"
        "      ,\"socket count\" :\"0\"\n"
        "   }\n"
        "   ,\"validateCPUgovernor\" : {\n"
        "   }\n"
        "   ,\"validateClocksource\" : {\n"
        "      \"clock info\" :\"tsc\"\n"
        "   }\n"
        "   ,\"validateCoreMemoryRatio\" : {\n"
        "      \"Core Memory Ratio\" :\"-2147483648\"\n"
        "      ,\"Total Memory\" :\"\"\n"
        "   }\n"
        "   ,\"validateDistribution\" : {\n"
        "      \"Distribution name\" :\"Red Hat Enterprise Linux Server release 7.3 (Maipo)\"\n"
        "      ,\"Patchlevel\" :\"3\"\n"
        "      ,\"Version\" :\"Red Hat Enterprise Linux Server release 7\"\n"
        "   }\n"
        "   ,\"validateHTT\" : {\n"
        "      \"cpu cores count\" :\"0\"\n"
        "      ,\"physical processor count\" :\"0\"\n"
        "      ,\"socket count\" :\"0\"\n"
        "   }\n"
        "   ,\"validateHypervisor\" : {\n"
        "      \"hypervisor\" :\"\"\n"
        "      ,\"vendor id\" :\"\"\n"
        "   }\n"
        "   ,\"validateLinuxKernelVersion\" : {\n"
        "      \"kernel release\" :\"514\"\n"
        "      ,\"kernel version\" :\"3\"\n"
        "      ,\"major version\" :\"10\"\n"
        "      ,\"minor version\" :\"0\"\n"
        "   }\n"
        "   ,\"validateMemory\" : {\n"
        "      \"dimmSize\" :\"0\"\n"
        "      ,\"dimmsize list length\" :\"0\"\n"
        "   }\n"
        "   ,\"validateMemoryDistribution\" : {\n"
        "      \"nodesize list items\" :\"\"\n"
        "   }\n"
        "   ,\"validateRuntime\" : {\n"
        "      \"rpm compat-kor list\" :\"\"\n"
        "      ,\"rpm libgcc list\" :\"\"\n"
        "      ,\"rpm libstd list\" :\"\"\n"
        "   }\n"
        "   ,\"validateTHP\" : {\n"
        "      \"thp\" :\"\"\n"
        "   }\n"
        "}\n");
}

TEST_F(SystemInfoTest, KeepsTheDocumentThatItReturns)
{
    FakeHost host;

    const string document = facts.gatherInfo();

    EXPECT_EQ(facts.jsonText, document);
    EXPECT_EQ(document.get_allocator().resource(), domain.get());
    EXPECT_TRUE(facts.currentGroup.empty());
}

TEST_F(SystemInfoTest, ASecondGatheringRefreshesMembersButNoEntries)
{
    FakeHost host;
    host.file("/sys/kernel/mm/transparent_hugepage/enabled", "[always] madvise never\n");
    const string first = facts.gatherInfo();
    host.file("/sys/kernel/mm/transparent_hugepage/enabled", "always madvise [never]\n");
    host.file("/sys/devices/system/clocksource/clocksource0/current_clocksource", "tsc\n");

    const string second = facts.gatherInfo();

    EXPECT_EQ(plain(facts.getThp()), "always madvise [never]");
    EXPECT_EQ(facts.group("validateTHP"), (Entries{{"thp", "[always] madvise never"}}));
    EXPECT_EQ(facts.group("validateClocksource"), (Entries{{"clock info", "tsc"}}));
    EXPECT_NE(first, second);
}

TEST_F(SystemInfoTest, AnEntryKeepsItsFirstValue)
{
    facts.insert("key", "first");
    facts.insert("key", "second");
    EXPECT_EQ(facts.pending(), (Entries{{"key", "first"}}));

    facts.storeGroup("group");
    facts.insert("other key", "too late");
    facts.storeGroup("group");

    EXPECT_EQ(facts.group("group"), (Entries{{"key", "first"}}));
    EXPECT_EQ(facts.pending(), (Entries{{"key", "first"}, {"other key", "too late"}}));
}

TEST_F(SystemInfoTest, DocumentOfNoGroupsIsTwoLines)
{
    const SystemInfo::FactGroups groups(domain.get());

    EXPECT_EQ(plain(facts.produceJson(groups)), "{\n}\n");
}

TEST_F(SystemInfoTest, DocumentKeepsTheHeadAndEndOfAGroupWithoutEntries)
{
    SystemInfo::FactGroups groups(domain.get());
    groups["lonely"];
    EXPECT_EQ(plain(facts.produceJson(groups)), "{\n   \"lonely\" : {\n   }\n}\n");

    groups["after"]["key"] = "value";
    EXPECT_EQ(plain(facts.produceJson(groups)),
              "{\n"
              "   \"after\" : {\n"
              "      \"key\" :\"value\"\n"
              "   }\n"
              "   ,\"lonely\" : {\n"
              "   }\n"
              "}\n");
}

TEST_F(SystemInfoTest, DocumentOrdersGroupsAndEntriesByBytes)
{
    SystemInfo::FactGroups groups(domain.get());
    groups["b"]["key longer"] = "3";
    groups["b"]["key"] = "2";
    groups["b"]["Zebra"] = "1";
    groups["b"]["\xc3\xa4"] = "4";
    groups["ab"]["x"] = "second group";
    groups["a"]["x"] = "first group";

    EXPECT_EQ(plain(facts.produceJson(groups)),
              "{\n"
              "   \"a\" : {\n"
              "      \"x\" :\"first group\"\n"
              "   }\n"
              "   ,\"ab\" : {\n"
              "      \"x\" :\"second group\"\n"
              "   }\n"
              "   ,\"b\" : {\n"
              "      \"Zebra\" :\"1\"\n"
              "      ,\"key\" :\"2\"\n"
              "      ,\"key longer\" :\"3\"\n"
              "      ,\"\xc3\xa4\" :\"4\"\n"
              "   }\n"
              "}\n");
}

TEST_F(SystemInfoTest, DocumentEscapesNothing)
{
    SystemInfo::FactGroups groups(domain.get());
    groups["g\"g"]["k\\k"] = "dyndbg=\"file\tx\"\n\\";

    EXPECT_EQ(plain(facts.produceJson(groups)),
              "{\n"
              "   \"g\"g\" : {\n"
              "      \"k\\k\" :\"dyndbg=\"file\tx\"\n\\\"\n"
              "   }\n"
              "}\n");
}

TEST_F(SystemInfoTest, DocumentPassesAFailedAllocationOn)
{
    SystemInfo::FactGroups groups(domain.get());
    groups["a group whose name"]["a key"] = "and a value that make the text grow";
    FailingAllocator failing;
    const HostFacts fragile(failing);
    fragile.produceJson(groups);
    const std::size_t steps = failing.allocations();
    ASSERT_GT(steps, 0U);

    for (std::size_t step = 0; step < steps; ++step) {
        failing.throwAtAllocationOf(1, step, std::make_exception_ptr(std::bad_alloc()));
        EXPECT_THROW(fragile.produceJson(groups), std::bad_alloc) << step;
        failing.disarm();
    }
}

TEST_F(SystemInfoTest, DocumentLeavesTheGroupsAsTheyAre)
{
    SystemInfo::FactGroups groups(domain.get());
    groups["group"]["key"] = " value ";

    facts.produceJson(groups);

    ASSERT_EQ(groups.size(), 1U);
    EXPECT_EQ(plain(groups["group"]["key"]), " value ");
}

}  // namespace vetraTests
