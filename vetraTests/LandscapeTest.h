#pragma once

#include "VetraTestInterface.h"
#include "vetraDefines.h"

namespace vetraTests {

using Basis::string;

/// The test that looks at the host: gathers its facts and judges them by thirteen rules.
///
/// It has no parameters; what is set as its configuration is kept and not looked at. runTest
/// returns 0 also for a host that breaks every rule: the verdict is in the report.
class EvalOS : public Vetra::VetraTestInterface {
public:
    explicit EvalOS(Basis::Allocator& ownerAllocator);

    string getTestName() const override;
    string getTestVersion() const override;
    string getTestUsage() const override;
    string getDefaultTestConfig() const override;
    void setTestTrigger(string& trigger) override;
    string getTestTrigger() const override;
    void setTestConfig(string& config) override;
    string getTestConfig() const override;
    std::int64_t getTestEstimatedDuration() override;
    float getTestProgressPercentage() override;
    void setUp() override;
    void tearDown() override;
    std::int32_t interruptTest() override;
    std::int32_t runTest() override;
    void setTestResult(bool result) override;
    bool getTestResult() override;
    string getTestJsonResult() override;
    string getTestHumanReadableResult() override;
    void Destroy() override;
    void setTestOutputLocation(string& location) override;
    string getTestOutputLocation() override;
    void setTestHost(string& host) override;
    /// The environment variable HOST at the time of the call, empty if it is unset.
    string getTestHost() override;
    void setTestContactInfo(string& contactInfo) override;
    string getTestContactInfo() override;
    void notifyTestStatus() override;
    void postTestAction() override;

private:
    string copyOf(const string& field) const { return string(field, &allocator); }

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
    string testContactInfo;
};

}  // namespace vetraTests
