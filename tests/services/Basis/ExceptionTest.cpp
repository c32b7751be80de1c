#include "Basis/Exception.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <sstream>
#include <string>

namespace {

using Basis::ErrorRecord;
using Basis::Exception;

ErrorRecord recordWith(const char* message)
{
    return {7, message, &Basis::genericErrorCategory(), "ERR_OF_TEST", 1};
}

std::string textOf(const char* message, std::initializer_list<const char*> arguments)
{
    const ErrorRecord record = recordWith(message);
    Exception exception("/built/here/Place.cpp", 12, record);
    for (const char* argument : arguments)
        exception.addArgument(argument);
    return exception.what();
}

TEST(ErrorRecord, HoldsWhatItWasRegisteredWith)
{
    const ErrorRecord record = Basis::registeredError(41, "message of 41", "ERR_FIELDS");

    const auto& [code, message, category, symbolicName, handle] = record;
    EXPECT_EQ(code, 41U);
    EXPECT_STREQ(message, "message of 41");
    EXPECT_EQ(category, &Basis::genericErrorCategory());
    EXPECT_STREQ(symbolicName, "ERR_FIELDS");
    EXPECT_GT(handle, 0U);
}

TEST(ErrorRecord, EachRegistrationReturnsAHandleOfItsOwn)
{
    const auto first = Basis::registeredError(42, "message", "ERR_TWICE").handle;
    const auto second = Basis::registeredError(42, "message", "ERR_TWICE").handle;

    EXPECT_NE(first, second);
    EXPECT_EQ(Basis::registrationsOf("ERR_TWICE"), 2U);
}

TEST(ErrorRecord, NameThatNobodyRegisteredCountsZero)
{
    EXPECT_EQ(Basis::registrationsOf("ERR_UNHEARD_OF"), 0U);
    EXPECT_EQ(Basis::registrationsOf(""), 0U);
}

TEST(ExceptionText, IsCodeNameMessageAndPlace)
{
    EXPECT_EQ(textOf("Invalid input", {}), "7 ERR_OF_TEST: Invalid input (Place.cpp:12)");
}

TEST(ExceptionText, UnnamedArgumentFillsThePlaceholder)
{
    EXPECT_EQ(textOf("Error $id$ seen", {"17"}), "7 ERR_OF_TEST: Error 17 seen (Place.cpp:12)");
}

TEST(ExceptionText, UnnamedArgumentsFillPlaceholdersInTheirOrder)
{
    EXPECT_EQ(textOf("$from$ to $to$", {"here", "there"}),
              "7 ERR_OF_TEST: here to there (Place.cpp:12)");
}

TEST(ExceptionText, ArgumentsThatFillNothingFollowTheMessage)
{
    EXPECT_EQ(textOf("Error $id$", {"17", "more", "still more"}),
              "7 ERR_OF_TEST: Error 17: more: still more (Place.cpp:12)");
}

TEST(ExceptionText, PlaceholderWithoutArgumentStays)
{
    EXPECT_EQ(textOf("Error $id$ seen", {}), "7 ERR_OF_TEST: Error $id$ seen (Place.cpp:12)");
}

TEST(ExceptionText, NamedArgumentFillsThePlaceholderOfItsName)
{
    const ErrorRecord record = recordWith("$from$ to $to$");
    Exception exception("Place.cpp", 1, record);

    exception.addArgument("there", "to").addArgument("here", "from");

    EXPECT_STREQ(exception.what(), "7 ERR_OF_TEST: here to there (Place.cpp:1)");
}

TEST(ExceptionText, UnnamedArgumentTakesWhatTheNamedOneLeaves)
{
    const ErrorRecord record = recordWith("$from$ to $to$");
    Exception exception("Place.cpp", 1, record);

    exception.addArgument("there").addArgument("here", "from");

    EXPECT_STREQ(exception.what(), "7 ERR_OF_TEST: here to there (Place.cpp:1)");
}

TEST(ExceptionText, NamedArgumentWithoutItsPlaceholderFollowsTheMessage)
{
    const ErrorRecord record = recordWith("Error $id$");
    Exception exception("Place.cpp", 1, record);

    exception.addArgument("x", "other");

    EXPECT_STREQ(exception.what(), "7 ERR_OF_TEST: Error $id$: x (Place.cpp:1)");
}

TEST(ExceptionText, DollarSignsWithoutANameBetweenThemAreNoPlaceholder)
{
    EXPECT_EQ(textOf("cost 5$ or $$ or $a b$", {"x"}),
              "7 ERR_OF_TEST: cost 5$ or $$ or $a b$: x (Place.cpp:12)");
}

TEST(ExceptionText, PlaceholderBehindALoneDollarSignIsFound)
{
    EXPECT_EQ(textOf("$ $id_1$", {"x"}), "7 ERR_OF_TEST: $ x (Place.cpp:12)");
}

TEST(ExceptionText, ArgumentThatLooksLikeAPlaceholderIsNotFilledAgain)
{
    EXPECT_EQ(textOf("Error $id$", {"$id$", "x"}), "7 ERR_OF_TEST: Error $id$: x (Place.cpp:12)");
}

TEST(ExceptionText, StaysOneLineWhenArgumentsHoldLineFeeds)
{
    EXPECT_EQ(textOf("Error $id$", {"a\nb", "c\nd\n"}),
              "7 ERR_OF_TEST: Error a\\nb: c\\nd\\n (Place.cpp:12)");
}

TEST(ExceptionText, ShowsControlCharactersByTheirNumber)
{
    EXPECT_EQ(textOf("Error", {"\033[31m\r\t\x7f"}),
              "7 ERR_OF_TEST: Error: \\x1b[31m\\x0d\\x09\\x7f (Place.cpp:12)");
}

TEST(ExceptionText, LeavesLettersBeyondAsciiAsTheyAre)
{
    EXPECT_EQ(textOf("Error", {"\xc3\xa9"}), "7 ERR_OF_TEST: Error: \xc3\xa9 (Place.cpp:12)");
}

TEST(ExceptionText, EmptyArgumentsFillAndFollowLikeOthers)
{
    EXPECT_EQ(textOf("Error $id$", {"", ""}), "7 ERR_OF_TEST: Error :  (Place.cpp:12)");
}

TEST(ExceptionText, OfASystemErrorIsNumberNameAndText)
{
    const Exception exception("dir/Open.cpp", 3, ENOENT);

    EXPECT_STREQ(exception.what(), "2 ENOENT: No such file or directory (Open.cpp:3)");
}

TEST(ExceptionText, OfASystemErrorHoldsItsArguments)
{
    Exception exception("Open.cpp", 3, EACCES);

    exception.addArgument("open /etc/x");

    EXPECT_STREQ(exception.what(), "13 EACCES: Permission denied: open /etc/x (Open.cpp:3)");
}

TEST(ExceptionText, OfAnUnknownSystemErrorSaysSo)
{
    const Exception exception("Open.cpp", 3, 99999);

    EXPECT_THAT(exception.what(), testing::StartsWith("99999 unknown: "));
}

TEST(ExceptionText, GoesToAStreamAsItIs)
{
    const ErrorRecord record = recordWith("Invalid input");
    const Exception exception("Place.cpp", 1, record);
    std::ostringstream stream;

    stream << exception;

    EXPECT_EQ(stream.str(), exception.what());
}

TEST(Exception, CarriesPlaceAndRecord)
{
    const ErrorRecord record = recordWith("Invalid input");
    const Exception exception("dir/Place.cpp", 12, record);

    EXPECT_STREQ(exception.file(), "dir/Place.cpp");
    EXPECT_EQ(exception.line(), 12);
    EXPECT_EQ(exception.record(), &record);
    EXPECT_EQ(exception.systemError(), 0);
}

TEST(Exception, CarriesASystemErrorInsteadOfARecord)
{
    const Exception exception("Place.cpp", 12, EBUSY);

    EXPECT_EQ(exception.record(), nullptr);
    EXPECT_EQ(exception.systemError(), EBUSY);
}

TEST(Exception, CopyHasTheSameText)
{
    const ErrorRecord record = recordWith("Error $id$");
    Exception exception("Place.cpp", 1, record);
    exception.addArgument("17");

    const Exception copy = exception;
    exception.addArgument("later");

    EXPECT_STREQ(copy.what(), "7 ERR_OF_TEST: Error 17 (Place.cpp:1)");
}

}  // namespace
