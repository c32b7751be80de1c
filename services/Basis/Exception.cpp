#include "Basis/Exception.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <mutex>

#include "Basis/Crash.h"
#include "Basis/Text.h"

namespace Basis {

namespace {

struct Registry {
    std::mutex mutex;
    std::vector<const char*> names;
};

Registry& registry()
{
    // Never destroyed: errors may be registered while statics go.
    static Registry* const instance = new Registry;
    return *instance;
}

struct Placeholder {
    std::size_t begin = std::string::npos;
    std::size_t end = std::string::npos;  // behind the closing '$'
    std::string_view name;
};

// "$name$" with letters, digits and underscores between the two signs.
Placeholder nextPlaceholder(std::string_view message, std::size_t from)
{
    for (std::size_t open = message.find('$', from); open != std::string_view::npos;
         open = message.find('$', open + 1)) {
        std::size_t close = open + 1;
        while (close < message.size() &&
               (std::isalnum(static_cast<unsigned char>(message[close])) || message[close] == '_'))
            ++close;
        if (close < message.size() && message[close] == '$' && close > open + 1)
            return {open, close + 1, message.substr(open + 1, close - open - 1)};
    }
    return {};
}

const char* systemErrorName(int number)
{
    const char* name = ::strerrorname_np(number);
    return name ? name : "unknown";
}

}  // namespace

const ErrorCategory& genericErrorCategory()
{
    static const ErrorCategory category{"generic"};
    return category;
}

ErrorRecord registeredError(std::uint32_t code, const char* message, const char* symbolicName)
{
    Registry& all = registry();
    const std::scoped_lock lock(all.mutex);
    all.names.push_back(symbolicName);
    return {code, message, &genericErrorCategory(), symbolicName,
            static_cast<ErrorHandle>(all.names.size())};
}

std::size_t registrationsOf(std::string_view symbolicName)
{
    Registry& all = registry();
    const std::scoped_lock lock(all.mutex);
    return static_cast<std::size_t>(std::count(all.names.begin(), all.names.end(), symbolicName));
}

Exception::Exception(const char* file, int line, const ErrorRecord& record)
    : sourceFile(file), sourceLine(line), errorRecord(&record)
{
    compose();
}

Exception::Exception(const char* file, int line, int systemError)
    : sourceFile(file), sourceLine(line), errorNumber(systemError)
{
    compose();
}

Exception& Exception::addArgument(std::string_view argumentText, std::string_view name)
{
    arguments.push_back({std::string(argumentText), std::string(name)});
    compose();
    return *this;
}

void Exception::compose()
{
    const int code = errorRecord ? static_cast<int>(errorRecord->code) : errorNumber;
    const char* name = errorRecord ? errorRecord->symbolicName : systemErrorName(errorNumber);
    const std::string message = errorRecord ? errorRecord->message : std::strerror(errorNumber);

    text = std::to_string(code) + " " + name + ": ";
    std::vector<bool> used(arguments.size(), false);
    std::size_t position = 0;
    for (Placeholder hole = nextPlaceholder(message, 0); hole.begin != std::string::npos;
         hole = nextPlaceholder(message, position)) {
        text.append(message, position, hole.begin - position);
        std::size_t choice = arguments.size();
        for (std::size_t i = 0; i < arguments.size(); ++i) {
            if (used[i])
                continue;
            if (arguments[i].name == hole.name) {
                choice = i;
                break;
            }
            if (arguments[i].name.empty() && choice == arguments.size())
                choice = i;
        }
        if (choice < arguments.size()) {
            appendPrintable(text, arguments[choice].text);
            used[choice] = true;
        } else {
            text.append(message, hole.begin, hole.end - hole.begin);
        }
        position = hole.end;
    }
    text.append(message, position);
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (used[i])
            continue;
        text += ": ";
        appendPrintable(text, arguments[i].text);
    }
    text.append(" (").append(baseName(sourceFile)).append(":");
    text.append(std::to_string(sourceLine)).append(")");
}

std::ostream& operator<<(std::ostream& stream, const Exception& exception)
{
    return stream << exception.what();
}

}  // namespace Basis
