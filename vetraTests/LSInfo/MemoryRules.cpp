// Memory modules and NUMA nodes.

#include <algorithm>
#include <iostream>

#include "Basis/Text.h"
#include "vetraTests/LSInfo/AllowedMemoryTotals.h"
#include "vetraTests/LSInfo/ValidateSystemInfo.h"
#include "vetraTests/LSInfo/WrappingSum.h"

namespace vetraTests {

namespace {

constexpr std::string_view differentModules =
    "Different memory modules are used! This will have impact on memory performance";

std::int32_t difference(std::int32_t minuend, std::int32_t subtrahend)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(minuend) -
                                     static_cast<std::uint32_t>(subtrahend));
}

// True if a node lies outside of 0.95 to 1.05 times the average; each of those is said.
bool hasOutlier(const Basis::vector<std::int32_t>& nodeSizes, std::int32_t total)
{
    if (nodeSizes.empty())
        return false;
    const std::int32_t wholeAverage = total / static_cast<std::int32_t>(nodeSizes.size());
    const double average = wholeAverage;
    bool found = false;
    for (const std::int32_t node : nodeSizes) {
        const double size = node;
        if (size >= average * 0.95 && average * 1.05 >= size)
            continue;
        std::cout << "nodesize is too far from average nodesize" << std::endl;
        found = true;
    }
    return found;
}

}  // namespace

string ValidateSystemInfo::validateMemory(const SystemInfo& facts, const string& arch)
{
    constexpr std::string_view rule = "validateMemory";
    const string hypervisorVerdict = verdictOf(validateHypervisor(facts, arch));
    Numbers sizes = numbersOf(facts.getDimmsizeListItems());
    std::sort(sizes.begin(), sizes.end());
    const auto distinctSizes = std::unique(sizes.begin(), sizes.end()) - sizes.begin();
    const Numbers speeds = numbersOf(facts.getDimmSpeedphysical());
    const auto slowModules = std::count_if(speeds.begin(), speeds.end(),
                                           [](std::int32_t speed) { return speed <= tooSlowMhz; });
    const std::int32_t total = Basis::toInt32(facts.getDimmSize());

    if (!Basis::contains(arch, "x86"))
        return conclude(rule, Outcome::wrongArchitecture());
    if (Basis::contains(hypervisorVerdict, "SUCESS")) {
        return conclude(
            rule, Outcome::notApplicable(
                      "('hypervisormemory'", "",
                      "Memory rules for hypervisor configurations have to follow hypervisor "
                      "specific guidelines. Please see KOR Note 1788665 and the IAAS section of "
                      "the ZIRN Hardware Directory for details."));
    }
    if (distinctSizes != 1) {
        return conclude(rule, Outcome::failed("('invalid modulesize count'", decimal(distinctSizes),
                                              differentModules));
    }
    if (slowModules != 0) {
        // The record carries the message of the branch above.
        return conclude(
            rule,
            Outcome::failed("('invalid modulesspeed count'", decimal(slowModules),
                            "DIMM speed too slow! This will have impact on memory performance")
                .recording(differentModules));
    }
    if (std::find(std::begin(allowedMemoryTotalsMb), std::end(allowedMemoryTotalsMb), total) ==
        std::end(allowedMemoryTotalsMb)) {
        return conclude(
            rule, Outcome::failed("('totalmemory'", decimal(total),
                                  "Total memory size is not an allowed memory configuration"));
    }
    return conclude(rule, Outcome::passed("('memorycheck'", ""));
}

string ValidateSystemInfo::validateMemoryDistribution(const SystemInfo& facts, const string& arch)
{
    constexpr std::string_view rule = "validateMemoryDistribution";
    constexpr std::string_view item = "('memorydistribution'";
    const string memoryVerdict = verdictOf(validateMemory(facts, arch));
    if (Basis::contains(memoryVerdict, "SKIPPED")) {
        return conclude(
            rule, Outcome::notApplicable(
                      item, "",
                      "Since validate Memory is skipped, memory distribution is not applicable"));
    }
    if (Basis::contains(memoryVerdict, "FAILED")) {
        return conclude(rule, Outcome::notApplicable(
                                  item, "",
                                  "Since validateMemory failed and the memory distribution is \n"
                                  "not applicable"));
    }
    if (!Basis::contains(arch, "x86"))
        return conclude(rule, Outcome::wrongArchitecture());

    const string totalText = facts.getDimmSize();
    const std::int32_t total = Basis::toInt32(totalText);
    // A memory rule that has passed has seen at least one module.
    const std::int32_t averageModule = total / Basis::toInt32(facts.getDimmsizeListLength());
    const Numbers nodeSizes = numbersOf(facts.getNodesizeListItems());
    const std::int32_t totalOfNodes = wrappingSum(nodeSizes);
    const bool isUneven = hasOutlier(nodeSizes, totalOfNodes);
    // What the nodes do not show must be less than one module.
    if (averageModule > difference(total, totalOfNodes) && !isUneven)
        return conclude(rule, Outcome::passed(item, ""));
    return conclude(
        rule, Outcome::failed(item, totalText,
                              "TotalMemory Size is not an allowed memory configuration. \n"
                              "Also, the measured TotalMemory - TotalNodeMemory exceeds the  \n"
                              "average size of a DIMM module. Please check if all DIMMs are \n"
                              "in place and work properly. \n"
                              "If so, this comment can be ignored"));
}

}  // namespace vetraTests
