#include "vetraDefines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <latch>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

using Basis::ErrorRecord;
using testing::MatchesRegex;
using Vetra::VetraException;

static_assert(std::is_same_v<decltype(ErrorRecord::code), std::uint32_t>);
static_assert(offsetof(ErrorRecord, code) < offsetof(ErrorRecord, message));
static_assert(offsetof(ErrorRecord, message) < offsetof(ErrorRecord, category));
static_assert(offsetof(ErrorRecord, category) < offsetof(ErrorRecord, symbolicName));
static_assert(offsetof(ErrorRecord, symbolicName) < offsetof(ErrorRecord, handle));
static_assert(std::is_base_of_v<Basis::Exception, VetraException>);

struct Expected {
    const ErrorRecord& (*record)();
    std::uint32_t code;
    const char* message;
    const char* symbolicName;
};

void PrintTo(const Expected& expected, std::ostream* stream)
{
    *stream << expected.symbolicName;
}

constexpr Expected records[] = {
    {&Vetra__ERR_GENERIC, 1, "Generic vetra error $id$ ", "ERR_GENERIC"},
    {&Vetra__ERR_UNKOWN_HOSTNAME, 2, "Hostname unkown", "ERR_UNKOWN_HOSTNAME"},
    {&Vetra__ERR_INVALID_INPUT, 3, "Invalid input", "ERR_INVALID_INPUT"},
    {&Vetra__ERR_INVALID_FILEDESCRIPTOR, 4, "Invalid file descriptor",
     "ERR_INVALID_FILEDESCRIPTOR"},
    {&Vetra__ERR_INVALID_JSON, 5, "Invalid json", "ERR_INVALID_JSON"},
    {&Vetra__ERR_INVALID_USER_CONFIG, 6, "Invalid user config", "ERR_INVALID_USER_CONFIG"},
};

class ErrorRecords : public testing::TestWithParam<Expected> {};

TEST_P(ErrorRecords, HoldTheirFiveFields)
{
    const auto& [code, message, category, symbolicName, handle] = GetParam().record();

    EXPECT_EQ(code, GetParam().code);
    EXPECT_STREQ(message, GetParam().message);
    EXPECT_EQ(category, &Basis::genericErrorCategory());
    EXPECT_STREQ(symbolicName, GetParam().symbolicName);
    EXPECT_GT(handle, 0U);
}

TEST_P(ErrorRecords, AreTheSameAtEachCallAndRegisteredOnce)
{
    const ErrorRecord& first = GetParam().record();

    EXPECT_EQ(&GetParam().record(), &first);
    EXPECT_EQ(Basis::registrationsOf(GetParam().symbolicName), 1U);
}

INSTANTIATE_TEST_SUITE_P(All, ErrorRecords, testing::ValuesIn(records),
                         [](const auto& test) { return std::string(test.param.symbolicName); });

TEST(ErrorRecordHandles, DifferFromOneAnother)
{
    std::set<Basis::ErrorHandle> handles;
    for (const Expected& expected : records)
        handles.insert(expected.record().handle);

    EXPECT_EQ(handles.size(), std::size(records));
}

// Returns how many things went wrong when many threads make the first calls at the same moment.
int faultsOfRacingFirstCalls()
{
    constexpr int threadCount = 16;
    std::latch start(threadCount);
    std::vector<const ErrorRecord*> seen[std::size(records)];
    for (auto& addresses : seen)
        addresses.resize(threadCount);
    std::vector<std::thread> threads;
    for (std::size_t thread = 0; thread < threadCount; ++thread) {
        threads.emplace_back([&, thread] {
            start.arrive_and_wait();
            for (std::size_t i = 0; i < std::size(records); ++i) {
                const ErrorRecord& record = records[i].record();
                if (record.code == records[i].code)
                    seen[i][thread] = &record;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    int faults = 0;
    for (std::size_t i = 0; i < std::size(records); ++i) {
        for (const ErrorRecord* record : seen[i])
            faults += record != &records[i].record();
        faults += Basis::registrationsOf(records[i].symbolicName) != 1;
    }
    return faults;
}

// The thread-safe style runs the statement in a fresh program, where no record has been made yet.
TEST(ErrorRecordsDeathTest, FirstCallsMayRace)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");

    EXPECT_EXIT(::_exit(faultsOfRacingFirstCalls()), testing::ExitedWithCode(0), "");
}

std::string textOfRaise(const ErrorRecord& record,
                        std::initializer_list<std::string_view> arguments)
{
    try {
        Vetra::raise(record, arguments);
    } catch (const VetraException& exception) {
        std::ostringstream stream;
        stream << exception;
        return stream.str();
    }
}

TEST(Raise, TextIsCodeNameMessageArgumentsAndPlace)
{
    EXPECT_THAT(textOfRaise(Vetra__ERR_INVALID_JSON(), {"Failed to parse user config json"}),
                MatchesRegex("5 ERR_INVALID_JSON: Invalid json: Failed to parse user config json "
                             "\\(VetraDefinesTest\\.cpp:[0-9]+\\)"));
}

TEST(Raise, NeedsNoArgument)
{
    EXPECT_THAT(textOfRaise(Vetra__ERR_INVALID_INPUT(), {}),
                MatchesRegex("3 ERR_INVALID_INPUT: Invalid input "
                             "\\(VetraDefinesTest\\.cpp:[0-9]+\\)"));
}

TEST(Raise, ArgumentFillsThePlaceholderOfTheGenericError)
{
    EXPECT_THAT(textOfRaise(Vetra__ERR_GENERIC(), {"17"}),
                testing::StartsWith("1 ERR_GENERIC: Generic vetra error 17  (VetraDefinesTest"));
}

TEST(Raise, FurtherArgumentsFollowTheMessage)
{
    EXPECT_THAT(textOfRaise(Vetra__ERR_GENERIC(), {"17", "more", "and more"}),
                testing::StartsWith("1 ERR_GENERIC: Generic vetra error 17 : more: and more (Vet"));
}

TEST(Raise, TextStaysOneLineWhenArgumentsHoldLineFeeds)
{
    EXPECT_THAT(textOfRaise(Vetra__ERR_INVALID_USER_CONFIG(), {"a\nb\n"}),
                testing::StartsWith(
                    "6 ERR_INVALID_USER_CONFIG: Invalid user config: a\\nb\\n (VetraDefinesTest"));
}

TEST(Raise, CarriesTheRecordAndTheCallersPlace)
{
    const int line = __LINE__ + 2;
    try {
        Vetra::raise(Vetra__ERR_INVALID_INPUT(), {"x"});
    } catch (const VetraException& exception) {
        EXPECT_EQ(exception.record(), &Vetra__ERR_INVALID_INPUT());
        EXPECT_EQ(exception.line(), line);
        EXPECT_STREQ(exception.file(), __FILE__);
    }
}

TEST(Raise, LeavesTheLastSystemErrorToTheCatcher)
{
    errno = ENOTEMPTY;
    try {
        Vetra::raise(Vetra__ERR_GENERIC(), {"a text that no string keeps within itself", "more"});
    } catch (const VetraException&) {
        EXPECT_EQ(errno, ENOTEMPTY);
    }
}

}  // namespace
