#include "vetraTests/LandscapeTest.h"

#include <iostream>

#include "Basis/Text.h"
#include "Diagnose/TraceConfiguration.h"
#include "FileAccess/FileFunctions.h"
#include "System/Environment.h"
#include "Version/Version.h"
#include "vetraTests/LSInfo/SystemInfo.h"
#include "vetraTests/LSInfo/ValidateSystemInfo.h"

namespace vetraTests {

namespace {

constexpr std::int32_t testHasRun = 0;
constexpr std::int32_t testHasFailed = -1;
constexpr std::int64_t expectedMilliseconds = 80;
constexpr int traceFileType = 1;
constexpr int traceFormatterType = 1;

constexpr const char* banner =
    "*******************************************************************************\n"
    "**  This test evaluates, landscape of the system for following parameters:   **\n"
    "*******************************************************************************\n"
    "*        validateDistribution                                                 *\n"
    "*  validateLinuxKernelVersion                                                 *\n"
    "*             validateRuntime                                                 *\n"
    "*                 validateHTT                                                 *\n"
    "*                 validateTHP                                                 *\n"
    "*                 validateCPU                                                 *\n"
    "*     validateCoreMemoryRatio                                                 *\n"
    "*              validateMemory                                                 *\n"
    "*  validateMemoryDistribution                                                 *\n"
    "*         validateCPUgovernor                                                 *\n"
    "*          validateHypervisor                                                 *\n"
    "*         validateClocksource                                                 *\n"
    "* validateApplianceSystemType                                                 *\n"
    "*                                                                             *\n"
    "* This test can be executed on following platforms:                           *\n"
    "*          Linux x86(SUSE and Redhat)                                         *\n"
    "*                      and Linux PPC.                                         *\n"
    "*                                                                             *\n"
    "*******************************************************************************\n";

// The order of the report. It is not the order of the banner, and need not be.
constexpr RulePointer checks[] = {
    &ValidateSystemInfo::validateDistribution,
    &ValidateSystemInfo::validateLinuxKernelVersion,
    &ValidateSystemInfo::validateClocksource,
    &ValidateSystemInfo::validateCPU,
    &ValidateSystemInfo::validateHypervisor,
    &ValidateSystemInfo::validateHTT,
    &ValidateSystemInfo::validateApplianceSystemType,
    &ValidateSystemInfo::validateTHP,
    &ValidateSystemInfo::validateRuntime,
    &ValidateSystemInfo::validateMemory,
    &ValidateSystemInfo::validateMemoryDistribution,
    &ValidateSystemInfo::validateCoreMemoryRatio,
    &ValidateSystemInfo::validateCPUgovernor,
};
static_assert(std::size(checks) == 13);

string versionText(Basis::Allocator& allocator)
{
    Basis::ostringstream text = Basis::outputStream(allocator);
    // A piece that the build did not supply is left out.
    text.exceptions(std::ios_base::goodbit);
    text << "evalOS-" << zdbver_version() << " (" << zdbver_compiledate() << ")";
    return text.str();
}

}  // namespace

EvalOS::EvalOS(Basis::Allocator& ownerAllocator)
    : allocator(ownerAllocator),
      testName("EvalOS", &allocator),
      testVersion(versionText(allocator)),
      testUsage(banner, &allocator),
      defaultTestConfig(&allocator),
      testTrigger(&allocator),
      testConfig(&allocator),
      testJsonResult(&allocator),
      testHumanReadableResult(&allocator),
      testOutputLocation(&allocator),
      testHost(&allocator),
      testContactInfo(&allocator)
{
}

std::int32_t EvalOS::runTest()
{
    if (!Diagnose::TraceConfiguration::isConfigured()) {
        string directory(&allocator);
        FileAccess::getCurrentDirectory(directory);
        Diagnose::TraceConfiguration::initializeExecutable(directory, traceFileType,
                                                           traceFormatterType);
    }

    SystemInfo systemInfo(allocator);
    ValidateSystemInfo validation(allocator);
    const string arch = systemInfo.getArch();
    const string host = getTestHost();
    if (!Basis::contains(arch, "x86") && !Basis::contains(arch, "ppc64le"))
        return testHasFailed;

    testJsonResult = systemInfo.gatherInfo();
    if (!Basis::contains(arch, "x86"))
        return testHasFailed;

    const int count = std::size(checks);
    validation.validate(checks, count, host, systemInfo, arch);
    testHumanReadableResult = validation.getHumanReadableReport();
    if (!testJsonResult.empty() && !testHumanReadableResult.empty())
        setTestResult(true);
    return testHasRun;
}

string EvalOS::getTestName() const
{
    return copyOf(testName);
}

string EvalOS::getTestVersion() const
{
    return copyOf(testVersion);
}

string EvalOS::getTestUsage() const
{
    return copyOf(testUsage);
}

string EvalOS::getDefaultTestConfig() const
{
    return copyOf(defaultTestConfig);
}

void EvalOS::setTestTrigger(string&) {}

string EvalOS::getTestTrigger() const
{
    return copyOf(testTrigger);
}

void EvalOS::setTestConfig(string& config)
{
    testConfig = config;
}

string EvalOS::getTestConfig() const
{
    return copyOf(testConfig);
}

std::int64_t EvalOS::getTestEstimatedDuration()
{
    estimatedDuration = expectedMilliseconds;
    return estimatedDuration;
}

float EvalOS::getTestProgressPercentage()
{
    progressPercentage = 100.0F;
    return progressPercentage;
}

void EvalOS::setUp() {}

void EvalOS::tearDown() {}

std::int32_t EvalOS::interruptTest()
{
    return -1;
}

void EvalOS::setTestResult(bool result)
{
    testResult = result;
}

bool EvalOS::getTestResult()
{
    return testResult;
}

string EvalOS::getTestJsonResult()
{
    return copyOf(testJsonResult);
}

string EvalOS::getTestHumanReadableResult()
{
    return copyOf(testHumanReadableResult);
}

void EvalOS::Destroy()
{
    delete this;
}

void EvalOS::setTestOutputLocation(string& location)
{
    testOutputLocation = location;
}

string EvalOS::getTestOutputLocation()
{
    return copyOf(testOutputLocation);
}

void EvalOS::setTestHost(string& host)
{
    testHost = host;
}

string EvalOS::getTestHost()
{
    const char* host = System::Environment::getenv("HOST", nullptr);
    return string(host ? host : "", &allocator);
}

void EvalOS::setTestContactInfo(string& contactInfo)
{
    testContactInfo = contactInfo;
}

string EvalOS::getTestContactInfo()
{
    return copyOf(testContactInfo);
}

void EvalOS::notifyTestStatus() {}

void EvalOS::postTestAction()
{
    std::cout << "No action is required for post Test" << std::endl;
}

}  // namespace vetraTests
