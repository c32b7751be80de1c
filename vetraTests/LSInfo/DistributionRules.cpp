// Distribution and kernel.

#include <algorithm>

#include "Basis/Text.h"
#include "vetraTests/LSInfo/AllowedDistributions.h"
#include "vetraTests/LSInfo/KernelThresholds.h"
#include "vetraTests/LSInfo/ValidateSystemInfo.h"

namespace vetraTests {

namespace {

bool fits(const KernelThreshold& threshold, const string& distribution, const string& patchLevel)
{
    return Basis::contains(distribution, threshold.distribution) &&
           std::any_of(std::begin(threshold.patchLevels), std::end(threshold.patchLevels),
                       [&](std::string_view level) { return Basis::contains(patchLevel, level); });
}

}  // namespace

string ValidateSystemInfo::validateDistribution(const SystemInfo& facts, const string&)
{
    constexpr std::string_view item = "('distribution_patchlevel'";
    const string patchLevel = facts.getPatchLevel();

    // Measured as x86 on any machine; the other rows are never met.
    CheckReport measured(&allocator);
    measured.emplace("x86", CheckOutcomes(&allocator))
        ->second.emplace(facts.getDistribution(), patchLevel);
    CheckReport allowed(&allocator);
    for (const AllowedDistribution& row : allowedDistributions) {
        allowed.emplace(row.architecture, CheckOutcomes(&allocator))
            ->second.emplace(row.line, row.patchLevel);
    }

    if (compareMaps(allowed, measured))
        return conclude("validateDistribution", Outcome::passed(item, patchLevel));
    return conclude("validateDistribution",
                    Outcome::failed(item, patchLevel,
                                    "The operating system distribution is not sufficient \n"
                                    " to operate KOR ZIRN for production environments. \n"
                                    " Please see KOR Note 2235581 for more details."));
}

string ValidateSystemInfo::validateLinuxKernelVersion(const SystemInfo& facts, const string& arch)
{
    constexpr std::string_view rule = "validateLinuxKernelVersion";
    constexpr std::string_view item = "('linuxkernelversion'";
    const string distributionVerdict = verdictOf(validateDistribution(facts, arch));
    const string distribution = facts.getDistribution();
    const string patchLevel = facts.getPatchLevel();
    const string kernel = facts.getKernelVersion();
    const string major = facts.getMajorVersion();
    const string minor = facts.getMinorVersion();
    string value(kernel, &allocator);
    value.append("-").append(major).append("-").append(minor);

    if (!Basis::contains(arch, "x86"))
        return conclude(rule, Outcome::wrongArchitecture());
    if (!Basis::contains(distributionVerdict, "SUCESS")) {
        return conclude(rule,
                        Outcome::notApplicable(item, value, "validateDistribution is a failure"));
    }

    const auto* threshold = std::find_if(
        std::begin(kernelThresholds), std::end(kernelThresholds),
        [&](const KernelThreshold& row) { return fits(row, distribution, patchLevel); });
    // Each number by itself: a newer kernel with a lower second or third number is advised against.
    if (Basis::toInt32(kernel) < threshold->kernel || Basis::toInt32(major) < threshold->major ||
        Basis::toInt32(minor) < threshold->minor)
        return conclude(rule, Outcome::advised(item, value, threshold->message));
    return conclude(rule, Outcome::passed(item, value));
}

}  // namespace vetraTests
