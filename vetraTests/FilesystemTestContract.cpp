// The parts of the contract that say what the tests of a file system are, and their four kinds.

#include <iostream>

#include "System/Environment.h"
#include "Version/Version.h"
#include "vetraTests/FSPerf/FSPerf.h"
#include "vetraTests/FilesystemTest.h"

namespace vetraTests {

namespace {

// Block size to file size, by duration. The measurements run in byte order of the block sizes.
constexpr const char* dataVolumeTable =
    R"({ "short"  :{"4K":"1G","16K":"5G","64K":"5G","1M":"5G","16M":"5G","64M":"5G"},)"
    R"("long":{"4K":"5G","16K":"16G","64K":"16G","1M":"16G","16M":"16G","64M":"16G"},)"
    R"("verylong":{"4K":"10G","16K":"32G","64K":"32G","1M":"32G","16M":"32G","64M":"32G"}})";
constexpr const char* logVolumeTable =
    R"({"short":{"4K":"1G","16K":"5G","1M":"5G"},"long":{"4K":"5G","16K":"16G","1M":"16G"},)"
    R"("verylong":{"4K":"10G","16K":"32G","1M":"32G"}})";
constexpr const char* backupTable =
    R"({"short":{"64M":"5G"},"long":{"64M":"16G"},"verylong":{"64M":"32G"}})";

string versionText(Basis::Allocator& allocator)
{
    Basis::ostringstream text = Basis::outputStream(allocator);
    // A piece that the build did not supply is left out.
    text.exceptions(std::ios_base::goodbit);
    text << "fsperf-" << zdbver_version() << " (" << zdbver_compiledate() << ")";
    return text.str();
}

string hostName(Basis::Allocator& allocator)
{
    const char* host = System::Environment::getenv("HOST", nullptr);
    return string(host ? host : "", &allocator);
}

}  // namespace

IOTests::IOTests(Basis::Allocator& ownerAllocator, const char* name)
    : allocator(ownerAllocator),
      testName(name, &allocator),
      testVersion(versionText(allocator)),
      testUsage(vetraTests::testUsage(), &allocator),
      defaultTestConfig(R"({"mount" : {")", &allocator),
      testTrigger(&allocator),
      testConfig(&allocator),
      testJsonResult(&allocator),
      testHumanReadableResult(&allocator),
      testOutputLocation(&allocator),
      testHost(hostName(allocator)),
      testContactInfo(&allocator),
      durationName(&allocator),
      mountPaths(&allocator),
      blockFileSizes(&allocator),
      paramString(&allocator),
      execStrings(&allocator)
{
    defaultTestConfig.append(testHost).append(R"(":["/zirn/data/"]},"duration" : "short"})");
}

string IOTests::getTestName() const
{
    return copyOf(testName);
}

string IOTests::getTestVersion() const
{
    return copyOf(testVersion);
}

string IOTests::getTestUsage() const
{
    return copyOf(testUsage);
}

string IOTests::getDefaultTestConfig() const
{
    return copyOf(defaultTestConfig);
}

void IOTests::setTestTrigger(string&) {}

string IOTests::getTestTrigger() const
{
    return copyOf(testTrigger);
}

string IOTests::getTestConfig() const
{
    return copyOf(testConfig);
}

float IOTests::getTestProgressPercentage()
{
    progressPercentage = 100.0F;
    return progressPercentage;
}

void IOTests::setUp() {}

void IOTests::tearDown() {}

std::int32_t IOTests::interruptTest()
{
    return -1;
}

void IOTests::setTestResult(bool result)
{
    testResult = result;
}

bool IOTests::getTestResult()
{
    return testResult;
}

string IOTests::getTestJsonResult()
{
    return copyOf(testJsonResult);
}

string IOTests::getTestHumanReadableResult()
{
    return copyOf(testHumanReadableResult);
}

void IOTests::setTestOutputLocation(string& location)
{
    testOutputLocation = location;
}

string IOTests::getTestOutputLocation()
{
    return copyOf(testOutputLocation);
}

void IOTests::setTestHost(string& host)
{
    testHost = host;
}

string IOTests::getTestHost()
{
    return copyOf(testHost);
}

void IOTests::setTestContactInfo(string& contactInfo)
{
    testContactInfo = contactInfo;
}

string IOTests::getTestContactInfo()
{
    return copyOf(testContactInfo);
}

void IOTests::notifyTestStatus() {}

void IOTests::postTestAction()
{
    std::cout << "No action is required for post Test" << std::endl;
}

DataVolumeIO::DataVolumeIO(Basis::Allocator& ownerAllocator)
    : IOTests(ownerAllocator, "DataVolumeIO")
{
}

std::int64_t DataVolumeIO::getTestEstimatedDuration()
{
    return estimate(370000, 1200000, 3200000);
}

std::int32_t DataVolumeIO::runTest()
{
    return runMeasurements(dataVolumeTable, "random",
                           "         Summary of Data Volume Test            ");
}

void DataVolumeIO::Destroy()
{
    delete this;
}

LogVolumeIO::LogVolumeIO(Basis::Allocator& ownerAllocator) : IOTests(ownerAllocator, "LogVolumeIO")
{
}

std::int64_t LogVolumeIO::getTestEstimatedDuration()
{
    return estimate(220000, 760000, 1700000);
}

std::int32_t LogVolumeIO::runTest()
{
    return runMeasurements(logVolumeTable, "sequential",
                           "         Summary of Log Volume Test            ");
}

void LogVolumeIO::Destroy()
{
    delete this;
}

BackupIO::BackupIO(Basis::Allocator& ownerAllocator) : IOTests(ownerAllocator, "BackupIO") {}

std::int64_t BackupIO::getTestEstimatedDuration()
{
    return estimate(40000, 110000, 210000);
}

std::int32_t BackupIO::runTest()
{
    return runMeasurements(backupTable, "sequential",
                           "         Summary of BackupIO Test            ");
}

void BackupIO::Destroy()
{
    delete this;
}

MixedStressIO::MixedStressIO(Basis::Allocator& ownerAllocator)
    : IOTests(ownerAllocator, "MixedStressIO")
{
}

std::int64_t MixedStressIO::getTestEstimatedDuration()
{
    return estimate(220000, 760000, 1700000);
}

std::int32_t MixedStressIO::runTest()
{
    return runMeasurements(logVolumeTable, "random",
                           "         Summary of MixedStressIO Test            ");
}

void MixedStressIO::Destroy()
{
    delete this;
}

}  // namespace vetraTests
