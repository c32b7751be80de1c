#pragma once

#include <cstdint>
#include <exception>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace Basis {

/// What kind of thing an error code counts.
struct ErrorCategory {
    const char* name;
};

/// The category of the codes that a program defines for itself.
const ErrorCategory& genericErrorCategory();

/// Number of a registered error record, counted from 1.
using ErrorHandle = std::uint32_t;

/// One error that a program can raise. Records are made once by registeredError and never change.
struct ErrorRecord {
    std::uint32_t code;             ///< the program's own number
    const char* message;            ///< may hold placeholders such as $id$
    const ErrorCategory* category;  ///< never null
    const char* symbolicName;       ///< such as "ERR_GENERIC"
    ErrorHandle handle;             ///< what registering returned
};

/// Fills a record of the generic category and registers it. The texts must be literals.
/// Threads: any; a function-local static keeps a record from being registered twice.
ErrorRecord registeredError(std::uint32_t code, const char* message, const char* symbolicName);

/// How many times a symbolic name has been registered.
std::size_t registrationsOf(std::string_view symbolicName);

/// The exception from which those of the tool, of the network and of the system calls derive.
///
/// It carries where it was raised, an error record or an errno, and text arguments, which fill the
/// placeholders of the record's message: a named argument the placeholder of its name, an unnamed
/// one the first that is still open. Arguments that fill nothing follow the message.
/// The text form is one line: code, symbolic name, message, arguments, (file:line).
class Exception : public std::exception {
public:
    Exception(const char* file, int line, const ErrorRecord& record);
    /// For a failed system call; `systemError` is the errno that it left.
    Exception(const char* file, int line, int systemError);

    Exception& addArgument(std::string_view text, std::string_view name = {});

    const char* file() const { return sourceFile; }
    int line() const { return sourceLine; }
    /// Null for an exception that carries an errno.
    const ErrorRecord* record() const { return errorRecord; }
    /// 0 for an exception that carries a record.
    int systemError() const { return errorNumber; }
    const char* what() const noexcept override { return text.c_str(); }

private:
    struct Argument {
        std::string text;
        std::string name;
    };
    void compose();

    const char* sourceFile;
    int sourceLine;
    const ErrorRecord* errorRecord = nullptr;
    int errorNumber = 0;
    std::vector<Argument> arguments;
    std::string text;
};

std::ostream& operator<<(std::ostream& stream, const Exception& exception);

}  // namespace Basis
