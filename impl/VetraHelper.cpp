#include "impl/VetraHelper.h"

#include <unistd.h>

#include <iostream>

#include "FileAccess/FileFunctions.h"
#include "System/LocalTime.h"
#include "impl/VetraTestFactoryImpl.h"

namespace Vetra {

namespace {

constexpr unsigned ownerOnly = 0600;

// What cannot be written is lost without a word.
void writeFile(const string& path, bool isToAppend, std::string_view text)
{
    const FileAccess::FileDescriptor file = FileAccess::fileCreate(path, isToAppend);
    if (file == FileAccess::INVALID_FILE_DESCRIPTOR)
        return;
    FileAccess::fileWriteAll(file, text);
    ::close(file);
}

}  // namespace

VetraHelper::VetraHelper(Basis::Allocator& ownerAllocator)
    : allocator(ownerAllocator), ownTests(&ownerAllocator)
{
}

void VetraHelper::readFromFile(const string& path, string& content)
{
    Basis::ostringstream message = Basis::outputStream(allocator);
    message << "Reading from file " << path;
    writeToTrace(TRACE_INFO, message.str().c_str());

    bool created = false;
    const FileAccess::FileDescriptor descriptor = FileAccess::fileOpen(
        path, FileAccess::readExisting, ownerOnly, FileAccess::closeOnExec, created);
    if (descriptor == FileAccess::INVALID_FILE_DESCRIPTOR) {
        message << "Error";
        writeToTrace(TRACE_ERROR, message.str().c_str());
        raise(Vetra__ERR_INVALID_FILEDESCRIPTOR(), {"Error while opening the file."});
    }

    content.clear();
    FileAccess::fileReadAll(descriptor, content);
    ::close(descriptor);
}

void VetraHelper::writeToTrace(TRACE_TYPE type, const char* message)
{
    const System::LocalTime time = System::getSystemTimeLocal();
    string path(&allocator);
    FileAccess::getCurrentDirectory(path);
    path.append("/vetra.trc");

    bool created = false;
    const FileAccess::FileDescriptor probe = FileAccess::fileOpen(
        path, FileAccess::writeExisting, ownerOnly, FileAccess::closeOnExec, created);
    // A pipe without a reader would hold the run.
    if (probe == FileAccess::INVALID_FILE_DESCRIPTOR && !FileAccess::isOrdinaryOrAbsent(path))
        return;
    Basis::ostringstream line = Basis::outputStream(allocator);
    if (type == TRACE_ERROR)
        line << time << " TRACE ERROR: " << message << '\n';
    else if (type == TRACE_INFO)
        line << time << " TRACE INFO: " << message << '\n';
    writeFile(path, probe != FileAccess::INVALID_FILE_DESCRIPTOR, line.view());
}

void VetraHelper::runTests(UserConfig& config, TestMap& tests)
{
    VetraTestFactoryImpl factory(allocator);
    TestConfigMap entries(&allocator);
    config.getTestConfigMap(entries);

    for (auto& [key, entry] : entries) {
        string testClass = entry->getTestClass();
        string testConfig = entry->getConfigString();
        const TestPointer test = factory.createInstance(allocator, testClass);
        if (!test) {
            writeToTrace(TRACE_ERROR, "Error while creating test object.");
            continue;
        }
        runTest(config, *test, testConfig);
        tests.insert_or_assign(entry->getTestId(), test);
    }
}

void VetraHelper::runTest(UserConfig& config, VetraTestInterface& test, string& testConfig)
{
    std::cout << "Test usage:\n" << test.getTestUsage() << std::endl;
    std::cout << "Setting test configuration: " << testConfig << std::endl;
    test.setTestConfig(testConfig);
    const std::int64_t duration = test.getTestEstimatedDuration();
    std::cout << "Estimated testDuration:\n" << duration << "ms" << std::endl;
    string outputDir = config.getOutputDir();
    test.setTestOutputLocation(outputDir);

    const string name = test.getTestName();
    std::cout << "Start running test:\n " << name << std::endl;
    string event("Start running test:", &allocator);
    writeToTrace(TRACE_INFO, event.append(name).c_str());

    const bool isOk = test.runTest() == 0;
    test.setTestResult(isOk);
    if (isOk) {
        std::cout << test.getTestName() << " run OK." << std::endl;
        const string report = test.getTestHumanReadableResult();
        std::cout << report << std::endl;
        event.assign("Get test result:").append(report);
    } else {
        event.assign(test.getTestName()).append("run failed");
        std::cout << event << std::endl;
    }
    writeToTrace(TRACE_INFO, event.c_str());
}

string VetraHelper::writeTestResultToFile(double id, string& outputDir, string& testName,
                                          string& result)
{
    Basis::ostringstream name = Basis::outputStream(allocator);
    name << outputDir << "/test_" << id << '_' << System::getSystemMilliTimeLocal() << "_Vetra_"
         << testName;
    const string path = name.str();
    std::cout << "Writing output to " << path << std::endl;
    writeToTrace(TRACE_INFO, "Writing output to:");
    writeToTrace(TRACE_INFO, path.c_str());

    string text(result, &allocator);
    text.append("\n");
    writeFile(path, false, text);
    return path;
}

}  // namespace Vetra
