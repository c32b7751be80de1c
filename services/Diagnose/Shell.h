#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "Basis/Exception.h"

namespace Diagnose {

/// A command of the diagnostics shell that could not be carried out.
class CommandException : public Basis::Exception {
public:
    using Basis::Exception::Exception;
};

/// The error that a CommandException carries; its text argument says what was wrong.
const Basis::ErrorRecord& commandFailed();

/// Throws a CommandException with the reason as its text argument.
[[noreturn]] void refuseCommand(std::string_view reason, const char* file = __builtin_FILE(),
                                int line = __builtin_LINE());

/// Carries out one command of a family; `words` are those behind the family's name. Throws a
/// CommandException if it cannot.
using CommandFamily =
    std::function<void(const std::vector<std::string>& words, std::ostream& answer)>;

/// Makes a family known under the first word of its commands. A second registration replaces the
/// first.
void registerCommandFamily(const std::string& name, CommandFamily family);

}  // namespace Diagnose

/// Carries out one command of the diagnostics shell; its answer goes to the stream. Commands are
/// words between blanks. The known families are
///   statreg reset -n DOMAIN       the counters of the domain count anew
///   statreg print [-h] -n DOMAIN  prints them readably
///   statreg list                  the names of all domains
/// and those that services register. `wait` is true: a command is over when the call returns.
/// Throws Diagnose::CommandException if the command is unknown or fails.
void dbgExecuteCommand(const char* command, std::ostream& answer, bool wait);
