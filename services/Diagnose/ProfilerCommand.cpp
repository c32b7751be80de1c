#include "Diagnose/ProfilerCommand.h"

#include <charconv>
#include <cstddef>

#include "Diagnose/Shell.h"

namespace Diagnose {

namespace {

ProfilerCommand::Verb readVerb(const std::vector<std::string>& words)
{
    using Verb = ProfilerCommand::Verb;
    const std::string verb = words.empty() ? std::string() : words[0];
    if (verb == "clear")
        return Verb::Clear;
    if (verb == "start")
        return Verb::Start;
    if (verb == "stop")
        return Verb::Stop;
    if (verb == "print")
        return Verb::Print;
    refuseCommand("profiler has no command '" + verb + "', expected clear, start, stop or print");
}

unsigned readRate(const std::string& word)
{
    unsigned rate = 0;
    const char* const end = word.data() + word.size();
    const auto [last, error] = std::from_chars(word.data(), end, rate);
    if (error != std::errc() || last != end || rate < 1 || rate > ProfilerCommand::mostRate)
        refuseCommand("profiler cannot sample '" + word + "' times a second, expected 1 to " +
                      std::to_string(ProfilerCommand::mostRate));
    return rate;
}

void readFiles(const std::string& word, ProfilerCommand& command)
{
    const std::size_t comma = word.find(',');
    if (comma != std::string::npos) {
        command.processorFile = word.substr(0, comma);
        command.waitFile = word.substr(comma + 1);
    }
    const bool isPair = !command.processorFile.empty() && !command.waitFile.empty() &&
                        command.waitFile.find(',') == std::string::npos &&
                        command.processorFile != command.waitFile;
    if (!isPair)
        refuseCommand("profiler cannot write to '" + word + "', expected two files as CPU,WAIT");
}

// False for a word that the command does not know.
bool readOption(const std::string& option, const std::string& value, ProfilerCommand& command)
{
    using Verb = ProfilerCommand::Verb;
    if (option == "-r" && command.verb == Verb::Start)
        command.samplesPerSecond = readRate(value);
    else if (option == "-o" && command.verb == Verb::Print)
        readFiles(value, command);
    else if (option == "-f" && command.verb == Verb::Print)
        command.function = value;
    else
        return false;
    return true;
}

const char* expectedBehind(ProfilerCommand::Verb verb)
{
    switch (verb) {
        case ProfilerCommand::Verb::Start:
            return "-r HZ or nothing";
        case ProfilerCommand::Verb::Print:
            return "-o CPU,WAIT and perhaps -f FUNCTION";
        case ProfilerCommand::Verb::Clear:
        case ProfilerCommand::Verb::Stop:
            break;
    }
    return "nothing";
}

}  // namespace

ProfilerCommand ProfilerCommand::read(const std::vector<std::string>& words)
{
    ProfilerCommand command;
    command.verb = readVerb(words);
    for (std::size_t i = 1; i < words.size(); i += 2) {
        const bool hasValue = i + 1 < words.size();
        if (!hasValue || !readOption(words[i], words[i + 1], command))
            refuseCommand("profiler " + words[0] + " does not know '" + words[i] + "'" +
                          (hasValue ? "" : " without a value") + ", expected " +
                          expectedBehind(command.verb));
    }
    if (command.verb == Verb::Print && command.processorFile.empty())
        refuseCommand("profiler print misses '-o', expected " +
                      std::string(expectedBehind(command.verb)));
    return command;
}

}  // namespace Diagnose
