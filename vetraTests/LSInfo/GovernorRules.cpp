// How the frequency of the processors is managed.

#include <algorithm>
#include <iostream>
#include <iterator>

#include "Basis/Text.h"
#include "vetraDefines.h"
#include "vetraTests/LSInfo/ValidateSystemInfo.h"
#include "vetraTests/LSInfo/WrappingSum.h"

namespace vetraTests {

namespace {

constexpr std::string_view rule = "validateCPUgovernor";
constexpr std::string_view pstate = "('pstate'";
constexpr std::string_view switchingAllowed =
    "CPU power governor allows switching C-states, or CPUs are not running with nominal frequency";
constexpr std::string_view noFrequencies = "There are no CPU frequencies";

std::int32_t averageOf(const Basis::vector<std::int32_t>& numbers)
{
    if (numbers.empty())
        return 0;
    return wrappingSum(numbers) / static_cast<std::int32_t>(numbers.size());
}

}  // namespace

void ValidateSystemInfo::CPUgovernorParameters(const SystemInfo& facts)
{
    Numbers speeds = numbersOf(facts.getCPUSpeed());
    const double average = averageOf(speeds);
    std::sort(speeds.begin(), speeds.end());
    Numbers distinct(&allocator);
    std::unique_copy(speeds.begin(), speeds.end(), std::back_inserter(distinct));

    // How far the speeds are apart is looked at, and has no part in the outcome.
    Numbers near(&allocator);
    Numbers far(&allocator);
    for (const std::int32_t speed : distinct) {
        const double megahertz = speed;
        if (megahertz >= average * 0.95 && average * 1.05 >= megahertz)
            near.push_back(speed);
        else
            far.push_back(speed);
    }

    const std::int32_t maximum = Basis::toInt32(facts.getMaxFreq());
    maxFreqListed = std::binary_search(distinct.begin(), distinct.end(), maximum);
    const Numbers nominal = numbersOf(facts.getDimmfreqList());
    speeds.insert(speeds.end(), nominal.begin(), nominal.end());
    noCpuFrequencies = distinct.empty();
}

string ValidateSystemInfo::validateCPUgovernor(const SystemInfo& facts, const string&)
{
    try {
        return governorOutcome(facts);
    } catch (const Vetra::VetraException& exception) {
        std::cout << noFrequencies << exception << std::endl;
        return conclude(rule,
                        Outcome::couldNotRun(pstate, noFrequencies).recording(switchingAllowed));
    }
}

string ValidateSystemInfo::governorOutcome(const SystemInfo& facts)
{
    CPUgovernorParameters(facts);
    const string cmdline = facts.getProcCmdline();
    const string driver = facts.getScalingDriver();
    const string governor = facts.getScalingGovernor();
    const bool isSteady = deviatingFrequencies.empty();
    const string deviations = decimal(static_cast<std::int64_t>(deviatingFrequencies.size()));

    if ((noCpuFrequencies || maxFreqListed) && isSteady)
        return conclude(rule, Outcome::passed(pstate, governor));
    const bool hasIdleLimit =
        Basis::contains(cmdline, "max_cstate=0") || Basis::contains(cmdline, "max_cstate=1");
    if (hasIdleLimit && isSteady)
        return conclude(rule, Outcome::passed("('cstate'", cmdline));
    if (Basis::contains(driver, "intel_pstate") && Basis::contains(governor, "performance"))
        return conclude(rule, Outcome::passed(pstate, driver));
    if (isSteady)
        return conclude(rule, Outcome::passed(pstate, deviations));
    return conclude(rule, Outcome::failed(pstate, deviations, switchingAllowed));
}

}  // namespace vetraTests
