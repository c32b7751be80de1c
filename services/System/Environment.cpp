#include "System/Environment.h"

#include <unistd.h>

#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace System {

const char* Environment::getenv(const char* name, const char* fallback)
{
    const char* value = std::getenv(name);
    return value ? value : fallback;
}

void Environment::dropWhatSteersCommands()
{
    std::vector<std::string> names;
    for (char** entry = environ; entry && *entry; ++entry) {
        const std::string_view text(*entry);
        const std::string_view name = text.substr(0, text.find('='));
        if (name.starts_with("LD_") || name.starts_with("GREP_") || name == "BASH_ENV" ||
            name == "ENV" || name == "CDPATH")
            names.emplace_back(name);
    }
    for (const std::string& name : names)
        ::unsetenv(name.c_str());
}

}  // namespace System
