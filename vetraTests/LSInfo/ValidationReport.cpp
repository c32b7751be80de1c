// The layout of the report and of the outcome records.

#include <iomanip>

#include "Basis/Text.h"
#include "vetraTests/LSInfo/ValidateSystemInfo.h"

namespace vetraTests {

namespace {

constexpr int lineWidth = 80;
constexpr int ruleWidth = 30;
// The colour sequence is what is padded, so the status word begins behind this column.
constexpr int colourWidth = 48;
constexpr int labelWidth = 20;

constexpr const char* green = "\033[1;32m";
constexpr const char* red = "\033[1;31m";
constexpr const char* yellow = "\033[1;33m";
constexpr const char* blue = "\033[1;34m";
constexpr const char* reset = "\033[0m";

void writeHead(std::ostream& out, const string& rule, const char* colour, std::string_view word)
{
    out << std::left << std::setw(ruleWidth) << rule << ':' << std::right << std::setw(colourWidth)
        << colour << word << reset;
}

void writeLabelled(std::ostream& out, const char* label, std::string_view text)
{
    out << std::setw(labelWidth) << label << text << '\n';
}

void writeEntry(std::ostream& out, const string& rule, const string& status,
                std::string_view severity, const string& reason)
{
    if (status == "SUCESS") {
        writeHead(out, rule, green, status);
        out << '\t' << reason << '\n';
    } else if (status == "FAILED") {
        const bool isHigh = severity == "HIGH";
        writeHead(out, rule, isHigh ? red : yellow, isHigh ? std::string_view(status) : "WARNING");
        out << '\n';
        writeLabelled(out, "Severity:  ", severity);
        writeLabelled(out, "Reason:  ", reason);
    } else if (status == "NOTAPPLICABLE") {
        writeHead(out, rule, blue, "SKIPPED");
        out << '\n';
        writeLabelled(out, "Reason:  ", reason);
    } else {
        out << rule << '\t' << status << '\t' << reason << '\n';
    }
}

void appendLineOf(string& text, char fill)
{
    text.append(lineWidth, fill).append("\n");
}

}  // namespace

void ValidateSystemInfo::validate(const RulePointer checks[], const int& count, const string& title,
                                  const SystemInfo& facts, const string& arch)
{
    ValidateSystemInfo local(allocator);
    appendLineOf(humanReadableReport, '=');
    humanReadableReport.append("EVALUATED SYSTEM SETUP ON ").append(title).append(":\n");
    appendLineOf(humanReadableReport, '=');
    for (int i = 0; i < count; ++i) {
        lastResult = (local.*checks[i])(facts, arch);
        humanReadableReport.append(lastResult);
        appendLineOf(humanReadableReport, '-');
    }
}

string ValidateSystemInfo::consolidateReport(const CheckReport& report,
                                             std::string_view severity) const
{
    Basis::ostringstream block = Basis::outputStream(allocator);
    for (const auto& [rule, outcomes] : report) {
        for (const auto& [status, reason] : outcomes)
            writeEntry(block, rule, status, severity, reason);
    }
    return block.str();
}

string ValidateSystemInfo::conclude(std::string_view rule, const Outcome& outcome)
{
    CheckOutcomes outcomes(&allocator);
    outcomes.emplace(outcome.status, outcome.reason);
    CheckReport report(&allocator);
    report.emplace(rule, outcomes);

    Basis::ostringstream record = Basis::outputStream(allocator);
    record << outcome.item << ",'" << outcome.value << "'," << outcome.code;
    if (outcome.code == 0)
        record << ",'')";
    else
        record << ",'" << outcome.message << "')";
    checkActionRecord = record.str();
    return consolidateReport(report, outcome.severity);
}

bool ValidateSystemInfo::compareMaps(const CheckReport& allowed, CheckReport& measured) const
{
    bool isAllowed = false;
    for (auto& [measuredKey, measuredEntries] : measured) {
        const auto [begin, end] = allowed.equal_range(measuredKey);
        for (auto candidate = begin; candidate != end; ++candidate) {
            for (auto& [line, level] : measuredEntries) {
                level = string(Basis::trimmed(level), &allocator);
                for (const auto& [allowedLine, allowedLevel] : candidate->second) {
                    if (allowedLine == line && allowedLevel == level)
                        isAllowed = true;
                }
            }
        }
    }
    return isAllowed;
}

}  // namespace vetraTests
