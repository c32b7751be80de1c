#include "Diagnose/TraceConfiguration.h"

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "tests/services/support/ChildProcess.h"
#include "tests/services/support/Files.h"

namespace {

using Diagnose::TraceConfiguration;
using Diagnose::TraceLevel;
using Diagnose::TraceTopic;
using testing::IsEmpty;
using testing::MatchesRegex;
using unitTests::ChildEnd;
using unitTests::inChild;
using unitTests::linesOf;
using unitTests::namesIn;

/// The trace is set up once per process, so each test has a process of its own for it, with a known
/// topic and an empty current directory.
class TraceConfigurationTest : public testing::Test {
protected:
    template <class Work>
    ChildEnd withTopic(Work work)
    {
        return inChild([&] {
            TraceTopic topic;
            topic.init("topicOfTest", "");
            topic.initStat();
            work(topic);
        });
    }

    static std::vector<std::string> onlyFile()
    {
        const auto names = namesIn(".");
        EXPECT_EQ(names.size(), 1U);
        return names.empty() ? std::vector<std::string>() : linesOf(names[0]);
    }

    unitTests::WorkingDirectory directory;
};

using TraceConfigurationDeathTest = TraceConfigurationTest;

TEST_F(TraceConfigurationTest, IsConfiguredOnceInitializeExecutableWasCalled)
{
    const ChildEnd end = withTopic([](const TraceTopic&) {
        std::cout << TraceConfiguration::isConfigured();
        TraceConfiguration::initializeExecutable(".", 1, 1);
        std::cout << TraceConfiguration::isConfigured();
    });
    EXPECT_EQ(end.output, "01");
}

TEST_F(TraceConfigurationTest, LeavesNoFileWhileNothingIsTraced)
{
    withTopic([](const TraceTopic&) { TraceConfiguration::initializeExecutable(".", 1, 1); });

    EXPECT_THAT(namesIn("."), IsEmpty());
}

TEST_F(TraceConfigurationTest, WritesOneLineOfTimeThreadLevelTopicAndText)
{
    withTopic([](const TraceTopic& topic) {
        TraceConfiguration::initializeExecutable(".", 1, 1);
        topic.trace(TraceLevel::Error, "it {} went % wrong");
    });

    EXPECT_THAT(onlyFile(),
                testing::ElementsAre(MatchesRegex(
                    "[0-9]{4}-[01][0-9]-[0-3][0-9] [0-2][0-9]:[0-5][0-9]:[0-6][0-9]\\.[0-9]{6} "
                    "\\[[0-9]+\\] error topicOfTest: it \\{\\} went % wrong")));
}

TEST_F(TraceConfigurationTest, FileIsNamedByProgramAndProcess)
{
    const ChildEnd end = withTopic([](const TraceTopic& topic) {
        TraceConfiguration::initializeExecutable(".", 1, 1);
        topic.trace(TraceLevel::Error, "x");
        std::cout << program_invocation_short_name << '_' << ::getpid() << ".diag.trc";
    });

    EXPECT_THAT(namesIn("."), testing::ElementsAre(end.output));
}

TEST_F(TraceConfigurationTest, FileLiesInTheDirectoryGivenAndNotInTheCurrentOne)
{
    std::filesystem::create_directory("there");
    withTopic([](const TraceTopic& topic) {
        TraceConfiguration::initializeExecutable("there", 1, 1);
        topic.trace(TraceLevel::Error, "x");
    });

    EXPECT_THAT(namesIn("."), testing::ElementsAre("there"));
    EXPECT_EQ(namesIn("there").size(), 1U);
}

TEST_F(TraceConfigurationTest, LinesGoToOneFileInTheirOrder)
{
    withTopic([](const TraceTopic& topic) {
        TraceConfiguration::initializeExecutable(".", 1, 1);
        topic.trace(TraceLevel::Error, "first");
        topic.trace(TraceLevel::Fatal, "second");
    });

    EXPECT_THAT(onlyFile(), testing::ElementsAre(testing::EndsWith(" error topicOfTest: first"),
                                                 testing::EndsWith(" topicOfTest: second")));
}

TEST_F(TraceConfigurationTest, WritesNothingAboveTheLevelInForce)
{
    withTopic([](const TraceTopic& topic) {
        TraceConfiguration::initializeExecutable(".", 1, 1);
        topic.trace(TraceLevel::Info, "not at the start");
        TraceTopic::setGlobalTraceLevel(TraceLevel::Info);
        topic.trace(TraceLevel::Info, "seen");
        topic.trace(TraceLevel::Debug, "still too much");
    });

    EXPECT_THAT(onlyFile(), testing::ElementsAre(testing::EndsWith(" info topicOfTest: seen")));
}

TEST_F(TraceConfigurationTest, DestroyedTopicIsSilent)
{
    const ChildEnd end = inChild([] {
        TraceConfiguration::initializeExecutable(".", 1, 1);
        TraceTopic topic;
        topic.init("topicOfTest", "");
        topic.trace(TraceLevel::Fatal, "before it is known");
        topic.initStat();
        topic.destroy();
        topic.trace(TraceLevel::Fatal, "after its end");
    });

    EXPECT_EQ(end.exitStatus, 0);
    EXPECT_THAT(namesIn("."), IsEmpty());
}

TEST_F(TraceConfigurationTest, WithoutASetUpLinesAreDropped)
{
    const ChildEnd end =
        withTopic([](const TraceTopic& topic) { topic.trace(TraceLevel::Fatal, "x"); });

    EXPECT_EQ(end.exitStatus, 0);
    EXPECT_EQ(end.errors, "");
    EXPECT_THAT(namesIn("."), IsEmpty());
}

TEST_F(TraceConfigurationTest, DoesNotWaitForTheReaderOfAPipe)
{
    const ChildEnd end = withTopic([](const TraceTopic& topic) {
        const std::string name = std::string(program_invocation_short_name) + "_" +
                                 std::to_string(::getpid()) + ".diag.trc";
        ::mkfifo(name.c_str(), 0666);
        TraceConfiguration::initializeExecutable(".", 1, 1);
        topic.trace(TraceLevel::Error, "x");
    });

    EXPECT_EQ(end.exitStatus, 0);
    EXPECT_THAT(end.errors, testing::HasSubstr("no diagnostic trace is written: Failed opening"));
}

TEST_F(TraceConfigurationTest, SecondSetUpChangesNothing)
{
    std::filesystem::create_directory("first");
    std::filesystem::create_directory("second");
    withTopic([](const TraceTopic& topic) {
        TraceConfiguration::initializeExecutable("first", 1, 1);
        TraceConfiguration::initializeExecutable("second", 1, 1);
        topic.trace(TraceLevel::Error, "x");
    });

    EXPECT_EQ(namesIn("first").size(), 1U);
    EXPECT_THAT(namesIn("second"), IsEmpty());
}

TEST_F(TraceConfigurationTest, LineIsInTheFileAtOnce)
{
    const ChildEnd end = withTopic([](const TraceTopic& topic) {
        TraceConfiguration::initializeExecutable(".", 1, 1);
        topic.trace(TraceLevel::Error, "last words");
        ::raise(SIGKILL);
    });

    EXPECT_EQ(end.signal, SIGKILL);
    EXPECT_THAT(onlyFile(), testing::ElementsAre(testing::EndsWith("last words")));
}

TEST_F(TraceConfigurationTest, LeavesTheLastSystemErrorAlone)
{
    const ChildEnd end = withTopic([](const TraceTopic& topic) {
        TraceConfiguration::initializeExecutable("missing/\001/..", 1, 1);
        errno = EXDEV;
        topic.trace(TraceLevel::Error, "x");
        topic.trace(TraceLevel::Error, "y");
        std::cout << errno;
    });

    EXPECT_EQ(end.output, std::to_string(EXDEV));
}

TEST_F(TraceConfigurationTest, DirectoryThatCannotBeWrittenGivesOneLineOnStandardError)
{
    unitTests::writeFile("file", "");
    const ChildEnd end = withTopic([](const TraceTopic& topic) {
        TraceConfiguration::initializeExecutable("file", 1, 1);
        topic.trace(TraceLevel::Error, "x");
        topic.trace(TraceLevel::Error, "y");
        std::cout << "goes on";
    });

    EXPECT_EQ(end.output, "goes on");
    EXPECT_EQ(end.exitStatus, 0);
    EXPECT_THAT(end.errors, MatchesRegex("vetra: no diagnostic trace is written: [^\n]+\n"));
    EXPECT_THAT(namesIn("."), testing::ElementsAre("file"));
}

TEST_F(TraceConfigurationTest, FileThatTakesNoMoreGivesOneLineOnStandardError)
{
    const ChildEnd end = withTopic([](const TraceTopic& topic) {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit atMost{100, 100};
        ::setrlimit(RLIMIT_FSIZE, &atMost);
        TraceConfiguration::initializeExecutable(".", 1, 1);
        topic.trace(TraceLevel::Error, std::string(200, 'x'));
        topic.trace(TraceLevel::Error, "y");
        std::cout << "goes on";
    });

    EXPECT_EQ(end.output, "goes on");
    EXPECT_EQ(end.exitStatus, 0);
    EXPECT_THAT(end.errors, MatchesRegex("vetra: no diagnostic trace is written: [^\n]+\n"));
}

TEST_F(TraceConfigurationTest, MayWriteToStandardErrorAndLeavesNoFile)
{
    const ChildEnd end = withTopic([](const TraceTopic& topic) {
        EXPECT_FALSE(TraceConfiguration::isConfigured());
        TraceConfiguration::initializeStandardError();
        EXPECT_TRUE(TraceConfiguration::isConfigured());
        topic.trace(TraceLevel::Error, "first");
        topic.trace(TraceLevel::Error, "second");
    });

    EXPECT_THAT(end.errors, MatchesRegex("[^\n]+ error topicOfTest: first\n"
                                         "[^\n]+ error topicOfTest: second\n"));
    EXPECT_THAT(namesIn("."), testing::IsEmpty());
}

TEST_F(TraceConfigurationTest, ManyThreadsWriteWholeLines)
{
    withTopic([](const TraceTopic& topic) {
        TraceConfiguration::initializeExecutable(".", 1, 1);
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&topic] {
                for (int line = 0; line < 100; ++line)
                    topic.trace(TraceLevel::Error, "a whole line");
            });
        }
        for (std::thread& thread : threads)
            thread.join();
    });

    const auto lines = onlyFile();
    EXPECT_EQ(lines.size(), 400U);
    EXPECT_TRUE(std::all_of(lines.begin(), lines.end(), [](const std::string& line) {
        return line.ends_with("] error topicOfTest: a whole line");
    }));
}

TEST_F(TraceConfigurationDeathTest, RefusesOtherFileAndFormatterTypes)
{
    EXPECT_EXIT(TraceConfiguration::initializeExecutable(".", 2, 1),
                testing::KilledBySignal(SIGABRT), testing::HasSubstr("trace file type is 1"));
    EXPECT_EXIT(TraceConfiguration::initializeExecutable(".", 1, 0),
                testing::KilledBySignal(SIGABRT), testing::HasSubstr("trace formatter type is 1"));
}

}  // namespace
