#include <iostream>

#include "Basis/Crash.h"
#include "Diagnose/Shell.h"
#include "vetraTests/FSPerf/FSPerfHelper.h"
#include "vetraTests/FSPerf/FileAccessReqHdlr.h"

namespace vetraTests {

namespace {

constexpr const char* arrowsRight = "\r>>>>>>>>>> ";
constexpr const char* arrowsLeft = " <<<<<<<<<<";

// What the call graphs are cut to; null for the whole process.
const char* filterOf(ProfilerMode mode, const char* callersFunction)
{
    switch (mode) {
        case ProfilerMode::ALL:
            return nullptr;
        case ProfilerMode::MAIN:
        case ProfilerMode::TRIGGER:
            return callersFunction;
        case ProfilerMode::SUBMIT:
            return "FileAccess::SubmitThread::run";
        case ProfilerMode::COMPLETION:
            return "FileAccess::LocalFileCompletionThread::run";
        case ProfilerMode::OFF:
            break;
    }
    Basis::crashImpl(__FILE__, __LINE__, "the profiler mode has an output");
}

Basis::string printCommand(const CCmdOptions& options, const char* callersFunction)
{
    const Basis::string& base = options.m_profiler_base_name;
    Basis::string command("profiler print -o ", &fsperfAllocator());
    command.append(base).append("-cpu.dot,").append(base).append("-wait.dot");
    if (const char* filter = filterOf(options.m_profiler_mode, callersFunction))
        command.append(" -f ").append(filter);
    return command;
}

bool isOff(const CCmdOptions& options)
{
    return options.m_profiler_mode == ProfilerMode::OFF;
}

// One block of console lines: what a command answered, if any, and a line of our own.
class ConsoleBlock {
public:
    ConsoleBlock(const CCmdOptions& options, Synchronization::Mutex& outputMutex)
        : isShown(isTalkative(options)), mutex(outputMutex)
    {
    }

    template <class... Parts>
    void print(const Parts&... parts) const
    {
        if (!isShown)
            return;
        const Synchronization::MutexScope scope(mutex);
        (std::cout << ... << parts) << std::endl;
    }

private:
    bool isShown;
    Synchronization::Mutex& mutex;
};

}  // namespace

void CFileAccessRequestHandler::executeProfilerCommand(const char* command,
                                                       Basis::ostringstream& answer,
                                                       const char* failure)
{
    try {
        dbgExecuteCommand(command, answer, true);
    } catch (const std::exception& exception) {
        const Synchronization::MutexScope scope(m_output_mutex);
        std::cout << std::endl << answer.view() << std::endl;
        std::cerr << failure << std::endl << exception.what() << std::flush;
        throw;
    }
}

void CFileAccessRequestHandler::profilerInit(const CCmdOptions& options)
{
    Basis::assertThat(!m_profiler_running, "!m_profiler_running");
    if (isOff(options))
        return;
    const ConsoleBlock console(options, m_output_mutex);
    Basis::ostringstream answer = Basis::outputStream(fsperfAllocator());
    console.print(arrowsRight, "INITIALIZE PROFILER", arrowsLeft);
    executeProfilerCommand("profiler clear", answer, "\rERROR clearing profiler: ");
    console.print(answer.view(), arrowsRight, "PROFILER INITIALIZED", arrowsLeft);
}

void CFileAccessRequestHandler::notifyProfilerStartTest(const CCmdOptions& options,
                                                        const char* name)
{
    Basis::assertThat(!m_profiler_running, "!m_profiler_running");
    if (isOff(options))
        return;
    const ConsoleBlock console(options, m_output_mutex);
    Basis::ostringstream answer = Basis::outputStream(fsperfAllocator());
    console.print(arrowsRight, "PROFILER '", name, "' STARTING", arrowsLeft);
    executeProfilerCommand("profiler start", answer, "\rERROR starting profiler: ");
    m_profiler_running = true;
    console.print('\r', answer.view(), arrowsRight, "PROFILER '", name, "' STARTED", arrowsLeft);
}

void CFileAccessRequestHandler::notifyProfilerEndTrigger(const CCmdOptions& options,
                                                         const char* name)
{
    if (options.m_profiler_mode != ProfilerMode::TRIGGER)
        return;
    Basis::assertThat(m_profiler_running, "m_profiler_running");
    const ConsoleBlock console(options, m_output_mutex);
    Basis::ostringstream answer = Basis::outputStream(fsperfAllocator());
    console.print(arrowsRight, "PROFILER '", name, "' STOPPING AT END OF TRIGGER PHASE",
                  arrowsLeft);
    executeProfilerCommand("profiler stop", answer, "\rERROR stopping profiler: ");
    m_profiler_running = false;
    console.print('\r', answer.view(), arrowsRight, "PROFILER '", name,
                  "' STOPPED AT END OF TRIGGER PHASE", arrowsLeft);
}

void CFileAccessRequestHandler::notifyProfilerEndTest(const CCmdOptions& options, const char* name)
{
    if (!m_profiler_running || isOff(options))
        return;
    const ConsoleBlock console(options, m_output_mutex);
    Basis::ostringstream answer = Basis::outputStream(fsperfAllocator());
    console.print(arrowsRight, "PROFILER '", name, "' STOPPING", arrowsLeft);
    executeProfilerCommand("profiler stop", answer, "\rERROR stoping profiler: ");
    m_profiler_running = false;
    console.print('\r', answer.view(), arrowsRight, "PROFILER '", name, "' STOPPED", arrowsLeft);
}

void CFileAccessRequestHandler::profilerClose(const CCmdOptions& options, const char* name)
{
    Basis::assertThat(!m_profiler_running, "!m_profiler_running");
    if (isOff(options))
        return;
    const ConsoleBlock console(options, m_output_mutex);
    Basis::ostringstream answer = Basis::outputStream(fsperfAllocator());
    console.print(arrowsRight, "PROFILER WRITING OUTPUT", arrowsLeft);
    const Basis::string command = printCommand(options, name);
    answer << command << std::endl;  // an operator sees which files to look for
    executeProfilerCommand(command.c_str(), answer, "\rERROR writing profiler output: ");
    executeProfilerCommand("profiler clear", answer, "\rERROR clearing profiler: ");
    console.print('\r', answer.view(), arrowsRight, "PROFILER OUTPUT WRITTEN", arrowsLeft);
}

}  // namespace vetraTests
