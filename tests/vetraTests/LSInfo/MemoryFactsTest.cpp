// Facts of the memory modules and of the NUMA nodes.

#include <gtest/gtest.h>

#include <sstream>

#include "CapturedOutput.h"
#include "FakeHost.h"
#include "HostFacts.h"

namespace vetraTests {

namespace {

constexpr const char* dumpPath = "/usr/kor/K01/SYS/global/zdb/install/hwinfo/bios_zirn01.txt";

class MemoryReader : public testing::Test {
protected:
    HostFacts::Numbers physicalSpeedsOf(std::string_view output)
    {
        HostFacts::ModuleSpeeds speeds{HostFacts::Numbers(domain.get()),
                                       HostFacts::Numbers(domain.get())};
        facts.readModuleSpeeds(output, speeds);
        configured = speeds.configured;
        return speeds.physical;
    }

    HostFacts::Numbers physicalSpeedsOfDump(const std::string& text)
    {
        std::istringstream file(text);
        const HostFacts::ModuleSpeeds speeds = facts.moduleSpeedsOfBiosDump(file);
        configured = speeds.configured;
        return speeds.physical;
    }

    void readSizes(std::string_view megabytes, std::string_view gigabytes)
    {
        facts.readModuleSizes({string(megabytes, domain.get()), string(gigabytes, domain.get())});
    }

    void readSizesOfDump(const std::string& text)
    {
        std::istringstream file(text);
        facts.readModuleSizes(facts.moduleSizesOfBiosDump(file));
    }

    std::shared_ptr<Basis::Allocator> domain = testDomain();
    HostFacts facts{*domain};
    HostFacts::Numbers configured{domain.get()};
};

class MemoryGatherer : public testing::Test {
protected:
    void SetUp() override
    {
        setEnvironment("KORSYSTEMNAME", "K01");
        setEnvironment("HOST", "zirn01");
    }

    void modules(std::string_view text) { host.answer("/usr/sbin/dmidecode", "--type 17", text); }

