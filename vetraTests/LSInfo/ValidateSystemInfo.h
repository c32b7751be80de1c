#pragma once

#include <cstdint>
#include <string_view>

#include "Basis/Containers.h"
#include "vetraTests/LSInfo/SystemInfo.h"

namespace vetraTests {

/// The outcome of a rule: status word to reason. Rules fill it with one entry.
using CheckOutcomes = Basis::multimap<string, string>;

/// Rule name to its outcomes. For compareMaps the outer key is an architecture, the inner entries
/// are distribution lines with their patch levels.
using CheckReport = Basis::multimap<string, CheckOutcomes>;

class ValidateSystemInfo;

/// A rule: judges the facts of a host of the given architecture and returns its block of the
/// report.
using RulePointer = string (ValidateSystemInfo::*)(const SystemInfo& facts, const string& arch);

/// Judges the facts of a host by thirteen rules.
///
/// Each rule returns its block of the coloured report and leaves one outcome record of the form
/// `('item','value',code,'message')`, in which nothing is escaped. The codes are 0 passed, 1 failed
/// with severity "MEDIUM", 3 not applicable, 4 failed with severity "HIGH", 5 could not run.
///
/// A rule that depends on another one calls it again and searches its block. What rules print on
/// standard output by themselves is printed at each call.
///
/// Threads: one thread per object.
/// Errors:  outcomes are data; rules throw for nothing that a host can show.
class ValidateSystemInfo {
public:
    explicit ValidateSystemInfo(Basis::Allocator& ownerAllocator);

    /// Runs the given rules in order on an object of its own and adds their blocks, under a title,
    /// to the report of this one. An exception from a rule leaves the report as far as it got.
    void validate(const RulePointer checks[], const int& count, const string& title,
                  const SystemInfo& facts, const string& arch);
    string getHumanReadableReport() const { return copyOf(humanReadableReport); }

    /// The record of the rule that finished last on this object; validate leaves it as it is.
    string getCheckAction() const { return copyOf(checkActionRecord); }

    /// The record of the rule that an action such as "CHECK_CPU" names; for an unknown action a
    /// text that points to the usage of the front end.
    string checkActions(const SystemInfo& facts, const string& arch, const string& action) const;

    /// The names of the actions in the order of their table; null behind the last one.
    static const char* actionName(std::size_t index);

    /// True if any measured entry stands under the same outer key, with an equal inner key and
    /// value, among the allowed ones. Measured values are trimmed in place.
    bool compareMaps(const CheckReport& allowed, CheckReport& measured) const;

    /// Lays out a report with its colours.
    string consolidateReport(const CheckReport& report, std::string_view severity) const;

    string validateDistribution(const SystemInfo& facts, const string& arch);
    string validateLinuxKernelVersion(const SystemInfo& facts, const string& arch);
    string validateClocksource(const SystemInfo& facts, const string& arch);
    string validateCPU(const SystemInfo& facts, const string& arch);
    string validateHypervisor(const SystemInfo& facts, const string& arch);
    string validateHTT(const SystemInfo& facts, const string& arch);
    string validateApplianceSystemType(const SystemInfo& facts, const string& arch);
    string validateTHP(const SystemInfo& facts, const string& arch);
    /// Returns an empty block, and leaves the record, for a distribution that it does not know.
    string validateRuntime(const SystemInfo& facts, const string& arch);
    string validateRuntime_X86SuSE12(const SystemInfo& facts);
    string validateRuntime_X86_RHEL7_2(const SystemInfo& facts);
    string validateRuntime_X86_RHEL7_3(const SystemInfo& facts);
    string validateMemory(const SystemInfo& facts, const string& arch);
    string validateMemoryDistribution(const SystemInfo& facts, const string& arch);
    string validateCoreMemoryRatio(const SystemInfo& facts, const string& arch);
    string validateCPUgovernor(const SystemInfo& facts, const string& arch);

    /// Prepares what validateCPUgovernor decides on.
    void CPUgovernorParameters(const SystemInfo& facts);

protected:
    using Numbers = Basis::vector<std::int32_t>;

    /// What a rule found. The record's message can differ from the reason in the report.
    struct Outcome {
        std::string_view status;
        std::string_view severity;
        std::string_view reason;
        std::string_view item;  ///< with its opening bracket, such as "('thp'"
        std::string_view value;
        int code;
        std::string_view message;

        static Outcome passed(std::string_view item, std::string_view value);
        static Outcome advised(std::string_view item, std::string_view value,
                               std::string_view reason);
        static Outcome notApplicable(std::string_view item, std::string_view value,
                                     std::string_view reason);
        static Outcome failed(std::string_view item, std::string_view value,
                              std::string_view reason);
        static Outcome couldNotRun(std::string_view item, std::string_view reason);
        static Outcome wrongArchitecture();
        /// The same with a message of its own in the record.
        Outcome recording(std::string_view otherMessage) const;
    };

    /// Writes the record of an outcome and returns its block under the rule's name.
    string conclude(std::string_view rule, const Outcome& outcome);

    /// What a rule searches in the block of another one: the text behind the first colon, trimmed.
    string verdictOf(const string& block) const;

    /// The numbers of a comma list.
    Numbers numbersOf(std::string_view list) const;

    string copyOf(const string& text) const { return string(text, &allocator); }
    string decimal(std::int64_t number) const;

    Basis::Allocator& allocator;
    bool noCpuFrequencies = false;
    /// Read by validateCPUgovernor and never filled.
    Numbers deviatingFrequencies;
    bool maxFreqListed = false;
    string humanReadableReport;
    string lastResult;
    // Declared for callers to come; no rule works on these.
    string spareText;
    CheckOutcomes spareOutcomes;
    CheckReport spareReport;
    std::int32_t spareCount = 0;
    std::int32_t spareTotal = 0;
    string checkActionRecord;

private:
    string runtimeOutcome(std::string_view failure, bool isReady);
    Basis::vector<string> installedPackages(const SystemInfo& facts) const;
    bool isOfAcceptedFamily(const SystemInfo& facts) const;
    string certifiedModelOutcome(const string& productName, const string& failure);
    string governorOutcome(const SystemInfo& facts);
};

}  // namespace vetraTests
