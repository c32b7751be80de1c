// Facts of the processors and of the ratio between cores and memory.

#include <fstream>
#include <limits>

#include "Basis/Text.h"
#include "vetraTests/LSInfo/SystemInfo.h"

namespace vetraTests {

namespace {

constexpr std::int32_t kilobytesPerGibibyte = 1 << 20;

std::string_view withoutBlanksAtEnd(std::string_view key)
{
    return key.substr(0, key.find_last_not_of(" \n\r\t") + 1);
}

// The value stands for the logical processors of a machine with two threads per core.
std::int32_t expectedLogicalProcessors(std::int32_t cores, std::int32_t sockets)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(cores) * 2U *
                                     static_cast<std::uint32_t>(sockets));
}

// Whole gibibytes per logical processor. Without processors the processor's own conversion of a
// quotient that is no number gives the smallest integer, which the document shows.
std::int32_t gibibytesPerProcessor(std::int32_t kilobytes, std::int32_t processors)
{
    if (processors == 0)
        return std::numeric_limits<std::int32_t>::min();
    const std::int32_t gibibytes = kilobytes / kilobytesPerGibibyte;
    return static_cast<std::int32_t>(static_cast<float>(gibibytes) /
                                     static_cast<float>(processors));
}

}  // namespace

void SystemInfo::gatherX86_CPU_HTT_CMRatio_Info()
{
    if (!Basis::contains(getArch(), "x86"))
        return;

    std::ifstream file("/proc/cpuinfo");
    ProcessorCounts counts{Basis::set<string>(&allocator), Numbers(&allocator)};
    readProcessors(file, counts);

    socketCount = decimal(static_cast<std::int64_t>(counts.socketIds.size()));
    lpCount = decimal(counts.logicalProcessors);
    insert("socket count", socketCount);
    insert("logical processor count", lpCount);
    cpuSpeed = joined(counts.speedsMhz);
    insert("cpu speed", cpuSpeed);
    storeGroup("validateCPU");
    currentGroup.clear();

    const std::int32_t cores = Basis::toInt32(cpuCores);
    const std::int32_t sockets = Basis::toInt32(socketCount);
    ppCount = decimal(expectedLogicalProcessors(cores, sockets));
    cpuCoresCount = decimal(cores);
    insert("physical processor count", ppCount);
    insert("cpu cores count", cpuCoresCount);
    insert("socket count", socketCount);
    storeGroup("validateHTT");
    currentGroup.clear();

    gatherTotalMemoryInfo();
    totalMemory = Basis::trimmed(memTotalKb);
    insert("Total Memory", totalMemory);
    coreMemoryRatio =
        decimal(gibibytesPerProcessor(Basis::toInt32(memTotalKb), counts.logicalProcessors));
    insert("Core Memory Ratio", coreMemoryRatio);
    storeGroup("validateCoreMemoryRatio");
    currentGroup.clear();
}

void SystemInfo::readProcessors(std::istream& file, ProcessorCounts& counts)
{
    struct Row {
        std::string_view keyInFile;
        string SystemInfo::*fact;
        std::string_view key;
    };
    static constexpr Row rows[] = {
        {"physical id", &SystemInfo::physicalId, "physical id"},
        {"processor", &SystemInfo::processor, "processor"},
        {"cpu cores", &SystemInfo::cpuCores, "cpu cores"},
        {"model name", &SystemInfo::modelName, "model name"},
        {"flags", &SystemInfo::cpuFlags, "flags"},
        {"vendor_id", &SystemInfo::vendorId, "vendor id"},
        {"cpu family", &SystemInfo::cpuFamily, "cpu family"},
        {"model", &SystemInfo::model, "model"},
    };

    for (string line(&allocator); Basis::readLine(file, line);) {
        const std::size_t colon = line.find(':');
        const std::string_view text = line;
        const std::string_view keyInFile = withoutBlanksAtEnd(text.substr(0, colon));
        const std::string_view value =
            colon == string::npos ? std::string_view() : Basis::trimmed(text.substr(colon + 1));
        if (keyInFile == "cpu MHz") {
            counts.speedsMhz.push_back(Basis::toInt32(value));
            continue;
        }
        for (const Row& row : rows) {
            if (row.keyInFile != keyInFile)
                continue;
            string& fact = this->*row.fact;
            // A clock behind an "@" is no part of the name.
            fact =
                keyInFile == "model name" ? Basis::trimmed(Basis::beforeFirst(value, "@")) : value;
            insert(row.key, fact);
        }
        if (keyInFile == "physical id")
            counts.socketIds.insert(string(value, &allocator));
        if (keyInFile == "processor")
            ++counts.logicalProcessors;
    }
}

void SystemInfo::gatherTotalMemoryInfo()
{
    std::ifstream file("/proc/meminfo");
    readTotalMemory(file);
}

void SystemInfo::readTotalMemory(std::istream& file)
{
    for (string line(&allocator); Basis::readLine(file, line);) {
        if (Basis::contains(line, "MemTotal"))
            memTotalKb = Basis::beforeFirst(Basis::trimmed(Basis::behindFirst(line, ":")), " ");
    }
}

}  // namespace vetraTests
