#include "vetraTests/LSInfo/SystemInfo.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <utility>

#include "Basis/Text.h"
#include "System/Environment.h"

namespace vetraTests {

SystemInfo::SystemInfo(Basis::Allocator& ownerAllocator)
    : allocator(ownerAllocator),
      factGroups(&allocator),
      currentGroup(&allocator),
      jsonText(&allocator),
      biosFileName(&allocator),
      memTotalKb(&allocator),
      distribution(&allocator),
      version(&allocator),
      patchLevel(&allocator),
      kernelVersion(&allocator),
      majorVersion(&allocator),
      minorVersion(&allocator),
      kernelRelease(&allocator),
      clockInfo(&allocator),
      cpuCores(&allocator),
      cpuFamily(&allocator),
      cpuSpeed(&allocator),
      cpuFlags(&allocator),
      lpCount(&allocator),
      model(&allocator),
      modelName(&allocator),
      physicalId(&allocator),
      processor(&allocator),
      socketCount(&allocator),
      vendorId(&allocator),
      cpuName(&allocator),
      cpuVersion(&allocator),
      cpus(&allocator),
      cpuMode(&allocator),
      cpuModeNum(&allocator),
      serverModel(&allocator),
      hypervisor(&allocator),
      hyVendorId(&allocator),
      ppcHypervisorVendor(&allocator),
      thp(&allocator),
      productName(&allocator),
      cpuCoresCount(&allocator),
      ppCount(&allocator),
      lparType(&allocator),
      ams(&allocator),
      ame(&allocator),
      powerMode(&allocator),
      rpmCompatkorList(&allocator),
      rpmlibgccList(&allocator),
      rpmlibstdList(&allocator),
      dimmSize(&allocator),
      dimmSpeedphysical(&allocator),
      dimmsizeListItems(&allocator),
      dimmsizeListLength(&allocator),
      nodesizeListItems(&allocator),
      dimmfreqList(&allocator),
      maxFreq(&allocator),
      procCmdline(&allocator),
      scalingDriver(&allocator),
      scalingGovernor(&allocator),
      coreMemoryRatio(&allocator),
      totalMemory(&allocator),
      powerModelInfo(&allocator),
      powerModelName(&allocator),
      powerModelKORCLS(&allocator),
      powerModelMXCPU(&allocator),
      powerModelMXMEM(&allocator),
      powerModelCPUGN(&allocator)
{
}

string SystemInfo::gatherInfo()
{
    if (Basis::contains(getArch(), "x86")) {
        gatherDistribution_LinuxKernelVersion_Info();
        gatherClockSourceInfo();
        gatherX86_CPU_HTT_CMRatio_Info();
        gatherHypervisorInfo();
        gatherApplianceSystemTypeInfo();
        gatherTHPInfo();
        gatherRuntimeInfo();
        gatherMemoryInfo();
        gatherMemoryDistributionInfo();
        gatherCPUgovernorInfo();
    }
    jsonText = produceJson(factGroups);
    return copyOf(jsonText);
}

string SystemInfo::produceJson(const FactGroups& groups) const
{
    Basis::ostringstream text = Basis::outputStream(allocator);
    text << "{\n";
    const char* groupHead = "   \"";
    for (const auto& [name, facts] : groups) {
        text << std::exchange(groupHead, "   ,\"") << name << "\" : {\n";
        const char* entryHead = "      \"";
        for (const auto& [key, value] : facts)
            text << std::exchange(entryHead, "      ,\"") << key << "\" :\"" << value << "\"\n";
        text << "   }\n";
    }
    text << "}\n";
    return text.str();
}

string SystemInfo::getArch() const
{
    utsname names{};
    const bool isX86 = ::uname(&names) == 0 && Basis::contains(names.machine, "x86");
    return string(isX86 ? "x86" : "not valid", &allocator);
}

string SystemInfo::getCommand(string& command) const
{
    command.append(" 2>&1");
    string output(&allocator);
    std::FILE* pipe = ::popen(command.c_str(), "r");
    if (!pipe) {
        ::dprintf(STDERR_FILENO, "vetra: cannot start '%s': %s; its facts are missing\n",
                  command.c_str(), std::strerror(errno));
        return output;
    }
    char buffer[256];
    while (!std::feof(pipe) && !std::ferror(pipe)) {
        if (std::fgets(buffer, sizeof buffer, pipe))
            output.append(buffer);
    }
    ::pclose(pipe);
    return output;
}

void SystemInfo::trim(string& text) const
{
    text = string(Basis::trimmed(text), &allocator);
}

void SystemInfo::KORSysFileName()
{
    const char* systemName = System::Environment::getenv("KORSYSTEMNAME", nullptr);
    const char* host = System::Environment::getenv("HOST", nullptr);
    biosFileName.assign("/usr/kor/").append(systemName ? systemName : "");
    biosFileName.append("/SYS/global/zdb/install/hwinfo/bios_").append(host ? host : "");
    biosFileName.append(".txt");
}

void SystemInfo::insert(std::string_view key, std::string_view value)
{
    currentGroup.try_emplace(string(key, &allocator), value);
}

void SystemInfo::storeGroup(std::string_view name)
{
    factGroups.try_emplace(string(name, &allocator), currentGroup);
}

void SystemInfo::gatherLines(const char* path, string& fact, std::string_view key)
{
    std::ifstream file(path);
    for (string line(&allocator); Basis::readLine(file, line);) {
        fact = Basis::trimmed(line);
        insert(key, fact);
    }
}

string SystemInfo::run(std::string_view command) const
{
    string text(command, &allocator);
    return getCommand(text);
}

string SystemInfo::decimal(std::int64_t number) const
{
    return string(std::to_string(number), &allocator);
}

string SystemInfo::joined(const Numbers& numbers) const
{
    string list(&allocator);
    for (const std::int32_t number : numbers) {
        if (!list.empty())
            list.append(",");
        list.append(std::to_string(number));
    }
    return list;
}

std::int32_t SystemInfo::valueOf(std::string_view line)
{
    return Basis::toInt32(Basis::behindFirst(Basis::behindFirst(line, ":"), " "));
}

}  // namespace vetraTests
