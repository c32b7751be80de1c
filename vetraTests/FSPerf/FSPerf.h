#pragma once

#include "Basis/Containers.h"
#include "vetraTests/FSPerf/FSPerfCmdOpts.h"
#include "vetraTests/FSPerf/FSPerfHelper.h"
#include "vetraTests/FSPerf/FileAccessReqHdlr.h"
#include "vetraTests/VetraTestDefines.h"

namespace vetraTests {

/// How a run ended.
enum RunCode : int {
    runSucceeded = 0,
    runArgumentsRefused = 2,
    runInitFailed = 3,
    runInitialWriteFailed = 4,
    runOverwriteFailed = 5,
    runReadFailed = 6,
    runDataFileMissing = 7,  ///< or not to be opened
};

/// Runs the tests that an argument string names, in this process and on the caller's thread, from
/// creating the data file to removing it. Returns a RunCode; on runSucceeded the three texts below
/// are those of this run, otherwise they stay those of the last one that succeeded.
///
/// Errors:  what went wrong stands on standard error. Commands of the diagnostics shell that fail
///          pass on as exceptions. A failed transfer ends the process.
/// Threads: one run at a time.
int runTestWrapper(Basis::string& args);

// The texts of the last run that succeeded, as copies; empty before the first.
Basis::string getSummaryReport();
Basis::string getJSONStats();
Basis::string getHRStats();

}  // namespace vetraTests

/// Runs the phases initial write, overwrite and read, as far as the options ask for them, and then
/// cleans up. Returns a RunCode. Outside of the namespace, since profiles of the engine's own
/// thread are cut to "runTests".
int runTests(vetraTests::CCmdOptions& options, vetraTests::_SFSStatistics& stats);

namespace vetraTests {

using ::runTests;

// One phase each: latency before throughput, as m_measurements says. False after a message on
// standard error.
/// Without the test of the initial write, only prepares the file for the phases that follow.
bool testInitialWrite(const CCmdOptions& options, CFileAccessRequestHandler& handler,
                      _SFSStatistics& stats);
bool testOverwrite(const CCmdOptions& options, CFileAccessRequestHandler& handler,
                   _SFSStatistics& stats);
bool testRead(const CCmdOptions& options, CFileAccessRequestHandler& handler,
              _SFSStatistics& stats);

}  // namespace vetraTests
