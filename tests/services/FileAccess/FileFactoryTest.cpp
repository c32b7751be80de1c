#include "FileAccess/FileFactory.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "Diagnose/SamplingSignal.h"
#include "tests/services/FileAccess/LayerSupport.h"
#include "tests/services/support/CapturedOutput.h"
#include "tests/services/support/ChildProcess.h"
#include "tests/services/support/Files.h"

namespace {

using fileLayerTests::AlignedBuffer;
using fileLayerTests::Layer;
using fileLayerTests::makeFactory;
using fileLayerTests::page;
using fileLayerTests::TemporaryDirectory;
using testing::ElementsAre;
using testing::HasSubstr;
using unitTests::CapturedOutput;

namespace fs = std::filesystem;

// The names of the process's threads, but for the main thread's and those of a sanitizer.
std::vector<std::string> layerThreads()
{
    std::vector<std::string> names;
    for (const fs::directory_entry& task : fs::directory_iterator("/proc/self/task")) {
        std::ifstream file(task.path() / "comm");
        std::string name;
        std::getline(file, name);
        if (name.rfind("submit-", 0) == 0 || name.rfind("completion-", 0) == 0)
            names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

// The signals that a thread of the layer blocks, as the kernel's bits; 0 if there is none.
std::uint64_t signalsBlockedBy(const std::string& threadName)
{
    for (const fs::directory_entry& task : fs::directory_iterator("/proc/self/task")) {
        if (unitTests::contentOf(task.path() / "comm") != threadName + "\n")
            continue;
        for (const std::string& line : unitTests::linesOf(task.path() / "status")) {
            if (line.starts_with("SigBlk:"))
                return std::stoull(line.substr(7), nullptr, 16);
        }
    }
    return 0;
}

constexpr int firstSignalOfTheLibrary = 32;

bool holds(std::uint64_t signals, int number)
{
    return (signals >> (number - 1) & 1) != 0;
}

class FileFactory : public testing::Test {
protected:
    TemporaryDirectory directory;
};

TEST_F(FileFactory, KeepsItsRootAsItWasGiven)
{
    EXPECT_EQ(std::string(makeFactory(directory.path())->getRoot()), directory.path());
    EXPECT_EQ(std::string(makeFactory(directory.path() + "/")->getRoot()), directory.path() + "/");
}

TEST_F(FileFactory, PutsOneSlashBetweenRootAndName)
{
    for (const std::string& root : {directory.path(), directory.path() + "/"}) {
        const auto factory = makeFactory(root);
        const auto file = factory->openFile("datavol.dat", 2, 0, 33);

        EXPECT_EQ(std::string(file->getFullName()), directory.path() + "/datavol.dat");
        factory->removeFile("datavol.dat");
    }
}

TEST_F(FileFactory, WorksBelowARelativeRoot)
{
    const unitTests::WorkingDirectory current;
    fs::create_directory("below");
    {
        Layer layer("below");
        layer.fillPages(2);
        layer.completions.expect(1);
        layer.read(0, page);
        layer.completions.wait();

        EXPECT_EQ(std::string(layer.file->getFullName()), "below/datavol.dat");
        EXPECT_TRUE(fs::exists(current.path() + "/below/datavol.dat"));
    }
    EXPECT_THAT(unitTests::namesIn("below"), ElementsAre());
}

TEST_F(FileFactory, GivesControlBlocksOfWholeCacheLines)
{
    const auto factory = makeFactory(directory.path());
    const AlignedBuffer memory(2 * factory->getIOControlBlockSize());

    EXPECT_EQ(factory->getIOControlBlockSize() % 64, 0U);
    EXPECT_LE(factory->getIOControlBlockSize(), 256U);
    void* const block = factory->constructIOControlBlock(memory.data());
    EXPECT_EQ(block, memory.data());
}

TEST_F(FileFactory, CreatesAMissingFileWithItsPermissions)
{
    const mode_t before = ::umask(0);
    const auto factory = makeFactory(directory.path());

    EXPECT_FALSE(factory->fileExists("datavol.dat"));
    const auto file = factory->openFile("datavol.dat", 2, 0, 33);
    ::umask(before);

    EXPECT_TRUE(factory->fileExists("datavol.dat"));
    EXPECT_EQ(unitTests::modeOf(directory / "datavol.dat"), 0664U);
}

TEST_F(FileFactory, LeavesWhatAnExistingFileHolds)
{
    unitTests::writeFile(directory / "datavol.dat", "content");
    const auto factory = makeFactory(directory.path());

    const auto file = factory->openFile("datavol.dat", 2, 0, 33);

    EXPECT_EQ(unitTests::contentOf(directory / "datavol.dat"), "content");
}

TEST_F(FileFactory, RemovesAFile)
{
    const auto factory = makeFactory(directory.path());
    unitTests::writeFile(directory / "datavol.dat", "content");

    factory->removeFile("datavol.dat");

    EXPECT_FALSE(factory->fileExists("datavol.dat"));
}

TEST_F(FileFactory, SaysThatItCannotRemoveAFile)
{
    const auto factory = makeFactory(directory.path());
    const CapturedOutput errors(std::cerr);

    factory->removeFile("datavol.dat");

    EXPECT_EQ(errors.text(), "vetra: cannot remove " + directory.path() +
                                 "/datavol.dat: No such file or directory\n");
}

TEST_F(FileFactory, RemovesNothingBehindALinkOfAnotherUser)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root can make links for another user";
    constexpr uid_t somebody = 65534;
    const std::string shared = directory / "shared";
    fs::create_directory(directory / "target");
    fs::create_directory(shared);
    ::chmod(shared.c_str(), 01777);
    unitTests::writeFile(directory / "target/datavol.dat", "content");
    ::symlink("../target", (shared + "/link").c_str());
    ASSERT_EQ(::lchown((shared + "/link").c_str(), somebody, somebody), 0);
    const CapturedOutput errors(std::cerr);
    {
        const auto factory = makeFactory(shared + "/link");
        ASSERT_TRUE(factory);
        factory->removeAtEnd("datavol.dat", true);
        factory->removeFile("datavol.dat");
        EXPECT_EQ(factory->openFile("datavol.dat", 2, 0, 33), nullptr);
        EXPECT_THAT(errors.text(),
                    HasSubstr("cannot remove " + shared + "/link/datavol.dat: Permission denied"));
    }

    EXPECT_THAT(unitTests::namesIn(directory / "target"), ElementsAre("datavol.dat"));
}

TEST_F(FileFactory, DoesNotWaitForAPipeInThePlaceOfTheFile)
{
    ASSERT_EQ(::mkfifo((directory / "datavol.dat").c_str(), 0666), 0);
    const auto factory = makeFactory(directory.path());
    const CapturedOutput errors(std::cerr);

    EXPECT_EQ(factory->openFile("datavol.dat", 2, 0, 33), nullptr);

    EXPECT_EQ(errors.text(),
              "vetra: cannot open " + directory.path() + "/datavol.dat: Illegal seek\n");
}

TEST_F(FileFactory, StartsOneNamedThreadPerQueueAndEndsThemAll)
{
    ASSERT_THAT(layerThreads(), ElementsAre());
    auto factory =
        makeFactory(directory.path(), {{"num_submit_queues", "2"}, {"num_completion_queues", "3"}});

    EXPECT_THAT(layerThreads(), ElementsAre("completion-0", "completion-1", "completion-2",
                                            "submit-0", "submit-1"));
    factory.reset();

    EXPECT_THAT(layerThreads(), ElementsAre());
}

TEST_F(FileFactory, StartsSixteenThreadsOfEachKindAtMost)
{
    const auto factory = makeFactory(
        directory.path(), {{"num_submit_queues", "17"}, {"num_completion_queues", "100"}});

    EXPECT_EQ(layerThreads().size(), 32U);
}

TEST_F(FileFactory, BlocksSignalsOnItsThreadsAndNoneOnTheCallers)
{
    sigset_t before;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &before);
    const auto factory = makeFactory(directory.path());
    sigset_t after;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &after);

