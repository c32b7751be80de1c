// Processor, hypervisor, threading, clock and huge pages.

#include <algorithm>
#include <iostream>

#include "Basis/Text.h"
#include "JoltUtils/Json.h"
#include "vetraTests/LSInfo/AcceptedProcessors.h"
#include "vetraTests/LSInfo/AllowedDistributions.h"
#include "vetraTests/LSInfo/ValidateSystemInfo.h"

namespace vetraTests {

using JoltUtils::JsonObject;
using JoltUtils::JsonType;
using JoltUtils::TypedJson;

namespace {

constexpr std::string_view architectureItem = "('ARCHITECTURE'";

// Null if the value is no object, or an empty one, which is said.
const JsonObject* filledObject(const TypedJson& value, const char* complaint)
{
    if (value.type() != JsonType::Object)
        return nullptr;
    const JsonObject& object = value.object();
    if (!object.empty())
        return &object;
    std::cout << complaint << object.size() << std::endl;
    return nullptr;
}

// What to do about huge pages on a distribution; empty for one that is not known.
std::string_view hugePageAdvice(const string& distribution, const string& patchLevel)
{
    if (Basis::contains(distribution, suse12) &&
        (Basis::contains(patchLevel, "1") || Basis::contains(patchLevel, "2")))
        return "Transparent hugepages is enabled, this can lead to a system \n"
               "stall during memory defragmentation operation. \n"
               "For More details: KOR Note 2205917";
    if (Basis::contains(distribution, redHat72) || Basis::contains(distribution, redHat73))
        return "Transparent hugepages is enabled, this can lead to a system \n"
               "stall during memory defragmentation operation. \n"
               "For More details: KOR Note 2292690";
    return {};
}

}  // namespace

string ValidateSystemInfo::validateClocksource(const SystemInfo& facts, const string& arch)
{
    constexpr std::string_view item = "('clocksource'";
    const string clock = facts.getClockInfo();
    const std::string_view expected = Basis::contains(arch, "x86") ? "tsc" : "";
    if (Basis::contains(clock, expected))
        return conclude("validateClocksource", Outcome::passed(item, clock));
    return conclude("validateClocksource",
                    Outcome::advised(item, clock,
                                     "The clocksource can have a significant performance impact."));
}

string ValidateSystemInfo::validateCPU(const SystemInfo& facts, const string& arch)
{
    constexpr std::string_view item = "('cpu_name'";
    if (!Basis::contains(arch, "x86"))
        return conclude("validateCPU", Outcome::wrongArchitecture());

    const string name = facts.getModelName();
    const bool isListed = std::find(std::begin(acceptedProcessors), std::end(acceptedProcessors),
                                    std::string_view(name)) != std::end(acceptedProcessors);
    // Looked up also for a listed name: a fault of the families is said in any case.
    const bool isOfFamily = isOfAcceptedFamily(facts);
    if (!isListed && !isOfFamily) {
        return conclude(
            "validateCPU",
            Outcome::failed(item, name, "CPU Model is not supported for productive usage"));
    }
    return conclude("validateCPU", Outcome::passed(item, name));
}

string ValidateSystemInfo::validateHypervisor(const SystemInfo& facts, const string& arch)
{
    constexpr std::string_view item = "('hypervisor'";
    if (!Basis::contains(arch, "x86")) {
        return conclude("validateHypervisor", Outcome::wrongArchitecture());
    }

    const string vendor = facts.getHyVendorId();
    if (!Basis::contains(facts.getCPUFlags(), "hypervisor") && facts.getHypervisor().empty()) {
        return conclude("validateHypervisor",
                        Outcome::notApplicable(item, "", "This is not a virtual machine"));
    }
    const bool isAccepted =
        std::find(std::begin(acceptedHypervisors), std::end(acceptedHypervisors),
                  std::string_view(vendor)) != std::end(acceptedHypervisors);
    if (!isAccepted) {
        return conclude("validateHypervisor",
                        Outcome::failed(item, vendor, "Hypervisor is not supported"));
    }
    return conclude("validateHypervisor", Outcome::passed(item, vendor));
}

string ValidateSystemInfo::validateHTT(const SystemInfo& facts, const string& arch)
{
    constexpr std::string_view item = "('Hyperthreading'";
    const std::int32_t logicalProcessors = Basis::toInt32(facts.getLPCount());
    const std::int32_t expectedProcessors = Basis::toInt32(facts.getPPCount());
    if (!Basis::contains(arch, "x86"))
        return conclude("validateHTT", Outcome::wrongArchitecture());
    if (Basis::contains(verdictOf(validateHypervisor(facts, arch)), "SUCESS")) {
        return conclude(
            "validateHTT",
            Outcome::notApplicable(
                item, "",
                "Check is not applicable when running in a VM. Please see KOR Note 1788665 and the "
                "IAAS section of the ZIRN Hardware Directory for details."));
    }
    // With both blanks: a flag at the very end of the line does not count.
    if (logicalProcessors == expectedProcessors && Basis::contains(facts.getCPUFlags(), " ht "))
        return conclude("validateHTT", Outcome::passed(item, ""));
    return conclude("validateHTT", Outcome::failed(item, "", "Hyperthreading is not enabled"));
}

string ValidateSystemInfo::validateTHP(const SystemInfo& facts, const string&)
{
    constexpr std::string_view item = "('thp'";
    const string thp = facts.getThp();
    const std::string_view advice = hugePageAdvice(facts.getDistribution(), facts.getPatchLevel());
    if (advice.empty()) {
        return conclude("validateTHP",
                        Outcome::couldNotRun(architectureItem,
                                             "Variable ARCHITECTURE not valid. Continue ..."));
    }
    if (Basis::contains(thp, "[never]"))
        return conclude("validateTHP", Outcome::passed(item, thp));
    return conclude("validateTHP", Outcome::failed(item, thp, advice));
}

// True if the path vendor, family, model ends in a name; a later hit overwrites an earlier one.
bool ValidateSystemInfo::isOfAcceptedFamily(const SystemInfo& facts) const
{
    JoltUtils::JsonAllocator jsonAllocator(JoltUtils::JsonAllocator::getDefaultAllocator());
    JsonObject vendors(jsonAllocator);
    if (!JoltUtils::jsonParse(acceptedProcessorFamilies.data(), acceptedProcessorFamilies.size(),
                              vendors, jsonAllocator)) {
        std::cout << "Failed to parse cpu_arch information, size="
                  << acceptedProcessorFamilies.size() << std::endl;
    }

    const string vendorId = facts.getVendorId();
    const string familyId = facts.getCPUFamily();
    const string modelId = facts.getModel();
    bool hasName = false;
    for (const auto& [vendor, families] : vendors) {
        const JsonObject* members =
            vendor == vendorId ? filledObject(families, "There is no value for vendor id, size=")
                               : nullptr;
        if (!members)
            continue;
        for (const auto& [family, models] : *members) {
            const JsonObject* names =
                family == familyId
                    ? filledObject(models, "There is no value for validateDistribution, size=")
                    : nullptr;
            if (!names)
                continue;
            for (const auto& [model, name] : *names) {
                if (model == modelId && name.type() == JsonType::String)
                    hasName = !name.text().empty();
            }
        }
    }
    return hasName;
}

}  // namespace vetraTests
