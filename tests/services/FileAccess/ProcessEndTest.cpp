#include "FileAccess/ProcessEnd.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <sched.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <iostream>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "Basis/Crash.h"
#include "tests/services/FileAccess/LayerSupport.h"
#include "tests/services/support/CapturedOutput.h"
#include "tests/services/support/ChildProcess.h"
#include "tests/services/support/Files.h"

namespace {

using FileAccess::ProcessEnd;
using fileLayerTests::Layer;
using fileLayerTests::makeFactory;
using testing::ElementsAre;
using testing::IsEmpty;
using unitTests::ChildEnd;

namespace fs = std::filesystem;

// A signal that dumps core must not leave one behind.
ChildEnd inChild(const std::function<void()>& work)
{
    return unitTests::inChild([&work] {
        const rlimit none{0, 0};
        ::setrlimit(RLIMIT_CORE, &none);
        work();
    });
}

void (*handlerOf(int number))(int)
{
    struct sigaction action {};
    ::sigaction(number, nullptr, &action);
    return action.sa_handler;
}

volatile sig_atomic_t lastSignal = 0;

void noteSignal(int number)
{
    lastSignal = number;
}

class ProcessEndIn : public testing::Test {
protected:
    ProcessEndIn() { unitTests::writeFile(guarded, "content"); }

    std::vector<std::string> names() const { return unitTests::namesIn(directory.path()); }

