#include "Basis/Crash.h"

#include <cxxabi.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <typeinfo>

#include "Basis/Text.h"

namespace Basis {

namespace {

const char* programName = "vetra";
std::atomic<CrashHook> crashHook{nullptr};

// The first thread ends the process; a second line would only blur the reason. The others must not
// run on, nor end the process before the hook has done its work.
void beginCrash()
{
    static std::atomic_flag hasBegun;
    static thread_local bool isOurs = false;
    if (!hasBegun.test_and_set()) {
        isOurs = true;
        if (const CrashHook hook = crashHook.load())
            hook();
        return;
    }
    if (isOurs)
        return;
    for (;;)
        ::pause();
}

// One write for the whole line: other threads may be writing to the same terminal.
void writeLine(const std::string& text)
{
    std::string line;
    appendPrintable(line, text);
    line += '\n';
    std::size_t done = 0;
    while (done < line.size()) {
        const ssize_t written = ::write(STDERR_FILENO, line.data() + done, line.size() - done);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return;
        done += static_cast<std::size_t>(written);
    }
}

std::string typeNameOfCurrentException()
{
    const std::type_info* type = abi::__cxa_current_exception_type();
    if (!type)
        return "no exception";
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(type->name(), nullptr, nullptr, &status), &std::free);
    return name ? name.get() : type->name();
}

[[noreturn]] void reportAndAbort()
{
    std::string text =
        std::string(programName) + ": unexpected exception " + typeNameOfCurrentException();
    try {
        if (std::current_exception())
            std::rethrow_exception(std::current_exception());
    } catch (const std::exception& exception) {
        text.append(": ").append(exception.what());
    } catch (...) {
        // Its type is all that is known of it.
    }
    beginCrash();
    writeLine(text);
    std::abort();
}

}  // namespace

void setCrashHook(CrashHook hook)
{
    crashHook = hook;
}

const char* baseName(const char* path)
{
    const char* slash = std::strrchr(path, '/');
    return slash ? slash + 1 : path;
}

void crashImpl(const char* file, int line, const char* text)
{
    beginCrash();
    std::cout.flush();
    writeLine(std::string(programName) + ": fatal: " + text + " (" + baseName(file) + ":" +
              std::to_string(line) + ")");
    std::abort();
}

void crashImpl(const char* file, int line, const std::exception& exception)
{
    crashImpl(file, line, exception.what());
}

void nameUncaughtExceptions(const char* program)
{
    programName = program;
    std::set_terminate(&reportAndAbort);
}

}  // namespace Basis
