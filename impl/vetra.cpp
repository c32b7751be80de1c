#include "impl/vetra.h"

#include <iostream>
#include <memory>
#include <string_view>

#include "Basis/Allocator.h"
#include "Diagnose/TraceTopic.h"
#include "Version/Version.h"
#include "VetraTestInterface.h"
#include "impl/UserConfig.h"
#include "impl/VetraHelper.h"

namespace Vetra {

namespace {

/// The tool's allocation domain, and the reference that the driver's objects are given.
const std::shared_ptr<Basis::Allocator> allocator =
    Basis::Allocator::createChild(Basis::Allocator::global(), "VETRA", 0);
Basis::Allocator& alloc = *allocator;

Diagnose::TraceTopic TRACE_VETRA;

const struct TraceInitializer {
    TraceInitializer()
    {
        TRACE_VETRA.init("vetraSuite", "vetraSuite");
        TRACE_VETRA.initStat();
    }
    ~TraceInitializer() { TRACE_VETRA.destroy(); }
} TRACE_VETRA_TraceInitializer;

constexpr int usageError = -1;

void runTestsOfFile(VetraHelper& helper, UserConfig& config, const string& path, TestMap& tests)
{
    string text(&alloc);
    helper.readFromFile(path, text);
    config.readJsonUserConfig(text);

    Basis::ostringstream message = Basis::outputStream(alloc);
    message << "\nTests will be running with following configurations:\n"
            << config.printUserConfigToString();
    const string announcement = message.str();
    std::cout << announcement << std::endl;
    helper.writeToTrace(TRACE_INFO, announcement.c_str());

    helper.runTests(config, tests);

    string outputDir = config.getOutputDir();
    for (auto& [key, test] : tests) {
        string name = test->getTestName();
        string result = test->getTestJsonResult();
        helper.writeTestResultToFile(key, outputDir, name, result);
    }
}

void run(const char* file)
{
    VetraHelper helper(alloc);
    UserConfig config(alloc);
    const string path(file, &alloc);
    // Outlives the guard: an error is said before the tests go.
    TestMap tests(&alloc);
    try {
        runTestsOfFile(helper, config, path, tests);
    } catch (const VetraException& exception) {
        std::cout << "Error while running VETRA:" << exception << std::endl;
    }
}

}  // namespace

string vetraUsage()
{
    return string(
        "Usage: ./vetra -f testconfig.json for hardware validation test\n"
        "       or ./vetra -h or --help for usage info\n"
        "       or ./vetra -v or --version for version\n",
        &alloc);
}

void vetraVersion()
{
    std::cout << "vetra-" << zdbver_version() << " (" << zdbver_compiledate() << ")" << std::endl;
}

int runVetra(int argc, char** argv)
{
    const std::string_view flag = argc > 1 ? argv[1] : "";
    if (argc == 2 && (flag == "-h" || flag == "--help")) {
        std::cout << vetraUsage() << std::endl;
        return 0;
    }
    if (argc == 2 && (flag == "-v" || flag == "--version")) {
        vetraVersion();
        return 0;
    }
    if (argc == 3 && flag == "-f") {
        run(argv[2]);
        return 0;
    }
    std::cout << vetraUsage() << std::endl;
    return usageError;
}

}  // namespace Vetra
