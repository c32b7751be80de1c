#include "FileAccess/DirectoryLock.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>

#include "tests/services/FileAccess/LayerSupport.h"
#include "tests/services/support/ChildProcess.h"
#include "tests/services/support/Files.h"

namespace {

using FileAccess::DirectoryLock;
using fileLayerTests::TemporaryDirectory;

namespace fs = std::filesystem;

std::string nameOf(DirectoryLock::Result result)
{
    constexpr const char* names[] = {"taken", "held", "failed"};
    return names[static_cast<int>(result)];
}

class DirectoryLockOn : public testing::Test {
protected:
    std::string takeInChild() const
    {
        return unitTests::inChild([this] {
                   DirectoryLock lock;
                   std::cout << nameOf(lock.take(directory.path()));
               })
            .output;
    }

    TemporaryDirectory directory;
};

TEST_F(DirectoryLockOn, IsTakenByTheFirst)
{
    DirectoryLock lock;

    EXPECT_EQ(nameOf(lock.take(directory.path())), "taken");
    EXPECT_TRUE(unitTests::namesIn(directory.path()).empty());
}

TEST_F(DirectoryLockOn, IsRefusedToTheSecondOfTheProcess)
{
    DirectoryLock first;
    first.take(directory.path());
    DirectoryLock second;

    EXPECT_EQ(nameOf(second.take(directory.path() + "/")), "held");
}

TEST_F(DirectoryLockOn, IsRefusedToAnotherProcess)
{
    DirectoryLock first;
    first.take(directory.path());

    EXPECT_EQ(takeInChild(), "held");
}

TEST_F(DirectoryLockOn, IsFreeWhenItsHolderHasGone)
{
    std::optional<DirectoryLock> first;
    first.emplace();
    first->take(directory.path());
    first.reset();

    EXPECT_EQ(takeInChild(), "taken");
    // The child has ended.
    DirectoryLock next;
    EXPECT_EQ(nameOf(next.take(directory.path())), "taken");
}

TEST_F(DirectoryLockOn, LeavesOtherDirectoriesFree)
{
    const TemporaryDirectory other;
    DirectoryLock first;
    first.take(directory.path());
    DirectoryLock second;

    EXPECT_EQ(nameOf(second.take(other.path())), "taken");
}

// One may work in a directory that one may not list, but not open it to lock it.
TEST_F(DirectoryLockOn, CountsAsTakenWithoutTheRightToListTheDirectory)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root can become the user who has no right";
    constexpr uid_t unusedUser = 64'123;
    fs::permissions(directory.path(), fs::perms{0333});

    const unitTests::ChildEnd end = unitTests::inChild([this] {
        if (::setuid(unusedUser) != 0)
            std::cout << "still root, ";
        DirectoryLock lock;
        std::cout << nameOf(lock.take(directory.path()));
    });

    EXPECT_EQ(end.output, "taken");
}

TEST_F(DirectoryLockOn, FailsWithTheReasonForAFile)
{
    unitTests::writeFile(directory / "file", "");
    DirectoryLock lock;

    EXPECT_EQ(nameOf(lock.take(directory / "file")), "failed");
    EXPECT_EQ(errno, ENOTDIR);
}

TEST_F(DirectoryLockOn, FailsWithTheReasonForADirectoryThatIsMissing)
{
    DirectoryLock lock;

    EXPECT_EQ(nameOf(lock.take(directory / "missing")), "failed");
    EXPECT_EQ(errno, ENOENT);
}

}  // namespace
