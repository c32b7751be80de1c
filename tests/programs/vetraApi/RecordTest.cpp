#include "programs/vetraApi/Record.h"

#include <gmock/gmock.h>

#include <memory>
#include <string>

#include "JoltUtils/Json.h"

namespace {

using VetraApi::Record;
using VetraApi::splitRecord;

void expectFields(std::string_view text, std::string_view item, std::string_view value, int code,
                  std::string_view message)
{
    const std::optional<Record> record = splitRecord(text);
    ASSERT_TRUE(record.has_value()) << text;
    EXPECT_EQ(record->item, item) << text;
    EXPECT_EQ(record->value, value) << text;
    EXPECT_EQ(record->code, code) << text;
    EXPECT_EQ(record->message, message) << text;
}

TEST(VetraApiSplitRecord, GivesTheFourFields)
{
    expectFields("('thp','always [never]',0,'')", "thp", "always [never]", 0, "");
    expectFields("('cpu','Some Processor',4,'not accepted')", "cpu", "Some Processor", 4,
                 "not accepted");
}

TEST(VetraApiSplitRecord, FieldsMayBeEmpty)
{
    expectFields("('thp','',0,'')", "thp", "", 0, "");
    expectFields("('','',5,'')", "", "", 5, "");
    expectFields("('Hyperthreading','',3,'a guest')", "Hyperthreading", "", 3, "a guest");
}

TEST(VetraApiSplitRecord, KeepsLineFeedsAndQuotes)
{
    expectFields("('a','x\ny',4,'one \n two\n')", "a", "x\ny", 4, "one \n two\n");
    expectFields("('a','\"x\" \\ 'y'',4,''z'')", "a", "\"x\" \\ 'y'", 4, "'z'");
}

TEST(VetraApiSplitRecord, TheItemEndsAtTheFirstSeparator)
{
    expectFields("('a','b','c',1,'d')", "a", "b','c", 1, "d");
}

TEST(VetraApiSplitRecord, AMessageMayHoldTheFirstSeparator)
{
    expectFields("('a','b',1,'c','d')", "a", "b", 1, "c','d");
}

TEST(VetraApiSplitRecord, AValueMayHoldWhatLooksLikeACode)
{
    expectFields("('a','b',4,'c',0,'')", "a", "b',4,'c", 0, "");
    expectFields("('a',',4,',0,'')", "a", ",4,", 0, "");
    expectFields("('a','',4,'',0,'')", "a", "',4,'", 0, "");
}

TEST(VetraApiSplitRecord, AMessageThatRepeatsTheValueDoesNotChangeTheCode)
{
    for (const std::string value : {"", "Rack", "Rack',0,'X1", "',0,'", "a',0,'a", "',0,'',0,'"}) {
        const std::string message = value + " is not";
        const std::string rest = "','" + value + "',4,'" + message + "')";
        expectFields("('appliancetype" + rest, "appliancetype", value, 4, message);
    }
    expectFields("('appliancetype','x',0,'')", "appliancetype", "x", 0, "");
    // Elsewhere a value that looks so is a value.
    expectFields("('a','x',0,'x',4,'no')", "a", "x',0,'x", 4, "no");
}

TEST(VetraApiSplitRecord, AMessageThatEndsLikeACodeIsNotCutByItsOwnClosingQuote)
{
    expectFields("('a','b',4,'c',1,')", "a", "b", 4, "c',1,");
}

TEST(VetraApiSplitRecord, OnlyOneDigitBetweenQuotesIsACode)
{
    expectFields("('a','b',4,'c',12,'d',x,'e')", "a", "b", 4, "c',12,'d',x,'e");
    expectFields("('a','b',4,'c',1')", "a", "b", 4, "c',1");
}

TEST(VetraApiSplitRecord, AZeroByteIsALetterLikeAnyOther)
{
    const std::string_view text("('a','x\0y',0,'')", 16);
    expectFields(text, "a", std::string_view("x\0y", 3), 0, "");
}

TEST(VetraApiSplitRecord, GivesNothingForATextThatIsNoRecord)
{
    for (const char* text :
         {"", "('", "('a", "')", "(')", "('')", "('a','b')", "('a',4,'b')", "('a','b',4,'c'",
          "'a','b',4,'c')", "('a','b',44,'c')", "Please check the usage"})
        EXPECT_FALSE(splitRecord(text).has_value()) << text;
}

class VetraApiJson : public testing::Test {
protected:
    Basis::string json(std::string_view action, const Record& record)
    {
        return VetraApi::jsonOf(action, record, *allocator);
    }

    // The members as a parser gives them back.
    std::string memberOf(const Basis::string& text, const char* name)
    {
        JoltUtils::JsonAllocator values(*allocator);
        JoltUtils::JsonObject object(values);
        if (!JoltUtils::jsonParse(text.data(), text.size(), object, values))
            return "no JSON: " + std::string(text);
        return std::string(object.at(Basis::string(name)).text());
    }

    std::shared_ptr<Basis::Allocator> allocator =
        Basis::Allocator::createChild(Basis::Allocator::global(), "test", 0);
};

TEST_F(VetraApiJson, WritesTheMembersInOrderWithTheCodeAsANumber)
{
    const Basis::string text = json("CHECK_CPU", {"cpu", "a name", 4, "not accepted"});

    EXPECT_EQ(text, R"({"action":"CHECK_CPU","item":"cpu","value":"a name","code":4,)"
                    R"("message":"not accepted"})");
    EXPECT_EQ(text.get_allocator().resource(), allocator.get());
}

TEST_F(VetraApiJson, EscapesWhatJsonReserves)
{
    const std::string odd = "\"a\" \\ b\nc\td\x01 'e','f',4,'g";
    const Basis::string text = json("A", {"i", odd, 0, odd});

    EXPECT_EQ(text.find('\n'), Basis::string::npos);
    EXPECT_EQ(memberOf(text, "value"), odd);
    EXPECT_EQ(memberOf(text, "message"), odd);
}

TEST_F(VetraApiJson, KeepsCharactersBeyondAscii)
{
    const std::string letters = "gr\u00fc\u00df \u20ac";
    EXPECT_EQ(memberOf(json("A", {"i", letters, 0, ""}), "value"), letters);
}

TEST_F(VetraApiJson, ReplacesBytesThatAreNoCharacters)
{
    EXPECT_EQ(memberOf(json("A", {"i", "x\xff y", 0, ""}), "value"), "x\uFFFD y");
}

TEST(VetraApiExitStatus, FollowsTheSeverityOfTheCode)
{
    EXPECT_EQ(VetraApi::exitStatusOf(0), 0);
    EXPECT_EQ(VetraApi::exitStatusOf(3), 0);
    EXPECT_EQ(VetraApi::exitStatusOf(1), 1);
    EXPECT_EQ(VetraApi::exitStatusOf(4), 2);
    EXPECT_EQ(VetraApi::exitStatusOf(5), 3);
}

TEST(VetraApiExitStatus, ACodeThatNoRuleGivesIsAsBadAsARuleThatCouldNotRun)
{
    for (const int code : {2, 6, 7, 8, 9})
        EXPECT_EQ(VetraApi::exitStatusOf(code), 3) << code;
}

}  // namespace