    EXPECT_EQ(::sigismember(&before, SIGTERM), 0);
    EXPECT_EQ(::sigismember(&after, SIGTERM), 0);
    EXPECT_EQ(::sigismember(&after, SIGINT), 0);
    for (const char* const name : {"submit-0", "completion-0"}) {
        std::uint64_t blocked = 0;
        do {
            blocked = signalsBlockedBy(name);
            // A thread that is being started blocks those of the C library as well.
        } while (holds(blocked, firstSignalOfTheLibrary));
        EXPECT_TRUE(holds(blocked, SIGTERM)) << name;
        EXPECT_TRUE(holds(blocked, SIGINT)) << name;
        EXPECT_TRUE(holds(blocked, SIGPROF)) << name;
        EXPECT_FALSE(holds(blocked, Diagnose::samplingSignal())) << name;
    }
}

TEST_F(FileFactory, LeavesNoDescriptorOpen)
{
    const auto before = unitTests::openDescriptors();
    {
        Layer layer(directory.path());
        layer.fillPages(1);
        const CapturedOutput errors(std::cerr);
        layer.file->read(1, layer.pageAt(0), 1);
    }

    EXPECT_EQ(unitTests::openDescriptors(), before);
}

TEST_F(FileFactory, LeavesNothingInTheDirectory)
{
    {
        Layer layer(directory.path());
        layer.fillPages(1);
        EXPECT_THAT(unitTests::namesIn(directory.path()), ElementsAre("datavol.dat"));
    }
    EXPECT_THAT(unitTests::namesIn(directory.path()), ElementsAre());
}

