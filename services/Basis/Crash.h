#pragma once

#include <exception>

namespace Basis {

/// Ends the process abnormally after one line on standard error: the text and where it was raised.
/// A second thread that comes here meanwhile waits for the end and says nothing. File names are cut
/// to their last component, so that the line is the same wherever it was built.
[[noreturn]] void crashImpl(const char* file, int line, const char* text);

/// The same with an exception's own text.
[[noreturn]] void crashImpl(const char* file, int line, const std::exception& exception);

/// Stops the program with `text` unless the condition holds. Active in every build: a wrong figure
/// costs more than an early end.
inline void assertThat(bool condition, const char* text, const char* file = __builtin_FILE(),
                       int line = __builtin_LINE())
{
    if (!condition) [[unlikely]]
        crashImpl(file, line, text);
}

/// What is called, once, before the process ends by crashImpl or by an exception that nobody
/// catches: the last chance to remove what must not stay. It must not throw.
using CrashHook = void (*)();
void setCrashHook(CrashHook hook);

/// The part of a path behind its last slash.
const char* baseName(const char* path);

/// From here on an exception that nobody catches ends the process after one line on standard error
/// that begins with `program` and names the exception. `program` must outlive the process's
/// threads.
void nameUncaughtExceptions(const char* program);

}  // namespace Basis
