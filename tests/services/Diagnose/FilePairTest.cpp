#include "Diagnose/FilePair.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <iostream>
#include <string>
#include <utility>

#include "Diagnose/Shell.h"
#include "tests/services/support/ChildProcess.h"
#include "tests/services/support/Files.h"

namespace {

int signalAtRename = 0;  // taken at the next one

}  // namespace

// The linker sends the program's calls here, and keeps the library's own under "__real_".
extern "C" {

int __real_renameat2(int, const char*, int, const char*, unsigned);

int __wrap_renameat2(int from, const char* name, int to, const char* newName, unsigned flags)
{
    if (const int number = std::exchange(signalAtRename, 0); number != 0)
        ::raise(number);
    return __real_renameat2(from, name, to, newName, flags);
}
}

namespace {

using Diagnose::writeBoth;
using testing::ElementsAre;
using testing::HasSubstr;
using unitTests::contentOf;
using unitTests::namesIn;
using unitTests::writeFile;

class FilePair : public testing::Test {
protected:
    static std::string refusal(const Diagnose::WantedFile& first,
                               const Diagnose::WantedFile& second)
    {
        try {
            writeBoth(first, second);
        } catch (const Diagnose::CommandException& exception) {
            return exception.what();
        }
        return "(none)";
    }

    unitTests::WorkingDirectory directory;
};

TEST_F(FilePair, WritesBoth)
{
    writeBoth({"a", "one"}, {"b", "two"});

    EXPECT_EQ(contentOf("a"), "one");
    EXPECT_EQ(contentOf("b"), "two");
    EXPECT_THAT(namesIn("."), ElementsAre("a", "b"));
}

TEST_F(FilePair, ReplacesOlderOnes)
{
    writeFile("a", "an older and longer one");
    writeBoth({"a", "one"}, {"b", ""});
    writeBoth({"a", "1"}, {"b", "2"});

    EXPECT_EQ(contentOf("a"), "1");
    EXPECT_EQ(contentOf("b"), "2");
    EXPECT_THAT(namesIn("."), ElementsAre("a", "b"));
}

TEST_F(FilePair, HasThePermissionsOfNewFiles)
{
    const mode_t before = ::umask(027);
    writeBoth({"a", ""}, {"b", ""});
    ::umask(before);

    EXPECT_EQ(unitTests::modeOf("a"), 0640U);
}

TEST_F(FilePair, ReplacesALinkAndNotWhatItPointsTo)
{
    writeFile("precious", "kept");
    std::filesystem::create_symlink("precious", "a");
    std::filesystem::create_symlink("nowhere", "b");

    writeBoth({"a", "one"}, {"b", "two"});

    EXPECT_EQ(contentOf("precious"), "kept");
    EXPECT_FALSE(std::filesystem::is_symlink("a"));
    EXPECT_EQ(contentOf("a"), "one");
    EXPECT_EQ(contentOf("b"), "two");
    EXPECT_THAT(namesIn("."), ElementsAre("a", "b", "precious"));
}

TEST_F(FilePair, DoesNotUseANameThatSomebodyHasTaken)
{
    const std::string taken = ".vetra-" + std::to_string(::getpid()) + "-0";
    writeFile("precious", "kept");
    std::filesystem::create_symlink("precious", taken);

    writeBoth({"a", "one"}, {"b", "two"});

    EXPECT_EQ(contentOf("precious"), "kept");
    EXPECT_EQ(contentOf("a"), "one");
    EXPECT_TRUE(std::filesystem::is_symlink(taken));
}

TEST_F(FilePair, MayHaveNamesAsLongAsTheFileSystemAllows)
{
    const std::string first(255, 'a');
    const std::string second(255, 'b');
    writeFile(first, "old");

    writeBoth({first, "one"}, {second, "two"});

    EXPECT_EQ(contentOf(first), "one");
    EXPECT_EQ(contentOf(second), "two");
    EXPECT_THAT(namesIn("."), ElementsAre(first, second));
}

TEST_F(FilePair, LeavesNothingIfTheDirectoryOfOneIsMissing)
{
    EXPECT_THAT(refusal({"missing/a", "one"}, {"b", "two"}),
                HasSubstr("cannot write 'missing/a': No such file or directory (2, ENOENT)"));
    EXPECT_THAT(refusal({"a", "one"}, {"missing/b", "two"}),
                HasSubstr("cannot write 'missing/b': No such file or directory (2, ENOENT)"));

    EXPECT_THAT(namesIn("."), testing::IsEmpty());
}

TEST_F(FilePair, LeavesOlderOnesAsTheyWere)
{
    writeFile("a", "old a");
    std::filesystem::create_directory("b");

    EXPECT_THAT(refusal({"a", "one"}, {"b", "two"}),
                HasSubstr("cannot write 'b': Is a directory (21, EISDIR)"));
    EXPECT_THAT(refusal({"b", "one"}, {"a", "two"}), HasSubstr("cannot write 'b'"));

    EXPECT_EQ(contentOf("a"), "old a");
    EXPECT_THAT(namesIn("."), ElementsAre("a", "b"));
}

TEST_F(FilePair, TakesTheFirstBackIfTheSecondCannotStandWhereItShall)
{
    std::filesystem::create_directory("b");

    EXPECT_THAT(refusal({"a", "one"}, {"b", "two"}), HasSubstr("cannot write 'b'"));

    EXPECT_THAT(namesIn("."), ElementsAre("b"));
}

TEST_F(FilePair, LeavesNothingIfADiskIsFull)
{
    writeFile("b", "old b");
    const unitTests::ChildEnd end = unitTests::inChild([] {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit atMost{100, 100};
        ::setrlimit(RLIMIT_FSIZE, &atMost);
        std::cout << refusal({"a", "one"}, {"b", std::string(200, 'x')});
    });

    EXPECT_THAT(end.output, HasSubstr("cannot write 'b': File too large (27, EFBIG)"));
    EXPECT_THAT(namesIn("."), ElementsAre("b"));
    EXPECT_EQ(contentOf("b"), "old b");
}

// The signal comes in the middle of the exchange, and its effect after it.
TEST_F(FilePair, IsCompleteBeforeASignalEndsTheProcess)
{
    for (const char* const old : {"", "old"}) {
        if (*old != '\0') {
            writeFile("a", old);
            writeFile("b", old);
        }
        const unitTests::ChildEnd end = unitTests::inChild([] {
            signalAtRename = SIGTERM;
            writeBoth({"a", "one"}, {"b", "two"});
            std::cout << "went on";
        });
        EXPECT_EQ(end.signal, SIGTERM);
        EXPECT_EQ(end.output, "");
        EXPECT_EQ(contentOf("a") + contentOf("b"), "onetwo");
        EXPECT_THAT(namesIn("."), ElementsAre("a", "b"));
    }
}

}  // namespace
