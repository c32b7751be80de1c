#pragma once

#include <cstdint>
#include <memory>

#include "Basis/Containers.h"

namespace Vetra {

using Basis::string;

/// What every test fulfils; the driver knows tests through this alone.
///
/// The driver calls, in this order: getTestUsage, setTestConfig, getTestEstimatedDuration,
/// setTestOutputLocation, getTestName, runTest, setTestResult, getTestName, after a success
/// getTestHumanReadableResult, and when all tests have run getTestName and getTestJsonResult. The
/// other operations are for callers that trigger, observe or interrupt a test.
///
/// Units:      durations are milliseconds, progress is percent.
/// Ownership:  strings that come back are copies in the test's own domain.
/// Threads:    one call at a time, from one thread.
/// Errors:     a failed test is the result of runTest; an exception ends the whole run.
class VetraTestInterface {
public:
    virtual ~VetraTestInterface() = default;

    virtual string getTestName() const = 0;
    /// "name-version (build date)".
    virtual string getTestVersion() const = 0;
    /// The text that is shown before the test runs.
    virtual string getTestUsage() const = 0;
    /// The configuration that holds where the file gives none; may be empty.
    virtual string getDefaultTestConfig() const = 0;
    virtual void setTestTrigger(string& trigger) = 0;
    virtual string getTestTrigger() const = 0;
    /// Stores the JSON text of the entry's "config" and reads it at once. Never fails: a fault is
    /// remembered and fails runTest.
    virtual void setTestConfig(string& config) = 0;
    virtual string getTestConfig() const = 0;
    /// How long the configured test is expected to take.
    virtual std::int64_t getTestEstimatedDuration() = 0;
    virtual float getTestProgressPercentage() = 0;
    virtual void setUp() = 0;
    virtual void tearDown() = 0;
    /// Returns -1 from a test that cannot be interrupted.
    virtual std::int32_t interruptTest() = 0;
    /// Runs the whole test on the calling thread. Returns 0 if the test has run; what it found is
    /// in the two result texts.
    virtual std::int32_t runTest() = 0;
    virtual void setTestResult(bool result) = 0;
    virtual bool getTestResult() = 0;
    /// The content of the result file. After a failed run it is what was gathered, perhaps nothing.
    virtual string getTestJsonResult() = 0;
    /// The text for the terminal.
    virtual string getTestHumanReadableResult() = 0;
    /// Deletes an object made by plain new. Objects from the factory live by their reference count.
    virtual void Destroy() = 0;
    virtual void setTestOutputLocation(string& location) = 0;
    virtual string getTestOutputLocation() = 0;
    virtual void setTestHost(string& host) = 0;
    virtual string getTestHost() = 0;
    virtual void setTestContactInfo(string& contactInfo) = 0;
    virtual string getTestContactInfo() = 0;
    virtual void notifyTestStatus() = 0;
    virtual void postTestAction() = 0;
};

using TestPointer = std::shared_ptr<VetraTestInterface>;

/// Tests by their ids, in the order in which they run.
using TestMap = Basis::map<double, TestPointer>;

}  // namespace Vetra