    unitTests::WorkingDirectory directory;
    std::string guarded = directory.path() + "/guarded";
};

class EndingSignal : public ProcessEndIn, public testing::WithParamInterface<int> {};

TEST_P(EndingSignal, RemovesWhatIsGuardedAndEndsTheProcess)
{
    unitTests::writeFile(directory.path() + "/other", "content");

    const ChildEnd end = inChild([this] {
        ProcessEnd::enter();
        ProcessEnd::guard(guarded, true);
        ::raise(GetParam());
        std::cout << "went on";
    });

    EXPECT_EQ(end.signal, GetParam());
    EXPECT_EQ(end.output + end.errors, "");
    EXPECT_THAT(names(), ElementsAre("other"));
}

TEST_P(EndingSignal, StaysIgnored)
{
    const ChildEnd end = inChild([this] {
        ::signal(GetParam(), SIG_IGN);
        ProcessEnd::enter();
        ProcessEnd::guard(guarded, true);
        ::raise(GetParam());
        std::cout << (handlerOf(GetParam()) == SIG_IGN);
        ProcessEnd::leave();
        std::cout << (handlerOf(GetParam()) == SIG_IGN);
    });

    EXPECT_EQ(end.output, "11");
    EXPECT_THAT(names(), ElementsAre("guarded"));
}

// A run that survives a signal keeps its file.
TEST_P(EndingSignal, StaysWithTheOneWhoHandlesIt)
{
    const ChildEnd end = inChild([this] {
        ::signal(GetParam(), &noteSignal);
        ProcessEnd::enter();
        ProcessEnd::guard(guarded, true);
        ::raise(GetParam());
        std::cout << (lastSignal == GetParam()) << (handlerOf(GetParam()) == &noteSignal);
        ProcessEnd::leave();
        std::cout << (handlerOf(GetParam()) == &noteSignal);
    });

    EXPECT_EQ(end.output, "111");
    EXPECT_THAT(names(), ElementsAre("guarded"));
}

TEST_P(EndingSignal, HasItsOldEffectAgainAtTheEnd)
{
    const ChildEnd end = inChild([this] {
        ProcessEnd::enter();
        std::cout << (handlerOf(GetParam()) == SIG_DFL);
        ProcessEnd::guard(guarded, true);
        ProcessEnd::leave();
        std::cout << (handlerOf(GetParam()) == SIG_DFL) << std::flush;
        ::raise(GetParam());
    });

    EXPECT_EQ(end.output, "01");
    EXPECT_EQ(end.signal, GetParam());
    EXPECT_THAT(names(), ElementsAre("guarded"));
}

// What somebody has set meanwhile is not ours to put back.
TEST_P(EndingSignal, StaysWithTheOneWhoTookItMeanwhile)
{
    const ChildEnd end = inChild([this] {
        ProcessEnd::enter();
        ::signal(GetParam(), &noteSignal);
        ProcessEnd::leave();
        std::cout << (handlerOf(GetParam()) == &noteSignal);
    });

    EXPECT_EQ(end.output, "1");
}

INSTANTIATE_TEST_SUITE_P(Numbers, EndingSignal,
                         testing::Values(SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE, SIGXFSZ),
                         [](const auto& tested) {
                             return std::string(::sigabbrev_np(tested.param));
                         });

TEST_F(ProcessEndIn, NeedsNoFileToGuard)
{
    const ChildEnd end = inChild([] {
        ProcessEnd::enter();
        ::raise(SIGTERM);
    });

    EXPECT_EQ(end.signal, SIGTERM);
    EXPECT_THAT(names(), ElementsAre("guarded"));
}

TEST_F(ProcessEndIn, GuardsUntilTheLastUserHasGone)
{
    const ChildEnd end = inChild([this] {
        ProcessEnd::enter();
        ProcessEnd::enter();
        ProcessEnd::guard(guarded, true);
        ProcessEnd::leave();
        ::raise(SIGTERM);
    });

    EXPECT_EQ(end.signal, SIGTERM);
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(ProcessEndIn, GuardsAgainWhenAUserComesBack)
{
    const ChildEnd end = inChild([this] {
        ProcessEnd::enter();
        ProcessEnd::leave();
        ProcessEnd::enter();
        ProcessEnd::guard(guarded, true);
        ::raise(SIGTERM);
    });

    EXPECT_EQ(end.signal, SIGTERM);
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(ProcessEndIn, KeepsAFileWhoseMarkWasTakenAway)
{
    const ChildEnd end = inChild([this] {
        unitTests::writeFile(directory.path() + "/again", "content");
        ProcessEnd::enter();
        for (const bool mark : {true, false})
            ProcessEnd::guard(guarded, mark);
        for (const bool mark : {true, false, true})
            ProcessEnd::guard(directory.path() + "/again", mark);
        ::raise(SIGTERM);
    });

    EXPECT_EQ(end.signal, SIGTERM);
    EXPECT_THAT(names(), ElementsAre("guarded"));
}

TEST_F(ProcessEndIn, TakesAMarkAwayThatWasNeverSet)
{
    const ChildEnd end = inChild([this] {
        ProcessEnd::enter();
        ProcessEnd::guard(guarded, false);
        ::raise(SIGTERM);
    });

    EXPECT_EQ(end.signal, SIGTERM);
    EXPECT_THAT(names(), ElementsAre("guarded"));
}

TEST_F(ProcessEndIn, SaysWhichFileIsOneTooMany)
{
    const ChildEnd end = inChild([this] {
        ProcessEnd::enter();
        for (int i = 0; i < 100; ++i)
            ProcessEnd::guard(guarded, true);  // one place
        for (int i = 1; i < 64; ++i) {
            const std::string name = directory.path() + "/" + std::to_string(i);
            unitTests::writeFile(name, "content");
            ProcessEnd::guard(name, true);
        }
        unitTests::writeFile(directory.path() + "/last", "content");
        ProcessEnd::guard(directory.path() + "/last", true);
        ::raise(SIGTERM);
    });

    EXPECT_EQ(end.errors, "vetra: " + directory.path() +
                              "/last stays behind if the process is ended by a signal\n");
    EXPECT_THAT(names(), ElementsAre("last"));
}

TEST_F(ProcessEndIn, UsesTheSpaceOfAMarkThatWasTakenAway)
{
    const ChildEnd end = inChild([this] {
        ProcessEnd::enter();
        for (int i = 0; i < 1000; ++i) {
            const std::string name = directory.path() + "/" + std::to_string(i);
            ProcessEnd::guard(name, true);
            ProcessEnd::guard(name, false);
        }
        ProcessEnd::guard(guarded, true);
        ::raise(SIGTERM);
    });

    EXPECT_EQ(end.errors, "");
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(ProcessEndIn, SaysThatAPathIsTooLong)
{
    const std::string path = "/" + std::string(PATH_MAX - 1, 'x');
    const unitTests::CapturedOutput errors(std::cerr);

    ProcessEnd::guard(path.substr(0, PATH_MAX - 1), true);
    EXPECT_EQ(errors.text(), "");
    ProcessEnd::guard(path.substr(0, PATH_MAX - 1), false);
    ProcessEnd::guard(path, false);
    EXPECT_EQ(errors.text(), "");

    ProcessEnd::guard(path, true);
    EXPECT_EQ(errors.text(),
              "vetra: " + path + " stays behind if the process is ended by a signal\n");
}

// A child that was forked has the marks too, but the file is its parent's.
TEST_F(ProcessEndIn, LeavesTheFileWhenAChildIsEnded)
{
    const ChildEnd end = inChild([this] {
        ProcessEnd::enter();
        ProcessEnd::guard(guarded, true);
        const pid_t child = ::fork();
        if (child == 0) {
            ::raise(SIGTERM);
            ::_exit(0);
        }
        int status = 0;
        ::waitpid(child, &status, 0);
        std::cout << (WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << fs::exists(guarded);
    });

    EXPECT_EQ(end.output, "11");
}

// Such signals have no effect on it but what it does itself.
TEST_F(ProcessEndIn, EndsTheFirstProcessOfAContainerToo)
{
    const ChildEnd end = inChild([this] {
        if (::unshare(CLONE_NEWPID) != 0)
            return;
        const pid_t child = ::fork();
        if (child == 0) {
            ProcessEnd::enter();
            ProcessEnd::guard(guarded, true);
            ::raise(SIGTERM);
            ::_exit(0);
        }
        int status = 0;
        ::waitpid(child, &status, 0);
        std::cout << WEXITSTATUS(status) << ' ' << fs::exists(guarded);
    });
    if (end.output.empty())
        GTEST_SKIP() << "only root can make a container";

    EXPECT_EQ(end.output, "143 0");
}

TEST_F(ProcessEndIn, RemovesTheFileInACrash)
{
    const ChildEnd end = inChild([this] {
        ProcessEnd::enter();
        ProcessEnd::guard(guarded, true);
        Basis::crashImpl("file.cpp", 7, "a reason");
    });

    EXPECT_EQ(end.signal, SIGABRT);
    EXPECT_EQ(end.errors, "vetra: fatal: a reason (file.cpp:7)\n");
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(ProcessEndIn, RemovesTheFileWhenNobodyCatchesAnException)
{
    const ChildEnd end = inChild([this] {
        Basis::nameUncaughtExceptions("vetra");
        ProcessEnd::enter();
        ProcessEnd::guard(guarded, true);
        throw std::runtime_error("a reason");
    });

    EXPECT_EQ(end.signal, SIGABRT);
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(ProcessEndIn, KeepsTheFileInACrashAfterTheLastUserHasGone)
{
    const ChildEnd end = inChild([this] {
        ProcessEnd::enter();
        ProcessEnd::guard(guarded, true);
        ProcessEnd::leave();
        Basis::crashImpl("file.cpp", 7, "a reason");
    });

    EXPECT_EQ(end.signal, SIGABRT);
    EXPECT_THAT(names(), ElementsAre("guarded"));
}

// What a factory makes of it.
using ProcessEndOfAFactory = ProcessEndIn;

TEST_F(ProcessEndOfAFactory, RemovesItsFileAlsoFromAnotherCurrentDirectory)
{
    const ChildEnd end = inChild([] {
        const auto factory = makeFactory(".");
        factory->removeAtEnd("guarded", true);
        fs::current_path("/");
        ::kill(::getpid(), SIGTERM);
    });

    EXPECT_EQ(end.signal, SIGTERM);
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(ProcessEndOfAFactory, RemovesItsFileWhileRequestsAreUnderWay)
{
    const ChildEnd end = inChild([this] {
        Layer layer(directory.path());
        layer.fillPages(64);
        layer.completions.expect(64);
        for (std::size_t i = 0; i < 64; ++i)
            layer.read(i, i * fileLayerTests::page);
        ::kill(::getpid(), SIGINT);
    });

    EXPECT_EQ(end.signal, SIGINT);
    EXPECT_THAT(names(), ElementsAre("guarded"));
}

// The limit on file sizes reaches the one who writes.
TEST_F(ProcessEndOfAFactory, RemovesItsFileWhenItWouldGrowTooLarge)
{
    const ChildEnd end = inChild([this] {
        Layer layer(directory.path());
        const rlimit sizes{16 * fileLayerTests::page, 16 * fileLayerTests::page};
        ::setrlimit(RLIMIT_FSIZE, &sizes);
        layer.file->write(16 * fileLayerTests::page, layer.pageAt(0), fileLayerTests::page);
        std::cout << "went on";
    });

    EXPECT_EQ(end.signal, SIGXFSZ);
    EXPECT_EQ(end.output, "");
    EXPECT_THAT(names(), ElementsAre("guarded"));
}

// The threads of the layer take no signals; the one who issued the request learns it.
TEST_F(ProcessEndOfAFactory, IsNoneWhenAThreadOfTheLayerReachesTheLimit)
{
    const ChildEnd end = inChild([this] {
        Layer layer(directory.path(), {{"async_write_submit_active", "on"}});
        const rlimit sizes{16 * fileLayerTests::page, 16 * fileLayerTests::page};
        ::setrlimit(RLIMIT_FSIZE, &sizes);
        layer.completions.expect(1);
        layer.write(0, 16 * fileLayerTests::page);
        layer.completions.wait();
        std::cout << layer.completions.errorText();
    });

    EXPECT_EQ(end.exitStatus, 0);
    EXPECT_THAT(end.output, testing::HasSubstr("EFBIG"));
}

TEST_F(ProcessEndOfAFactory, KeepsTheFileThatItNoLongerGuards)
{
    const ChildEnd end = inChild([] {
        const auto factory = makeFactory(".");
        factory->removeAtEnd("guarded", true);
        factory->removeAtEnd("guarded", false);
        ::raise(SIGTERM);
    });

    EXPECT_EQ(end.signal, SIGTERM);
    EXPECT_THAT(names(), ElementsAre("guarded"));
}

TEST_F(ProcessEndOfAFactory, GuardsNothingOnceItHasGone)
{
    const ChildEnd end = inChild([this] {
        makeFactory(".")->removeAtEnd("guarded", true);
        std::cout << fs::exists(guarded) << std::flush;
        unitTests::writeFile(guarded, "another one");
        // Another user lives on.
        ProcessEnd::enter();
        ::raise(SIGTERM);
    });

    EXPECT_EQ(end.output, "0");
    EXPECT_EQ(end.signal, SIGTERM);
    EXPECT_EQ(unitTests::contentOf(guarded), "another one");
}

TEST_F(ProcessEndOfAFactory, LeavesTheFilesOfAnotherOneGuarded)
{
    const ChildEnd end = inChild([this] {
        const auto lasting = makeFactory(".");
        lasting->removeAtEnd("guarded", true);
        fs::create_directory("below");
        makeFactory("below").reset();
        fs::remove("below");
        ::raise(SIGHUP);
    });

    EXPECT_EQ(end.signal, SIGHUP);
    EXPECT_THAT(names(), IsEmpty());
}

// The path may lead elsewhere by the time of the signal.
TEST_F(ProcessEndIn, RemovesTheFileThatWasMarked)
{
    const std::string place = directory.path() + "/place";
    ASSERT_EQ(::mkdir(place.c_str(), 0755), 0);
    unitTests::writeFile(place + "/guarded", "content");

    const ChildEnd end = inChild([&] {
        ProcessEnd::enter();
        ProcessEnd::guard(place + "/guarded", true);
        ::rename(place.c_str(), (directory.path() + "/moved").c_str());
        ::symlink(".", place.c_str());
        ::raise(SIGTERM);
    });

    EXPECT_EQ(end.signal, SIGTERM);
    EXPECT_THAT(names(), ElementsAre("guarded", "moved", "place"));
    EXPECT_THAT(unitTests::namesIn(directory.path() + "/moved"), testing::IsEmpty());
}

TEST_F(ProcessEndIn, KeepsNoDescriptorOfWhatIsNotMarkedAnyMore)
{
    const std::set<int> before = unitTests::openDescriptors();
    ProcessEnd::enter();
    for (int i = 0; i < 3; ++i) {
        ProcessEnd::guard(guarded, true);
        ProcessEnd::guard(guarded, true);
        ProcessEnd::guard(guarded, false);
    }
    ProcessEnd::leave();
    EXPECT_EQ(unitTests::openDescriptors(), before);
}

}  // namespace
