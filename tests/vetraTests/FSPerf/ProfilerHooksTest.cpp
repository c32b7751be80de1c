#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <sstream>
#include <thread>

#include "Diagnose/Shell.h"
#include "tests/vetraTests/FSPerf/RequestHandler.h"

namespace vetraTests {

namespace {

constexpr const char* right = "\r>>>>>>>>>> ";
constexpr const char* left = " <<<<<<<<<<\n";

std::string line(const std::string& text)
{
    return right + text + left;
}

struct ProfilerOptions : TestOptions {
    explicit ProfilerOptions(ProfilerMode mode, OutputType type = OutputType::VERBOSE)
    {
        m_profiler_mode = mode;
        m_profiler_base_name = "prof";
        m_output_type = type;
    }
};

class ProfilerHooks : public testing::Test {
protected:
    template <class Hook>
    std::string outputOf(Hook hook)
    {
        const Printed printed = printedBy(hook);
        EXPECT_EQ(printed.errors, "");
        return printed.output;
    }
    // The commands that a pass or a whole run gave, one a line.
    std::string commands()
    {
        std::istringstream journal(layer.takeJournal());
        std::string found;
        for (std::string entry; std::getline(journal, entry);)
            if (entry.starts_with("profiler"))
                found.append(entry).append("\n");
        return found;
    }
    void startTest(const CCmdOptions& options)
    {
        printedBy([&] { handler.notifyProfilerStartTest(options, "read-sync"); });
        ASSERT_TRUE(handler.m_profiler_running);
    }

    FakeFileLayer layer;
    FakeProfiler profiler{layer};
    OpenHandler handler;
};

// A hook whose command fails: what is printed, and what is thrown on.
struct FailingHook {
    const char* name;
    const char* command;
    int time;
    ProfilerMode mode;
    const char* message;
    const char* announced;  // printed before the command, without its arrows
    const char* answer;
    bool isRunningBefore;
    void (*run)(OpenHandler& handler, const CCmdOptions& options);
};

const FailingHook failingHooks[] = {
    {"Init", "profiler clear", 1, ProfilerMode::ALL,
     "\rERROR clearing profiler: ", "INITIALIZE PROFILER", "answer to profiler clear\n", false,
     [](OpenHandler& handler, const CCmdOptions& options) { handler.profilerInit(options); }},
    {"Start", "profiler start", 1, ProfilerMode::ALL, "\rERROR starting profiler: ",
     "PROFILER 'read-async' STARTING", "answer to profiler start\n", false,
     [](OpenHandler& handler, const CCmdOptions& options) {
         handler.notifyProfilerStartTest(options, "read-async");
     }},
    {"EndTrigger", "profiler stop", 1, ProfilerMode::TRIGGER, "\rERROR stopping profiler: ",
     "PROFILER 'read-async' STOPPING AT END OF TRIGGER PHASE", "answer to profiler stop\n", true,
     [](OpenHandler& handler, const CCmdOptions& options) {
         handler.notifyProfilerEndTrigger(options, "read-async");
     }},
    {"EndTest", "profiler stop", 1, ProfilerMode::ALL, "\rERROR stoping profiler: ",
     "PROFILER 'read-async' STOPPING", "answer to profiler stop\n", true,
     [](OpenHandler& handler, const CCmdOptions& options) {
         handler.notifyProfilerEndTest(options, "read-async");
     }},
    {"ClosePrint", "profiler print -o prof-cpu.dot,prof-wait.dot", 1, ProfilerMode::ALL,
     "\rERROR writing profiler output: ", "PROFILER WRITING OUTPUT",
     "profiler print -o prof-cpu.dot,prof-wait.dot\n"
     "answer to profiler print -o prof-cpu.dot,prof-wait.dot\n",
     false,
     [](OpenHandler& handler, const CCmdOptions& options) {
         handler.profilerClose(options, "runTests");
     }},
    {"CloseClear", "profiler clear", 1, ProfilerMode::ALL,
     "\rERROR clearing profiler: ", "PROFILER WRITING OUTPUT",
     "profiler print -o prof-cpu.dot,prof-wait.dot\n"
     "answer to profiler print -o prof-cpu.dot,prof-wait.dot\n"
     "answer to profiler clear\n",
     false,
     [](OpenHandler& handler, const CCmdOptions& options) {
         handler.profilerClose(options, "runTests");
     }},
};

class FailingProfiler : public testing::TestWithParam<FailingHook> {
protected:
    void SetUp() override
    {
        profiler.failingCommand = GetParam().command;
        profiler.failingTime = GetParam().time;
        handler.m_profiler_running = GetParam().isRunningBefore;
    }

