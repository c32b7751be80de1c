#include "Diagnose/TraceConfiguration.h"

#include <errno.h>
#include <fcntl.h>
#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <unistd.h>

#include <iostream>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "Basis/Crash.h"
#include "System/TrustedOpen.h"

namespace Diagnose {

namespace {

struct TraceFile {
    std::mutex mutex;
    bool configured = false;
    bool failed = false;
    std::string path;  // empty for standard error
    std::unique_ptr<spdlog::logger> logger;
};

// Never destroyed: a topic may trace while statics go.
TraceFile& traceFile()
{
    static TraceFile* const instance = new TraceFile;
    return *instance;
}

spdlog::level::level_enum spdlogLevel(TraceLevel level)
{
    switch (level) {
        case TraceLevel::Fatal:
            return spdlog::level::critical;
        case TraceLevel::Error:
            return spdlog::level::err;
        case TraceLevel::Warning:
            return spdlog::level::warn;
        case TraceLevel::Info:
            return spdlog::level::info;
        case TraceLevel::Debug:
            return spdlog::level::debug;
        case TraceLevel::Off:
            break;
    }
    return spdlog::level::off;
}

void giveUp(TraceFile& file, const std::string& reason)
{
    if (std::exchange(file.failed, true))
        return;
    std::cerr << "vetra: no diagnostic trace is written: " << reason << std::endl;
}

// The library opens files by their names; so this one is opened first, and then by its number.
spdlog::sink_ptr fileSink(const std::string& path)
{
    // A pipe that somebody put there would be waited for until another one reads it.
    const int file =
        System::openThroughTrustedLinks(path, O_WRONLY | O_CREAT | O_APPEND | O_NONBLOCK, 0666);
    struct stat status {};
    const bool isOpen = file >= 0 && ::fstat(file, &status) == 0;
    if (!isOpen)
        throw spdlog::spdlog_ex("Failed opening file " + path + " for writing", errno);
    if (!S_ISREG(status.st_mode) && !S_ISCHR(status.st_mode)) {
        ::close(file);
        throw spdlog::spdlog_ex("Failed opening file " + path + " for writing", ENXIO);
    }
    const std::string name = "/proc/self/fd/" + std::to_string(file);
    try {
        auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(name);
        ::close(file);
        return sink;
    } catch (...) {
        ::close(file);
        throw;
    }
}

void openFile(TraceFile& file)
{
    spdlog::sink_ptr sink;
    if (file.path.empty())
        sink = std::make_shared<spdlog::sinks::stderr_sink_mt>();
    else
        sink = fileSink(file.path);
    file.logger = std::make_unique<spdlog::logger>("trace", std::move(sink));
    file.logger->set_pattern("%Y-%m-%d %H:%M:%S.%f [%t] %l %v");
    file.logger->set_level(spdlog::level::trace);
    // What was traced must survive an abort.
    file.logger->flush_on(spdlog::level::trace);
    file.logger->set_error_handler([](const std::string& reason) { giveUp(traceFile(), reason); });
}

}  // namespace

bool TraceConfiguration::isConfigured()
{
    TraceFile& file = traceFile();
    const std::scoped_lock lock(file.mutex);
    return file.configured;
}

void TraceConfiguration::initializeExecutable(std::string_view directory, int fileType,
                                              int formatterType)
{
    Basis::assertThat(fileType == 1, "trace file type is 1, a plain text file");
    Basis::assertThat(formatterType == 1, "trace formatter type is 1, one line of text");
    TraceFile& file = traceFile();
    const std::scoped_lock lock(file.mutex);
    if (file.configured)
        return;
    file.configured = true;
    file.path.assign(directory).append("/").append(program_invocation_short_name);
    file.path.append("_").append(std::to_string(::getpid())).append(".diag.trc");
}

void TraceConfiguration::initializeStandardError()
{
    TraceFile& file = traceFile();
    const std::scoped_lock lock(file.mutex);
    file.configured = true;
}

void TraceConfiguration::write(const char* topic, TraceLevel level, std::string_view text)
{
    const int lastError = errno;
    TraceFile& file = traceFile();
    {
        const std::scoped_lock lock(file.mutex);
        if (file.configured && !file.failed) {
            try {
                if (!file.logger)
                    openFile(file);
                file.logger->log(spdlogLevel(level), "{}: {}", topic, text);
            } catch (const spdlog::spdlog_ex& error) {
                giveUp(file, error.what());
            }
        }
    }
    errno = lastError;
}

}  // namespace Diagnose
