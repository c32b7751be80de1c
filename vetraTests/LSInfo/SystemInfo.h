#pragma once

#include <cstdint>
#include <istream>
#include <string_view>

#include "Basis/Containers.h"

namespace vetraTests {

using Basis::string;

/// Everything that is known of the host. Each fact is kept twice: as a member for the rules, and as
/// an entry of a group for the fact document.
///
/// The two differ on purpose where a key is met more than once: the entry keeps the first value,
/// the member the last. A fact that no gatherer reached is empty.
///
/// Units:      stand in the name or in the comment of the accessor; all facts are text.
/// Threads:    one thread per object. Commands block it until they have ended.
/// Errors:     a missing file or a failing command leaves its facts empty; nothing throws for it.
class SystemInfo {
public:
    /// Group name to fact key to fact value.
    using Facts = Basis::map<string, string>;
    using FactGroups = Basis::map<string, Facts>;

    explicit SystemInfo(Basis::Allocator& ownerAllocator);

    /// Runs all gatherers (none on a machine that is not x86) and returns the fact document. A
    /// second call refreshes members but no entries.
    string gatherInfo();

    /// The fact document: groups and entries in byte order of their names. Nothing is escaped, so a
    /// value with a quotation mark makes a text that is no JSON.
    string produceJson(const FactGroups& groups) const;

    /// "x86" for a machine whose name holds these letters, otherwise "not valid".
    string getArch() const;

    /// Runs a shell command and returns what it printed, the diagnostics of its last stage
    /// included. `command` keeps the redirection that is added to it.
    string getCommand(string& command) const;

    /// Strips blanks, carriage returns, line feeds and tabs from both ends.
    void trim(string& text) const;

    /// Sets the name of the text dump of the BIOS tables that the installation of the database
    /// leaves on the host: the source of last resort where dmidecode gives nothing.
    void KORSysFileName();
    /// The name that KORSysFileName has set.
    string getBiosFileName() const { return copyOf(biosFileName); }

    void gatherDistribution_LinuxKernelVersion_Info();
    void gatherClockSourceInfo();
    void gatherX86_CPU_HTT_CMRatio_Info();
    void gatherTotalMemoryInfo();
    void gatherHypervisorInfo();
    void gatherApplianceSystemTypeInfo();
    void gatherTHPInfo();
    void gatherRuntimeInfo();
    void gatherMemoryInfo();
    /// Leaves its entries for gatherMemoryDimmSpeedInfo, which stores the group of both.
    void gatherMemoryDimmSizeInfo();
    void gatherMemoryDimmSpeedInfo();
    void gatherMemoryDistributionInfo();
    void gatherCPUgovernorInfo();

    string getDistribution() const { return copyOf(distribution); }
    string getVersion() const { return copyOf(version); }
    string getPatchLevel() const { return copyOf(patchLevel); }
    string getKernelVersion() const { return copyOf(kernelVersion); }
    string getMajorVersion() const { return copyOf(majorVersion); }
    string getMinorVersion() const { return copyOf(minorVersion); }
    string getKernelRelease() const { return copyOf(kernelRelease); }
    string getClockInfo() const { return copyOf(clockInfo); }
    string getCPUCores() const { return copyOf(cpuCores); }
    string getCPUFamily() const { return copyOf(cpuFamily); }
    string getCPUSpeed() const { return copyOf(cpuSpeed); }
    string getCPUFlags() const { return copyOf(cpuFlags); }
    string getLPCount() const { return copyOf(lpCount); }
    string getModel() const { return copyOf(model); }
    string getModelName() const { return copyOf(modelName); }
    string getPhysicalId() const { return copyOf(physicalId); }
    string getProcessor() const { return copyOf(processor); }
    string getSocketCount() const { return copyOf(socketCount); }
    string getVendorId() const { return copyOf(vendorId); }
    string getCPUName() const { return copyOf(cpuName); }
    string getCPUVersion() const { return copyOf(cpuVersion); }
    string getCpus() const { return copyOf(cpus); }
    string getCpuMode() const { return copyOf(cpuMode); }
    string getCpuModeNum() const { return copyOf(cpuModeNum); }
    string getServerModel() const { return copyOf(serverModel); }
    string getHypervisor() const { return copyOf(hypervisor); }
    string getHyVendorId() const { return copyOf(hyVendorId); }
    string getPPChypervisorVendor() const { return copyOf(ppcHypervisorVendor); }
    string getThp() const { return copyOf(thp); }
    string getProductName() const { return copyOf(productName); }
    string getCpuCoresCount() const { return copyOf(cpuCoresCount); }
    string getPPCount() const { return copyOf(ppCount); }
    string getLparType() const { return copyOf(lparType); }
    std::int32_t getSmt() const { return smt; }
    string getAms() const { return copyOf(ams); }
    string getAme() const { return copyOf(ame); }
    string getPowerMode() const { return copyOf(powerMode); }
    string getRpmCompatkorList() const { return copyOf(rpmCompatkorList); }
    string getRpmlibgccList() const { return copyOf(rpmlibgccList); }
    string getRpmlibstdList() const { return copyOf(rpmlibstdList); }
    string getDimmSize() const { return copyOf(dimmSize); }
    string getDimmSpeedphysical() const { return copyOf(dimmSpeedphysical); }
    string getDimmsizeListItems() const { return copyOf(dimmsizeListItems); }
    string getDimmsizeListLength() const { return copyOf(dimmsizeListLength); }
    std::int64_t getPPCTotalMemory() const { return ppcTotalMemory; }
    string getNodesizeListItems() const { return copyOf(nodesizeListItems); }
    string getDimmfreqList() const { return copyOf(dimmfreqList); }
    string getMaxFreq() const { return copyOf(maxFreq); }
    string getProcCmdline() const { return copyOf(procCmdline); }
    string getScalingDriver() const { return copyOf(scalingDriver); }
    string getScalingGovernor() const { return copyOf(scalingGovernor); }
    string getCoreMemoryRatio() const { return copyOf(coreMemoryRatio); }
    string getTotalMemory() const { return copyOf(totalMemory); }
    string getPowerModelInfo() const { return copyOf(powerModelInfo); }
    string getPowerModelName() const { return copyOf(powerModelName); }
    string getPowerModelKORCLS() const { return copyOf(powerModelKORCLS); }
    string getPowerModelMXCPU() const { return copyOf(powerModelMXCPU); }
    string getPowerModelMXMEM() const { return copyOf(powerModelMXMEM); }
    string getPowerModelCPUGN() const { return copyOf(powerModelCPUGN); }

protected:
    using Numbers = Basis::vector<std::int32_t>;
    using Lines = Basis::vector<string>;

