#include "Basis/Crash.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

using testing::KilledBySignal;
using testing::MatchesRegex;

TEST(BaseName, IsThePartBehindTheLastSlash)
{
    EXPECT_STREQ(Basis::baseName("/a/b/File.cpp"), "File.cpp");
    EXPECT_STREQ(Basis::baseName("a/File.cpp"), "File.cpp");
}

TEST(BaseName, IsTheWholePathIfThereIsNoSlash)
{
    EXPECT_STREQ(Basis::baseName("File.cpp"), "File.cpp");
    EXPECT_STREQ(Basis::baseName(""), "");
}

TEST(BaseName, IsEmptyBehindASlashAtTheEnd)
{
    EXPECT_STREQ(Basis::baseName("a/b/"), "");
}

TEST(CrashDeathTest, EndsAbnormallyAfterOneLineWithTextAndPlace)
{
    EXPECT_EXIT(Basis::crashImpl("/somewhere/else/Engine.cpp", 77, "no way on"),
                KilledBySignal(SIGABRT),
                testing::StrEq("vetra: fatal: no way on (Engine.cpp:77)\n"));
}

TEST(CrashDeathTest, TakesTheTextOfAnException)
{
    EXPECT_EXIT(Basis::crashImpl("Engine.cpp", 78, std::runtime_error("transfer failed")),
                KilledBySignal(SIGABRT),
                testing::StrEq("vetra: fatal: transfer failed (Engine.cpp:78)\n"));
}

TEST(CrashDeathTest, StaysOneLineWhenTheTextHoldsLineFeeds)
{
    EXPECT_EXIT(Basis::crashImpl("Engine.cpp", 79, "first\nsecond"), KilledBySignal(SIGABRT),
                MatchesRegex("[^\n]*first[^\n]*second[^\n]*\n"));
}

TEST(AssertThat, DoesNothingIfTheConditionHolds)
{
    Basis::assertThat(true, "never seen");
}

TEST(AssertThatDeathTest, StopsTheProgramWithItsTextAndTheCallersPlace)
{
    EXPECT_EXIT(Basis::assertThat(false, "two and two are four"), KilledBySignal(SIGABRT),
                MatchesRegex("vetra: fatal: two and two are four \\(CrashTest\\.cpp:[0-9]+\\)\n"));
}

struct NoStandardException {};

struct TextOfTwoLines : std::exception {
    const char* what() const noexcept override { return "first\nsecond"; }
};

template <class Exception>
void throwIt(const Exception& exception)
{
    throw exception;
}

// Out of a noexcept function, since a death test catches what leaves its statement.
template <class Exception>
void leaveUncaught(const char* program, const Exception& exception) noexcept
{
    Basis::nameUncaughtExceptions(program);
    throwIt(exception);
}

TEST(NameUncaughtExceptionsDeathTest, NamesTypeAndTextInOneLine)
{
    EXPECT_EXIT(leaveUncaught("vetraApi", std::out_of_range("index 7")), KilledBySignal(SIGABRT),
                testing::StrEq("vetraApi: unexpected exception std::out_of_range: index 7\n"));
}

TEST(NameUncaughtExceptionsDeathTest, NamesTheTypeAloneOfWhatIsNoStandardException)
{
    EXPECT_EXIT(leaveUncaught("vetra", NoStandardException{}), KilledBySignal(SIGABRT),
                MatchesRegex("vetra: unexpected exception [^\n]*NoStandardException\n"));
}

TEST(NameUncaughtExceptionsDeathTest, NamesAThrownNumber)
{
    EXPECT_EXIT(leaveUncaught("vetra", 42), KilledBySignal(SIGABRT),
                testing::StrEq("vetra: unexpected exception int\n"));
}

TEST(NameUncaughtExceptionsDeathTest, StaysOneLineWhenTheTextHoldsLineFeeds)
{
    EXPECT_EXIT(leaveUncaught("vetra", TextOfTwoLines{}), KilledBySignal(SIGABRT),
                MatchesRegex("[^\n]*first[^\n]*second[^\n]*\n"));
}

TEST(NameUncaughtExceptionsDeathTest, NamesWhatLeavesAnotherThread)
{
    EXPECT_EXIT(
        {
            Basis::nameUncaughtExceptions("vetra");
            std::thread(throwIt<std::runtime_error>, std::runtime_error("in a thread")).join();
        },
        KilledBySignal(SIGABRT),
        testing::StrEq("vetra: unexpected exception std::runtime_error: in a thread\n"));
}

TEST(NameUncaughtExceptionsDeathTest, SaysSoIfThereIsNoException)
{
    EXPECT_EXIT(
        {
            Basis::nameUncaughtExceptions("vetra");
            std::terminate();
        },
        KilledBySignal(SIGABRT), testing::StrEq("vetra: unexpected exception no exception\n"));
}

}  // namespace
