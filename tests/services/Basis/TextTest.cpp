#include "Basis/Text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Basis::beforeFirst;
using Basis::behindFirst;
using Basis::toInt32;
using Basis::trimmed;
using testing::ElementsAre;
using testing::IsEmpty;

using namespace std::string_view_literals;

std::vector<std::string> pieces(std::string_view text, char separator)
{
    const auto domain = Basis::Allocator::createChild(Basis::Allocator::global(), "split", 0);
    const auto views = Basis::split(text, separator, *domain);
    return {views.begin(), views.end()};
}

TEST(Contains, FindsAWordAnywhere)
{
    EXPECT_TRUE(Basis::contains("an x86 machine", "x86"));
    EXPECT_TRUE(Basis::contains("x86", "x86"));
    EXPECT_TRUE(Basis::contains("x86", ""));
}

TEST(Contains, DoesNotFindWhatIsLongerOrOfOtherCase)
{
    EXPECT_FALSE(Basis::contains("x8", "x86"));
    EXPECT_FALSE(Basis::contains("X86", "x86"));
    EXPECT_FALSE(Basis::contains("", "x86"));
}

TEST(StartsWith, LooksAtTheBeginningAlone)
{
    EXPECT_TRUE(Basis::startsWith("Size: 32 GB", "Size"));
    EXPECT_TRUE(Basis::startsWith("Size", ""));
    EXPECT_FALSE(Basis::startsWith(" Size", "Size"));
    EXPECT_FALSE(Basis::startsWith("Si", "Size"));
}

TEST(BehindFirst, IsWhatFollowsTheFirstSeparator)
{
    EXPECT_EQ(behindFirst("a:b:c", ":"), "b:c");
    EXPECT_EQ(behindFirst("key: value", ": "), "value");
}

TEST(BehindFirst, IsEmptyBehindASeparatorAtTheEnd)
{
    EXPECT_EQ(behindFirst("a:", ":"), "");
}

TEST(BehindFirst, IsTheWholeTextWithoutASeparator)
{
    EXPECT_EQ(behindFirst("abc", ":"), "abc");
    EXPECT_EQ(behindFirst("", ":"), "");
}

TEST(BeforeFirst, IsWhatPrecedesTheFirstSeparator)
{
    EXPECT_EQ(beforeFirst("a:b:c", ":"), "a");
    EXPECT_EQ(beforeFirst("CPU @ 2.5GHz", "@"), "CPU ");
    EXPECT_EQ(beforeFirst(":b", ":"), "");
}

TEST(BeforeFirst, IsTheWholeTextWithoutASeparator)
{
    EXPECT_EQ(beforeFirst("abc", ":"), "abc");
    EXPECT_EQ(beforeFirst("", ":"), "");
}

TEST(Trimmed, StripsBlanksReturnsLineFeedsAndTabsAtBothEnds)
{
    EXPECT_EQ(trimmed(" \t\r\n word \n\r\t "), "word");
}

TEST(Trimmed, LeavesVerticalTabsAndFormFeeds)
{
    EXPECT_EQ(trimmed("\vword\f"), "\vword\f");
    EXPECT_EQ(trimmed(" \f "), "\f");
}

TEST(Trimmed, LeavesNulBytesAndNonBreakingBlanks)
{
    EXPECT_EQ(trimmed(" \0 "sv), "\0"sv);
    EXPECT_EQ(trimmed("\xc2\xa0word"), "\xc2\xa0word");
}

TEST(Trimmed, LeavesWhatIsInside)
{
    EXPECT_EQ(trimmed("two  words\there"), "two  words\there");
}

TEST(Trimmed, IsEmptyWhereNothingIsLeft)
{
    EXPECT_EQ(trimmed(""), "");
    EXPECT_EQ(trimmed(" \t\r\n"), "");
}

TEST(Split, GivesThePiecesBetweenSeparators)
{
    EXPECT_THAT(pieces("16,32,8", ','), ElementsAre("16", "32", "8"));
    EXPECT_THAT(pieces("one", ','), ElementsAre("one"));
}

TEST(Split, KeepsEmptyPiecesInFrontAndBetween)
{
    EXPECT_THAT(pieces(",a,,b", ','), ElementsAre("", "a", "", "b"));
}

TEST(Split, GivesNothingBehindASeparatorAtTheEnd)
{
    EXPECT_THAT(pieces("a,b,", ','), ElementsAre("a", "b"));
    EXPECT_THAT(pieces("a,,", ','), ElementsAre("a", ""));
}

TEST(Split, GivesOneEmptyPieceForASeparatorAlone)
{
    EXPECT_THAT(pieces(",", ','), ElementsAre(""));
}

TEST(Split, GivesNothingForAnEmptyText)
{
    EXPECT_THAT(pieces("", ','), IsEmpty());
}

TEST(Split, DoesNotTrim)
{
    EXPECT_THAT(pieces(" a , b ", ','), ElementsAre(" a ", " b "));
}

TEST(Split, TakesItsListFromTheDomainAndViewsTheText)
{
    const auto domain = Basis::Allocator::createChild(Basis::Allocator::global(), "split", 0);
    const std::string_view text = "a,b";

    const auto views = Basis::split(text, ',', *domain);

    EXPECT_GT(domain->bytes(), 0U);
    EXPECT_EQ(views[1].data(), text.data() + 2);
}

TEST(ToInt32, ReadsTheNumberAtTheBeginning)
{
    EXPECT_EQ(toInt32("12"), 12);
    EXPECT_EQ(toInt32("-12"), -12);
    EXPECT_EQ(toInt32("+12"), 12);
    EXPECT_EQ(toInt32("012"), 12);
}

TEST(ToInt32, SkipsLeadingWhiteSpaceAndIgnoresWhatFollows)
{
    EXPECT_EQ(toInt32("  12abc"), 12);
    EXPECT_EQ(toInt32("\t\n\v\f\r 7 8"), 7);
    EXPECT_EQ(toInt32("2.9"), 2);
    EXPECT_EQ(toInt32("0x10"), 0);
}

TEST(ToInt32, IsZeroWithoutDigits)
{
    EXPECT_EQ(toInt32(""), 0);
    EXPECT_EQ(toInt32("abc"), 0);
    EXPECT_EQ(toInt32("-"), 0);
    EXPECT_EQ(toInt32("- 5"), 0);
}

TEST(ToInt32, KeepsTheBoundsOf32Bits)
{
    EXPECT_EQ(toInt32("2147483647"), std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(toInt32("-2147483648"), std::numeric_limits<std::int32_t>::min());
}

TEST(ToInt32, KeepsTheLow32BitsOfALargerNumber)
{
    EXPECT_EQ(toInt32("2147483648"), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(toInt32("4294967295"), -1);
    EXPECT_EQ(toInt32("4294967297"), 1);
    EXPECT_EQ(toInt32("-4294967297"), -1);
}

TEST(ToInt32, SaturatesAt64BitsBeforeItIsCut)
{
    EXPECT_EQ(toInt32("99999999999999999999"), -1);
    EXPECT_EQ(toInt32("-99999999999999999999"), 0);
    EXPECT_EQ(toInt32(std::string(1000, '9')), -1);
}

TEST(ToInt32, ReadsNotBeyondTheEndOfAView)
{
    EXPECT_EQ(toInt32(std::string_view("12345").substr(0, 2)), 12);
}

}  // namespace
