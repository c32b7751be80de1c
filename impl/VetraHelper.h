#pragma once

#include "VetraTestInterface.h"
#include "impl/UserConfig.h"
#include "vetraDefines.h"

namespace Vetra {

/// The severity of a line in the log file. Any other value writes nothing.
enum TRACE_TYPE : int { TRACE_ERROR = 0, TRACE_INFO = 1 };

/// The working half of the driver: reads the configuration file, walks the tests, writes the log
/// file "vetra.trc" in the current directory and one result file per test.
///
/// Threads: one thread per object; tests run on the calling thread, one after the other.
/// Errors:  only readFromFile raises. A log or result file that cannot be written is never a reason
///          to stop.
class VetraHelper {
public:
    explicit VetraHelper(Basis::Allocator& ownerAllocator);
    virtual ~VetraHelper() = default;

    /// Fills `content` with the whole file, or raises Vetra__ERR_INVALID_FILEDESCRIPTOR.
    void readFromFile(const string& path, string& content);

    /// Adds one event to the log file: local time, severity, message.
    ///
    /// The descriptor that probes for the file is not closed: one stays open for each call until
    /// the process ends. The program raises its limit for that at start.
    void writeToTrace(TRACE_TYPE type, const char* message);

    /// Runs the configured tests in ascending order of their keys and enters each one that could be
    /// created into `tests` under its own id, in the place of an earlier one with that id.
    void runTests(UserConfig& config, TestMap& tests);

    /// Writes a result and one line end into a file of the output directory whose name is made of
    /// the id, the local time in milliseconds and the test's name. Returns the path.
    string writeTestResultToFile(double id, string& outputDir, string& testName, string& result);

private:
    void runTest(UserConfig& config, VetraTestInterface& test, string& testConfig);

    Basis::Allocator& allocator;
    TestMap ownTests;  // stays empty; the map in use belongs to the caller of runTests
};

}  // namespace Vetra
