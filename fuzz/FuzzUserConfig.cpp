// The configuration file: JSON text, and what the driver makes of it.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string_view>

#include "Basis/Crash.h"
#include "Basis/Text.h"
#include "JoltUtils/Json.h"
#include "fuzz/FuzzHarness.h"
#include "impl/UserConfig.h"

namespace {

using Basis::assertThat;
using Basis::string;
using JoltUtils::JsonObject;
using JoltUtils::JsonType;
using JoltUtils::TypedJson;

string formatted(const JsonObject& object, bool compact, Basis::Allocator& allocator)
{
    Basis::ostringstream stream = Basis::outputStream(allocator);
    JoltUtils::jsonFormat(object, stream, compact);
    return stream.str();
}

bool parse(std::string_view text, JsonObject& object, Basis::Allocator& allocator)
{
    JoltUtils::JsonAllocator jsonAllocator(allocator);
    return JoltUtils::jsonParse(text.data(), text.size(), object, jsonAllocator);
}

bool areEqual(const TypedJson& left, const TypedJson& right);

bool areEqual(const JsonObject& left, const JsonObject& right)
{
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](const auto& one, const auto& other) {
                          return one.first == other.first && areEqual(one.second, other.second);
                      });
}

bool areEqual(const TypedJson& left, const TypedJson& right)
{
    if (left.type() != right.type())
        return false;
    switch (left.type()) {
        case JsonType::Null:
            return true;
        case JsonType::Boolean:
            return left.boolean() == right.boolean();
        case JsonType::Number:
            return left.number() == right.number();
        case JsonType::String:
            return left.text() == right.text();
        case JsonType::Array:
            return std::equal(
                left.array().begin(), left.array().end(), right.array().begin(),
                right.array().end(),
                [](const TypedJson& one, const TypedJson& other) { return areEqual(one, other); });
        case JsonType::Object:
            return areEqual(left.object(), right.object());
    }
    return false;
}

// What was written must read back, in either layout, to an equal object that is written the same.
void checkRoundTrip(const JsonObject& object, Basis::Allocator& allocator)
{
    const JoltUtils::JsonAllocator jsonAllocator(allocator);
    const string compact = formatted(object, true, allocator);
    for (const bool isCompact : {true, false}) {
        JsonObject again(jsonAllocator);
        assertThat(parse(formatted(object, isCompact, allocator), again, allocator),
                   "a written object can be read");
        assertThat(areEqual(object, again), "a written object reads back as it was");
        assertThat(formatted(again, true, allocator) == compact, "writing again changes nothing");
    }
}

// The configuration's text with a directory that exists, so that no input makes one.
string harmless(std::string_view text, JsonObject& object, Basis::Allocator& allocator)
{
    const auto directory = object.find(string("output_dir", &allocator));
    if (directory == object.end() || directory->second.type() != JsonType::String)
        return string(text, &allocator);
    directory->second.setString(".", JoltUtils::JsonAllocator(allocator));
    return formatted(object, true, allocator);
}

void checkTests(const Vetra::UserConfig& config, Basis::Allocator& allocator)
{
    Vetra::TestConfigMap tests(&allocator);
    config.getTestConfigMap(tests);
    const JoltUtils::JsonAllocator jsonAllocator(allocator);
    for (const auto& [key, test] : tests) {
        JsonObject object(jsonAllocator);
        const string text = test->getConfigString();
        assertThat(text.empty() || parse(text, object, allocator), "a test's own text is JSON");
        assertThat(test->getTestId() == 0.0 || test->getTestId() == key, "an id is its key");
    }
}

// Returns the summary; empty for a text that was refused.
string read(Vetra::UserConfig& config, string text, bool isJson, Basis::Allocator& allocator)
{
    try {
        config.readJsonUserConfig(text);
    } catch (const Vetra::VetraException& exception) {
        const auto code = exception.record()->code;
        assertThat(code == (isJson ? Vetra__ERR_INVALID_USER_CONFIG().code
                                   : Vetra__ERR_INVALID_JSON().code),
                   "a text is refused for what is wrong with it");
        return string(&allocator);
    }
    assertThat(isJson, "a text that is no JSON is refused");
    return config.printUserConfigToString();
}

void checkConfiguration(std::string_view text, Basis::Allocator& allocator)
{
    const JoltUtils::JsonAllocator jsonAllocator(allocator);
    JsonObject object(jsonAllocator);
    const bool isJson = parse(text, object, allocator);
    assertThat(isJson || object.empty(), "a text that is no JSON leaves nothing behind");
    if (isJson)
        checkRoundTrip(object, allocator);

    const string safeText = isJson ? harmless(text, object, allocator) : string(text, &allocator);
    Vetra::UserConfig config(allocator);
    const string summary = read(config, string(safeText, &allocator), isJson, allocator);
    if (summary.empty())
        return;
    assertThat(Basis::startsWith(summary, "useZdb: ") &&
                   Basis::contains(summary, "\n\nConfigured tests:\n"),
               "the summary has its parts");
    checkTests(config, allocator);
    assertThat(read(config, string(safeText, &allocator), isJson, allocator) == summary,
               "a second reading replaces the first");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    VetraFuzz::prepareProcess();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const VetraFuzz::InputDomain domain;
    checkConfiguration({reinterpret_cast<const char*>(data), size}, domain.allocator());
    return 0;
}
