#include "Diagnose/Shell.h"

#include <map>
#include <mutex>
#include <sstream>
#include <utility>

#include "Basis/Crash.h"
#include "Diagnose/Profiler.h"
#include "Diagnose/Statistics.h"

namespace Diagnose {

namespace {

using Words = std::vector<std::string>;

struct DomainCommand {
    std::string verb;
    std::string domain;
};

// "reset -n NAME", "print -n NAME", "print -h -n NAME"
DomainCommand readDomainCommand(const Words& words)
{
    DomainCommand command;
    if (!words.empty())
        command.verb = words[0];
    for (std::size_t i = 1; i < words.size(); ++i) {
        if (words[i] == "-n" && i + 1 < words.size())
            command.domain = words[++i];
        else if (words[i] != "-h" || command.verb != "print")
            refuseCommand("statreg does not know '" + words[i] + "', expected -n DOMAIN");
    }
    return command;
}

void statreg(const Words& words, std::ostream& answer)
{
    StatisticsRegistry& registry = StatisticsRegistry::instance();
    const DomainCommand command = readDomainCommand(words);
    bool found = true;
    if (command.verb == "reset")
        found = registry.reset(command.domain);
    else if (command.verb == "print")
        found = registry.print(command.domain, answer);
    else if (command.verb == "list")
        for (const std::string& name : registry.names())
            answer << name << '\n';
    else
        refuseCommand("statreg has no command '" + command.verb +
                      "', expected reset, print or list");
    if (!found)
        refuseCommand("statreg knows no domain '" + command.domain + "'");
}

struct Families {
    std::mutex mutex;
    std::map<std::string, CommandFamily> byName{{"statreg", &statreg},
                                                {"profiler", &executeProfilerCommand}};
};

Families& families()
{
    static Families* const instance = new Families;
    return *instance;
}

CommandFamily findFamily(const std::string& name)
{
    Families& all = families();
    const std::scoped_lock lock(all.mutex);
    const auto found = all.byName.find(name);
    if (found == all.byName.end())
        refuseCommand("there is no command '" + name + "'");
    return found->second;
}

}  // namespace

const Basis::ErrorRecord& commandFailed()
{
    static const Basis::ErrorRecord record =
        Basis::registeredError(1001, "Diagnostics command failed", "ERR_COMMAND_FAILED");
    return record;
}

void refuseCommand(std::string_view reason, const char* file, int line)
{
    CommandException exception(file, line, commandFailed());
    exception.addArgument(reason);
    throw exception;
}

void registerCommandFamily(const std::string& name, CommandFamily family)
{
    Families& all = families();
    const std::scoped_lock lock(all.mutex);
    all.byName[name] = std::move(family);
}

}  // namespace Diagnose

void dbgExecuteCommand(const char* command, std::ostream& answer, bool wait)
{
    Basis::assertThat(wait, "diagnostics commands are carried out at once");
    std::istringstream text(command);
    Diagnose::Words words;
    for (std::string word; text >> word;)
        words.push_back(word);
    if (words.empty())
        Diagnose::refuseCommand("the command is empty");
    const Diagnose::CommandFamily family = Diagnose::findFamily(words.front());
    words.erase(words.begin());
    family(words, answer);
}
