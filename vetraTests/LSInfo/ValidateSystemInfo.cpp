#include "vetraTests/LSInfo/ValidateSystemInfo.h"

#include <iterator>
#include <string>

#include "Basis/Text.h"

namespace vetraTests {

namespace {

struct Action {
    const char* name;
    RulePointer rule;
};

constexpr Action actions[] = {
    {"CHECK_APPLIANCETYPE", &ValidateSystemInfo::validateApplianceSystemType},
    {"CHECK_CLOCKSOURCE", &ValidateSystemInfo::validateClocksource},
    {"CHECK_COREMEMORYRATIO", &ValidateSystemInfo::validateCoreMemoryRatio},
    {"CHECK_CPU", &ValidateSystemInfo::validateCPU},
    {"CHECK_CPUGOVERNOR", &ValidateSystemInfo::validateCPUgovernor},
    {"CHECK_DISTRIBUTION", &ValidateSystemInfo::validateDistribution},
    {"CHECK_HTT", &ValidateSystemInfo::validateHTT},
    {"CHECK_HYPERVISOR", &ValidateSystemInfo::validateHypervisor},
    {"CHECK_MEMORY", &ValidateSystemInfo::validateMemory},
    {"CHECK_MEMORYDISTRIBUTION", &ValidateSystemInfo::validateMemoryDistribution},
    {"CHECK_THP", &ValidateSystemInfo::validateTHP},
};
static_assert(std::size(actions) == 11);

constexpr const char* unknownAction = R"(Please check the usage of vetraApi using "./vetraApi -h")";

}  // namespace

ValidateSystemInfo::ValidateSystemInfo(Basis::Allocator& ownerAllocator)
    : allocator(ownerAllocator),
      deviatingFrequencies(&allocator),
      humanReadableReport(&allocator),
      lastResult(&allocator),
      spareText(&allocator),
      spareOutcomes(&allocator),
      spareReport(&allocator),
      checkActionRecord(&allocator)
{
}

string ValidateSystemInfo::checkActions(const SystemInfo& facts, const string& arch,
                                        const string& action) const
{
    ValidateSystemInfo local(allocator);
    for (const Action& known : actions) {
        if (action == known.name) {
            (local.*known.rule)(facts, arch);
            return local.getCheckAction();
        }
    }
    return string(unknownAction, &allocator);
}

const char* ValidateSystemInfo::actionName(std::size_t index)
{
    return index < std::size(actions) ? actions[index].name : nullptr;
}

string ValidateSystemInfo::verdictOf(const string& block) const
{
    return string(Basis::trimmed(Basis::behindFirst(block, ":")), &allocator);
}

ValidateSystemInfo::Numbers ValidateSystemInfo::numbersOf(std::string_view list) const
{
    Numbers numbers(&allocator);
    for (const std::string_view part : Basis::split(list, ',', allocator))
        numbers.push_back(Basis::toInt32(part));
    return numbers;
}

string ValidateSystemInfo::decimal(std::int64_t number) const
{
    return string(std::to_string(number), &allocator);
}

ValidateSystemInfo::Outcome ValidateSystemInfo::Outcome::passed(std::string_view item,
                                                                std::string_view value)
{
    return {"SUCESS", "", "", item, value, 0, ""};
}

ValidateSystemInfo::Outcome ValidateSystemInfo::Outcome::advised(std::string_view item,
                                                                 std::string_view value,
                                                                 std::string_view reason)
{
    return {"FAILED", "MEDIUM", reason, item, value, 1, reason};
}

ValidateSystemInfo::Outcome ValidateSystemInfo::Outcome::notApplicable(std::string_view item,
                                                                       std::string_view value,
                                                                       std::string_view reason)
{
    return {"NOTAPPLICABLE", "", reason, item, value, 3, reason};
}

ValidateSystemInfo::Outcome ValidateSystemInfo::Outcome::failed(std::string_view item,
                                                                std::string_view value,
                                                                std::string_view reason)
{
    return {"FAILED", "HIGH", reason, item, value, 4, reason};
}

ValidateSystemInfo::Outcome ValidateSystemInfo::Outcome::couldNotRun(std::string_view item,
                                                                     std::string_view reason)
{
    return {"FAILED", "HIGH", reason, item, "", 5, reason};
}

ValidateSystemInfo::Outcome ValidateSystemInfo::Outcome::wrongArchitecture()
{
    return couldNotRun("('ARCHITECTURE'", "Variable ARCHITECTURE not valid.");
}

ValidateSystemInfo::Outcome ValidateSystemInfo::Outcome::recording(
    std::string_view otherMessage) const
{
    Outcome changed = *this;
    changed.message = otherMessage;
    return changed;
}

}  // namespace vetraTests
