#include "tests/vetraTests/Neighbours.h"

#include <string_view>

#define VALIDATE                                                                   \
    "_ZN10vetraTests18ValidateSystemInfo8validateEPKMS0_FNSt7__cxx1112basic_strin" \
    "gIcSt11char_traitsIcENSt3pmr21polymorphic_allocatorIcEEEERKNS_10SystemInfoER" \
    "KS8_ERKiSD_SB_SD_"
#define INITIALIZE_EXECUTABLE                                         \
    "_ZN8Diagnose18TraceConfiguration20initializeExecutableESt17basi" \
    "c_string_viewIcSt11char_traitsIcEEii"

namespace unitTests {

using Basis::string;
using vetraTests::RulePointer;
using vetraTests::SystemInfo;
using vetraTests::ValidateSystemInfo;

// Under the names to which the linker sends the calls of EvalOS.
string getArch(const SystemInfo* facts) __asm__(
    "__wrap__ZNK10vetraTests10SystemInfo7getArchB5cxx11Ev");
string gatherInfo(SystemInfo* facts) __asm__(
    "__wrap__ZN10vetraTests10SystemInfo10gatherInfoB5cxx11Ev");
void validate(ValidateSystemInfo* validation, const RulePointer* checks, const int& count,
              const string& title, const SystemInfo& facts,
              const string& arch) __asm__("__wrap_" VALIDATE);
void validateReally(ValidateSystemInfo* validation, const RulePointer* checks, const int& count,
                    const string& title, const SystemInfo& facts,
                    const string& arch) __asm__("__real_" VALIDATE);
bool isConfigured() __asm__("__wrap__ZN8Diagnose18TraceConfiguration12isConfiguredEv");
void initializeExecutable(std::string_view directory, int fileType,
                          int formatterType) __asm__("__wrap_" INITIALIZE_EXECUTABLE);

namespace {

Neighbours* current = nullptr;

string globalText(std::string_view text)
{
    return string(text, Basis::Allocator::global().get());
}

}  // namespace

Neighbours::Neighbours()
{
    current = this;
}

Neighbours::~Neighbours()
{
    current = nullptr;
}

string getArch(const SystemInfo*)
{
    return globalText(current->arch);
}

string gatherInfo(SystemInfo*)
{
    ++current->gatherings;
    current->whileGathering();
    return globalText(current->facts);
}

// The report is made by the validation itself, of a title and no rules.
void validate(ValidateSystemInfo* validation, const RulePointer* checks, const int& count,
              const string& title, const SystemInfo& facts, const string& arch)
{
    current->validations.push_back(
        {{checks, checks + count}, count, std::string(title), std::string(arch)});
    const int noRules = 0;
    if (!current->isReportEmpty)
        validateReally(validation, checks, noRules, title, facts, arch);
}

bool isConfigured()
{
    return current->isTraceConfigured;
}

void initializeExecutable(std::string_view directory, int fileType, int formatterType)
{
    current->isTraceConfigured = true;
    current->traceSetUps.push_back(std::string(directory) + " " + std::to_string(fileType) + " " +
                                   std::to_string(formatterType));
}

}  // namespace unitTests
