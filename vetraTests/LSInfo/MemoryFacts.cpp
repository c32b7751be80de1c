// Facts of the memory modules and of the NUMA nodes.

#include <fstream>
#include <iostream>

#include "Basis/Text.h"
#include "vetraTests/LSInfo/SystemInfo.h"
#include "vetraTests/LSInfo/WrappingSum.h"

namespace vetraTests {

namespace {

constexpr const char* moduleSizesInMegabytes =
    R"(/usr/sbin/dmidecode --type 17 | grep "Size" | grep "MB")";
constexpr const char* moduleSizesInGigabytes =
    R"(/usr/sbin/dmidecode --type 17 | grep "Size" | grep "GB")";
constexpr const char* moduleSpeedLines = R"(/usr/sbin/dmidecode --type 17 | grep "Speed")";
constexpr const char* nodeSizeLines = R"(numactl --hardware | grep "size" | grep "MB")";

constexpr std::string_view configuredSpeed = "Configured Clock Speed";

// Shifts of sizes wrap in 32 bits.
std::int32_t timesThousandAndTwentyFour(std::int32_t gigabytes)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(gigabytes) << 10);
}

void appendLine(string& lines, const string& line)
{
    lines.append(line).append("\n");
}

}  // namespace

void SystemInfo::gatherMemoryInfo()
{
    if (Basis::contains(getArch(), "x86")) {
        gatherMemoryDimmSizeInfo();
        gatherMemoryDimmSpeedInfo();
    }
    currentGroup.clear();
}

void SystemInfo::gatherMemoryDimmSizeInfo()
{
    ModuleSizeLines lines{run(moduleSizesInMegabytes), run(moduleSizesInGigabytes)};
    if (lines.megabytes.empty() && lines.gigabytes.empty()) {
        KORSysFileName();
        std::ifstream dump(biosFileName.c_str());
        lines = moduleSizesOfBiosDump(dump);
    }
    readModuleSizes(lines);
}

SystemInfo::ModuleSizeLines SystemInfo::moduleSizesOfBiosDump(std::istream& file) const
{
    ModuleSizeLines lines{string(&allocator), string(&allocator)};
    for (string line(&allocator); Basis::readLine(file, line);) {
        if (!Basis::contains(line, "Size"))
            continue;
        if (Basis::contains(line, "MB"))
            appendLine(lines.megabytes, line);
        // The range of a memory array is no module; only those in GB are told apart.
        if (Basis::contains(line, "GB") && !Basis::contains(line, "Range"))
            appendLine(lines.gigabytes, line);
    }
    return lines;
}

void SystemInfo::readModuleSizes(const ModuleSizeLines& lines)
{
    Numbers sizesMb(&allocator);
    for (const std::string_view line : Basis::split(lines.megabytes, '\n', allocator))
        sizesMb.push_back(valueOf(line));
    for (const std::string_view line : Basis::split(lines.gigabytes, '\n', allocator))
        sizesMb.push_back(timesThousandAndTwentyFour(valueOf(line)));

    currentGroup.clear();
    if (!sizesMb.empty()) {
        dimmsizeListItems = joined(sizesMb);
        insert("dimmsize list items", dimmsizeListItems);
    }
    dimmsizeListLength = decimal(static_cast<std::int32_t>(sizesMb.size()));
    insert("dimmsize list length", dimmsizeListLength);
    dimmSize = decimal(wrappingSum(sizesMb));
    insert("dimmSize", dimmSize);
}

void SystemInfo::gatherMemoryDimmSpeedInfo()
{
    ModuleSpeeds speeds{Numbers(&allocator), Numbers(&allocator)};
    readModuleSpeeds(run(moduleSpeedLines), speeds);
    if (speeds.physical.empty() && speeds.configured.empty()) {
        KORSysFileName();
        std::ifstream dump(biosFileName.c_str());
        speeds = moduleSpeedsOfBiosDump(dump);
    }
    if (!speeds.physical.empty()) {
        dimmSpeedphysical = joined(speeds.physical);
        insert("dimmSpeedphysical", dimmSpeedphysical);
    }
    storeGroup("validateMemory");
}

void SystemInfo::readModuleSpeeds(std::string_view output, ModuleSpeeds& speeds) const
{
    for (const std::string_view line : Basis::split(output, '\n', allocator)) {
        if (!Basis::contains(line, "Speed")) {
            std::cout << "Speed not found in dmidecode" << std::endl;
            continue;
        }
        if (!Basis::contains(line, "MHz"))
            continue;
        Numbers& list =
            Basis::contains(line, configuredSpeed) ? speeds.configured : speeds.physical;
        list.push_back(valueOf(line));
    }
}

SystemInfo::ModuleSpeeds SystemInfo::moduleSpeedsOfBiosDump(std::istream& file) const
{
    ModuleSpeeds speeds{Numbers(&allocator), Numbers(&allocator)};
    for (string line(&allocator); Basis::readLine(file, line);) {
        if (!Basis::contains(line, "MHz"))
            continue;
        if (Basis::contains(line, configuredSpeed)) {
            speeds.configured.push_back(valueOf(line));
        } else if (Basis::contains(line, "Speed") && !Basis::contains(line, "Max Speed") &&
                   !Basis::contains(line, "Current Speed")) {
            speeds.physical.push_back(valueOf(line));
        }
    }
    return speeds;
}

void SystemInfo::gatherMemoryDistributionInfo()
{
    if (Basis::contains(getArch(), "x86")) {
        readNodeSizes(run(nodeSizeLines));
        insert("nodesize list items", nodesizeListItems);
        storeGroup("validateMemoryDistribution");
    }
    currentGroup.clear();
}

void SystemInfo::readNodeSizes(std::string_view output)
{
    Numbers sizesMb(&allocator);
    for (const std::string_view line : Basis::split(output, '\n', allocator))
        sizesMb.push_back(valueOf(line));
    if (!sizesMb.empty())
        nodesizeListItems = joined(sizesMb);
}

}  // namespace vetraTests
