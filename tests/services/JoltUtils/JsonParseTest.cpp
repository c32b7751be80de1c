#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "JoltUtils/Json.h"
#include "tests/services/JoltUtils/JsonText.h"
#include "tests/services/support/Guards.h"

namespace {

using JoltUtils::JsonType;
using JoltUtils::TypedJson;
using unitTests::JsonText;

using namespace std::string_view_literals;

bool isAccepted(std::string_view text)
{
    const JsonText json(text);
    EXPECT_TRUE(json.isParsed || json.members.empty());
    return json.isParsed;
}

std::string repeated(std::string_view piece, std::size_t count)
{
    std::string text;
    for (std::size_t i = 0; i < count; ++i)
        text.append(piece);
    return text;
}

/// An object with arrays inside one another, `depth` containers in all.
std::string arraysInAnObject(std::size_t depth)
{
    return "{\"a\":" + repeated("[", depth - 1) + repeated("]", depth - 1) + "}";
}

std::string objectsInOneAnother(std::size_t depth)
{
    return repeated("{\"a\":", depth - 1) + "{}" + repeated("}", depth - 1);
}

TEST(JsonParse, EmptyObjectHasNoMembers)
{
    const JsonText json("{}");

    EXPECT_TRUE(json.isParsed);
    EXPECT_TRUE(json.members.empty());
}

TEST(JsonParse, WhiteSpaceAroundTheObjectIsTaken)
{
    EXPECT_TRUE(isAccepted(" \t\r\n{ \n } \t\r\n"));
}

TEST(JsonParse, KnowsEachType)
{
    const JsonText json(R"({"a":[1],"b":true,"n":null,"o":{"x":1},"s":"t","z":1.5})");
    ASSERT_TRUE(json.isParsed);

    EXPECT_EQ(json.at("a").type(), JsonType::Array);
    EXPECT_EQ(json.at("b").type(), JsonType::Boolean);
    EXPECT_EQ(json.at("n").type(), JsonType::Null);
    EXPECT_EQ(json.at("o").type(), JsonType::Object);
    EXPECT_EQ(json.at("s").type(), JsonType::String);
    EXPECT_EQ(json.at("z").type(), JsonType::Number);
}

TEST(JsonParse, HoldsTheValueOfEachType)
{
    const JsonText json(R"({"a":[1,"two"],"b":true,"f":false,"o":{"x":-7},"s":"t","z":1.5})");
    ASSERT_TRUE(json.isParsed);

    EXPECT_EQ(json.at("a").array().size(), 2U);
    EXPECT_EQ(json.at("a").array()[1].text(), "two");
    EXPECT_TRUE(json.at("b").boolean());
    EXPECT_FALSE(json.at("f").boolean());
    EXPECT_EQ(json.at("o").object().at("x").number(), -7.0);
    EXPECT_EQ(json.at("s").text(), "t");
    EXPECT_EQ(json.at("z").number(), 1.5);
}

TEST(JsonParse, MembersComeInByteOrderOfTheirKeys)
{
    const JsonText json(R"({"tests":1,"blades":1,"ab":1,"Tests":1,"a":1,"é":1})");
    ASSERT_TRUE(json.isParsed);

    std::string order;
    for (const auto& [key, value] : json.members)
        order.append(key).append(" ");

    EXPECT_EQ(order, "Tests a ab blades tests é ");
}

TEST(JsonParse, OfDuplicateKeysTheLastCounts)
{
    const JsonText json(R"({"a":1,"b":{"x":1},"a":"two","b":{"y":2}})");
    ASSERT_TRUE(json.isParsed);

    EXPECT_EQ(json.at("a").text(), "two");
    EXPECT_EQ(json.at("b").object().size(), 1U);
    EXPECT_EQ(json.at("b").object().begin()->first, "y");
}

TEST(JsonParse, OfDuplicateKeysANullAtTheEndCounts)
{
    const JsonText json(R"({"a":[1,2,3],"a":null})");
    ASSERT_TRUE(json.isParsed);

    EXPECT_EQ(json.at("a").type(), JsonType::Null);
}

TEST(JsonParse, EmptyKeyIsAKey)
{
    const JsonText json(R"({"":1})");
    ASSERT_TRUE(json.isParsed);

    EXPECT_EQ(json.at("").number(), 1.0);
}

TEST(JsonParse, ReadsEscapesInKeysAndTexts)
{
    const JsonText json(R"({"\u0074ests":"\" \\ \/ \b\f\n\r\t \u00e9 \ud83d\ude00"})");
    ASSERT_TRUE(json.isParsed);

