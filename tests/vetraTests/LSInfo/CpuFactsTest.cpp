// Facts of the processors, of threading and of the ratio between cores and memory.

#include <gtest/gtest.h>

#include <new>
#include <sstream>

#include "FailingAllocator.h"
#include "FakeHost.h"
#include "HostFacts.h"

namespace vetraTests {

namespace {

// One logical processor as the kernel shows it.
std::string processor(int number, std::string_view physicalId, std::string_view megahertz)
{
    std::ostringstream text;
    text << "processor\t: " << number << "\n"
         << "vendor_id\t: GenuineIntel\n"
         << "cpu family\t: 6\n"
         << "model\t\t: 63\n"
         << "model name\t: Intel(R) Xeon(R) CPU E7-8890 v3 @ 2.50GHz\n"
         << "stepping\t: 4\n"
         << "cpu MHz\t\t: " << megahertz << "\n"
         << "physical id\t: " << physicalId << "\n"
         << "cpu cores\t: 18\n"
         << "flags\t\t: fpu vme ht sse\n"
         << "\n";
    return text.str();
}

class ProcessorReader : public testing::Test {
protected:
    void read(const std::string& text)
    {
        std::istringstream file(text);
        facts.readProcessors(file, counts);
    }

    std::shared_ptr<Basis::Allocator> domain = testDomain();
    HostFacts facts{*domain};
    HostFacts::ProcessorCounts counts{Basis::set<string>(domain.get()),
                                      HostFacts::Numbers(domain.get())};
};

class TotalMemoryReader : public testing::Test {
protected:
    std::string kilobytesIn(const std::string& text)
    {
        std::istringstream file(text);
        facts.readTotalMemory(file);
        return plain(facts.memTotalKb);
    }

    std::shared_ptr<Basis::Allocator> domain = testDomain();
    HostFacts facts{*domain};
};

class CpuGatherer : public testing::Test {
protected:
    void gather() { facts.gatherX86_CPU_HTT_CMRatio_Info(); }

    std::string ratioOf(std::string_view kilobytes, int processors)
    {
        std::string text;
        for (int i = 0; i < processors; ++i)
            text += processor(i, "0", "2500");
        host.file("/proc/cpuinfo", text);
        host.file("/proc/meminfo", "MemTotal:       " + plain(kilobytes) + " kB\n");
        gather();
        return plain(facts.getCoreMemoryRatio());
    }

    std::string expectedProcessorsOf(std::string_view cores, int sockets)
    {
        std::string text = "cpu cores : " + plain(cores) + "\n";
        for (int i = 0; i < sockets; ++i)
            text += "physical id : " + std::to_string(i) + "\n";
        host.file("/proc/cpuinfo", text);
        gather();
        return plain(facts.getPPCount());
    }

