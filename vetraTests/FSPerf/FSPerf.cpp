#include "vetraTests/FSPerf/FSPerf.h"

#include <iostream>

#include "Diagnose/TraceConfiguration.h"
#include "FileAccess/FileFunctions.h"
#include "vetraTests/FSPerf/StatisticsOutput.h"

namespace vetraTests {

namespace {

constexpr int traceFileType = 1;
constexpr int traceFormatterType = 1;

struct ResultTexts {
    Basis::string f_JsonStats{&fsperfAllocator()};
    Basis::string f_HRStats{&fsperfAllocator()};
    Basis::string f_summaryReport{&fsperfAllocator()};
};

// Built behind the domain that it asks for, so it goes before the domain counts what is left.
ResultTexts& results()
{
    static ResultTexts texts;
    return texts;
}

void setUpTracing()
{
    if (Diagnose::TraceConfiguration::isConfigured())
        return;
    Basis::string directory(&fsperfAllocator());
    FileAccess::getCurrentDirectory(directory);
    Diagnose::TraceConfiguration::initializeExecutable(directory, traceFileType,
                                                       traceFormatterType);
}

void publish(const CCmdOptions& options, const _SFSStatistics& stats)
{
    const StatisticsOutput output(fsperfAllocatorHandle());
    ResultTexts& texts = results();
    texts.f_JsonStats.assign(output.outputJSONStatistics(options, stats));
    texts.f_HRStats.assign(output.outputHumanReadableStatistics(options, stats));
    texts.f_summaryReport.assign(output.outputConsolidatedStatistics(options, stats));
}

bool measuresLatency(const CCmdOptions& options)
{
    return (options.m_measurements & MEASURE_LATENCY) != 0;
}

bool measuresThroughput(const CCmdOptions& options)
{
    return (options.m_measurements & MEASURE_THROUGHPUT) != 0;
}

void announce(const CCmdOptions& options, const char* text, char frame)
{
    if (isTalkative(options))
        printBlockHeader(text, frame);
}

bool concluded(const CCmdOptions& options, bool succeeded, const char* failure,
               const char* completion)
{
    if (!succeeded)
        std::cerr << failure << std::endl;
    else if (isTalkative(options))
        std::cout << completion << std::endl << std::endl;
    return succeeded;
}

// An initial write means blocks that the file does not have yet: each measurement starts on a file
// made anew.
bool testInitialWriteLatency(const CCmdOptions& options, CFileAccessRequestHandler& handler,
                             _SFSStatistics& stats)
{
    announce(options, "Running test for initial write latency...", '=');
    return handler.initDataFile(options) &&
           concluded(options,
                     handler.executeSynchronousWriteTest(options, stats.initialWriteLatency),
                     "ERROR: Test for latency of initial write failed!",
                     "Test of latency for initial write has completed.");
}

bool testInitialWriteThroughput(const CCmdOptions& options, CFileAccessRequestHandler& handler,
                                _SFSStatistics& stats)
{
    announce(options, "Running test for initial write throughput...", '=');
    return handler.initDataFile(options) &&
           concluded(
               options,
               handler.executeAsynchronousWriteTest(options, true, stats.initialWriteThroughput),
               "ERROR: Test of initial write failed!", "Test of initial write has completed.");
}

bool prepareFile(const CCmdOptions& options, CFileAccessRequestHandler& handler)
{
    announce(options, "Preparing file for later tests...", '-');
    return handler.initDataFile(options) &&
           concluded(options, handler.initFile(options), "ERROR: Initialization of file failed!",
                     "File has been prepared.");
}

int makeFileReady(const CCmdOptions& options, CFileAccessRequestHandler& handler,
                  _SFSStatistics& stats)
{
    if (options.m_initialize)
        return testInitialWrite(options, handler, stats) ? runSucceeded : runInitialWriteFailed;
    return handler.openDataFile(options) ? runSucceeded : runDataFileMissing;
}

int runPhases(const CCmdOptions& options, CFileAccessRequestHandler& handler, _SFSStatistics& stats)
{
    if (const int code = makeFileReady(options, handler, stats); code != runSucceeded)
        return code;
    if (options.m_test_overwrite && !testOverwrite(options, handler, stats))
        return runOverwriteFailed;
    if (options.m_test_read && !testRead(options, handler, stats))
        return runReadFailed;
    return runSucceeded;
}

}  // namespace

int runTestWrapper(Basis::string& args)
{
    CCmdOptions options;
    _SFSStatistics stats;
    setUpTracing();
    if (!options.evaluate(args)) {
        printCommandLine(args);
        return runArgumentsRefused;
    }
    if (isTalkative(options)) {
        printBlockHeader("Command line options", '*');
        printCommandLine(args);
    }
    if (!isJson(options))
        printExtractedCmdArgs(options);
    const int code = runTests(options, stats);
    if (code == runSucceeded)
        publish(options, stats);
    return code;
}

Basis::string getSummaryReport()
{
    return {results().f_summaryReport, &fsperfAllocator()};
}

Basis::string getJSONStats()
{
    return {results().f_JsonStats, &fsperfAllocator()};
}

Basis::string getHRStats()
{
    return {results().f_HRStats, &fsperfAllocator()};
}

bool testInitialWrite(const CCmdOptions& options, CFileAccessRequestHandler& handler,
                      _SFSStatistics& stats)
{
    if (!options.m_test_initial_write)
        return prepareFile(options, handler);
    if (measuresLatency(options) && !testInitialWriteLatency(options, handler, stats))
        return false;
    return !measuresThroughput(options) || testInitialWriteThroughput(options, handler, stats);
}

bool testOverwrite(const CCmdOptions& options, CFileAccessRequestHandler& handler,
                   _SFSStatistics& stats)
{
    if (measuresLatency(options)) {
        announce(options, "Running overwrite latency test...", '=');
        if (!concluded(options,
                       handler.executeSynchronousWriteTest(options, stats.overwriteLatency),
                       "ERROR: Overwrite latency test failed!",
                       "Test of overwrite latency has completed."))
            return false;
    }
    if (!measuresThroughput(options))
        return true;
    announce(options, "Running overwrite throughput test...", '=');
    return concluded(
        options, handler.executeAsynchronousWriteTest(options, false, stats.overwriteThroughput),
        "ERROR: Overwrite test failed!", "Test of overwrite has completed.");
}

bool testRead(const CCmdOptions& options, CFileAccessRequestHandler& handler, _SFSStatistics& stats)
{
    if (measuresLatency(options)) {
        announce(options, "Running read latency test...", '=');
        if (!concluded(options, handler.executeSynchronousReadTest(options, stats.readLatency),
                       "ERROR: Test of read latency failed!",
                       "Test of read latency has completed."))
            return false;
    }
    if (!measuresThroughput(options))
        return true;
    announce(options, "Running read throughput test...", '=');
    return concluded(options, handler.executeAsynchronousReadTest(options, stats.readThroughput),
                     "ERROR: Read test failed!", "Test of read has completed.");
}

}  // namespace vetraTests

// Stays a frame of its own, so that a profile can be cut to it.
[[gnu::noinline]] int runTests(vetraTests::CCmdOptions& options, vetraTests::_SFSStatistics& stats)
{
    using namespace vetraTests;
    CFileAccessRequestHandler handler;
    announce(options, "Running tests", '*');
    if (!handler.init(options))
        return runInitFailed;
    if (isTalkative(options))
        std::cout << "Starting tests..." << std::endl;
    const int code = runPhases(options, handler, stats);
    if (code == runSucceeded && isTalkative(options))
        std::cout << "Tests completed." << std::endl;
    handler.cleanup(options);
    return code;
}
