#include "impl/network/RemoteCommand.h"

#include <algorithm>

namespace vetraTests {

namespace {

constexpr std::size_t lineSize = 1000;

// ASCII only, whatever the locale.
bool isLetterOrDigit(char letter)
{
    return (letter >= '0' && letter <= '9') || (letter >= 'A' && letter <= 'Z') ||
           (letter >= 'a' && letter <= 'z');
}

// Not among them: those that mean something at the beginning of a word only, which "/" is here. The
// shells are none that somebody types into, so "!" brings nothing back.
constexpr std::string_view shellCharacters = "\"'`$\\;&|<>()*?[]{}";

bool isPlainInPath(char letter)
{
    const auto code = static_cast<unsigned char>(letter);
    return code > ' ' && code != 0x7f && shellCharacters.find(letter) == std::string_view::npos;
}

}  // namespace

RemoteCommand::RemoteCommand(const Basis::string& command) : output(::popen(command.c_str(), "r"))
{
}

RemoteCommand::~RemoteCommand()
{
    if (output)
        ::pclose(output);
}

bool RemoteCommand::nextLine(Basis::string& line)
{
    char text[lineSize];
    if (!output || !std::fgets(text, sizeof text, output))
        return false;
    line = text;
    while (!line.empty() && (line.back() == '\n' || line.back() == '\t'))
        line.pop_back();
    return true;
}

bool isPlainHostName(std::string_view host)
{
    return !host.empty() && host.front() != '-' &&
           std::all_of(host.begin(), host.end(), [](char letter) {
               return isLetterOrDigit(letter) || letter == '.' || letter == '-' || letter == '_';
           });
}

bool isPlainDirectory(std::string_view directory)
{
    return directory.starts_with('/') &&
           std::all_of(directory.begin(), directory.end(), &isPlainInPath);
}

}  // namespace vetraTests
