#include "vetraTests/FilesystemTest.h"

#include <iomanip>
#include <iostream>

#include "JoltUtils/Json.h"
#include "vetraTests/FSPerf/FSPerf.h"

namespace vetraTests {

using JoltUtils::JsonObject;
using JoltUtils::JsonType;
using JoltUtils::TypedJson;

namespace {

constexpr std::int32_t testHasRun = 0;
constexpr std::int32_t testHasFailed = -1;

// Widths of the summary's columns; the rows that the engine makes fit below.
constexpr int summaryWidth = 60;
constexpr int columnWidths[] = {7, 5, 11, 11, 11, 15};

constexpr const char* headings[][std::size(columnWidths)] = {
    {"Block", "Test", "Initial", "Over", "Read", "Latency"},
    {"Size", "File", "Write", "Write", "(MB/s)", "(micro"},
    {"", "Size", "(MB/s)", "(MB/s)", "", "sec)"},
};

}  // namespace

void IOTests::setTestConfig(string& config)
{
    testConfig = config;
    readTestConfig();
}

void IOTests::readTestConfig()
{
    string text(&allocator);
    if (testConfig.empty()) {
        text = getDefaultTestConfig();
        std::cout << "setting the default configuratiion for the test:" << text << std::endl;
    } else {
        text = testConfig;
    }

    JoltUtils::JsonAllocator jsonAllocator(JoltUtils::JsonAllocator::getDefaultAllocator());
    JsonObject members(jsonAllocator);
    if (!JoltUtils::jsonParse(text.data(), text.size(), members, jsonAllocator)) {
        std::cout << "Failed to parse test config, size=" << text.size() << std::endl;
        configValid = false;
    }
    for (const auto& [key, value] : members)
        readConfigMember(key, value);
}

void IOTests::readConfigMember(const string& key, const TypedJson& value)
{
    if (key == "duration" && value.type() == JsonType::String) {
        durationName = value.text();
    } else if (key == "mount" && value.type() == JsonType::Object) {
        readMount(value.object());
    } else if (key == "parameter" && value.type() == JsonType::Object) {
        readParameters(value.object());
    } else {
        std::cout << "Invalid test configuration" << std::endl;
        configValid = false;
    }
}

void IOTests::readMount(const JsonObject& hosts)
{
    if (hosts.empty()) {
        std::cout << "There is no mount value, size=" << hosts.size() << std::endl;
        configValid = false;
        return;
    }
    for (const auto& [host, paths] : hosts) {
        if (host != testHost || paths.type() != JsonType::Array)
            continue;
        hostFound = true;
        for (const TypedJson& path : paths.array()) {
            if (path.type() == JsonType::String) {
                // A host is tested on one path, the first.
                mountPaths.try_emplace(testHost, path.text());
            } else {
                std::cout << "Invalid Json list" << std::endl;
                configValid = false;
            }
        }
    }
}

void IOTests::readParameters(const JsonObject& parameters)
{
    hasParameters = true;
    if (parameters.empty())
        std::cout << "There is no parameter value, size=" << parameters.size() << std::endl;
    for (const auto& [key, value] : parameters) {
        if (value.type() == JsonType::String)
            paramString.append("--param ").append(key).append("=").append(value.text()).append(" ");
    }
}

void IOTests::readTestDurationConfig(string& table)
{
    JoltUtils::JsonAllocator jsonAllocator(JoltUtils::JsonAllocator::getDefaultAllocator());
    JsonObject durations(jsonAllocator);
    if (!JoltUtils::jsonParse(table.data(), table.size(), durations, jsonAllocator)) {
        std::cout << "Failed to parse duration config, size=" << table.size() << std::endl;
        configValid = false;
    }
    const auto chosen = durations.find(durationName);
    if (chosen == durations.end() || chosen->second.type() != JsonType::Object)
        return;
    const JsonObject& sizes = chosen->second.object();
    if (sizes.empty())
        std::cout << "There is no duration value, size=" << sizes.size() << std::endl;
    for (const auto& [blockSize, fileSize] : sizes) {
        if (fileSize.type() == JsonType::String)
            blockFileSizes.try_emplace(blockSize, fileSize.text());
    }
}

bool IOTests::setExecString(string& table, string& ioOrder)
{
    readTestDurationConfig(table);
    if (!hostFound)
        std::cout << "hostname doesn't exist" << std::endl;
    execReady = hostFound && configValid;
    if (!execReady)
        return false;

    for (const auto& [host, path] : mountPaths) {
        for (const auto& [blockSize, fileSize] : blockFileSizes) {
            string& line = execStrings.emplace_back();
            line.append("fsperf -m all -b ").append(blockSize).append(" -f ").append(fileSize);
            line.append(" -o json_short -i ").append(ioOrder).append(" ");
            if (hasParameters)
                line.append(paramString).append(" ");
            line.append(path);
        }
    }
    return true;
}

string IOTests::outputConsolidatedStatisticsHeader(string& title) const
{
    Basis::ostringstream text = Basis::outputStream(allocator);
    const string stars(summaryWidth, '*', &allocator);
    text << stars << std::endl << title << std::endl << stars << std::endl << std::left;
    for (const auto& row : headings) {
        for (std::size_t column = 0; column < std::size(columnWidths); ++column)
            text << std::setw(columnWidths[column]) << row[column];
        text << std::endl;
    }
    text << stars << std::endl;
    return text.str();
}

std::int32_t IOTests::runMeasurements(const char* tableText, const char* ioOrderText,
                                      const char* titleText)
{
    string table(tableText, &allocator);
    string ioOrder(ioOrderText, &allocator);
    string title(titleText, &allocator);
    setExecString(table, ioOrder);
    if (!execReady)
        return testHasFailed;

    string json("{\n", &allocator);
    string report(&allocator);
    string summary = outputConsolidatedStatisticsHeader(title);
    for (std::size_t i = 0; i < execStrings.size(); ++i) {
        if (runTestWrapper(execStrings[i]) != 0)
            return testHasFailed;
        json.append(getJSONStats());
        report.append(getHRStats());
        summary.append(getSummaryReport());
        if (i + 1 < execStrings.size())
            json.append(",\n");
    }
    json.append("}");
    report.append(summary);

    testHumanReadableResult = report;
    testJsonResult = json;
    if (!testHumanReadableResult.empty() && !testJsonResult.empty())
        setTestResult(true);
    return testHasRun;
}

std::int64_t IOTests::estimate(std::int64_t shortRun, std::int64_t longRun,
                               std::int64_t veryLongRun)
{
    estimatedDuration = 0;
    if (durationName == "short")
        estimatedDuration = shortRun;
    else if (durationName == "long")
        estimatedDuration = longRun;
    else if (durationName == "verylong")
        estimatedDuration = veryLongRun;
    return estimatedDuration;
}

}  // namespace vetraTests
