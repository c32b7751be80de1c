// The facts of a host from arbitrary file and command text, and the rules on whatever came of it.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>

#include "Basis/Crash.h"
#include "Basis/Text.h"
#include "fuzz/FuzzHarness.h"
#include "fuzz/FuzzedInfo.h"
#include "vetraTests/LSInfo/AllowedDistributions.h"
#include "vetraTests/LSInfo/ValidateSystemInfo.h"

namespace {

using Basis::assertThat;
using Basis::string;
using VetraFuzz::FuzzedInfo;
using vetraTests::RulePointer;
using vetraTests::ValidateSystemInfo;

struct Rule {
    std::string_view name;
    RulePointer run;
    const char* action;  // null for a rule that no action names
};

constexpr Rule rules[] = {
    {"validateDistribution", &ValidateSystemInfo::validateDistribution, "CHECK_DISTRIBUTION"},
    {"validateLinuxKernelVersion", &ValidateSystemInfo::validateLinuxKernelVersion, nullptr},
    {"validateClocksource", &ValidateSystemInfo::validateClocksource, "CHECK_CLOCKSOURCE"},
    {"validateCPU", &ValidateSystemInfo::validateCPU, "CHECK_CPU"},
    {"validateHypervisor", &ValidateSystemInfo::validateHypervisor, "CHECK_HYPERVISOR"},
    {"validateHTT", &ValidateSystemInfo::validateHTT, "CHECK_HTT"},
    {"validateApplianceSystemType", &ValidateSystemInfo::validateApplianceSystemType,
     "CHECK_APPLIANCETYPE"},
    {"validateTHP", &ValidateSystemInfo::validateTHP, "CHECK_THP"},
    {"validateMemory", &ValidateSystemInfo::validateMemory, "CHECK_MEMORY"},
    {"validateMemoryDistribution", &ValidateSystemInfo::validateMemoryDistribution,
     "CHECK_MEMORYDISTRIBUTION"},
    {"validateCoreMemoryRatio", &ValidateSystemInfo::validateCoreMemoryRatio,
     "CHECK_COREMEMORYRATIO"},
    {"validateCPUgovernor", &ValidateSystemInfo::validateCPUgovernor, "CHECK_CPUGOVERNOR"},
    // The last one, since some distributions have to do without it.
    {"validateRuntime", &ValidateSystemInfo::validateRuntime, nullptr},
};
static_assert(std::size(rules) == 13);

struct Verdict {
    std::string_view word;
    std::string_view codes;
};
constexpr Verdict verdicts[] = {
    {"SUCESS", "0"},
    {"WARNING", "1"},
    {"SKIPPED", "3"},
    {"FAILED", "45"},
};
// The rule's name, the colon, and the padded colour stand before the word.
constexpr std::size_t wordColumn = 30 + 1 + 48;

bool isPackageManagerAsked(const FuzzedInfo& facts, const string& arch)
{
    const string distribution = facts.getDistribution();
    return Basis::contains(arch, "x86") && (Basis::contains(distribution, vetraTests::suse12) ||
                                            Basis::contains(distribution, vetraTests::redHat72) ||
                                            Basis::contains(distribution, vetraTests::redHat73));
}

bool endsWith(std::string_view text, std::string_view end)
{
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

bool holdsCode(std::string_view record, char code)
{
    const char field[] = {'\'', ',', code, ',', '\'', '\0'};
    return Basis::contains(record, field);
}

void checkBlock(const Rule& rule, const string& block, const string& record)
{
    assertThat(Basis::startsWith(block, rule.name), "a block begins with the name of its rule");
    assertThat(Basis::startsWith(record, "('") && endsWith(record, "')"),
               "a record stands in brackets and quotation marks");
    const std::string_view rest = std::string_view(block).substr(wordColumn);
    const auto* verdict =
        std::find_if(std::begin(verdicts), std::end(verdicts),
                     [&](const Verdict& known) { return Basis::startsWith(rest, known.word); });
    assertThat(verdict != std::end(verdicts), "a block has one of four status words");
    assertThat(std::any_of(verdict->codes.begin(), verdict->codes.end(),
                           [&](char code) { return holdsCode(record, code); }),
               "the record has the code of the status");
}

void checkRule(const Rule& rule, const FuzzedInfo& facts, const string& arch, string& report,
               Basis::Allocator& allocator)
{
    ValidateSystemInfo validation(allocator);
    const string block = (validation.*rule.run)(facts, arch);
    const string record = validation.getCheckAction();
    if (block.empty())
        assertThat(rule.name == "validateRuntime" && record.empty(), "only one rule keeps silent");
    else
        checkBlock(rule, block, record);
    report.append(block).append(80, '-').append("\n");
    if (rule.action) {
        assertThat(validation.checkActions(facts, arch, string(rule.action, &allocator)) == record,
                   "an action gives the record of its rule");
    }
}

// The report of all rules together must be that of each by itself.
void checkRules(const FuzzedInfo& facts, const string& arch, Basis::Allocator& allocator)
{
    const int count =
        static_cast<int>(std::size(rules)) - (isPackageManagerAsked(facts, arch) ? 1 : 0);
    string report(80, '=', &allocator);
    report.append("\nEVALUATED SYSTEM SETUP ON host:\n").append(80, '=').append("\n");
    RulePointer pointers[std::size(rules)];
    for (int i = 0; i < count; ++i) {
        pointers[i] = rules[i].run;
        checkRule(rules[i], facts, arch, report, allocator);
    }

    ValidateSystemInfo validation(allocator);
    validation.validate(pointers, count, string("host", &allocator), facts, arch);
    assertThat(validation.getHumanReadableReport() == report, "rules do not disturb each other");
}

void checkDocument(const FuzzedInfo& facts)
{
    const string document = facts.produceJson(facts.groups());
    assertThat(Basis::startsWith(document, "{\n") && endsWith(document, "}\n"),
               "the fact document stands in braces");
    for (const auto& [name, entries] : facts.groups())
        assertThat(Basis::contains(document, name), "the fact document names each group");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    VetraFuzz::prepareProcess();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const VetraFuzz::InputDomain domain;
    Basis::Allocator& allocator = domain.allocator();
    FuzzedInfo facts(allocator);
    facts.gather({reinterpret_cast<const char*>(data), size});
    checkDocument(facts);
    checkRules(facts, facts.architecture(), allocator);
    return 0;
}
