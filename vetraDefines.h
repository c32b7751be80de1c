#pragma once

#include <initializer_list>
#include <string_view>

#include "Basis/Containers.h"
#include "Basis/Exception.h"

/// The errors that the tool can raise. Each call returns the same record, which the first call has
/// filled and registered; first calls may race.
const Basis::ErrorRecord& Vetra__ERR_GENERIC();
const Basis::ErrorRecord& Vetra__ERR_UNKOWN_HOSTNAME();
const Basis::ErrorRecord& Vetra__ERR_INVALID_INPUT();
const Basis::ErrorRecord& Vetra__ERR_INVALID_FILEDESCRIPTOR();
const Basis::ErrorRecord& Vetra__ERR_INVALID_JSON();
const Basis::ErrorRecord& Vetra__ERR_INVALID_USER_CONFIG();

namespace Vetra {

using Basis::string;

/// An error that ends a run.
class VetraException : public Basis::Exception {
public:
    using Basis::Exception::Exception;
};

/// Throws a VetraException with unnamed text arguments. The caller's last system error outlives the
/// making of the exception.
[[noreturn]] void raise(const Basis::ErrorRecord& record,
                        std::initializer_list<std::string_view> arguments,
                        const char* file = __builtin_FILE(), int line = __builtin_LINE());

}  // namespace Vetra
