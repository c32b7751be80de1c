// The answers of the contract that do not depend on what was configured or measured.

#include "impl/network/NetworkTest.h"

namespace vetraTests {

namespace {

constexpr std::int64_t estimatePerPeer = 100;  // milliseconds

}  // namespace

string NetworkTest::getTestName() const
{
    return text("NetworkTest");
}

string NetworkTest::getTestVersion() const
{
    return string(testVersion, &allocator);
}

string NetworkTest::getTestUsage() const
{
    return text("This test is used to measure network speed");
}

string NetworkTest::getDefaultTestConfig() const
{
    return text("This is the test configuration");
}

void NetworkTest::setTestTrigger(string&) {}

string NetworkTest::getTestTrigger() const
{
    return text("");
}

string NetworkTest::getTestConfig() const
{
    return text("This is a dummy TestConfig");
}

std::int64_t NetworkTest::getTestEstimatedDuration()
{
    return static_cast<std::int64_t>(peerHosts.size()) * estimatePerPeer;
}

float NetworkTest::getTestProgressPercentage()
{
    return 0.0F;
}

void NetworkTest::setUp() {}

void NetworkTest::tearDown() {}

std::int32_t NetworkTest::interruptTest()
{
    return 0;
}

void NetworkTest::setTestResult(bool result)
{
    testResult = result;
}

bool NetworkTest::getTestResult()
{
    return testResult;
}

void NetworkTest::Destroy() {}

void NetworkTest::setTestOutputLocation(string& location)
{
    testOutputLocation = location;
}

string NetworkTest::getTestOutputLocation()
{
    return string(testOutputLocation, &allocator);
}

void NetworkTest::setTestHost(string&) {}

string NetworkTest::getTestHost()
{
    return text("Sample Host");
}

void NetworkTest::setTestContactInfo(string&) {}

string NetworkTest::getTestContactInfo()
{
    return text("test Contact Info");
}

void NetworkTest::notifyTestStatus() {}

void NetworkTest::postTestAction() {}

void NetworkTest::createInputJO(JoltUtils::JsonObject&) const {}

void NetworkTest::createResultJO(JoltUtils::JsonObject&) const {}

void NetworkTest::createTypesJO(JoltUtils::JsonObject&) const {}

}  // namespace vetraTests
