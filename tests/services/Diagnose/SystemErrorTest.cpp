#include "Diagnose/SystemError.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>

#include "Diagnose/TraceConfiguration.h"
#include "Diagnose/TraceTopic.h"
#include "tests/services/support/ChildProcess.h"
#include "tests/services/support/Files.h"

namespace {

using Diagnose::LastSystemErrorCache;
using Diagnose::SystemError;

std::string textOf(SystemError error)
{
    std::ostringstream stream;
    stream << error;
    return stream.str();
}

TEST(SystemError, TextIsMessageNumberAndName)
{
    EXPECT_EQ(textOf({ENOENT}), "No such file or directory (2, ENOENT)");
    EXPECT_EQ(textOf({EACCES}), "Permission denied (13, EACCES)");
}

TEST(SystemError, NumberWithoutANameIsUnknown)
{
    EXPECT_THAT(textOf({99999}), testing::EndsWith("(99999, unknown)"));
}

TEST(SystemError, IsTheCallingThreadsOwn)
{
    errno = ENOSPC;
    std::thread([] { errno = EBUSY; }).join();

    EXPECT_EQ(Diagnose::getSystemError().number, ENOSPC);
}

TEST(SystemException, CarriesTheErrorOfTheCall)
{
    const Diagnose::SystemException exception("dir/Open.cpp", 5, {EBUSY});

    EXPECT_EQ(exception.systemError(), EBUSY);
    EXPECT_EQ(exception.record(), nullptr);
    EXPECT_STREQ(exception.what(), "16 EBUSY: Device or resource busy (Open.cpp:5)");
}

TEST(LastSystemErrorCache, PutsBackWhatWasThereAtItsConstruction)
{
    errno = EACCES;
    const LastSystemErrorCache cache;
    errno = ENOMEM;

    cache.restore("test");

    EXPECT_EQ(errno, EACCES);
}

TEST(LastSystemErrorCache, PutsBackThatThereWasNone)
{
    errno = 0;
    const LastSystemErrorCache cache;
    errno = ENOMEM;

    cache.restore("test");

    EXPECT_EQ(errno, 0);
}

// Prints the errno after a restore; what was traced stands in the one file of the directory.
void restoreUnderTrace(int before, int disturbed)
{
    Diagnose::TraceConfiguration::initializeExecutable(".", 1, 1);
    Diagnose::TraceTopic::setGlobalTraceLevel(Diagnose::TraceLevel::Debug);
    errno = before;
    const LastSystemErrorCache cache;
    errno = disturbed;
    cache.restore("exception constructor");
    std::cout << errno;
}

TEST(LastSystemErrorCache, TracesAChangeUnderItsTag)
{
    const unitTests::WorkingDirectory directory;

    const auto end = unitTests::inChild([] { restoreUnderTrace(EACCES, ENOMEM); });

    EXPECT_EQ(end.output, std::to_string(EACCES));
    const auto names = unitTests::namesIn(".");
    ASSERT_EQ(names.size(), 1U);
    EXPECT_THAT(unitTests::contentOf(names[0]),
                testing::HasSubstr("diagnose: exception constructor changed the last system error "
                                   "from 13 to 12\n"));
}

TEST(LastSystemErrorCache, TracesNothingIfNothingHasChanged)
{
    const unitTests::WorkingDirectory directory;

    const auto end = unitTests::inChild([] { restoreUnderTrace(EACCES, EACCES); });

    EXPECT_EQ(end.output, std::to_string(EACCES));
    EXPECT_THAT(unitTests::namesIn("."), testing::IsEmpty());
}

}  // namespace
