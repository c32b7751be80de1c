#include "System/ResourceLimits.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <fstream>
#include <iostream>
#include <string>

#include "tests/services/support/ChildProcess.h"

namespace {

using unitTests::inChild;

constexpr uid_t nobody = 65534;

void setOpenFileLimit(rlim_t soft, rlim_t hard)
{
    const rlimit limit{soft, hard};
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0)
        std::cout << "cannot set the limit ";
}

std::string limitInForce()
{
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    return std::to_string(limit.rlim_cur);
}

TEST(RaiseOpenFileLimit, GoesUpToTheHardLimitWithoutPrivileges)
{
    const auto end = inChild([] {
        setOpenFileLimit(64, 128);
        if (::geteuid() == 0 && ::setuid(nobody) != 0)
            std::cout << "cannot drop privileges ";
        std::cout << System::raiseOpenFileLimit() << ' ' << limitInForce();
    });
    EXPECT_EQ(end.output, "128 128");
}

TEST(RaiseOpenFileLimit, LeavesALimitThatIsAtItsHighestAlready)
{
    const auto end = inChild([] {
        setOpenFileLimit(128, 128);
        if (::geteuid() == 0 && ::setuid(nobody) != 0)
            std::cout << "cannot drop privileges ";
        std::cout << System::raiseOpenFileLimit() << ' ' << limitInForce();
    });
    EXPECT_EQ(end.output, "128 128");
}

TEST(RaiseOpenFileLimit, GoesUpToTheKernelsMaximumWithPrivileges)
{
    std::string maximum;
    std::ifstream("/proc/sys/fs/nr_open") >> maximum;
    const auto probe = inChild([&] {
        const rlim_t highest = std::stoul(maximum);
        const rlimit limit{highest, highest};
        std::cout << ::setrlimit(RLIMIT_NOFILE, &limit);
    });
    if (probe.output != "0")
        GTEST_SKIP() << "not allowed to raise a hard limit";

    const auto end = inChild([] {
        setOpenFileLimit(64, 128);
        std::cout << System::raiseOpenFileLimit() << ' ' << limitInForce();
    });
    EXPECT_EQ(end.output, maximum + " " + maximum);
}

}  // namespace