    FakeHost host;
    std::shared_ptr<Basis::Allocator> domain = testDomain();
    HostFacts facts{*domain};
};

}  // namespace

TEST_F(ProcessorReader, KeepsTheFirstValueInTheEntryAndTheLastInTheMember)
{
    read(
        "processor : 0\nphysical id : 0\ncpu cores : 4\nmodel name : A\nflags : a\n"
        "vendor_id : GenuineIntel\ncpu family : 6\nmodel : 63\n"
        "processor : 1\nphysical id : 1\ncpu cores : 8\nmodel name : B\nflags : b\n"
        "vendor_id : AuthenticAMD\ncpu family : 7\nmodel : 79\n");

    EXPECT_EQ(facts.pending(), (Entries{{"processor", "0"},
                                        {"physical id", "0"},
                                        {"cpu cores", "4"},
                                        {"model name", "A"},
                                        {"flags", "a"},
                                        {"vendor id", "GenuineIntel"},
                                        {"cpu family", "6"},
                                        {"model", "63"}}));
    EXPECT_EQ(plain(facts.getProcessor()), "1");
    EXPECT_EQ(plain(facts.getPhysicalId()), "1");
    EXPECT_EQ(plain(facts.getCPUCores()), "8");
    EXPECT_EQ(plain(facts.getModelName()), "B");
    EXPECT_EQ(plain(facts.getCPUFlags()), "b");
    EXPECT_EQ(plain(facts.getVendorId()), "AuthenticAMD");
    EXPECT_EQ(plain(facts.getCPUFamily()), "7");
    EXPECT_EQ(plain(facts.getModel()), "79");
}

TEST_F(ProcessorReader, CutsTheClockOffTheModelName)
{
    read("model name\t: Intel(R) Xeon(R) CPU E7-8890 v3 @ 2.50GHz\n");

    EXPECT_EQ(plain(facts.getModelName()), "Intel(R) Xeon(R) CPU E7-8890 v3");
    EXPECT_EQ(facts.pending(), (Entries{{"model name", "Intel(R) Xeon(R) CPU E7-8890 v3"}}));
}

TEST_F(ProcessorReader, CutsTheModelNameAtTheFirstOfSeveralClocks)
{
    read("model name : name@a@b\n");

    EXPECT_EQ(plain(facts.getModelName()), "name");
}

TEST_F(ProcessorReader, CutsNothingElseAtAnAtSign)
{
    read("flags : a @ b\n");

    EXPECT_EQ(plain(facts.getCPUFlags()), "a @ b");
}

TEST_F(ProcessorReader, ComparesKeysWhole)
{
    read(
        "model : 79\nmodel name : Xeon\nmodel names : no\nmode : no\nprocessors : 3\n"
        "Processor : 4\ncpu cores 2 : 5\n");

    EXPECT_EQ(facts.pending(), (Entries{{"model", "79"}, {"model name", "Xeon"}}));
    EXPECT_EQ(counts.logicalProcessors, 0);
}

TEST_F(ProcessorReader, StripsKeysOnTheRightOnly)
{
    read("model\t \r\t: 79\n flags : on the left\n");

    EXPECT_EQ(facts.pending(), (Entries{{"model", "79"}}));
}

TEST_F(ProcessorReader, StripsNoVerticalTabOffAKey)
{
    read("model\v: 79\n");

    EXPECT_EQ(facts.pending(), Entries{});
}

TEST_F(ProcessorReader, TrimsValuesAndKeepsLaterColons)
{
    read("flags\t:\t a: b : c \r\n");

    EXPECT_EQ(plain(facts.getCPUFlags()), "a: b : c");
}

TEST_F(ProcessorReader, TakesAKeyWithoutColonForOneWithoutValue)
{
    facts.cpuFlags = "from the processor before";
    read("flags\nprocessor\n");

    EXPECT_EQ(plain(facts.getCPUFlags()), "");
    EXPECT_EQ(facts.pending(), (Entries{{"flags", ""}, {"processor", ""}}));
    EXPECT_EQ(counts.logicalProcessors, 1);
}

TEST_F(ProcessorReader, CountsProcessorLinesWhateverTheirNumber)
{
    read("processor : 7\nprocessor : 7\nprocessor : x\n");

    EXPECT_EQ(counts.logicalProcessors, 3);
}

TEST_F(ProcessorReader, TellsPhysicalIdsApartAsTexts)
{
    read("physical id : 0\nphysical id : 1\nphysical id : 0\nphysical id : 00\n");

    EXPECT_EQ(counts.socketIds.size(), 3U);
}

TEST_F(ProcessorReader, TakesWholeMegahertzInTheOrderOfTheFile)
{
    read("cpu MHz : 2593.906\ncpu MHz\t\t: 1200.999\ncpu MHz : unknown\ncpu MHz : 2593\n");

    EXPECT_EQ(counts.speedsMhz, (HostFacts::Numbers{2593, 1200, 0, 2593}));
    EXPECT_EQ(facts.pending(), Entries{});
}

TEST_F(ProcessorReader, CutsMegahertzToThirtyTwoBits)
{
    read("cpu MHz : 4294967297\ncpu MHz : 99999999999999999999\n");

    EXPECT_EQ(counts.speedsMhz, (HostFacts::Numbers{1, -1}));
}

TEST_F(ProcessorReader, PassesAFailedAllocationOn)
{
    FailingAllocator failing;
    HostFacts fragile(failing);
    std::istringstream file("flags : a line that is longer than a string without heap\n");
    failing.throwAtAllocationOf(1, 0, std::make_exception_ptr(std::bad_alloc()));

    EXPECT_THROW(fragile.readProcessors(file, counts), std::bad_alloc);
}

TEST_F(TotalMemoryReader, TakesTheNumberInFrontOfTheUnit)
{
    EXPECT_EQ(kilobytesIn("MemTotal:       263858696 kB\nMemFree: 1 kB\n"), "263858696");
}

TEST_F(TotalMemoryReader, TakesAnyLineThatHoldsTheWordAndKeepsTheLast)
{
    EXPECT_EQ(kilobytesIn("MemTotal: 1 kB\nHighMemTotal: 2 kB\n"), "2");
}

TEST_F(TotalMemoryReader, TakesTheTextBehindTheFirstColon)
{
    EXPECT_EQ(kilobytesIn("MemTotal: 1:2 kB\n"), "1:2");
}

TEST_F(TotalMemoryReader, TakesANumberWithoutUnit)
{
    EXPECT_EQ(kilobytesIn("MemTotal:\t1048576\t\n"), "1048576");
}

TEST_F(TotalMemoryReader, FindsNothingWithoutTheWord)
{
    EXPECT_EQ(kilobytesIn("memtotal: 1 kB\nMemFree: 1 kB\n"), "");
}

TEST_F(CpuGatherer, StoresThreeGroups)
{
    host.file("/proc/cpuinfo", processor(0, "0", "2593.906") + processor(1, "1", "1200.000") +
                                   processor(2, "0", "2594.1") + processor(3, "1", "1200.5"));
    host.file("/proc/meminfo", "MemTotal:       33554432 kB\nMemFree:        100 kB\n");

    gather();

    EXPECT_EQ(facts.group("validateCPU"),
              (Entries{{"cpu cores", "18"},
                       {"cpu family", "6"},
                       {"cpu speed", "2593,1200,2594,1200"},
                       {"flags", "fpu vme ht sse"},
                       {"logical processor count", "4"},
                       {"model", "63"},
                       {"model name", "Intel(R) Xeon(R) CPU E7-8890 v3"},
                       {"physical id", "0"},
                       {"processor", "0"},
                       {"socket count", "2"},
                       {"vendor id", "GenuineIntel"}}));
    EXPECT_EQ(facts.group("validateHTT"), (Entries{{"cpu cores count", "18"},
                                                   {"physical processor count", "72"},
                                                   {"socket count", "2"}}));
    EXPECT_EQ(facts.group("validateCoreMemoryRatio"),
              (Entries{{"Core Memory Ratio", "8"}, {"Total Memory", "33554432"}}));
    EXPECT_EQ(facts.factGroups.size(), 3U);
    EXPECT_EQ(facts.pending(), Entries{});
}

TEST_F(CpuGatherer, FillsTheMembersOfItsCounts)
{
    host.file("/proc/cpuinfo", processor(0, "0", "2593.906") + processor(1, "1", "1200.000"));
    host.file("/proc/meminfo", "MemTotal: 8388608 kB\n");

    gather();

    EXPECT_EQ(plain(facts.getSocketCount()), "2");
    EXPECT_EQ(plain(facts.getLPCount()), "2");
    EXPECT_EQ(plain(facts.getCPUSpeed()), "2593,1200");
    EXPECT_EQ(plain(facts.getPPCount()), "72");
    EXPECT_EQ(plain(facts.getCpuCoresCount()), "18");
    EXPECT_EQ(plain(facts.getTotalMemory()), "8388608");
    EXPECT_EQ(plain(facts.getCoreMemoryRatio()), "4");
    EXPECT_EQ(plain(facts.getProcessor()), "1");
}

TEST_F(CpuGatherer, StoresAllGroupsOfAnUnreadableProcessorList)
{
    host.file("/proc/meminfo", "MemTotal: 8388608 kB\n");

    gather();

    EXPECT_EQ(
        facts.group("validateCPU"),
        (Entries{{"cpu speed", ""}, {"logical processor count", "0"}, {"socket count", "0"}}));
    EXPECT_EQ(facts.group("validateHTT"), (Entries{{"cpu cores count", "0"},
                                                   {"physical processor count", "0"},
                                                   {"socket count", "0"}}));
    EXPECT_EQ(facts.group("validateCoreMemoryRatio"),
              (Entries{{"Core Memory Ratio", "-2147483648"}, {"Total Memory", "8388608"}}));
}

TEST_F(CpuGatherer, TakesAMissingMemoryFileForNoMemory)
{
    host.file("/proc/cpuinfo", processor(0, "0", "2500"));

    gather();

    EXPECT_EQ(facts.group("validateCoreMemoryRatio"),
              (Entries{{"Core Memory Ratio", "0"}, {"Total Memory", ""}}));
}

TEST_F(CpuGatherer, GathersNothingOnAnotherArchitecture)
{
    host.machine = "ppc64le";
    host.file("/proc/cpuinfo", processor(0, "0", "2500"));

    gather();

    EXPECT_TRUE(facts.factGroups.empty());
    EXPECT_EQ(plain(facts.getLPCount()), "");
    EXPECT_EQ(host.takeLog(), std::vector<std::string>{});
}

TEST_F(CpuGatherer, FindsNoSocketsOnAGuestWithoutPhysicalIds)
{
    host.file("/proc/cpuinfo", "processor : 0\ncpu cores : 2\nprocessor : 1\ncpu cores : 2\n");

    gather();

    EXPECT_EQ(plain(facts.getSocketCount()), "0");
    EXPECT_EQ(plain(facts.getPPCount()), "0");
    EXPECT_EQ(plain(facts.getLPCount()), "2");
    EXPECT_EQ(plain(facts.getCpuCoresCount()), "2");
}

TEST_F(CpuGatherer, ExpectsNoProcessorsWithoutALineOfCores)
{
    host.file("/proc/cpuinfo", "processor : 0\nphysical id : 0\n");

    gather();

    EXPECT_EQ(plain(facts.getPPCount()), "0");
    EXPECT_EQ(plain(facts.getCpuCoresCount()), "0");
    EXPECT_EQ(plain(facts.getSocketCount()), "1");
}

TEST_F(CpuGatherer, ExpectsTwoThreadsPerCoreOfTheLastProcessor)
{
    host.file("/proc/cpuinfo", "physical id : 0\ncpu cores : 4\nphysical id : 1\ncpu cores : 6\n");

    gather();

    EXPECT_EQ(plain(facts.getPPCount()), "24");
    EXPECT_EQ(facts.group("validateCPU")->at("cpu cores"), "4");
    EXPECT_EQ(facts.group("validateHTT")->at("cpu cores count"), "6");
}

TEST_F(CpuGatherer, WrapsTheExpectedProcessorsInThirtyTwoBits)
{
    EXPECT_EQ(expectedProcessorsOf("1073741823", 1), "2147483646");
    EXPECT_EQ(expectedProcessorsOf("1073741824", 1), "-2147483648");
    EXPECT_EQ(expectedProcessorsOf("1073741824", 2), "0");
    EXPECT_EQ(expectedProcessorsOf("1073741825", 2), "4");
}

TEST_F(CpuGatherer, ReadsCoresAsTheLowThirtyTwoBitsOfASaturatedNumber)
{
    EXPECT_EQ(expectedProcessorsOf("4294967297", 1), "2");
    EXPECT_EQ(expectedProcessorsOf("99999999999999999999", 1), "-2");
    EXPECT_EQ(expectedProcessorsOf("-99999999999999999999", 1), "0");
    EXPECT_EQ(expectedProcessorsOf("4 of 8", 1), "8");
}

TEST_F(CpuGatherer, TruncatesBothDivisionsOfTheRatio)
{
    EXPECT_EQ(ratioOf("267386880", 32), "7");  // 255 GiB
    EXPECT_EQ(ratioOf("268435455", 36), "7");  // one kilobyte below 256 GiB
    EXPECT_EQ(ratioOf("268435455", 32), "7");
    EXPECT_EQ(ratioOf("268435456", 32), "8");  // 256 GiB
    EXPECT_EQ(ratioOf("1048575", 1), "0");
    EXPECT_EQ(ratioOf("1048576", 2), "0");
}

TEST_F(CpuGatherer, WrapsTheKilobytesOfTwoTebibytes)
{
    EXPECT_EQ(ratioOf("2147483647", 1), "2047");
    EXPECT_EQ(ratioOf("2147483648", 1), "-2048");
    EXPECT_EQ(ratioOf("2147483648", 3), "-682");
    EXPECT_EQ(ratioOf("3221225472", 1), "-1024");
    EXPECT_EQ(ratioOf("4293918721", 1), "0");
}

TEST_F(CpuGatherer, ReadsFourTebibytesAsNone)
{
    EXPECT_EQ(ratioOf("4294967296", 1), "0");
    EXPECT_EQ(ratioOf("4296015872", 1), "1");
}

TEST_F(CpuGatherer, SaturatesTheKilobytesBeforeTheyAreCut)
{
    EXPECT_EQ(ratioOf("99999999999999999999", 1), "0");
}

TEST_F(CpuGatherer, DividesByNoProcessorsToTheSmallestInteger)
{
    EXPECT_EQ(ratioOf("0", 0), "-2147483648");
    EXPECT_EQ(ratioOf("8388608", 0), "-2147483648");
    EXPECT_EQ(ratioOf("2147483648", 0), "-2147483648");
}

TEST_F(CpuGatherer, ASecondGatheringKeepsTheGroups)
{
    ratioOf("8388608", 2);

    EXPECT_EQ(ratioOf("8388608", 4), "2");

    EXPECT_EQ(plain(facts.getLPCount()), "4");
    EXPECT_EQ(facts.group("validateCPU")->at("logical processor count"), "2");
    EXPECT_EQ(facts.group("validateCoreMemoryRatio")->at("Core Memory Ratio"), "4");
}

}  // namespace vetraTests