    FakeHost host;
    std::shared_ptr<Basis::Allocator> domain = testDomain();
    HostFacts facts{*domain};
};

}  // namespace

TEST(ValuePattern, TakesTheNumberBehindTheFirstBlankBehindTheFirstColon)
{
    EXPECT_EQ(HostFacts::valueOf("\tSize: 32 GB"), 32);
    EXPECT_EQ(HostFacts::valueOf("node 0 size: 64417 MB"), 64417);
    EXPECT_EQ(HostFacts::valueOf("a: b: 7"), 0);
    EXPECT_EQ(HostFacts::valueOf("Speed: 2133MHz"), 2133);
}

TEST(ValuePattern, TakesTheWholeTextWhereASeparatorIsMissing)
{
    EXPECT_EQ(HostFacts::valueOf("Size:32"), 32);
    EXPECT_EQ(HostFacts::valueOf("Size 32 GB"), 32);
    EXPECT_EQ(HostFacts::valueOf("32"), 32);
}

TEST(ValuePattern, IsNothingForATextWithoutDigits)
{
    EXPECT_EQ(HostFacts::valueOf("Size: No Module Installed"), 0);
    EXPECT_EQ(HostFacts::valueOf("Size:32 GB"), 0);
    EXPECT_EQ(HostFacts::valueOf(""), 0);
}

TEST(ValuePattern, KeepsTheLowThirtyTwoBitsOfASaturatedNumber)
{
    EXPECT_EQ(HostFacts::valueOf("Size: 4294967298 MB"), 2);
    EXPECT_EQ(HostFacts::valueOf("Size: 99999999999999999999 MB"), -1);
}

TEST_F(MemoryReader, PutsMegabyteModulesFirst)
{
    readSizes("\tSize: 16384 MB\n", "\tSize: 32 GB\n");

    EXPECT_EQ(facts.pending(), (Entries{{"dimmsize list items", "16384,32768"},
                                        {"dimmsize list length", "2"},
                                        {"dimmSize", "49152"}}));
    EXPECT_EQ(plain(facts.getDimmsizeListItems()), "16384,32768");
    EXPECT_EQ(plain(facts.getDimmsizeListLength()), "2");
    EXPECT_EQ(plain(facts.getDimmSize()), "49152");
}

TEST_F(MemoryReader, HasNoListOfNoModules)
{
    readSizes("", "");

    EXPECT_EQ(facts.pending(), (Entries{{"dimmsize list length", "0"}, {"dimmSize", "0"}}));
    EXPECT_EQ(plain(facts.getDimmsizeListItems()), "");
}

TEST_F(MemoryReader, EmptiesTheGroupUnderConstructionFirst)
{
    facts.insert("dimmSize", "left by another gatherer");
    facts.insert("foreign", "left by another gatherer");

    readSizes("", "Size: 8 GB\n");

    EXPECT_EQ(facts.pending(), (Entries{{"dimmsize list items", "8192"},
                                        {"dimmsize list length", "1"},
                                        {"dimmSize", "8192"}}));
}

TEST_F(MemoryReader, ShiftsGigabytesInThirtyTwoBits)
{
    readSizes("", "Size: 2097151 GB\nSize: 2097152 GB\nSize: 4194304 GB\nSize: 4194305 GB\n");

    EXPECT_EQ(plain(facts.getDimmsizeListItems()), "2147482624,-2147483648,0,1024");
}

TEST_F(MemoryReader, WrapsTheSumInThirtyTwoBits)
{
    readSizes("Size: 2147483647 MB\nSize: 2 MB\n", "");

    EXPECT_EQ(plain(facts.getDimmSize()), "-2147483647");
    EXPECT_EQ(plain(facts.getDimmsizeListLength()), "2");
}

TEST_F(MemoryReader, CountsALineWithoutNumberAsAModuleOfNoSize)
{
    readSizes("Size: many MB\n", "");

    EXPECT_EQ(plain(facts.getDimmsizeListItems()), "0");
    EXPECT_EQ(plain(facts.getDimmsizeListLength()), "1");
}

TEST_F(MemoryReader, LeavesRangesInGigabytesOutOfTheDump)
{
    readSizesOfDump("Range Size: 64 GB\nRange Size: 512 MB\nSize: 32 GB\n");

    EXPECT_EQ(plain(facts.getDimmsizeListItems()), "512,32768");
}

TEST_F(MemoryReader, TakesADumpLineWithBothUnitsTwice)
{
    readSizesOfDump("Size: 8 MB or GB\n");

    EXPECT_EQ(plain(facts.getDimmsizeListItems()), "8,8192");
    EXPECT_EQ(plain(facts.getDimmsizeListLength()), "2");
}

TEST_F(MemoryReader, TakesARangeWithBothUnitsForMegabytesOnly)
{
    readSizesOfDump("Range Size: 8 MB or GB\n");

    EXPECT_EQ(plain(facts.getDimmsizeListItems()), "8");
}

TEST_F(MemoryReader, PassesOverDumpLinesWithoutSizeOrUnit)
{
    readSizesOfDump("size: 1 GB\nCapacity: 2 GB\nSize: No Module Installed\nSize: 4 kB\n");

    EXPECT_EQ(facts.pending(), (Entries{{"dimmsize list length", "0"}, {"dimmSize", "0"}}));
}

TEST_F(MemoryReader, TellsConfiguredSpeedsFromPhysicalOnes)
{
    const auto physical = physicalSpeedsOf(
        "\tSpeed: 2133 MHz\n\tConfigured Clock Speed: 1866 MHz\n"
        "\tSpeed: 2133 MHz\n\tConfigured Clock Speed: 1867 MHz\n");

    EXPECT_EQ(physical, (HostFacts::Numbers{2133, 2133}));
    EXPECT_EQ(configured, (HostFacts::Numbers{1866, 1867}));
}

TEST_F(MemoryReader, PassesOverSpeedsWithoutUnit)
{
    EXPECT_EQ(physicalSpeedsOf("Speed: Unknown\nSpeed: 2133 MT/s\n"
                               "Configured Clock Speed: 2133 MT/s\n"),
              HostFacts::Numbers{});
    EXPECT_EQ(configured, HostFacts::Numbers{});
}

TEST_F(MemoryReader, TakesAnyOtherSpeedForAPhysicalOne)
{
    EXPECT_EQ(physicalSpeedsOf("Max Speed: 1600 MHz\nConfigured Memory Speed: 1866 MHz\n"),
              (HostFacts::Numbers{1600, 1866}));
}

TEST_F(MemoryReader, SaysThatALineHoldsNoSpeed)
{
    const CapturedOutput output;

    EXPECT_EQ(physicalSpeedsOf("grep: write error\nSpeed: 2133 MHz\nspeed: 1 MHz\n"),
              (HostFacts::Numbers{2133}));

    EXPECT_EQ(output.text(), "Speed not found in dmidecode\nSpeed not found in dmidecode\n");
}

TEST_F(MemoryReader, SaysNothingAboutSpeedsWithoutUnit)
{
    const CapturedOutput output;

    physicalSpeedsOf("Speed: Unknown\nConfigured Clock Speed: Unknown\n");

    EXPECT_EQ(output.text(), "");
}

TEST_F(MemoryReader, TakesModuleSpeedsOnlyOutOfTheDump)
{
    const CapturedOutput output;

    EXPECT_EQ(physicalSpeedsOfDump("Max Speed: 4000 MHz\nCurrent Speed: 2600 MHz\n"
                                   "Speed: 2133 MHz\nSpeed: Unknown\nVersion: 3\n"
                                   "Configured Clock Speed: 1866 MHz\n"
                                   "Configured Clock Speed: Unknown\n"),
              (HostFacts::Numbers{2133}));

    EXPECT_EQ(configured, (HostFacts::Numbers{1866}));
    EXPECT_EQ(output.text(), "");
}

TEST_F(MemoryReader, JoinsNodesInTheirOrder)
{
    facts.readNodeSizes("node 0 size: 65536 MB\nnode 1 size: 65535 MB\nnode 2 size: 65536 MB\n");

    EXPECT_EQ(plain(facts.getNodesizeListItems()), "65536,65535,65536");
}

TEST_F(MemoryReader, HasNoListOfNoNodes)
{
    facts.readNodeSizes("");

    EXPECT_EQ(plain(facts.getNodesizeListItems()), "");
}

TEST_F(MemoryGatherer, StoresSizesAndSpeedsInOneGroup)
{
    modules(
        "Memory Device\n\tSize: 32 GB\n\tSpeed: 2133 MHz\n\tConfigured Clock Speed: 1866 MHz\n"
        "Memory Device\n\tSize: 16384 MB\n\tSpeed: 2400 MHz\n");

    facts.gatherMemoryInfo();

    EXPECT_EQ(facts.group("validateMemory"), (Entries{{"dimmsize list items", "16384,32768"},
                                                      {"dimmsize list length", "2"},
                                                      {"dimmSize", "49152"},
                                                      {"dimmSpeedphysical", "2133,2400"}}));
    EXPECT_EQ(plain(facts.getDimmSpeedphysical()), "2133,2400");
    EXPECT_EQ(facts.pending(), Entries{});
}

TEST_F(MemoryGatherer, LeavesTheSizesForTheSpeeds)
{
    modules("\tSize: 8 GB\n\tSpeed: 2133 MHz\n");
    const Entries sizes{
        {"dimmsize list items", "8192"}, {"dimmsize list length", "1"}, {"dimmSize", "8192"}};

    facts.gatherMemoryDimmSizeInfo();
    EXPECT_EQ(facts.pending(), sizes);
    EXPECT_TRUE(facts.factGroups.empty());

    facts.gatherMemoryDimmSpeedInfo();
    Entries all = sizes;
    all["dimmSpeedphysical"] = "2133";
    EXPECT_EQ(facts.pending(), all);
    EXPECT_EQ(facts.group("validateMemory"), all);
}

TEST_F(MemoryGatherer, CountsNoEmptySlot)
{
    modules("\tSize: 8 GB\n\tSpeed: 2133 MHz\n\tSize: No Module Installed\n\tSpeed: Unknown\n");

    facts.gatherMemoryInfo();

    EXPECT_EQ(facts.group("validateMemory"), (Entries{{"dimmsize list items", "8192"},
                                                      {"dimmsize list length", "1"},
                                                      {"dimmSize", "8192"},
                                                      {"dimmSpeedphysical", "2133"}}));
}

TEST_F(MemoryGatherer, CountsTheVolatileSizeOfNewerOutputsOnceMore)
{
    modules(
        "\tSize: 32 GB\n\tSpeed: 2933 MT/s\n\tConfigured Memory Speed: 2933 MT/s\n"
        "\tNon-Volatile Size: None\n\tVolatile Size: 32 GB\n\tCache Size: None\n");

    facts.gatherMemoryInfo();

    EXPECT_EQ(facts.group("validateMemory"), (Entries{{"dimmsize list items", "32768,32768"},
                                                      {"dimmsize list length", "2"},
                                                      {"dimmSize", "65536"}}));
}

TEST_F(MemoryGatherer, TakesTheDumpIfTheCommandsPrintNothing)
{
    host.file(dumpPath, "Size: 16384 MB\nSize: 32 GB\nSpeed: 2133 MHz\n");

    facts.gatherMemoryInfo();

    EXPECT_EQ(facts.group("validateMemory"), (Entries{{"dimmsize list items", "16384,32768"},
                                                      {"dimmsize list length", "2"},
                                                      {"dimmSize", "49152"},
                                                      {"dimmSpeedphysical", "2133"}}));
}

TEST_F(MemoryGatherer, LeavesTheDumpAloneIfOneCommandPrintsSomething)
{
    modules("\tSize: 8 GB\n\tSpeed: 2133 MHz\n");
    host.file(dumpPath, "Size: 16384 MB\nSpeed: 1600 MHz\n");

    facts.gatherMemoryInfo();

    EXPECT_EQ(plain(facts.getDimmsizeListItems()), "8192");
    EXPECT_EQ(plain(facts.getDimmSpeedphysical()), "2133");
}

TEST_F(MemoryGatherer, TakesTheSpeedsOfTheDumpForSizesOfTheCommand)
{
    modules("\tSize: 8 GB\n\tSpeed: Unknown\n");
    host.file(dumpPath, "Size: 16384 MB\nSpeed: 1600 MHz\n");

    facts.gatherMemoryInfo();

    EXPECT_EQ(plain(facts.getDimmsizeListItems()), "8192");
    EXPECT_EQ(plain(facts.getDimmSpeedphysical()), "1600");
}

TEST_F(MemoryGatherer, LeavesTheDumpAloneForAConfiguredSpeed)
{
    modules("\tSize: 8 GB\n\tConfigured Clock Speed: 1866 MHz\n");
    host.file(dumpPath, "Speed: 1600 MHz\n");

    facts.gatherMemoryInfo();

    EXPECT_EQ(plain(facts.getDimmSpeedphysical()), "");
    EXPECT_EQ(facts.group("validateMemory"), (Entries{{"dimmsize list items", "8192"},
                                                      {"dimmsize list length", "1"},
                                                      {"dimmSize", "8192"}}));
}

TEST_F(MemoryGatherer, LooksForTheDumpAnewForSizesAndForSpeeds)
{
    facts.gatherMemoryDimmSizeInfo();
    setEnvironment("HOST", "other");
    facts.gatherMemoryDimmSpeedInfo();

    std::vector<std::string> dumps;
    for (const std::string& line : host.takeLog()) {
        if (line.front() == '/')
            dumps.push_back(line);
    }
    EXPECT_EQ(dumps, (std::vector<std::string>{
                         dumpPath, "/usr/kor/K01/SYS/global/zdb/install/hwinfo/bios_other.txt"}));
}

TEST_F(MemoryGatherer, HasLengthAndTotalWithoutAnySource)
{
    host.remove("/usr/sbin/dmidecode");
    testing::internal::CaptureStderr();
    facts.gatherMemoryInfo();
    const std::string diagnostics = testing::internal::GetCapturedStderr();

    EXPECT_EQ(facts.group("validateMemory"),
              (Entries{{"dimmsize list length", "0"}, {"dimmSize", "0"}}));
    EXPECT_NE(diagnostics.find("dmidecode"), std::string::npos);
}

TEST_F(MemoryGatherer, ClearsOnlyOnAnotherArchitecture)
{
    host.machine = "ppc64le";
    modules("\tSize: 8 GB\n");
    facts.insert("left", "over");

    facts.gatherMemoryInfo();

    EXPECT_TRUE(facts.factGroups.empty());
    EXPECT_EQ(facts.pending(), Entries{});
    EXPECT_EQ(host.takeLog(), std::vector<std::string>{});
}

TEST_F(MemoryGatherer, ListsTheNodesInMegabytes)
{
    host.answer("numactl", "--hardware",
                "available: 4 nodes (0-3)\nnode 0 cpus: 0 1\nnode 0 size: 65536 MB\n"
                "node 0 free: 1 MB\nnode 1 size: 65536 MB\nnode 2 size: 65536 MB\n"
                "node 3 size: 65536 MB\nnode distances:\n");

    facts.gatherMemoryDistributionInfo();

    EXPECT_EQ(facts.group("validateMemoryDistribution"),
              (Entries{{"nodesize list items", "65536,65536,65536,65536"}}));
    EXPECT_EQ(plain(facts.getNodesizeListItems()), "65536,65536,65536,65536");
    EXPECT_EQ(facts.pending(), Entries{});
}

TEST_F(MemoryGatherer, HasAnEmptyListWithoutNodes)
{
    facts.gatherMemoryDistributionInfo();

    EXPECT_EQ(facts.group("validateMemoryDistribution"), (Entries{{"nodesize list items", ""}}));
}

TEST_F(MemoryGatherer, HasAnEmptyListWithoutTheProgramForNodes)
{
    host.remove("/usr/bin/numactl");
    testing::internal::CaptureStderr();
    facts.gatherMemoryDistributionInfo();
    const std::string diagnostics = testing::internal::GetCapturedStderr();

    EXPECT_EQ(facts.group("validateMemoryDistribution"), (Entries{{"nodesize list items", ""}}));
    EXPECT_NE(diagnostics.find("numactl"), std::string::npos);
}

TEST_F(MemoryGatherer, StoresNoNodesOnAnotherArchitecture)
{
    host.machine = "ppc64le";
    facts.insert("left", "over");

    facts.gatherMemoryDistributionInfo();

    EXPECT_TRUE(facts.factGroups.empty());
    EXPECT_EQ(facts.pending(), Entries{});
    EXPECT_EQ(host.takeLog(), std::vector<std::string>{});
}

}  // namespace vetraTests
