#pragma once

#include <string_view>

#include "vetraTests/LSInfo/SystemInfo.h"

namespace VetraFuzz {

using Basis::string;

/// A host made of arbitrary text.
///
/// An input is cut at each "~" into sources. The first letter of a source says which file or
/// command it stands for, and the rest is what that would have given. Any other first byte stands
/// for one of the letters, too, so that every byte of an input does something.
class FuzzedInfo : public vetraTests::SystemInfo {
public:
    using SystemInfo::SystemInfo;

    void gather(std::string_view input);

    const FactGroups& groups() const { return factGroups; }

    /// The architecture for the rules: "x86" unless a source says that the machine is another.
    string architecture() const { return string(isX86 ? "x86" : "not valid", &allocator); }

private:
    using Reader = void (FuzzedInfo::*)(std::string_view text);
    struct Source {
        char letter;
        Reader read;
    };
    static const Source sources[];
    static const Source& sourceOf(char letter);

    void machine(std::string_view text);

    // Files and commands that have a reader of their own.
    void processors(std::string_view text);
    void suseRelease(std::string_view text);
    void redHatRelease(std::string_view text);
    void uname(std::string_view text);
    void clockSource(std::string_view text);
    void memory(std::string_view text);
    void scanner(std::string_view text);
    void product(std::string_view text);
    void maxFrequency(std::string_view text);
    void frequencies(std::string_view text);
    /// The lines in megabytes, "|", the lines in gigabytes.
    void moduleSizes(std::string_view text);
    void moduleSpeeds(std::string_view text);
    void nodeSizes(std::string_view text);
    void biosDump(std::string_view text);

    // Facts that are one line, or one number that another gatherer has worked out.
    void hugePages(std::string_view text);
    void scalingDriverLine(std::string_view text);
    void scalingGovernorLine(std::string_view text);
    void commandLine(std::string_view text);
    void expectedProcessors(std::string_view text);
    void memoryRatio(std::string_view text);

    void keepSpeeds(const ModuleSpeeds& speeds);

    bool isX86 = true;
};

}  // namespace VetraFuzz