TEST_F(FileFactory, KeepsAFileThatIsNotToBeRemovedAtItsEnd)
{
    {
        Layer layer(directory.path());
        layer.factory->removeAtEnd("datavol.dat", false);
        layer.fillPages(1);
    }
    EXPECT_THAT(unitTests::namesIn(directory.path()), ElementsAre("datavol.dat"));
}

TEST_F(FileFactory, TakesRemovalBackAndForth)
{
    {
        const auto factory = makeFactory(directory.path());
        for (const char* name : {"kept", "gone"}) {
            unitTests::writeFile(directory / name, "content");
            factory->removeAtEnd(name, true);
        }
        factory->removeAtEnd("kept", false);
        factory->removeAtEnd("gone", false);
        factory->removeAtEnd("gone", true);
        factory->removeAtEnd("never", true);
    }
    EXPECT_THAT(unitTests::namesIn(directory.path()), ElementsAre("kept"));
}

TEST_F(FileFactory, IsRefusedForADirectoryThatIsMissing)
{
    const CapturedOutput errors(std::cerr);

    EXPECT_EQ(makeFactory(directory / "missing"), nullptr);

    EXPECT_EQ(errors.text(), "vetra: cannot open the directory " + (directory / "missing") +
                                 ": No such file or directory\n");
    EXPECT_THAT(layerThreads(), ElementsAre());
}

TEST_F(FileFactory, IsRefusedForAFile)
{
    unitTests::writeFile(directory / "file", "");
    const CapturedOutput errors(std::cerr);

    EXPECT_EQ(makeFactory(directory / "file"), nullptr);

    EXPECT_THAT(errors.text(), HasSubstr("/file: Not a directory\n"));
}

TEST_F(FileFactory, IsRefusedForADirectoryThatAnotherOneHolds)
{
    const auto first = makeFactory(directory.path());
    const CapturedOutput errors(std::cerr);

    EXPECT_EQ(makeFactory(directory.path()), nullptr);
    EXPECT_EQ(errors.text(),
              "vetra: the directory " + directory.path() + " is in use by another measurement\n");
}

TEST_F(FileFactory, TakesADirectoryThatAnotherOneHasLeft)
{
    makeFactory(directory.path()).reset();

    EXPECT_NE(makeFactory(directory.path()), nullptr);
}

TEST_F(FileFactory, WorksBesideOneInAnotherDirectory)
{
    const TemporaryDirectory other;
    Layer first(directory.path());
    Layer second(other.path());
    first.fillPages(1);
    second.fillPages(1);

    for (Layer* layer : {&first, &second}) {
        layer->completions.expect(1);
        layer->read(0, 0);
    }
    first.completions.wait();
    second.completions.wait();

    EXPECT_EQ(first.completions.reads() + second.completions.reads(), 2U);
}

