#include "programs/vetraApi/CommandLine.h"

#include <algorithm>

#include "vetraTests/LSInfo/ValidateSystemInfo.h"

namespace VetraApi {

namespace {

using vetraTests::ValidateSystemInfo;
using Actions = Basis::vector<std::string_view>;

constexpr const char* usageHead =
    "Usage: ./vetraApi [--json] ACTION... to judge this host by the named rules, in this order\n"
    "       or ./vetraApi [--json] --all to judge it by all of them, in the order below\n"
    "       or ./vetraApi -h or --help for usage info\n"
    "       or ./vetraApi -v or --version for version\n"
    "\n"
    "Actions:\n";

constexpr const char* usageTail =
    "There is no action for the kernel rule and for the runtime rule: ./vetra judges these.\n"
    "\n"
    "Each action prints a record ('ITEM','VALUE',CODE,'MESSAGE') and a line end. Nothing in it is\n"
    "escaped, and it may hold line ends itself. With --json the records are an array of objects\n"
    "with the members action, item, value, code and message.\n"
    "\n"
    "Codes:\n"
    "    0  passed\n"
    "    1  failed with severity MEDIUM\n"
    "    3  not applicable\n"
    "    4  failed with severity HIGH\n"
    "    5  the rule could not run\n"
    "\n"
    "Exit status, the largest over the actions:\n"
    "    0  codes 0 and 3\n"
    "    1  code 1\n"
    "    2  code 4\n"
    "    3  code 5\n"
    "   64  an unknown action, at which the program ends, or another use than those above\n"
    "   74  standard output cannot be written\n"
    "\n"
    "What rules print beside their records goes to standard error. The hypervisor is known only "
    "if\n"
    "./scanhypervisorCheck lies in the current directory, writable for the user.\n";

bool isHelp(std::string_view argument)
{
    return argument == "-h" || argument == "--help";
}

bool isVersion(std::string_view argument)
{
    return argument == "-v" || argument == "--version";
}

bool isOptionOfOurs(std::string_view argument)
{
    return isHelp(argument) || isVersion(argument) || argument == "--json" || argument == "--all";
}

bool holdsOption(const Actions& words)
{
    return std::any_of(words.begin(), words.end(), isOptionOfOurs);
}

void putAll(Actions& actions)
{
    actions.clear();
    for (std::size_t i = 0; ValidateSystemInfo::actionName(i); ++i)
        actions.emplace_back(ValidateSystemInfo::actionName(i));
}

}  // namespace

CommandLine readCommandLine(int argc, const char* const* argv, Basis::Allocator& allocator)
{
    CommandLine line{Request::Usage, false, Actions(&allocator)};
    Actions& words = line.actions;
    for (int i = 1; i < argc; ++i)
        words.emplace_back(argv[i]);

    if (words.size() == 1 && isHelp(words.front()))
        line.request = Request::Help;
    if (words.size() == 1 && isVersion(words.front()))
        line.request = Request::Version;
    if (!words.empty() && words.front() == "--json") {
        line.asJson = true;
        words.erase(words.begin());
    }
    if (words.size() == 1 && words.front() == "--all")
        putAll(words);
    if (!words.empty() && !holdsOption(words))
        line.request = Request::Records;
    return line;
}

bool isKnownAction(std::string_view action)
{
    for (std::size_t i = 0; ValidateSystemInfo::actionName(i); ++i) {
        if (action == ValidateSystemInfo::actionName(i))
            return true;
    }
    return false;
}

Basis::string usageText(Basis::Allocator& allocator)
{
    Basis::string text(usageHead, &allocator);
    for (std::size_t i = 0; ValidateSystemInfo::actionName(i); ++i)
        text.append("    ").append(ValidateSystemInfo::actionName(i)).append("\n");
    text.append(usageTail);
    return text;
}

}  // namespace VetraApi
