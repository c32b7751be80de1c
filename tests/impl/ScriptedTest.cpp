#include "tests/impl/ScriptedTest.h"

#include <utility>

namespace unitTests {

ScriptedTest::ScriptedTest(Basis::Allocator& ownerAllocator, std::string ownName, Script ownScript,
                           CallLog& callLog)
    : allocator(ownerAllocator),
      name(std::move(ownName)),
      script(std::move(ownScript)),
      calls(callLog)
{
}

ScriptedTest::~ScriptedTest()
{
    note("gone");
}

void ScriptedTest::note(std::string_view call, std::string_view argument) const
{
    std::string line = name;
    line.append(": ").append(call);
    if (!argument.empty())
        line.append(" ").append(argument);
    calls.push_back(std::move(line));
}

Basis::string ScriptedTest::answer(std::string_view call, std::string_view text) const
{
    note(call);
    return Basis::string(text, &allocator);
}

Basis::string ScriptedTest::getTestName() const
{
    return answer("getTestName", name);
}

Basis::string ScriptedTest::getTestVersion() const
{
    return answer("getTestVersion");
}

Basis::string ScriptedTest::getTestUsage() const
{
    return answer("getTestUsage", script.usage);
}

Basis::string ScriptedTest::getDefaultTestConfig() const
{
    return answer("getDefaultTestConfig");
}

void ScriptedTest::setTestTrigger(Basis::string& trigger)
{
    note("setTestTrigger", trigger);
}

Basis::string ScriptedTest::getTestTrigger() const
{
    return answer("getTestTrigger");
}

void ScriptedTest::setTestConfig(Basis::string& config)
{
    note("setTestConfig", config);
}

Basis::string ScriptedTest::getTestConfig() const
{
    return answer("getTestConfig");
}

std::int64_t ScriptedTest::getTestEstimatedDuration()
{
    note("getTestEstimatedDuration");
    return script.duration;
}

float ScriptedTest::getTestProgressPercentage()
{
    note("getTestProgressPercentage");
    return 0.0F;
}

void ScriptedTest::setUp()
{
    note("setUp");
}

void ScriptedTest::tearDown()
{
    note("tearDown");
}

std::int32_t ScriptedTest::interruptTest()
{
    note("interruptTest");
    return -1;
}

std::int32_t ScriptedTest::runTest()
{
    note("runTest");
    script.whileRunning();
    return script.result;
}

void ScriptedTest::setTestResult(bool result)
{
    note("setTestResult", result ? "true" : "false");
}

bool ScriptedTest::getTestResult()
{
    note("getTestResult");
    return false;
}

Basis::string ScriptedTest::getTestJsonResult()
{
    return answer("getTestJsonResult", script.json);
}

Basis::string ScriptedTest::getTestHumanReadableResult()
{
    return answer("getTestHumanReadableResult", script.report);
}

void ScriptedTest::Destroy()
{
    note("Destroy");
}

void ScriptedTest::setTestOutputLocation(Basis::string& location)
{
    note("setTestOutputLocation", location);
}

Basis::string ScriptedTest::getTestOutputLocation()
{
    return answer("getTestOutputLocation");
}

void ScriptedTest::setTestHost(Basis::string& host)
{
    note("setTestHost", host);
}

Basis::string ScriptedTest::getTestHost()
{
    return answer("getTestHost");
}

void ScriptedTest::setTestContactInfo(Basis::string& contactInfo)
{
    note("setTestContactInfo", contactInfo);
}

Basis::string ScriptedTest::getTestContactInfo()
{
    return answer("getTestContactInfo");
}

void ScriptedTest::notifyTestStatus()
{
    note("notifyTestStatus");
}

void ScriptedTest::postTestAction()
{
    note("postTestAction");
}

}  // namespace unitTests
