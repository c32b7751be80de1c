#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "vetraTests/LSInfo/SystemInfo.h"

namespace vetraTests {

/// A text without its allocation domain, as the assertions compare and print it.
inline std::string plain(std::string_view text)
{
    return std::string(text);
}

/// A domain of a test's own, at zero bytes when the test ends.
inline std::shared_ptr<Basis::Allocator> testDomain()
{
    return Basis::Allocator::createChild(Basis::Allocator::global(), "LSInfoTest", 0);
}

/// The entries of one group of facts.
using Entries = std::map<std::string, std::string>;

/// Facts that a test sets itself, and the readers of foreign text that the gatherers use.
class HostFacts : public SystemInfo {
public:
    using SystemInfo::SystemInfo;

    using SystemInfo::ModuleSizeLines;
    using SystemInfo::ModuleSpeeds;
    using SystemInfo::Numbers;
    using SystemInfo::ProcessorCounts;

    using SystemInfo::moduleSizesOfBiosDump;
    using SystemInfo::moduleSpeedsOfBiosDump;
    using SystemInfo::processorFrequenciesOfBiosDump;
    using SystemInfo::productNameOfBiosDump;
    using SystemInfo::readClockSource;
    using SystemInfo::readKernelRelease;
    using SystemInfo::readMaxFrequency;
    using SystemInfo::readModuleSizes;
    using SystemInfo::readModuleSpeeds;
    using SystemInfo::readNodeSizes;
    using SystemInfo::readProcessorFrequencies;
    using SystemInfo::readProcessors;
    using SystemInfo::readProductName;
    using SystemInfo::readRedHatRelease;
    using SystemInfo::readScannerOutput;
    using SystemInfo::readSuseRelease;
    using SystemInfo::readTotalMemory;

    using SystemInfo::insert;
    using SystemInfo::storeGroup;
    using SystemInfo::valueOf;

    using SystemInfo::currentGroup;
    using SystemInfo::factGroups;
    using SystemInfo::jsonText;
    using SystemInfo::memTotalKb;

    using SystemInfo::ame;
    using SystemInfo::ams;
    using SystemInfo::clockInfo;
    using SystemInfo::coreMemoryRatio;
    using SystemInfo::cpuCores;
    using SystemInfo::cpuCoresCount;
    using SystemInfo::cpuFamily;
    using SystemInfo::cpuFlags;
    using SystemInfo::cpuMode;
    using SystemInfo::cpuModeNum;
    using SystemInfo::cpuName;
    using SystemInfo::cpus;
    using SystemInfo::cpuSpeed;
    using SystemInfo::cpuVersion;
    using SystemInfo::dimmfreqList;
    using SystemInfo::dimmSize;
    using SystemInfo::dimmsizeListItems;
    using SystemInfo::dimmsizeListLength;
    using SystemInfo::dimmSpeedphysical;
    using SystemInfo::distribution;
    using SystemInfo::hypervisor;
    using SystemInfo::hyVendorId;
    using SystemInfo::kernelRelease;
    using SystemInfo::kernelVersion;
    using SystemInfo::lparType;
    using SystemInfo::lpCount;
    using SystemInfo::majorVersion;
    using SystemInfo::maxFreq;
    using SystemInfo::minorVersion;
    using SystemInfo::model;
    using SystemInfo::modelName;
    using SystemInfo::nodesizeListItems;
    using SystemInfo::patchLevel;
    using SystemInfo::physicalId;
    using SystemInfo::powerMode;
    using SystemInfo::powerModelCPUGN;
    using SystemInfo::powerModelInfo;
    using SystemInfo::powerModelKORCLS;
    using SystemInfo::powerModelMXCPU;
    using SystemInfo::powerModelMXMEM;
    using SystemInfo::powerModelName;
    using SystemInfo::ppcHypervisorVendor;
    using SystemInfo::ppCount;
    using SystemInfo::ppcTotalMemory;
    using SystemInfo::procCmdline;
    using SystemInfo::processor;
    using SystemInfo::productName;
    using SystemInfo::rpmCompatkorList;
    using SystemInfo::rpmlibgccList;
    using SystemInfo::rpmlibstdList;
    using SystemInfo::scalingDriver;
    using SystemInfo::scalingGovernor;
    using SystemInfo::serverModel;
    using SystemInfo::smt;
    using SystemInfo::socketCount;
    using SystemInfo::thp;
    using SystemInfo::totalMemory;
    using SystemInfo::vendorId;
    using SystemInfo::version;

    /// The entries of a stored group; nothing if no group of that name was stored.
    std::optional<Entries> group(std::string_view name) const
    {
        const auto found = factGroups.find(string(name, &allocator));
        if (found == factGroups.end())
            return std::nullopt;
        return entriesOf(found->second);
    }

    /// The entries of the group under construction.
    Entries pending() const { return entriesOf(currentGroup); }

private:
    static Entries entriesOf(const Facts& facts)
    {
        Entries entries;
        for (const auto& [key, value] : facts)
            entries.emplace(plain(key), plain(value));
        return entries;
    }
};

}  // namespace vetraTests
