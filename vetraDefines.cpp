#include "vetraDefines.h"

#include "Diagnose/SystemError.h"

const Basis::ErrorRecord& Vetra__ERR_GENERIC()
{
    static const Basis::ErrorRecord record =
        Basis::registeredError(1, "Generic vetra error $id$ ", "ERR_GENERIC");
    return record;
}

const Basis::ErrorRecord& Vetra__ERR_UNKOWN_HOSTNAME()
{
    static const Basis::ErrorRecord record =
        Basis::registeredError(2, "Hostname unkown", "ERR_UNKOWN_HOSTNAME");
    return record;
}

const Basis::ErrorRecord& Vetra__ERR_INVALID_INPUT()
{
    static const Basis::ErrorRecord record =
        Basis::registeredError(3, "Invalid input", "ERR_INVALID_INPUT");
    return record;
}

const Basis::ErrorRecord& Vetra__ERR_INVALID_FILEDESCRIPTOR()
{
    static const Basis::ErrorRecord record =
        Basis::registeredError(4, "Invalid file descriptor", "ERR_INVALID_FILEDESCRIPTOR");
    return record;
}

const Basis::ErrorRecord& Vetra__ERR_INVALID_JSON()
{
    static const Basis::ErrorRecord record =
        Basis::registeredError(5, "Invalid json", "ERR_INVALID_JSON");
    return record;
}

const Basis::ErrorRecord& Vetra__ERR_INVALID_USER_CONFIG()
{
    static const Basis::ErrorRecord record =
        Basis::registeredError(6, "Invalid user config", "ERR_INVALID_USER_CONFIG");
    return record;
}

namespace Vetra {

void raise(const Basis::ErrorRecord& record, std::initializer_list<std::string_view> arguments,
           const char* file, int line)
{
    const Diagnose::LastSystemErrorCache lastError;
    VetraException exception(file, line, record);
    lastError.restore("exception constructor");
    for (const std::string_view argument : arguments)
        exception.addArgument(argument);
    throw exception;
}

}  // namespace Vetra