    /// What one pass over the processor list leaves besides the facts.
    struct ProcessorCounts {
        Basis::set<string> socketIds;
        Numbers speedsMhz;  ///< one per logical processor
        std::int32_t logicalProcessors = 0;
    };

    /// The size lines of the memory modules, by their unit.
    struct ModuleSizeLines {
        string megabytes;
        string gigabytes;
    };

    /// The speeds of the memory modules in MHz.
    struct ModuleSpeeds {
        Numbers physical;
        Numbers configured;
    };

    // The readers of foreign text. Each gatherer opens its sources and hands them to one of these.
    void readSuseRelease(std::istream& file);
    void readRedHatRelease(std::istream& file);
    void readKernelRelease(std::string_view release);
    void readClockSource(std::istream& file);
    void readTotalMemory(std::istream& file);
    void readProcessors(std::istream& file, ProcessorCounts& counts);
    void readScannerOutput(std::string_view output);
    void readProductName(std::string_view text);
    void readMaxFrequency(std::istream& file);
    void readProcessorFrequencies(std::string_view output);
    void readModuleSizes(const ModuleSizeLines& lines);
    void readModuleSpeeds(std::string_view output, ModuleSpeeds& speeds) const;
    void readNodeSizes(std::string_view output);
    ModuleSizeLines moduleSizesOfBiosDump(std::istream& file) const;
    ModuleSpeeds moduleSpeedsOfBiosDump(std::istream& file) const;
    string processorFrequenciesOfBiosDump(std::istream& file) const;
    string productNameOfBiosDump(std::istream& file) const;

    /// Adds an entry to the group under construction unless its key is there.
    void insert(std::string_view key, std::string_view value);
    /// Keeps a copy of the group under construction unless a group of that name is there.
    void storeGroup(std::string_view name);
    /// Assigns each line of a file to a fact, so that the last one counts, and inserts it.
    void gatherLines(const char* path, string& fact, std::string_view key);

    string copyOf(const string& fact) const { return string(fact, &allocator); }
    string run(std::string_view command) const;
    string decimal(std::int64_t number) const;
    string joined(const Numbers& numbers) const;
    /// The number of a line such as "Size: 32 GB": behind the first colon, behind the first blank.
    static std::int32_t valueOf(std::string_view line);

    Basis::Allocator& allocator;
    FactGroups factGroups;
    Facts currentGroup;
    string jsonText;
    string biosFileName;
    string memTotalKb;

    string distribution;
    string version;
    string patchLevel;
    string kernelVersion;
    string majorVersion;
    string minorVersion;
    string kernelRelease;
    string clockInfo;
    string cpuCores;
    string cpuFamily;
    string cpuSpeed;
    string cpuFlags;
    string lpCount;
    string model;
    string modelName;
    string physicalId;
    string processor;
    string socketCount;
    string vendorId;
    string cpuName;
    string cpuVersion;
    string cpus;
    string cpuMode;
    string cpuModeNum;
    string serverModel;
    string hypervisor;
    string hyVendorId;
    string ppcHypervisorVendor;
    string thp;
    string productName;
    string cpuCoresCount;
    string ppCount;
    string lparType;
    std::int32_t smt = 0;
    string ams;
    string ame;
    string powerMode;
    string rpmCompatkorList;
    string rpmlibgccList;
    string rpmlibstdList;
    string dimmSize;
    string dimmSpeedphysical;
    string dimmsizeListItems;
    string dimmsizeListLength;
    std::int64_t ppcTotalMemory = 0;
    string nodesizeListItems;
    string dimmfreqList;
    string maxFreq;
    string procCmdline;
    string scalingDriver;
    string scalingGovernor;
    string coreMemoryRatio;
    string totalMemory;
    string powerModelInfo;
    string powerModelName;
    string powerModelKORCLS;
    string powerModelMXCPU;
    string powerModelMXMEM;
    string powerModelCPUGN;
};

}  // namespace vetraTests
