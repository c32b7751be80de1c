#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <limits>
#include <sstream>
#include <string>

#include "JoltUtils/Json.h"
#include "tests/services/JoltUtils/JsonText.h"
#include "tests/services/support/Guards.h"

namespace {

using JoltUtils::JsonObject;
using JoltUtils::JsonType;
using JoltUtils::TypedJson;
using unitTests::JsonText;

std::string roundTrip(const char* text)
{
    const JsonText json(text);
    EXPECT_TRUE(json.isParsed) << text;
    return json.formatted();
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

constexpr const char* mixture =
    R"({"a":[1,-2.5,[],{},null,true,false],"b":{"c":{"d":["\"\\\n\u0001","é😀",""]}},"":0})";

TEST(JsonFormat, CompactIsOneLineWithoutBlanksInKeyOrder)
{
    EXPECT_EQ(roundTrip(R"({ "b" : [ 1 , "x" ] , "a" : { "y" : true, "z" : null } })"),
              R"({"a":{"y":true,"z":null},"b":[1,"x"]})");
}

TEST(JsonFormat, EmptyContainersStayOnOneLine)
{
    EXPECT_EQ(roundTrip(R"({"a":[],"b":{}})"), R"({"a":[],"b":{}})");
    EXPECT_EQ(JsonText("{}").formatted(true), "{}");
    EXPECT_EQ(JsonText("{}").formatted(false), "{}");
}

TEST(JsonFormat, IndentedPutsEachElementOnItsLine)
{
    EXPECT_EQ(JsonText(R"({"b":[1,[]],"a":{"y":2}})").formatted(false),
              "{\n  \"a\": {\n    \"y\": 2\n  },\n  \"b\": [\n    1,\n    []\n  ]\n}");
}

TEST(JsonFormat, CompactAndIndentedReadBackEqual)
{
    const JsonText original(mixture);
    ASSERT_TRUE(original.isParsed);

    const JsonText compact(original.formatted(true));
    const JsonText indented(original.formatted(false));

    EXPECT_TRUE(compact.isParsed && areEqual(original.members, compact.members));
    EXPECT_TRUE(indented.isParsed && areEqual(original.members, indented.members));
}

TEST(JsonFormat, DeepestTextReadsBack)
{
    const std::string text = "{\"a\":" + std::string(511, '[') + std::string(511, ']') + "}";

    EXPECT_EQ(roundTrip(text.c_str()), text);
    EXPECT_TRUE(JsonText(JsonText(text).formatted(false)).isParsed);
}

TEST(JsonFormat, WholeNumbersHaveNoFraction)
{
    EXPECT_EQ(roundTrip(R"({"a":[0,7.0,-3.00,1e3,2147483648,1000000,9007199254740991]})"),
              R"({"a":[0,7,-3,1000,2147483648,1000000,9007199254740991]})");
}

TEST(JsonFormat, FractionsHaveTheFewestDigitsThatReadBack)
{
    EXPECT_EQ(roundTrip(R"({"a":[0.1,1.5,-2.25,100.00000001]})"),
              R"({"a":[0.1,1.5,-2.25,100.00000001]})");
}

TEST(JsonFormat, EveryNumberReadsBackAsTheSameDouble)
{
    for (const double number :
         {0.1, 1.0 / 3.0, 1e22, 1e-7, 123456789.125, 9007199254740992.0, 9007199254740994.0, -1e300,
          18446744073709551616.0, -0.0, std::numeric_limits<double>::max(),
          std::numeric_limits<double>::min(), std::numeric_limits<double>::denorm_min()}) {
        JsonText json("{}");
        json.members["n"].setNumber(number);
        const JsonText back(json.formatted());
        ASSERT_TRUE(back.isParsed) << json.formatted();
        EXPECT_EQ(back.at("n").number(), number) << json.formatted();
    }
}

TEST(JsonFormat, NumbersDoNotDependOnTheStreamsFormat)
{
    const JsonText json(R"({"a":1234567.5})");
    std::ostringstream stream;
    stream << std::scientific << std::showpos;
    stream.precision(2);

    JoltUtils::jsonFormat(json.members, stream, true);

    EXPECT_EQ(stream.str(), R"({"a":1234567.5})");
}

TEST(JsonFormat, EscapesWhatATextMayNotHold)
{
    JsonText json("{}");
    json.members["q\""].setString(std::string_view("\"\\/\b\f\n\r\t\x01\x1f\0\x7f", 12),
                                  json.allocator);

    EXPECT_EQ(json.formatted(),
              "{\"q\\\"\":\"\\\"\\\\/\\b\\f\\n\\r\\t\\u0001\\u001f\\u0000\x7f\"}");
}

TEST(JsonFormat, LeavesLettersBeyondAsciiAsTheyAre)
{
    EXPECT_EQ(roundTrip(R"({"é":"\u00e9😀"})"), R"({"é":"é😀"})");
}

TEST(JsonFormat, BytesThatAreNoUtf8BecomeReplacementCharacters)
{
    JsonText json("{}");
    json.members["k\xff"].setString(
        "a\xff"
        "b\xc3",
        json.allocator);

    EXPECT_EQ(json.formatted(),
              "{\"k\xef\xbf\xbd\":\"a\xef\xbf\xbd"
              "b\xef\xbf\xbd\"}");
    EXPECT_TRUE(JsonText(json.formatted()).isParsed);
}

TEST(JsonFormat, NeedsNoDefaultResource)
{
    const unitTests::NoDefaultResource guard;
    const JsonText json(mixture);

    Basis::ostringstream stream = Basis::outputStream(*json.domain);
    JoltUtils::jsonFormat(json.members, stream, false);

    EXPECT_GT(stream.view().size(), 20U);
}

TEST(JsonFormatDeathTest, NumberThatIsNotFiniteStopsTheProgram)
{
    for (const double number : {std::numeric_limits<double>::infinity(), std::nan("")}) {
        JsonText json("{}");
        json.members["n"].setNumber(number);
        EXPECT_EXIT(json.formatted(), testing::KilledBySignal(SIGABRT),
                    testing::HasSubstr("JSON has no number that is not finite"));
    }
}

TEST(Json2str, GivesTheCompactTextOfEachType)
{
    const JsonText json(R"({"a":[1, 2],"b":true,"n":null,"o":{"x": 1},"s":"t\n","z":1.5})");
    const auto textOf = [&](const char* key) {
        return JoltUtils::json2str(json.at(key), Basis::string(json.domain.get()));
    };

    EXPECT_EQ(textOf("a"), "[1,2]");
    EXPECT_EQ(textOf("b"), "true");
    EXPECT_EQ(textOf("n"), "null");
    EXPECT_EQ(textOf("o"), R"({"x":1})");
    EXPECT_EQ(textOf("s"), R"("t\n")");
    EXPECT_EQ(textOf("z"), "1.5");
}

TEST(Json2str, AppendsInTheDomainOfTheTextGiven)
{
    const unitTests::NoDefaultResource guard;
    const JsonText json(R"({"a":["a text that no string keeps within itself"]})");

    const Basis::string text =
        JoltUtils::json2str(json.at("a"), Basis::string("list: ", json.domain.get()));

    EXPECT_EQ(text, R"(list: ["a text that no string keeps within itself"])");
    EXPECT_EQ(text.get_allocator().resource(), json.domain.get());
}

}  // namespace
