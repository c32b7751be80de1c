#include "System/StandardStreams.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

namespace {

[[noreturn]] void endWith(bool isAsExpected)
{
    ::_exit(isAsExpected ? 0 : 1);
}

}  // namespace

TEST(OpenStandardStreamsDeathTest, FillsTheNumbersThatTheCallerHasClosed)
{
    const auto openBehindClosedStreams = [] {
        ::close(STDIN_FILENO);
        ::close(STDOUT_FILENO);
        System::openStandardStreams();
        const int next = ::open("/dev/null", O_RDONLY);
        endWith(next > STDERR_FILENO && ::write(STDOUT_FILENO, "x", 1) == 1);
    };
    EXPECT_EXIT(openBehindClosedStreams(), testing::ExitedWithCode(0), "");
}

TEST(OpenStandardStreamsDeathTest, LeavesStreamsThatAreOpen)
{
    const auto lookAtTheErrorStream = [] {
        ::close(STDOUT_FILENO);
        System::openStandardStreams();
        ::dprintf(STDERR_FILENO, "still the terminal\n");
        endWith(true);
    };
    EXPECT_EXIT(lookAtTheErrorStream(), testing::ExitedWithCode(0), "still the terminal");
}

TEST(SurviveLostReaderDeathTest, LetsAWriteFailHereAndEndsProgramsThatAreStarted)
{
    const auto writeToNobody = [] {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0)
            endWith(false);
        ::close(ends[0]);
        System::surviveLostReader();
        const bool hasFailed = ::write(ends[1], "x", 1) < 0 && errno == EPIPE;
        const int status = ::system("kill -PIPE $$");
        endWith(hasFailed && WIFSIGNALED(status) && WTERMSIG(status) == SIGPIPE);
    };
    EXPECT_EXIT(writeToNobody(), testing::ExitedWithCode(0), "");
}

TEST(SurviveFileSizeLimitDeathTest, LetsAWriteFail)
{
    const auto writeBeyondTheLimit = [] {
        char name[] = "/tmp/vetra-limit-XXXXXX";
        const int file = ::mkstemp(name);
        ::unlink(name);
        const rlimit nothing{0, 0};
        ::setrlimit(RLIMIT_FSIZE, &nothing);
        System::surviveFileSizeLimit();
        const bool hasFailed = ::write(file, "x", 1) < 0 && errno == EFBIG;
        endWith(hasFailed);
    };
    EXPECT_EXIT(writeBeyondTheLimit(), testing::ExitedWithCode(0), "");
}
