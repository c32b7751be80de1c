#include "fuzz/FuzzedInfo.h"

#include <algorithm>
#include <iterator>
#include <sstream>
#include <string>

#include "Basis/Crash.h"
#include "Basis/Text.h"

namespace VetraFuzz {

namespace {

using Basis::assertThat;

std::string_view firstLine(std::string_view text)
{
    return Basis::trimmed(Basis::beforeFirst(text, "\n"));
}

bool isTrimmed(std::string_view text)
{
    return Basis::trimmed(text) == text;
}

std::istringstream fileOf(std::string_view text)
{
    return std::istringstream(std::string(text));
}

}  // namespace

const FuzzedInfo::Source FuzzedInfo::sources[] = {
    {'p', &FuzzedInfo::processors},
    {'s', &FuzzedInfo::suseRelease},
    {'r', &FuzzedInfo::redHatRelease},
    {'k', &FuzzedInfo::uname},
    {'c', &FuzzedInfo::clockSource},
    {'m', &FuzzedInfo::memory},
    {'h', &FuzzedInfo::scanner},
    {'n', &FuzzedInfo::product},
    {'x', &FuzzedInfo::maxFrequency},
    {'f', &FuzzedInfo::frequencies},
    {'d', &FuzzedInfo::moduleSizes},
    {'v', &FuzzedInfo::moduleSpeeds},
    {'o', &FuzzedInfo::nodeSizes},
    {'b', &FuzzedInfo::biosDump},
    {'t', &FuzzedInfo::hugePages},
    {'i', &FuzzedInfo::scalingDriverLine},
    {'g', &FuzzedInfo::scalingGovernorLine},
    {'l', &FuzzedInfo::commandLine},
    {'e', &FuzzedInfo::expectedProcessors},
    {'q', &FuzzedInfo::memoryRatio},
    {'a', &FuzzedInfo::machine},
};

const FuzzedInfo::Source& FuzzedInfo::sourceOf(char letter)
{
    for (const Source& source : sources) {
        if (source.letter == letter)
            return source;
    }
    return sources[static_cast<unsigned char>(letter) % std::size(sources)];
}

void FuzzedInfo::gather(std::string_view input)
{
    for (const std::string_view piece : Basis::split(input, '~', allocator)) {
        if (piece.empty())
            continue;
        const Source& source = sourceOf(piece.front());
        (this->*source.read)(piece.substr(1));
        storeGroup(std::string_view(&source.letter, 1));
        currentGroup.clear();
    }
}

void FuzzedInfo::machine(std::string_view text)
{
    isX86 = Basis::contains(text, "x86");
}

void FuzzedInfo::processors(std::string_view text)
{
    std::istringstream file = fileOf(text);
    ProcessorCounts counts{Basis::set<string>(&allocator), Numbers(&allocator)};
    readProcessors(file, counts);
    assertThat(isTrimmed(modelName) && !Basis::contains(modelName, "@"), "a model has no clock");
    socketCount = decimal(static_cast<std::int64_t>(counts.socketIds.size()));
    lpCount = decimal(counts.logicalProcessors);
    cpuSpeed = joined(counts.speedsMhz);
}

void FuzzedInfo::suseRelease(std::string_view text)
{
    std::istringstream file = fileOf(text);
    readSuseRelease(file);
}

void FuzzedInfo::redHatRelease(std::string_view text)
{
    std::istringstream file = fileOf(text);
    readRedHatRelease(file);
}

void FuzzedInfo::uname(std::string_view text)
{
    readKernelRelease(Basis::trimmed(text));
}

void FuzzedInfo::clockSource(std::string_view text)
{
    std::istringstream file = fileOf(text);
    readClockSource(file);
    assertThat(isTrimmed(clockInfo), "the clock source is trimmed");
}

void FuzzedInfo::memory(std::string_view text)
{
    std::istringstream file = fileOf(text);
    readTotalMemory(file);
    assertThat(!Basis::contains(memTotalKb, " "), "the total has no unit");
}

void FuzzedInfo::scanner(std::string_view text)
{
    readScannerOutput(text);
    assertThat(isTrimmed(hypervisor) && isTrimmed(hyVendorId), "what the scanner says is trimmed");
}

void FuzzedInfo::product(std::string_view text)
{
    readProductName(Basis::trimmed(text));
    assertThat(isTrimmed(productName) && !Basis::contains(productName, "-["),
               "a product name has no asset tag");
}

void FuzzedInfo::maxFrequency(std::string_view text)
{
    std::istringstream file = fileOf(text);
    readMaxFrequency(file);
}

void FuzzedInfo::frequencies(std::string_view text)
{
    readProcessorFrequencies(text);
}

void FuzzedInfo::moduleSizes(std::string_view text)
{
    const std::string_view megabytes = Basis::beforeFirst(text, "|");
    const std::string_view gigabytes = text.substr(std::min(megabytes.size() + 1, text.size()));
    readModuleSizes({string(megabytes, &allocator), string(gigabytes, &allocator)});
}

void FuzzedInfo::moduleSpeeds(std::string_view text)
{
    ModuleSpeeds speeds{Numbers(&allocator), Numbers(&allocator)};
    readModuleSpeeds(text, speeds);
    keepSpeeds(speeds);
}

void FuzzedInfo::nodeSizes(std::string_view text)
{
    readNodeSizes(text);
}

void FuzzedInfo::biosDump(std::string_view text)
{
    std::istringstream sizes = fileOf(text);
    readModuleSizes(moduleSizesOfBiosDump(sizes));
    std::istringstream speeds = fileOf(text);
    keepSpeeds(moduleSpeedsOfBiosDump(speeds));
    std::istringstream processorsOfDump = fileOf(text);
    readProcessorFrequencies(processorFrequenciesOfBiosDump(processorsOfDump));
    std::istringstream names = fileOf(text);
    readProductName(productNameOfBiosDump(names));
}

void FuzzedInfo::hugePages(std::string_view text)
{
    thp = firstLine(text);
}

void FuzzedInfo::scalingDriverLine(std::string_view text)
{
    scalingDriver = firstLine(text);
}

void FuzzedInfo::scalingGovernorLine(std::string_view text)
{
    scalingGovernor = firstLine(text);
}

void FuzzedInfo::commandLine(std::string_view text)
{
    procCmdline = firstLine(text);
}

void FuzzedInfo::expectedProcessors(std::string_view text)
{
    ppCount = decimal(Basis::toInt32(text));
}

void FuzzedInfo::memoryRatio(std::string_view text)
{
    coreMemoryRatio = decimal(Basis::toInt32(text));
}

void FuzzedInfo::keepSpeeds(const ModuleSpeeds& speeds)
{
    dimmSpeedphysical = joined(speeds.physical);
}

}  // namespace VetraFuzz
