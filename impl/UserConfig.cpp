#include "impl/UserConfig.h"

#include <iostream>
#include <limits>

#include "FileAccess/FileFunctions.h"
#include "JoltUtils/Json.h"

namespace Vetra {

using JoltUtils::JsonType;
using JoltUtils::TypedJson;

namespace {

constexpr double keyOfFirstTest = 1.0;

[[noreturn]] void refuse(std::string_view key, const char* file = __builtin_FILE(),
                         int line = __builtin_LINE())
{
    raise(Vetra__ERR_INVALID_USER_CONFIG(), {key}, file, line);
}

// Toward zero; a number beyond 32 bits becomes the nearest that fits.
std::int32_t nearestInt32(double number)
{
    using Limits = std::numeric_limits<std::int32_t>;
    if (number >= Limits::max())
        return Limits::max();
    if (number <= Limits::min())
        return Limits::min();
    return static_cast<std::int32_t>(number);
}

void readTestMember(TestConfig& test, const string& key, const TypedJson& value,
                    Basis::Allocator& allocator)
{
    if (key == "class" && value.type() == JsonType::String) {
        test.setTestClass(value.text());
    } else if (key == "config" && value.type() == JsonType::Object) {
        Basis::ostringstream text = Basis::outputStream(allocator);
        JoltUtils::jsonFormat(value.object(), text, true);
        test.setConfigString(text.str());
    } else if (key == "id" && value.type() == JsonType::Number) {
        test.setTestId(value.number());
    } else if (key == "package" && value.type() == JsonType::String) {
        test.setTestPackage(value.text());
    } else if (key == "test_timeout" && value.type() == JsonType::Number) {
        test.setTestTimeout(nearestInt32(value.number()));
    } else {
        refuse(key);
    }
}

}  // namespace

TestConfig::TestConfig(Basis::Allocator& ownerAllocator)
    : allocator(ownerAllocator),
      testPackage(&ownerAllocator),
      configString(&ownerAllocator),
      testClass(&ownerAllocator)
{
}

UserConfig::UserConfig(Basis::Allocator& ownerAllocator)
    : allocator(ownerAllocator),
      bladesList(&ownerAllocator),
      testConfigMap(&ownerAllocator),
      outputDir(&ownerAllocator),
      reportId(&ownerAllocator)
{
    FileAccess::getCurrentDirectory(outputDir);
}

void UserConfig::readJsonUserConfig(string& text)
{
    JoltUtils::JsonAllocator jsonAllocator(JoltUtils::JsonAllocator::getDefaultAllocator());
    JoltUtils::JsonObject members(jsonAllocator);
    if (!JoltUtils::jsonParse(text.data(), text.size(), members, jsonAllocator)) {
        std::cout << "Failed to parse json size=" << text.size() << " ,data=" << text << std::endl;
        raise(Vetra__ERR_INVALID_JSON(), {"Failed to parse user config json"});
    }
    for (const auto& [key, value] : members)
        readMember(key, value);
}

void UserConfig::readMember(const string& key, const TypedJson& value)
{
    if (key == "blades" && value.type() == JsonType::Array) {
        readBlades(value.array());
    } else if (key == "output_dir" && value.type() == JsonType::String) {
        readOutputDir(value.text());
    } else if (key == "report_id" && value.type() == JsonType::String) {
        reportId = value.text();
    } else if (key == "tests" && value.type() == JsonType::Array) {
        readTests(value.array());
    } else if (key == "use_zdb" && value.type() == JsonType::Boolean) {
        useZdb = value.boolean();
    } else {
        std::cout << "Invalid user configuration " << key << std::endl;
        refuse(key);
    }
}

void UserConfig::readBlades(const JoltUtils::JsonArray& blades)
{
    bladesList.clear();
    bladesList.reserve(blades.size());
    for (const TypedJson& blade : blades) {
        if (blade.type() == JsonType::String)
            bladesList.push_back(blade.text());
    }
}

void UserConfig::readOutputDir(const string& directory)
{
    if (!FileAccess::directoryExists(directory))
        FileAccess::directoryCreate(directory);
    outputDir = directory;
}

void UserConfig::readTests(const JoltUtils::JsonArray& tests)
{
    TestConfigMap read(&allocator);
    // Never counted up: an entry without an id takes the key, and the place, of the one before it.
    double runningKey = keyOfFirstTest;
    for (const TypedJson& element : tests) {
        if (element.type() != JsonType::Object)
            refuse("tests");
        const auto test = std::allocate_shared<TestConfig>(
            std::pmr::polymorphic_allocator<TestConfig>(&allocator), allocator);
        for (const auto& [key, value] : element.object()) {
            readTestMember(*test, key, value, allocator);
            if (key == "id")
                runningKey = value.number();
        }
        read.insert_or_assign(runningKey, test);
    }
    testConfigMap = std::move(read);
}

string UserConfig::printUserConfigToString() const
{
    Basis::ostringstream text = Basis::outputStream(allocator);
    text << "useZdb: " << useZdb << "\n";
    text << "blades: ";
    for (const string& blade : bladesList)
        text << blade << " ";
    text << "\noutput directory: " << outputDir << "\n";
    text << "\nConfigured tests:\n";
    for (const auto& [key, test] : testConfigMap)
        text << test->getTestId() << " " << test->getTestClass() << "\n";
    return text.str();
}

}  // namespace Vetra
