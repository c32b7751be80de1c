#pragma once

#include <string_view>

#include "JoltUtils/TypedJson.h"
#include "VetraTestInterface.h"
#include "vetraDefines.h"

namespace vetraTests {

using Basis::string;

/// What the tests of a file system have in common: a configuration becomes a list of command lines
/// for the measuring engine, which run one after the other in this process.
///
/// Configuration:  "duration" ("short", "long", "verylong"), "mount" (host name to an array of
/// paths,
///                 of which the first for this host counts), "parameter" (engine parameters).
/// Errors:         setTestConfig remembers a fault, and runTest then returns -1. A measurement that
///                 fails ends the test with -1 and leaves no result of the test, not even of the
///                 measurements before it. Exceptions of the engine pass through.
class IOTests : public Vetra::VetraTestInterface {
public:
    string getTestName() const override;
    string getTestVersion() const override;
    string getTestUsage() const override;
    string getDefaultTestConfig() const override;
    void setTestTrigger(string& trigger) override;
    string getTestTrigger() const override;
    void setTestConfig(string& config) override;
    string getTestConfig() const override;
    float getTestProgressPercentage() override;
    void setUp() override;
    void tearDown() override;
    std::int32_t interruptTest() override;
    void setTestResult(bool result) override;
    bool getTestResult() override;
    string getTestJsonResult() override;
    string getTestHumanReadableResult() override;
    void setTestOutputLocation(string& location) override;
    string getTestOutputLocation() override;
    void setTestHost(string& host) override;
    string getTestHost() override;
    void setTestContactInfo(string& contactInfo) override;
    string getTestContactInfo() override;
    void notifyTestStatus() override;
    void postTestAction() override;

protected:
    IOTests(Basis::Allocator& ownerAllocator, const char* name);

    /// Reads `testConfig`, or the default if that is empty. Adds to what an earlier call has left.
    void readTestConfig();
    /// Fills the list of block and file sizes from a table, a JSON text, for the chosen duration.
    void readTestDurationConfig(string& table);
    /// Makes the command lines. Returns false, as `execReady` then says, if the configuration has a
    /// fault or does not name this host.
    bool setExecString(string& table, string& ioOrder);
    /// The seven lines above the rows of the summary.
    string outputConsolidatedStatisticsHeader(string& title) const;
    /// The whole test, with the data of its class.
    std::int32_t runMeasurements(const char* table, const char* ioOrder, const char* title);
    /// Milliseconds for the chosen duration; 0 for any other word.
    std::int64_t estimate(std::int64_t shortRun, std::int64_t longRun, std::int64_t veryLongRun);

    Basis::Allocator& allocator;
    string testName;
    string testVersion;
    string testUsage;
    string defaultTestConfig;
    string testTrigger;
    string testConfig;
    std::int64_t estimatedDuration = 0;
    float progressPercentage = 0.0F;
    bool testResult = false;
    string testJsonResult;
    string testHumanReadableResult;
    string testOutputLocation;
    string testHost;
    bool hostFound = false;
    string testContactInfo;
    string durationName;
    Basis::map<string, string> mountPaths;
    Basis::map<string, string> blockFileSizes;
    bool hasParameters = false;
    string paramString;
    bool configValid = true;
    Basis::vector<string> execStrings;
    bool execReady = false;

private:
    string copyOf(const string& field) const { return string(field, &allocator); }
    void readConfigMember(const string& key, const JoltUtils::TypedJson& value);
    void readMount(const JoltUtils::JsonObject& hosts);
    void readParameters(const JoltUtils::JsonObject& parameters);
};

/// The access pattern of a data volume: random, all block sizes.
class DataVolumeIO : public IOTests {
public:
    explicit DataVolumeIO(Basis::Allocator& ownerAllocator);
    std::int64_t getTestEstimatedDuration() override;
    std::int32_t runTest() override;
    void Destroy() override;
};

/// The access pattern of a log volume: sequential, small and medium blocks.
class LogVolumeIO : public IOTests {
public:
    explicit LogVolumeIO(Basis::Allocator& ownerAllocator);
    std::int64_t getTestEstimatedDuration() override;
    std::int32_t runTest() override;
    void Destroy() override;
};

/// The access pattern of a backup: sequential, the largest blocks.
class BackupIO : public IOTests {
public:
    explicit BackupIO(Basis::Allocator& ownerAllocator);
    std::int64_t getTestEstimatedDuration() override;
    std::int32_t runTest() override;
    void Destroy() override;
};

/// Random access with small and medium blocks.
class MixedStressIO : public IOTests {
public:
    explicit MixedStressIO(Basis::Allocator& ownerAllocator);
    std::int64_t getTestEstimatedDuration() override;
    std::int32_t runTest() override;
    void Destroy() override;
};

}  // namespace vetraTests