    EXPECT_EQ(json.at("tests").text(), "\" \\ / \b\f\n\r\t é 😀");
}

TEST(JsonParse, TextMayHoldAnEscapedNul)
{
    const JsonText json(R"({"a":"x\u0000y"})");
    ASSERT_TRUE(json.isParsed);

    EXPECT_EQ(json.at("a").text(), "x\0y"sv);
}

TEST(JsonParse, ReadsNumbersAsDoubles)
{
    const JsonText json(
        R"({"a":[0,-1,2.9,1e3,1E-2,9007199254740993,18446744073709551615,-9223372036854775808]})");
    ASSERT_TRUE(json.isParsed);

    std::vector<double> numbers;
    for (const TypedJson& element : json.at("a").array())
        numbers.push_back(element.number());

    EXPECT_THAT(numbers, testing::ElementsAre(0.0, -1.0, 2.9, 1000.0, 0.01, 9007199254740992.0,
                                              18446744073709551616.0, -9223372036854775808.0));
}

TEST(JsonParse, ReadsWholeNumbersBeyond64BitsAsDoubles)
{
    const JsonText json(R"({"a":100000000000000000000})");
    ASSERT_TRUE(json.isParsed);

    EXPECT_EQ(json.at("a").number(), 1e20);
}

TEST(JsonParse, RefusesANumberThatNoDoubleCanHold)
{
    EXPECT_FALSE(isAccepted(R"({"a":1e999})"));
    EXPECT_FALSE(isAccepted(R"({"a":-1e999})"));
    EXPECT_FALSE(isAccepted("{\"a\":1" + repeated("0", 400) + "}"));
    EXPECT_TRUE(isAccepted(R"({"a":1.7976931348623157e308})"));
}

TEST(JsonParse, RefusesATopLevelThatIsNoObject)
{
    EXPECT_FALSE(isAccepted("[]"));
    EXPECT_FALSE(isAccepted("[{}]"));
    EXPECT_FALSE(isAccepted("1"));
    EXPECT_FALSE(isAccepted("1.5"));
    EXPECT_FALSE(isAccepted("-1"));
    EXPECT_FALSE(isAccepted("\"text\""));
    EXPECT_FALSE(isAccepted("true"));
    EXPECT_FALSE(isAccepted("null"));
}

TEST(JsonParse, RefusesATextWithoutAValue)
{
    EXPECT_FALSE(isAccepted(""));
    EXPECT_FALSE(isAccepted(" \n"));
}

TEST(JsonParse, RefusesWhatFollowsTheObject)
{
    EXPECT_FALSE(isAccepted("{}{}"));
    EXPECT_FALSE(isAccepted("{} x"));
    EXPECT_FALSE(isAccepted("{},"));
}

TEST(JsonParse, RefusesTextThatIsNoJson)
{
    for (const char* text :
         {"{", "{\"a\"}", "{\"a\":}", "{\"a\":1,}", "{a:1}", "{'a':1}", "{\"a\":01}", "{\"a\":+1}",
          "{\"a\":.5}", "{\"a\":NaN}", "{\"a\":tru}", "{\"a\":[1,]}", "{\"a\":[1}",
          "{\"a\":\"\n\"}", "{\"a\":\"\\x\"}", "{/*c*/}", "{\"a\":\"x"})
        EXPECT_FALSE(isAccepted(text)) << text;
}