// No thread may stay behind when the process is short of threads or memory half-way.
TEST_F(FileFactory, IsRefusedWithOneLineIfNotAllThreadsCanBeStarted)
{
    if (::geteuid() == 0 && std::getenv("VETRA_NO_SETUID"))
        GTEST_SKIP() << "needs a user with a limit on threads";
    fs::permissions(directory.path(), fs::perms::all);

    const unitTests::ChildEnd end = unitTests::inChild([&] {
        constexpr uid_t unusedUser = 64'123;
        if (::geteuid() == 0 && ::setuid(unusedUser) != 0)
            std::cout << "no other user";
        const rlimit threads{6, 6};
        ::setrlimit(RLIMIT_NPROC, &threads);
        const auto factory = makeFactory(
            directory.path(), {{"num_submit_queues", "4"}, {"num_completion_queues", "4"}});
        std::cout << (factory ? "made" : "refused") << ' ' << layerThreads().size();
        sigset_t mask;
        ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        std::cout << ' ' << ::sigismember(&mask, SIGTERM);
    });

    EXPECT_EQ(end.output, "refused 0 0");
    EXPECT_EQ(end.errors, "vetra: cannot set up asynchronous I/O for " + directory.path() +
                              ": Resource temporarily unavailable\n");
    EXPECT_EQ(end.exitStatus, 0);
}

TEST_F(FileFactory, SaysWhyAFileCannotBeOpened)
{
    fs::create_directory(directory / "datavol.dat");
    const auto factory = makeFactory(directory.path());
    const CapturedOutput errors(std::cerr);

    EXPECT_EQ(factory->openFile("datavol.dat", 2, 0, 33), nullptr);

    EXPECT_EQ(errors.text(),
              "vetra: cannot open " + directory.path() + "/datavol.dat: Is a directory\n");
}

TEST_F(FileFactory, SaysThatTheDirectoryHasGone)
{
    const auto factory = makeFactory(directory.path());
    fs::remove(directory.path());
    const CapturedOutput errors(std::cerr);

    EXPECT_EQ(factory->openFile("datavol.dat", 2, 0, 33), nullptr);
    EXPECT_FALSE(factory->ensureSpace("datavol.dat", 1));

    EXPECT_EQ(errors.text(), "vetra: cannot open " + directory.path() +
                                 "/datavol.dat: No such file or directory\n"
                                 "vetra: cannot inspect " +
                                 directory.path() + ": No such file or directory\n");
}

TEST_F(FileFactory, FindsSpaceForAFileThatFits)
{
    EXPECT_TRUE(makeFactory(directory.path())->ensureSpace("datavol.dat", page));
}

TEST_F(FileFactory, SaysHowMuchIsMissingForAFileThatDoesNotFit)
{
    const auto factory = makeFactory(directory.path());
    const CapturedOutput errors(std::cerr);

    EXPECT_FALSE(factory->ensureSpace("datavol.dat", std::uint64_t{1} << 60));

    EXPECT_THAT(errors.text(),
                testing::MatchesRegex("vetra: " + directory.path() +
                                      "/datavol.dat needs 1152921504606846976 bytes, but only "
                                      "[0-9]+ are free\n"));
}

// A callback that is slow to return.
class SlowCallback : public fileLayerTests::Completions {
public:
    void dataRead(const Status& finished) override
    {
        Completions::dataRead(finished);
        for (int i = 0; i < 100; ++i)
            std::this_thread::yield();
        isOver = true;
    }

    std::atomic<bool> isOver{false};
};

TEST_F(FileFactory, GivesItsStatisticsOnlyOutsideOfCallbacks)
{
    Layer layer(directory.path());
    layer.fillPages(1);
    SlowCallback callback;

    for (int round = 0; round < 50; ++round) {
        callback.isOver = false;
        callback.expect(1);
        layer.file->readAsync(0, layer.pageAt(0), page, 0, callback, layer.blocks[0], nullptr);
        callback.wait();

        layer.factory->getStatistics();

        ASSERT_TRUE(callback.isOver);
    }
}

TEST_F(FileFactory, ReportsItsParametersByItsStatistics)
{
    const auto factory = makeFactory(directory.path(), {{"max_parallel_io_requests", "7"}});
    std::ostringstream text;

    factory->getStatistics()->getConfigStatisticsString(text, true);

    EXPECT_THAT(text.str(), HasSubstr("max_parallel_io_requests=7,"));
}

}  // namespace
