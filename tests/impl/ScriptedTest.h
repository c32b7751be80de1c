#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "VetraTestInterface.h"

namespace unitTests {

/// What a ScriptedTest answers.
struct Script {
    std::string usage = "usage";
    std::string report = "report";
    std::string json = "{}";
    std::int64_t duration = 80;
    std::int32_t result = 0;
    std::function<void()> whileRunning = [] {};
};

/// The calls that the tests of one run have seen, as "name: operation argument", and "name: gone"
/// where one was released.
using CallLog = std::vector<std::string>;

/// A test that answers by a script and records what the driver does with it.
class ScriptedTest : public Vetra::VetraTestInterface {
public:
    ScriptedTest(Basis::Allocator& ownerAllocator, std::string ownName, Script ownScript,
                 CallLog& callLog);
    ~ScriptedTest() override;

    Basis::string getTestName() const override;
    Basis::string getTestVersion() const override;
    Basis::string getTestUsage() const override;
    Basis::string getDefaultTestConfig() const override;
    void setTestTrigger(Basis::string& trigger) override;
    Basis::string getTestTrigger() const override;
    void setTestConfig(Basis::string& config) override;
    Basis::string getTestConfig() const override;
    std::int64_t getTestEstimatedDuration() override;
    float getTestProgressPercentage() override;
    void setUp() override;
    void tearDown() override;
    std::int32_t interruptTest() override;
    std::int32_t runTest() override;
    void setTestResult(bool result) override;
    bool getTestResult() override;
    Basis::string getTestJsonResult() override;
    Basis::string getTestHumanReadableResult() override;
    void Destroy() override;
    void setTestOutputLocation(Basis::string& location) override;
    Basis::string getTestOutputLocation() override;
    void setTestHost(Basis::string& host) override;
    Basis::string getTestHost() override;
    void setTestContactInfo(Basis::string& contactInfo) override;
    Basis::string getTestContactInfo() override;
    void notifyTestStatus() override;
    void postTestAction() override;

private:
    void note(std::string_view call, std::string_view argument = {}) const;
    Basis::string answer(std::string_view call, std::string_view text = {}) const;

    Basis::Allocator& allocator;
    std::string name;
    Script script;
    CallLog& calls;
};

}  // namespace unitTests
