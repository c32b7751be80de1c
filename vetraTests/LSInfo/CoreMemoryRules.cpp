// The ratio between cores and memory.

#include <algorithm>
#include <iterator>

#include "Basis/Text.h"
#include "vetraTests/LSInfo/AcceptedProcessors.h"
#include "vetraTests/LSInfo/ValidateSystemInfo.h"

namespace vetraTests {

namespace {

bool isWithinALimit(const string& name, double ratio)
{
    return std::any_of(std::begin(coreMemoryLimits), std::end(coreMemoryLimits),
                       [&](const CoreMemoryLimit& limit) {
                           return Basis::contains(name, limit.generation) &&
                                  ratio <= limit.gibibytes;
                       });
}

}  // namespace

string ValidateSystemInfo::validateCoreMemoryRatio(const SystemInfo& facts, const string& arch)
{
    constexpr std::string_view rule = "validateCoreMemoryRatio";
    constexpr std::string_view item = "('corememoryratio'";
    const string hypervisorVerdict = verdictOf(validateHypervisor(facts, arch));
    const string cpuVerdict = verdictOf(validateCPU(facts, arch));
    const std::int32_t ratio = Basis::toInt32(facts.getCoreMemoryRatio());

    if (Basis::contains(arch, "x86") && Basis::contains(hypervisorVerdict, "SUCESS")) {
        return conclude(rule,
                        Outcome::notApplicable(item, "",
                                               "The core to memory ratio for analytics does not \n"
                                               "apply for Virtual environments"));
    }
    if (!Basis::contains(cpuVerdict, "SUCESS")) {
        // The record's message is without the blank behind the second line.
        return conclude(rule, Outcome::notApplicable(item, "",
                                                     "This configuration can be run only for \n"
                                                     "non-production systems. \n"
                                                     "This is not supported on production system.")
                                  .recording("This configuration can be run only for \n"
                                             "non-production systems.\n"
                                             "This is not supported on production system."));
    }
    if (!Basis::contains(arch, "x86"))
        return conclude(rule, Outcome::wrongArchitecture());

    constexpr std::string_view notValid =
        "The system has a non valid \ncore-memory ratio for analytics";
    const string name = facts.getModelName();
    const string ratioText = decimal(ratio);
    if (Basis::contains(name, "E7")) {
        return conclude(rule, isWithinALimit(name, ratio)
                                  ? Outcome::passed(item, ratioText)
                                  : Outcome::failed(item, ratioText, notValid));
    }
    if (Basis::contains(name, "E5")) {
        return conclude(rule, Outcome::notApplicable(
                                  item, "",
                                  "The core to memory ratio for analytics does not apply for \n"
                                  "E5 processors. Please check Note for correct configuration"));
    }
    return conclude(rule, Outcome::failed(item, name, notValid));
}

}  // namespace vetraTests