    FakeFileLayer layer;
    FakeProfiler profiler{layer};
    OpenHandler handler;
};

INSTANTIATE_TEST_SUITE_P(Each, FailingProfiler, testing::ValuesIn(failingHooks),
                         [](const auto& test) { return test.param.name; });

// Knows for every piece of text whether the handler's mutex was held while it was written.
class LockWatch : public std::stringbuf {
public:
    explicit LockWatch(Synchronization::Mutex& watched) : mutex(watched) {}

    bool wasFreeWhilePrinting = false;

protected:
    std::streamsize xsputn(const char* characters, std::streamsize count) override
    {
        watch();
        return std::stringbuf::xsputn(characters, count);
    }
    int_type overflow(int_type character) override
    {
        watch();
        return std::stringbuf::overflow(character);
    }

private:
    // The thread that prints may not try its own mutex.
    void watch()
    {
        std::thread([this] {
            if (!mutex.tryLock())
                return;
            wasFreeWhilePrinting = true;
            mutex.unlock();
        }).join();
    }

    Synchronization::Mutex& mutex;
};

}  // namespace

TEST_F(ProfilerHooks, DoNothingWithTheModeOff)
{
    const ProfilerOptions options(ProfilerMode::OFF);

    EXPECT_EQ(outputOf([&] {
                  handler.profilerInit(options);
                  handler.notifyProfilerStartTest(options, "read-async");
                  handler.notifyProfilerEndTrigger(options, "read-async");
                  handler.notifyProfilerEndTest(options, "read-async");
                  handler.profilerClose(options, "runTests");
              }),
              "");
    EXPECT_EQ(commands(), "");
    EXPECT_FALSE(handler.m_profiler_running);
}

TEST_F(ProfilerHooks, InitClears)
{
    const ProfilerOptions options(ProfilerMode::ALL);

    EXPECT_EQ(
        outputOf([&] { handler.profilerInit(options); }),
        line("INITIALIZE PROFILER") + "answer to profiler clear\n" + line("PROFILER INITIALIZED"));
    EXPECT_EQ(commands(), "profiler clear\n");
    EXPECT_FALSE(handler.m_profiler_running);
}

TEST_F(ProfilerHooks, StartTestStarts)
{
    const ProfilerOptions options(ProfilerMode::COMPLETION);

    EXPECT_EQ(outputOf([&] { handler.notifyProfilerStartTest(options, "write-sync"); }),
              line("PROFILER 'write-sync' STARTING") + "\ranswer to profiler start\n" +
                  line("PROFILER 'write-sync' STARTED"));
    EXPECT_EQ(commands(), "profiler start\n");
    EXPECT_TRUE(handler.m_profiler_running);
}

TEST_F(ProfilerHooks, EndTriggerStopsInTriggerModeOnly)
{
    const ProfilerOptions options(ProfilerMode::TRIGGER);
    startTest(options);
    commands();

    EXPECT_EQ(outputOf([&] { handler.notifyProfilerEndTrigger(options, "read-async"); }),
              line("PROFILER 'read-async' STOPPING AT END OF TRIGGER PHASE") +
                  "\ranswer to profiler stop\n" +
                  line("PROFILER 'read-async' STOPPED AT END OF TRIGGER PHASE"));
    EXPECT_EQ(commands(), "profiler stop\n");
    EXPECT_FALSE(handler.m_profiler_running);

    for (const ProfilerMode mode :
         {ProfilerMode::ALL, ProfilerMode::MAIN, ProfilerMode::SUBMIT, ProfilerMode::COMPLETION}) {
        handler.m_profiler_running = true;
        EXPECT_EQ(outputOf([&] {
                      handler.notifyProfilerEndTrigger(ProfilerOptions(mode), "read-async");
                  }),
                  "");
        EXPECT_TRUE(handler.m_profiler_running);
    }
    EXPECT_EQ(commands(), "");
}

TEST_F(ProfilerHooks, EndTestStops)
{
    const ProfilerOptions options(ProfilerMode::MAIN);
    startTest(options);
    commands();

    EXPECT_EQ(outputOf([&] { handler.notifyProfilerEndTest(options, "read-sync"); }),
              line("PROFILER 'read-sync' STOPPING") + "\ranswer to profiler stop\n" +
                  line("PROFILER 'read-sync' STOPPED"));
    EXPECT_EQ(commands(), "profiler stop\n");
    EXPECT_FALSE(handler.m_profiler_running);
}

TEST_F(ProfilerHooks, EndTestDoesNothingIfTheProfilerIsStopped)
{
    const ProfilerOptions options(ProfilerMode::TRIGGER);

    EXPECT_EQ(outputOf([&] { handler.notifyProfilerEndTest(options, "read-async"); }), "");
    EXPECT_EQ(commands(), "");
}

TEST_F(ProfilerHooks, CloseWritesThenClears)
{
    const ProfilerOptions options(ProfilerMode::ALL);

    EXPECT_EQ(outputOf([&] { handler.profilerClose(options, "runTests"); }),
              line("PROFILER WRITING OUTPUT") +
                  "\rprofiler print -o prof-cpu.dot,prof-wait.dot\n"
                  "answer to profiler print -o prof-cpu.dot,prof-wait.dot\n"
                  "answer to profiler clear\n" +
                  line("PROFILER OUTPUT WRITTEN"));
    EXPECT_EQ(commands(), "profiler print -o prof-cpu.dot,prof-wait.dot\nprofiler clear\n");
}

TEST_F(ProfilerHooks, CloseFiltersAsTheModeSays)
{
    const std::pair<ProfilerMode, std::string> filters[] = {
        {ProfilerMode::MAIN, "runTests"},
        {ProfilerMode::TRIGGER, "runTests"},
        {ProfilerMode::SUBMIT, "FileAccess::SubmitThread::run"},
        {ProfilerMode::COMPLETION, "FileAccess::LocalFileCompletionThread::run"},
    };
    for (const auto& [mode, filter] : filters) {
        printedBy([&, mode = mode] { handler.profilerClose(ProfilerOptions(mode), "runTests"); });
        EXPECT_EQ(commands(), "profiler print -o prof-cpu.dot,prof-wait.dot -f " + filter +
                                  "\nprofiler clear\n");
    }
}

TEST_F(ProfilerHooks, RunAllCommandsButPrintNothingUnlessTalkative)
{
    for (const OutputType type : {OutputType::SHORT, OutputType::JSON, OutputType::JSON_SHORT}) {
        const ProfilerOptions options(ProfilerMode::TRIGGER, type);
        EXPECT_EQ(outputOf([&] {
                      handler.profilerInit(options);
                      handler.notifyProfilerStartTest(options, "read-async");
                      handler.notifyProfilerEndTrigger(options, "read-async");
                      handler.notifyProfilerEndTest(options, "read-async");
                      handler.profilerClose(options, "runTests");
                  }),
                  "");
        EXPECT_EQ(commands(),
                  "profiler clear\nprofiler start\nprofiler stop\n"
                  "profiler print -o prof-cpu.dot,prof-wait.dot -f runTests\nprofiler clear\n");
    }
}

TEST_F(ProfilerHooks, InitRunsAsTheLastStepOfInit)
{
    ProfilerOptions options(ProfilerMode::ALL, OutputType::SHORT);
    profiler.onCommand = [this](const std::string&) {
        EXPECT_NE(handler.m_control_block_buffer.data(), nullptr);
        EXPECT_GE(handler.m_control_blocks.capacity(), 10U);
    };

    EXPECT_TRUE(handler.init(options));

    EXPECT_EQ(commands(), "profiler clear\n");
}

TEST_F(ProfilerHooks, StopAtTheEndOfTheTriggerPhaseOfAnAsynchronousPass)
{
    ProfilerOptions options(ProfilerMode::TRIGGER, OutputType::SHORT);
    layer.completion = Completion::RELEASED;
    profiler.onCommand = [this](const std::string& command) {
        if (command == "profiler stop") {
            EXPECT_EQ(layer.requests.size(), 10U);
            EXPECT_EQ(handler.m_num_requests_i.value, 10U) << "a completion was waited for";
            layer.release();
        }
    };
    ASSERT_TRUE(handler.init(options) && handler.initDataFile(options));
    layer.takeJournal();
    _SFSThroughputStatistics stats;

    EXPECT_TRUE(handler.executeAsynchronousReadTest(options, stats));

    EXPECT_EQ(layer.takeJournal(),
              "construct\n"
              "reset total\nreset detailed\nreset queue\nreset completion\n"
              "profiler start\nreadAsync\nprofiler stop\ngetDetailed\n");
}

TEST_F(ProfilerHooks, StopAfterTheLastCompletionInTheOtherModes)
{
    ProfilerOptions options(ProfilerMode::SUBMIT, OutputType::FULL);
    layer.completion = Completion::THREADS;
    profiler.onCommand = [this](const std::string& command) {
        if (command == "profiler stop") {
            EXPECT_EQ(handler.m_num_requests_i.value, 0U);
        }
    };
    printedBy([&] { ASSERT_TRUE(handler.init(options) && handler.initDataFile(options)); });
    layer.takeJournal();
    _SFSThroughputStatistics stats;

    printedBy([&] { EXPECT_TRUE(handler.executeAsynchronousWriteTest(options, true, stats)); });

    EXPECT_EQ(layer.takeJournal(),
              "construct\n"
              "reset total\nreset detailed\nreset queue\nreset completion\n"
              "profiler start\nwriteAsync\nprofiler stop\n"
              "print total\nprint detailed\nprint queue\nprint completion\ngetDetailed\n");
}

TEST_F(ProfilerHooks, NameThePassThatRuns)
{
    ProfilerOptions options(ProfilerMode::TRIGGER);
    printedBy([&] { ASSERT_TRUE(handler.init(options) && handler.initDataFile(options)); });
    _SFSThroughputStatistics throughput;
    _SFSLatencyStatistics latency;

    EXPECT_THAT(outputOf([&] { handler.executeAsynchronousReadTest(options, throughput); }),
                testing::AllOf(testing::HasSubstr("'read-async' STARTING"),
                               testing::HasSubstr("'read-async' STOPPING AT END"),
                               testing::Not(testing::HasSubstr("'read-async' STOPPED <"))));
    EXPECT_THAT(outputOf([&] { handler.executeAsynchronousWriteTest(options, true, throughput); }),
                testing::AllOf(testing::HasSubstr("'write-async' STARTING"),
                               testing::HasSubstr("'write-async' STOPPING AT END")));
    EXPECT_THAT(outputOf([&] { handler.executeSynchronousReadTest(options, latency); }),
                testing::AllOf(testing::HasSubstr("'read-sync' STARTING"),
                               testing::HasSubstr("'read-sync' STOPPED <"),
                               testing::Not(testing::HasSubstr("AT END OF TRIGGER"))));
    EXPECT_THAT(outputOf([&] { handler.executeSynchronousWriteTest(options, latency); }),
                testing::AllOf(testing::HasSubstr("'write-sync' STARTING"),
                               testing::HasSubstr("'write-sync' STOPPED <")));
}

TEST_F(ProfilerHooks, CleanupClosesBeforeTheFileGoes)
{
    ProfilerOptions options(ProfilerMode::MAIN, OutputType::VERBOSE);
    printedBy([&] { ASSERT_TRUE(handler.init(options) && handler.initDataFile(options)); });
    layer.takeJournal();

    EXPECT_THAT(outputOf([&] { handler.cleanup(options); }),
                testing::AllOf(testing::StartsWith("Cleanup...\r>>>>>>>>>> PROFILER WRITING"),
                               testing::EndsWith("PROFILER OUTPUT WRITTEN <<<<<<<<<<\n"
                                                 " close... remove... done.\n")));
    EXPECT_THAT(layer.takeJournal(),
                testing::StartsWith("profiler print -o prof-cpu.dot,prof-wait.dot -f runTests\n"
                                    "profiler clear\nclose\n"));
}

TEST_F(ProfilerHooks, PrintUnderTheOutputMutexAndRunCommandsWithoutIt)
{
    const ProfilerOptions options(ProfilerMode::TRIGGER);
    bool wasHeldDuringCommand = false;
    profiler.onCommand = [&](const std::string&) {
        if (!handler.m_output_mutex.tryLock())
            wasHeldDuringCommand = true;
        else
            handler.m_output_mutex.unlock();
    };
    LockWatch watch(handler.m_output_mutex);
    std::streambuf* const original = std::cout.rdbuf(&watch);
    handler.profilerInit(options);
    handler.notifyProfilerStartTest(options, "read-async");
    handler.notifyProfilerEndTrigger(options, "read-async");
    handler.notifyProfilerStartTest(options, "read-sync");
    handler.notifyProfilerEndTest(options, "read-sync");
    handler.profilerClose(options, "runTests");
    std::cout.rdbuf(original);

    EXPECT_NE(watch.str(), "");
    EXPECT_FALSE(watch.wasFreeWhilePrinting);
    EXPECT_FALSE(wasHeldDuringCommand);
}

TEST_F(ProfilerHooks, PrintAFailureUnderTheOutputMutex)
{
    const ProfilerOptions options(ProfilerMode::ALL, OutputType::SHORT);
    profiler.failingCommand = "profiler clear";
    LockWatch output(handler.m_output_mutex);
    std::streambuf* const original = std::cout.rdbuf(&output);
    const unitTests::CapturedOutput errors(std::cerr);
    EXPECT_THROW(handler.profilerInit(options), Diagnose::CommandException);
    std::cout.rdbuf(original);

    EXPECT_EQ(output.str(), "\nanswer to profiler clear\n\n");
    EXPECT_FALSE(output.wasFreeWhilePrinting);
    EXPECT_TRUE(handler.m_output_mutex.tryLock()) << "left locked";
    handler.m_output_mutex.unlock();
}

TEST_P(FailingProfiler, SaysSoAndPassesTheExceptionOn)
{
    const FailingHook& hook = GetParam();
    for (const OutputType type : {OutputType::VERBOSE, OutputType::SHORT}) {
        SetUp();
        const ProfilerOptions options(hook.mode, type);
        std::string thrown;
        const Printed printed = printedBy([&] {
            try {
                hook.run(handler, options);
            } catch (const Diagnose::CommandException& exception) {
                thrown = exception.what();
            }
        });

        const std::string announced = type == OutputType::VERBOSE ? line(hook.announced) : "";
        EXPECT_EQ(printed.output, announced + "\n" + hook.answer + "\n");
        EXPECT_THAT(thrown, testing::HasSubstr("no samples"));
        EXPECT_EQ(printed.errors, std::string(hook.message) + "\n" + thrown);
        EXPECT_EQ(handler.m_profiler_running, hook.isRunningBefore);
    }
}

TEST_F(ProfilerHooks, FailedStopAfterTheTriggerWaitsForTheRequestsUnderWay)
{
    layer.completion = Completion::RELEASED;
    profiler.failingCommand = "profiler stop";
    profiler.onCommand = [this](const std::string& command) {
        if (command == "profiler stop")
            layer.release();
    };
    ProfilerOptions options(ProfilerMode::TRIGGER, OutputType::SHORT);
    options.m_file_size = 10000 * testBlock;
    options.m_alloc_size = testBlock;
    ASSERT_TRUE(handler.init(options) && handler.initDataFile(options));
    _SFSThroughputStatistics stats;

    printedBy([&] {
        EXPECT_THROW(handler.executeAsynchronousReadTest(options, stats),
                     Diagnose::CommandException);
    });

    EXPECT_EQ(handler.m_num_requests_i.value, 0U);
    EXPECT_TRUE(handler.m_barrier.isAtRest());
    EXPECT_TRUE(handler.m_profiler_running);
}

using ProfilerHooksDeathTest = ProfilerHooks;

TEST_F(ProfilerHooksDeathTest, WrongPairsStopTheProgram)
{
    for (const ProfilerMode mode : {ProfilerMode::OFF, ProfilerMode::ALL}) {
        const ProfilerOptions options(mode);
        handler.m_profiler_running = true;
        const auto ended = testing::KilledBySignal(SIGABRT);
        EXPECT_EXIT(handler.profilerInit(options), ended, "fatal: !m_profiler_running");
        EXPECT_EXIT(handler.notifyProfilerStartTest(options, "read-sync"), ended,
                    "fatal: !m_profiler_running");
        EXPECT_EXIT(handler.profilerClose(options, "runTests"), ended,
                    "fatal: !m_profiler_running");
    }
    handler.m_profiler_running = false;
    EXPECT_EXIT(
        handler.notifyProfilerEndTrigger(ProfilerOptions(ProfilerMode::TRIGGER), "read-sync"),
        testing::KilledBySignal(SIGABRT), "fatal: m_profiler_running");
}

TEST_F(ProfilerHooksDeathTest, UnknownModeStopsTheProgramAtTheEnd)
{
    const ProfilerOptions options(static_cast<ProfilerMode>(6));

    EXPECT_EXIT(handler.profilerClose(options, "runTests"), testing::KilledBySignal(SIGABRT),
                "the profiler mode has an output");
}

}  // namespace vetraTests
