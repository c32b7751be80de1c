#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "FileAccess/FileFunctions.h"
#include "tests/services/support/Files.h"
#include "tests/services/support/Guards.h"

namespace {

using FileAccess::directoryCreate;
using FileAccess::directoryExists;
using FileAccess::getCurrentDirectory;

using namespace std::string_view_literals;

namespace fs = std::filesystem;

class Directories : public testing::Test {
protected:
    unitTests::WorkingDirectory directory;
    std::shared_ptr<Basis::Allocator> domain =
        Basis::Allocator::createChild(Basis::Allocator::global(), "paths", 0);
};

TEST_F(Directories, CurrentDirectoryIsGivenWithoutATrailingSlash)
{
    Basis::string current("something else", domain.get());

    EXPECT_TRUE(getCurrentDirectory(current));

    EXPECT_EQ(std::string_view(current), directory.path());
}

TEST_F(Directories, CurrentDirectoryMayHaveAPathOfAnyLength)
{
    const unitTests::NoDefaultResource guard;
    std::string expected = directory.path();
    for (int i = 0; i < 10; ++i) {
        const std::string name(200, 'd');
        fs::create_directory(name);
        fs::current_path(name);
        expected.append("/").append(name);
    }

    Basis::string current(domain.get());

    EXPECT_TRUE(getCurrentDirectory(current));
    EXPECT_EQ(std::string_view(current), expected);
}

TEST_F(Directories, RemovedCurrentDirectoryIsADot)
{
    fs::create_directory("gone");
    fs::current_path("gone");
    fs::remove(directory.path() + "/gone");
    Basis::string current("something else", domain.get());

    EXPECT_FALSE(getCurrentDirectory(current));

    EXPECT_EQ(current, ".");
}

TEST_F(Directories, ExistsTellsADirectoryFromAFileAndFromNothing)
{
    fs::create_directory("here");
    unitTests::writeFile("file", "");

    EXPECT_TRUE(directoryExists("here"));
    EXPECT_TRUE(directoryExists("here/"));
    EXPECT_TRUE(directoryExists("."));
    EXPECT_TRUE(directoryExists("/"));
    EXPECT_FALSE(directoryExists("file"));
    EXPECT_FALSE(directoryExists("file/"));
    EXPECT_FALSE(directoryExists("nowhere"));
}

TEST_F(Directories, ExistsFollowsLinks)
{
    fs::create_directory("here");
    fs::create_symlink("here", "link");
    fs::create_symlink("nowhere", "dangling");

    EXPECT_TRUE(directoryExists("link"));
    EXPECT_FALSE(directoryExists("dangling"));
}

TEST_F(Directories, ExistsNotForAnEmptyPathOrOneWithANulByte)
{
    fs::create_directory("here");

    EXPECT_FALSE(directoryExists(""));
    EXPECT_FALSE(directoryExists("here\0"sv));
    EXPECT_FALSE(directoryExists("here\0/more"sv));
}

TEST_F(Directories, CreateMakesOneDirectory)
{
    EXPECT_TRUE(directoryCreate("new"));

    EXPECT_TRUE(fs::is_directory("new"));
}

TEST_F(Directories, CreateMakesMissingParents)
{
    EXPECT_TRUE(directoryCreate("a/b/c"));

    EXPECT_TRUE(fs::is_directory("a/b/c"));
}

TEST_F(Directories, CreateTakesAbsolutePathsAndSpareSlashes)
{
    EXPECT_TRUE(directoryCreate(directory.path() + "/x/y"));
    EXPECT_TRUE(directoryCreate("p//q/"));

    EXPECT_TRUE(fs::is_directory("x/y"));
    EXPECT_TRUE(fs::is_directory("p/q"));
}

TEST_F(Directories, CreateIsContentWithADirectoryThatIsThere)
{
    fs::create_directory("here");
    unitTests::writeFile("here/file", "kept");

    EXPECT_TRUE(directoryCreate("here"));
    EXPECT_TRUE(directoryCreate("/"));

    EXPECT_EQ(unitTests::contentOf("here/file"), "kept");
}

TEST_F(Directories, CreateFailsOverAFileAndLeavesIt)
{
    unitTests::writeFile("file", "kept");

    EXPECT_FALSE(directoryCreate("file"));
    EXPECT_FALSE(directoryCreate("file/below"));

    EXPECT_EQ(unitTests::contentOf("file"), "kept");
}

TEST_F(Directories, CreateFailsForAnEmptyPathAndOneWithANulByte)
{
    EXPECT_FALSE(directoryCreate(""));
    EXPECT_FALSE(directoryCreate("new\0/more"sv));

    EXPECT_FALSE(fs::exists("new"));
}

TEST_F(Directories, CreateFailsWhereNobodyMayMakeOne)
{
    EXPECT_FALSE(directoryCreate("/proc/self/new"));
}

TEST_F(Directories, CreateGivesTheModeThatTheUmaskLeaves)
{
    const mode_t before = ::umask(027);

    const bool isThere = directoryCreate("a/b");

    ::umask(before);
    EXPECT_TRUE(isThere);
    EXPECT_EQ(unitTests::modeOf("a"), 0750U);
    EXPECT_EQ(unitTests::modeOf("a/b"), 0750U);
}

TEST_F(Directories, AreNotLedElsewhereByLinksOfOthers)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root can make links for another user";
    constexpr uid_t somebody = 65534;
    ::mkdir("target", 0755);
    ::mkdir("shared", 0777);
    ::chmod("shared", 01777);
    ::symlink("../target", "shared/link");
    ASSERT_EQ(::lchown("shared/link", somebody, somebody), 0);

    EXPECT_FALSE(directoryCreate("shared/link/new/deep"));
    EXPECT_TRUE(directoryCreate("shared/own/deep"));

    EXPECT_THAT(unitTests::namesIn("target"), testing::IsEmpty());
}

}  // namespace