TEST(JsonParse, RefusesInvalidUtf8)
{
    for (const char* text : {"{\"a\":\"\xff\"}", "{\"a\":\"\xc3\"}", "{\"\xc0\xaf\":1}",
                             "{\"a\":\"\xed\xa0\x80\"}", "{\"a\":\"\xf5\x80\x80\x80\"}"})
        EXPECT_FALSE(isAccepted(text)) << text;
}

TEST(JsonParse, RefusesHalfASurrogatePair)
{
    EXPECT_FALSE(isAccepted(R"({"a":"\ud83d"})"));
    EXPECT_FALSE(isAccepted(R"({"a":"\ude00"})"));
}

TEST(JsonParse, RefusesANulByteWithinTheObject)
{
    EXPECT_FALSE(isAccepted("{\"a\":\"x\0y\"}"sv));
    EXPECT_FALSE(isAccepted("{\"a\":\0 1}"sv));
}

TEST(JsonParse, RefusesANulByteBehindTheObject)
{
    EXPECT_FALSE(isAccepted("{}\0"sv));
    EXPECT_FALSE(isAccepted("{}\0{"sv));
    EXPECT_FALSE(isAccepted("{\"a\":1} \0 anything"sv));
}

TEST(JsonParse, ReadsNotBeyondTheGivenLength)
{
    const std::string_view text = "{\"a\":1}{";

    EXPECT_TRUE(isAccepted(text.substr(0, 7)));
}

TEST(JsonParse, Accepts512ContainersInsideOneAnother)
{
    EXPECT_TRUE(isAccepted(arraysInAnObject(512)));
    EXPECT_TRUE(isAccepted(objectsInOneAnother(512)));
}

TEST(JsonParse, Refuses513ContainersInsideOneAnother)
{
    EXPECT_FALSE(isAccepted(arraysInAnObject(513)));
    EXPECT_FALSE(isAccepted(objectsInOneAnother(513)));
}

TEST(JsonParse, RefusesAHundredThousandContainersWithoutACrash)
{
    EXPECT_FALSE(isAccepted(arraysInAnObject(100000)));
    EXPECT_FALSE(isAccepted(objectsInOneAnother(100000)));
    EXPECT_FALSE(isAccepted(repeated("[", 100000)));
    EXPECT_FALSE(isAccepted("{\"a\":" + repeated("[", 100000)));
}

TEST(JsonParse, ManyContainersBesideOneAnotherAreNoDepth)
{
    EXPECT_TRUE(isAccepted("{\"a\":[" + repeated("[],{},", 10000) + "0]}"));
}

TEST(JsonParse, ReplacesWhatTheObjectHeld)
{
    JsonText json(R"({"a":1,"b":2})");

    ASSERT_TRUE(json.parse(R"({"c":3})"));

    EXPECT_EQ(json.members.size(), 1U);
    EXPECT_EQ(json.at("c").number(), 3.0);
}

TEST(JsonParse, LeavesTheObjectEmptyAfterAFault)
{
    JsonText json(R"({"a":1})");

    EXPECT_FALSE(json.parse(R"({"b":2,"c":})"));

    EXPECT_TRUE(json.members.empty());
    EXPECT_EQ(json.domain->bytes(), 0U);
}

TEST(JsonParse, NeedsNoDefaultResource)
{
    const unitTests::NoDefaultResource guard;
    const std::string text = "{\"" + repeated("long key ", 10) + "\":[{\"a\":\"" +
                             repeated("long text ", 10) + "\",\"n\":1.5}]}";

    EXPECT_TRUE(isAccepted(text));
    EXPECT_FALSE(isAccepted(text + "x"));
}

TEST(JsonAllocator, DefaultIsTheProcessWideDomain)
{
    EXPECT_EQ(&JoltUtils::JsonAllocator::getDefaultAllocator(), Basis::Allocator::global().get());
}

}  // namespace
