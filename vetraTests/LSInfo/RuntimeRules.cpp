// The runtime packages of each distribution.

#include <iterator>

#include "Basis/Text.h"
#include "vetraTests/LSInfo/AllowedDistributions.h"
#include "vetraTests/LSInfo/ValidateSystemInfo.h"

namespace vetraTests {

namespace {

constexpr std::string_view rule = "validateRuntime";
constexpr std::string_view item = "('runtime'";

constexpr std::string_view distributionUnclear =
    "Problem in identifying Runtime Environment in OS Distribution.";
constexpr std::string_view notReadyOnRedHat =
    "Runtime environment in this distribution is not ready for ZIRN 2.0.\n"
    "Please see KOR Note 2455582 for more details.";
constexpr std::string_view notReadyOnSuse =
    "Runtime environment is not ready for ZIRN 2.0. \n"
    "Please see KOR Note 2455582 for more details.";

constexpr std::string_view compatPackageOf72 = "compat-kor-c++-6.el7_2.x86_64";
constexpr std::string_view compatPackageOf73 = "compat-kor-c++-6-6.3.1-1.el7_3.x86_64";
constexpr std::string_view glibcPackageOf73 = "glibc-2.17-157.el7_3.x86_64";

constexpr std::string_view standardLibraries[] = {
    "libstdc++6-5.3.1+r233831",
    "libstdc++6-6.2.1+r239768",
};
constexpr std::string_view gccLibraries[] = {
    "libgcc_s1-5.3.1+r233831",
    "libgcc_s1-6.2.1+r239768",
};
constexpr std::string_view suseReleases[] = {"10.1", "9.1.x86_64", "2.4.x86_64"};

using Packages = Basis::vector<string>;

// One `found` for each line that holds `searched`.
Packages collect(const Packages& installed, std::string_view searched, std::string_view found)
{
    Packages collected(installed.get_allocator());
    for (const string& line : installed) {
        if (Basis::contains(line, searched))
            collected.emplace_back(found);
    }
    return collected;
}

// The words of a group that are installed in one of the releases, once per release. The release is
// the third field between the dashes; a line without it does not count.
template <std::size_t count>
Packages collectReleased(const Packages& installed, const std::string_view (&words)[count],
                         Basis::Allocator& allocator)
{
    constexpr std::size_t releaseField = 2;
    Packages collected(&allocator);
    for (const std::string_view word : words) {
        for (const string& line : installed) {
            if (!Basis::contains(line, word))
                continue;
            const auto fields = Basis::split(line, '-', allocator);
            if (fields.size() <= releaseField)
                continue;
            for (const std::string_view release : suseReleases) {
                if (Basis::contains(fields[releaseField], release))
                    collected.emplace_back(word);
            }
        }
    }
    return collected;
}

}  // namespace

string ValidateSystemInfo::validateRuntime(const SystemInfo& facts, const string& arch)
{
    const string distribution = facts.getDistribution();
    if (!Basis::contains(arch, "x86"))
        return conclude(rule, Outcome::couldNotRun(item, distributionUnclear));

    string block(&allocator);
    if (Basis::contains(distribution, suse12))
        block = validateRuntime_X86SuSE12(facts);
    if (Basis::contains(distribution, redHat72))
        block = validateRuntime_X86_RHEL7_2(facts);
    if (Basis::contains(distribution, redHat73))
        block = validateRuntime_X86_RHEL7_3(facts);
    return block;
}

string ValidateSystemInfo::validateRuntime_X86_RHEL7_2(const SystemInfo& facts)
{
    if (!Basis::contains(facts.getDistribution(), redHat72))
        return conclude(rule, Outcome::failed(item, "", distributionUnclear));
    const Packages installed = installedPackages(facts);
    return runtimeOutcome(notReadyOnRedHat,
                          !collect(installed, compatPackageOf72, compatPackageOf72).empty());
}

string ValidateSystemInfo::validateRuntime_X86_RHEL7_3(const SystemInfo& facts)
{
    if (!Basis::contains(facts.getDistribution(), redHat73))
        return conclude(rule, Outcome::failed(item, "", distributionUnclear));
    const Packages installed = installedPackages(facts);
    const Packages compat = collect(installed, compatPackageOf73, compatPackageOf73);
    // The compatibility package stands for the C library as well, which is named but not looked
    // for.
    const Packages glibc = collect(installed, compatPackageOf73, glibcPackageOf73);
    return runtimeOutcome(notReadyOnRedHat, !compat.empty() && !glibc.empty());
}

string ValidateSystemInfo::validateRuntime_X86SuSE12(const SystemInfo& facts)
{
    const Packages installed = installedPackages(facts);
    const Packages standard = collectReleased(installed, standardLibraries, allocator);
    const Packages gcc = collectReleased(installed, gccLibraries, allocator);
    return runtimeOutcome(notReadyOnSuse, !standard.empty() && !gcc.empty());
}

string ValidateSystemInfo::runtimeOutcome(std::string_view failure, bool isReady)
{
    return conclude(rule, isReady ? Outcome::passed(item, "") : Outcome::failed(item, "", failure));
}

Basis::vector<string> ValidateSystemInfo::installedPackages(const SystemInfo& facts) const
{
    string command("rpm -q -a", &allocator);
    const string output = facts.getCommand(command);
    Basis::vector<string> lines(&allocator);
    for (const std::string_view line : Basis::split(output, '\n', allocator))
        lines.emplace_back(line);
    return lines;
}

}  // namespace vetraTests
