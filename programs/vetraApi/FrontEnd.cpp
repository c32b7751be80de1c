#include "programs/vetraApi/FrontEnd.h"

#include <algorithm>
#include <iostream>
#include <string_view>

#include "Basis/Crash.h"
#include "Version/Version.h"
#include "programs/vetraApi/CommandLine.h"
#include "programs/vetraApi/Record.h"
#include "vetraTests/LSInfo/ValidateSystemInfo.h"

namespace VetraApi {

namespace {

constexpr int outputStatus = 74;

using Basis::string;
using Actions = Basis::vector<std::string_view>;

constexpr int usageStatus = 64;

// Leads std::cout to where std::cerr goes, as long as it lives. To change the buffer clears what
// the stream knows of failures, so that is kept.
class OutputSetAside {
public:
    OutputSetAside()
        : usualState(std::cout.rdstate()), usualBuffer(std::cout.rdbuf(std::cerr.rdbuf()))
    {
    }
    ~OutputSetAside()
    {
        std::cout.rdbuf(usualBuffer);
        std::cout.setstate(usualState);
    }

    OutputSetAside(const OutputSetAside&) = delete;
    OutputSetAside& operator=(const OutputSetAside&) = delete;

private:
    std::ios_base::iostate usualState;
    std::streambuf* usualBuffer;
};

// The facts, gathered when first needed, and the rules over them.
class Checks {
public:
    Checks(const FactGatherer& factGatherer, Basis::Allocator& owner)
        : gather(factGatherer), allocator(owner), facts(owner), rules(owner)
    {
    }

    // The record of a known action, the hint at the usage for any other.
    string recordOf(std::string_view action)
    {
        const OutputSetAside noise;
        if (!isGathered && isKnownAction(action)) {
            gather(facts);
            isGathered = true;
        }
        return rules.checkActions(facts, facts.getArch(), string(action, &allocator));
    }

private:
    const FactGatherer& gather;
    Basis::Allocator& allocator;
    vetraTests::SystemInfo facts;
    vetraTests::ValidateSystemInfo rules;
    bool isGathered = false;
};

Record fieldsOf(const string& record)
{
    const std::optional<Record> fields = splitRecord(record);
    Basis::assertThat(fields.has_value(), "a rule has left a record without its four fields");
    return *fields;
}

int printHint(Checks& checks, std::string_view unknownAction)
{
    std::cout << checks.recordOf(unknownAction) << std::endl;
    return usageStatus;
}

int printRecords(Checks& checks, const Actions& actions)
{
    int status = 0;
    for (const std::string_view action : actions) {
        if (!isKnownAction(action))
            return printHint(checks, action);
        const string record = checks.recordOf(action);
        std::cout << record << std::endl;
        status = std::max(status, exitStatusOf(fieldsOf(record).code));
    }
    return status;
}

// The array is printed when it is complete: half of one is of no use to anybody.
int printJson(Checks& checks, const Actions& actions, Basis::Allocator& allocator)
{
    const auto unknown = std::find_if_not(actions.begin(), actions.end(), isKnownAction);
    if (unknown != actions.end())
        return printHint(checks, *unknown);

    int status = 0;
    Basis::vector<string> objects(&allocator);
    for (const std::string_view action : actions) {
        const string record = checks.recordOf(action);
        const Record fields = fieldsOf(record);
        objects.push_back(jsonOf(action, fields, allocator));
        status = std::max(status, exitStatusOf(fields.code));
    }
    std::cout << "[" << std::endl;
    for (std::size_t i = 0; i < objects.size(); ++i)
        std::cout << objects[i] << (i + 1 < objects.size() ? "," : "") << std::endl;
    std::cout << "]" << std::endl;
    return status;
}

int printUsage(std::ostream& stream, int status, Basis::Allocator& allocator)
{
    stream << usageText(allocator) << std::flush;
    return status;
}

// A script that reads half of the records must not take them for all.
int checkedOutput(int status)
{
    if (std::cout)
        return status;
    std::cerr << "vetraApi: standard output cannot be written" << std::endl;
    return outputStatus;
}

int printVersion()
{
    std::cout << "vetraApi-" << zdbver_version() << " (" << zdbver_compiledate() << ")"
              << std::endl;
    return 0;
}

}  // namespace

int runFrontEnd(int argc, const char* const* argv, const FactGatherer& gather)
{
    const auto domain = Basis::Allocator::createChild(Basis::Allocator::global(), "VETRAAPI", 0);
    const CommandLine line = readCommandLine(argc, argv, *domain);
    if (line.request == Request::Usage)
        return printUsage(std::cerr, usageStatus, *domain);
    if (line.request == Request::Help)
        return checkedOutput(printUsage(std::cout, 0, *domain));
    if (line.request == Request::Version)
        return checkedOutput(printVersion());

    Checks checks(gather, *domain);
    return checkedOutput(line.asJson ? printJson(checks, line.actions, *domain)
                                     : printRecords(checks, line.actions));
}

}  // namespace VetraApi
