#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Diagnose/Shell.h"
#include "Diagnose/TraceConfiguration.h"
#include "tests/services/support/ChildProcess.h"
#include "tests/services/support/Files.h"
#include "tests/vetraTests/FSPerf/RequestHandler.h"
#include "vetraTests/FSPerf/FSPerf.h"

namespace vetraTests {

namespace {

std::string header(const std::string& title, char frame, char side)
{
    const std::string border = "\n" + std::string(80, frame) + "\n";
    return border + side + ' ' + title + std::string(76 - title.size(), ' ') + ' ' + side + border +
           "\n";
}

struct Texts {
    std::string json = std::string(getJSONStats());
    std::string report = std::string(getHRStats());
    std::string row = std::string(getSummaryReport());

    bool operator==(const Texts&) const = default;
};

const Texts textsAtStart;

class Run : public testing::Test {
protected:
    // Ten blocks of 4 KB in the current directory, with the options given.
    int run(const std::string& options)
    {
        int code = -1;
        Basis::string args = text("fsperf -b 4K -f 40K " + options + " " + directory.path());
        lastArguments = std::string(args);
        printed = printedBy([&] { code = runTestWrapper(args); });
        return code;
    }
    // The requests of each pass in their order, and what happened to the file.
    std::string story() const
    {
        std::string events;
        for (const std::string& entry : layer.journal)
            if (!entry.starts_with("reset") && !entry.starts_with("construct") &&
                !entry.starts_with("createInstance") && !entry.starts_with("ensureSpace") &&
                !entry.starts_with("removeAtEnd") && !entry.starts_with("fileExists"))
                events.append(entry).append("\n");
        return events;
    }

    const unitTests::WorkingDirectory directory;
    FakeFileLayer layer;
    Printed printed;
    std::string lastArguments;
};

}  // namespace

TEST_F(Run, OfEverythingGoesThroughThePhasesLatencyFirst)
{
    EXPECT_EQ(run("-m all"), runSucceeded);

    EXPECT_EQ(story(),
              "openFile datavol.dat 2 0 33\nwrite\ngetDetailed\nclose\n"
              "removeFile datavol.dat\n"
              "openFile datavol.dat 2 0 33\nwriteAsync\ngetDetailed\n"
              "write\ngetDetailed\nwriteAsync\ngetDetailed\n"
              "read\ngetDetailed\nreadAsync\ngetDetailed\n"
              "close\nremoveFile datavol.dat\nfactory ends\n");
    EXPECT_EQ(printed.errors, "");
    EXPECT_EQ(layer.requests.size(), 60U);
    EXPECT_FALSE(layer.isFileThere);
}

TEST_F(Run, MarksOnlyTheInitialWriteAsOneOfNewBlocks)
{
    EXPECT_EQ(run("-t write"), runSucceeded);

    ASSERT_EQ(layer.requests.size(), 20U);
    for (std::size_t i = 0; i < 20; ++i)
        EXPECT_EQ(layer.requests[i].newBlocks, i < 10);
}

TEST_F(Run, MeasuresThroughputIfNothingElseIsAskedFor)
{
    EXPECT_EQ(run("-t initial_write"), runSucceeded);

    EXPECT_EQ(story(),
              "openFile datavol.dat 2 0 33\nwriteAsync\ngetDetailed\n"
              "close\nremoveFile datavol.dat\nfactory ends\n");
}

TEST_F(Run, OfInitialWriteWithAllMeasurementsCreatesTheFileTwice)
{
    EXPECT_EQ(run("-t initial_write -m all"), runSucceeded);

    EXPECT_EQ(story(),
              "openFile datavol.dat 2 0 33\nwrite\ngetDetailed\nclose\n"
              "removeFile datavol.dat\n"
              "openFile datavol.dat 2 0 33\nwriteAsync\ngetDetailed\n"
              "close\nremoveFile datavol.dat\nfactory ends\n");
}

TEST_F(Run, OfOverwritePreparesTheFileOnce)
{
    EXPECT_EQ(run("-t overwrite -m all"), runSucceeded);

    // The first write fills the file in one piece.
    EXPECT_EQ(story(),
              "openFile datavol.dat 2 0 33\nwrite\n"
              "write\ngetDetailed\n"
              "writeAsync\ngetDetailed\nclose\nremoveFile datavol.dat\nfactory ends\n");
    EXPECT_EQ(layer.requests[0].size, 40960U);
    EXPECT_EQ(layer.requests.size(), 21U);
}

TEST_F(Run, OfReadLatencyOnAnEarlierFileWritesNothing)
{
    layer.isFileThere = true;

    EXPECT_EQ(run("-t read -m latency noinit noclean"), runSucceeded);

    EXPECT_EQ(story(), "openFile datavol.dat 2 0 33\nread\ngetDetailed\nclose\nfactory ends\n");
    EXPECT_EQ(layer.requests.size(), 10U);
    EXPECT_TRUE(layer.isFileThere);
}

TEST_F(Run, PublishesItsTexts)
{
    EXPECT_EQ(run("-m all -o json"), runSucceeded);

    EXPECT_THAT(std::string(getJSONStats()), testing::HasSubstr("\"Overwrite\""));
    EXPECT_NE(getHRStats(), "");
    EXPECT_NE(getSummaryReport(), "");
    EXPECT_EQ(printed.output, "");
}

TEST_F(Run, GivesTheTextsInTheDomainOfTheEngine)
{
    EXPECT_EQ(getJSONStats().get_allocator().resource(), &fsperfAllocator());
    EXPECT_EQ(getHRStats().get_allocator().resource(), &fsperfAllocator());
    EXPECT_EQ(getSummaryReport().get_allocator().resource(), &fsperfAllocator());
}

TEST_F(Run, PrintsTheSettingsButNoHeadersWhenShort)
{
    EXPECT_EQ(run("-t read"), runSucceeded);

    EXPECT_THAT(printed.output,
                testing::StartsWith("The tests will be executed with the following settings:\n\n"));
    EXPECT_THAT(printed.output, testing::EndsWith("      None\n\n"));
}

TEST_F(Run, PrintsNothingForJson)
{
    EXPECT_EQ(run("-t read -o json"), runSucceeded);
    EXPECT_EQ(printed.output + printed.errors, "");

    EXPECT_EQ(run("-t read -o json_short"), runSucceeded);
    EXPECT_EQ(printed.output + printed.errors, "");
}

TEST_F(Run, TellsEachStepWhenVerbose)
{
    EXPECT_EQ(run("-m all -o verbose"), runSucceeded);

    const std::string creation =
        "Opening and initializing file \"" + directory.path() + "/datavol.dat\"... done.\n";
    const std::string preparation = "Preparing I/O buffer... done.\n";
    const std::string begin = header("Command line options", '*', '*') +
                              "Original command line was:" + lastArguments + "\n\n";
    const std::string steps =
        header("Running tests", '*', '*') + "The configuration parameters set are:\n   " +
        layer.configuration + "\n\n" + "Starting tests...\n" +
        header("Running test for initial write latency...", '=', '|') + creation + preparation +
        "Test of latency for initial write has completed.\n\n" +
        header("Running test for initial write throughput...", '=', '|') + creation + preparation +
        "Test of initial write has completed.\n\n" +
        header("Running overwrite latency test...", '=', '|') + preparation +
        "Test of overwrite latency has completed.\n\n" +
        header("Running overwrite throughput test...", '=', '|') + preparation +
        "Test of overwrite has completed.\n\n" + header("Running read latency test...", '=', '|') +
        preparation + "Test of read latency has completed.\n\n" +
        header("Running read throughput test...", '=', '|') + preparation +
        "Test of read has completed.\n\n" +
        "Tests completed.\nCleanup... close... remove... done.\n";
    EXPECT_THAT(printed.output, testing::StartsWith(begin + "The tests will be executed with"));
    EXPECT_THAT(printed.output, testing::EndsWith("      None\n\n" + steps));
    EXPECT_EQ(printed.errors, "");
}

TEST_F(Run, TellsThatTheFileIsPreparedWhenVerbose)
{
    EXPECT_EQ(run("-t read -o verbose"), runSucceeded);

    EXPECT_THAT(printed.output,
                testing::HasSubstr("Starting tests...\n" +
                                   header("Preparing file for later tests...", '-', '|') +
                                   "Opening and initializing file \"" + directory.path() +
                                   "/datavol.dat\"... done.\nFile has been prepared.\n\n" +
                                   header("Running read throughput test...", '=', '|')));
}

TEST_F(Run, AddsTheStatisticsOfEachPassWhenFull)
{
    EXPECT_EQ(run("-t initial_write -o full"), runSucceeded);

    EXPECT_THAT(printed.output, testing::HasSubstr("Preparing I/O buffer... done.\n"
                                                   "Full statistics:\n"
                                                   "counters of print total\n"
                                                   "counters of print detailed\n"
                                                   "counters of print queue\n"
                                                   "counters of print completion\n"
                                                   "\n"
                                                   "Test of initial write has completed.\n\n"));
}

TEST_F(Run, WithBadArgumentsIsRefused)
{
    EXPECT_EQ(run("-t nothing"), runArgumentsRefused);

    EXPECT_EQ(printed.errors, "ERROR: Test mode \"nothing\" is unrecognized!\n");
    EXPECT_EQ(printed.output,
              "evaluation is unsuccessful\nOriginal command line was:" + lastArguments + "\n\n");
    EXPECT_EQ(layer.takeJournal(), "");
}

TEST_F(Run, WithoutAFactoryEndsWithoutCleanup)
{
    layer.refusesFactory = true;

    EXPECT_EQ(run("-o verbose"), runInitFailed);

    EXPECT_EQ(printed.errors, "ERROR: Creation of file factory failed!\n");
    EXPECT_THAT(printed.output, testing::EndsWith(header("Running tests", '*', '*')));
    EXPECT_EQ(story(), "");
}

TEST_F(Run, WithARefusedParameterEndsWithoutCleanup)
{
    EXPECT_EQ(run("--param num_submit_queues=77"), runInitFailed);

    EXPECT_EQ(printed.errors,
              "Parameter value \"1\" in file factory does not match specified\n"
              "value for parameter \"num_submit_queues=77\"\n"
              "ERROR: Parameter check failed!\n");
    EXPECT_EQ(story(), "factory ends\n");
}

TEST_F(Run, WithoutADataFileToWriteCleansUpAndReturnsFour)
{
    layer.refusesFile = true;
    for (const char* options : {"-m latency", "-m throughput", "-t read"}) {
        layer.journal.clear();
        EXPECT_EQ(run(options), runInitialWriteFailed);
        EXPECT_EQ(printed.errors, "ERROR: Creation of data file failed!\n");
        EXPECT_EQ(layer.journal[layer.journal.size() - 2], "removeAtEnd datavol.dat false");
    }
}

TEST_F(Run, WithoutADataFileToWritePrintsCleanupOnTheSameLine)
{
    layer.refusesSpace = true;

    EXPECT_EQ(run("-t initial_write -o verbose"), runInitialWriteFailed);

    EXPECT_THAT(printed.output,
                testing::EndsWith("Opening and initializing file \"" + directory.path() +
                                  "/datavol.dat\"... Cleanup... close... "
                                  "remove... done.\n"));
}

TEST_F(Run, WithoutADataFileToReadReturnsSevenAndSaysNothing)
{
    EXPECT_EQ(run("-t read noinit -o verbose"), runDataFileMissing);

    EXPECT_EQ(printed.errors, "");
    EXPECT_THAT(printed.output,
                testing::EndsWith("Starting tests...\nCleanup... close... remove... done.\n"));
}

TEST_F(Run, WithADataFileThatCannotBeOpenedReturnsSeven)
{
    layer.isFileThere = true;
    layer.refusesFile = true;

    EXPECT_EQ(run("-t read noinit"), runDataFileMissing);

    EXPECT_EQ(printed.errors, "ERROR: Creation of data file failed!\n");
    EXPECT_FALSE(layer.isFileThere) << "cleanup removes what noclean does not keep";
}

TEST_F(Run, ThatFailsKeepsTheTextsOfTheLastOneThatSucceeded)
{
    ASSERT_EQ(run("-m all"), runSucceeded);
    const Texts published;
    ASSERT_NE(published.json, "");

    layer.refusesFactory = true;
    EXPECT_EQ(run("-t read -m latency"), runInitFailed);
    EXPECT_EQ(Texts(), published);

    EXPECT_EQ(run("-t nothing"), runArgumentsRefused);
    EXPECT_EQ(Texts(), published);

    layer.refusesFactory = false;
    layer.refusesFile = true;
    EXPECT_EQ(run("-t read -m latency"), runInitialWriteFailed);
    EXPECT_EQ(Texts(), published);
}

TEST_F(Run, ThatSucceedsReplacesTheTexts)
{
    ASSERT_EQ(run("-m all"), runSucceeded);
    const Texts first;

    ASSERT_EQ(run("-t read -m latency"), runSucceeded);

    EXPECT_NE(Texts(), first);
}

TEST_F(Run, CanBeFollowedByAnotherOne)
{
    const std::size_t before = (run("-m all"), fsperfAllocator().bytes());

    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(run("-m all"), runSucceeded);

    EXPECT_EQ(fsperfAllocator().bytes(), before);
}

TEST_F(Run, PassesAFailedCommandOnAndFreesEverything)
{
    ASSERT_EQ(run("-m all"), runSucceeded);
    const Texts published;
    const std::size_t before = fsperfAllocator().bytes();
    for (const char* command : {"reset total", "reset completion", "print queue"}) {
        layer.failingCommand = command;
        EXPECT_THROW(run("-m all -o full"), Diagnose::CommandException) << command;
        EXPECT_EQ(layer.journal.back(), "factory ends");
        EXPECT_EQ(layer.openFiles, 0U);
    }
    EXPECT_EQ(fsperfAllocator().bytes(), before);
    EXPECT_EQ(Texts(), published);
}

TEST_F(Run, WritesTheProfilersOutputOnceForAllPasses)
{
    const FakeProfiler profiler(layer);

    EXPECT_EQ(run("-t read -m all -p main:" + directory.path() + "/prof"), runSucceeded);

    EXPECT_EQ(story(),
              "profiler clear\nopenFile datavol.dat 2 0 33\nwrite\n"
              "profiler start\nread\nprofiler stop\ngetDetailed\n"
              "profiler start\nreadAsync\nprofiler stop\ngetDetailed\n"
              "profiler print -o " +
                  directory.path() + "/prof-cpu.dot," + directory.path() +
                  "/prof-wait.dot -f runTests\nprofiler clear\n"
                  "close\nremoveFile datavol.dat\nfactory ends\n");
}

TEST_F(Run, ProfilesLatencyToTheEndOfTheTestInTriggerMode)
{
    const FakeProfiler profiler(layer);

    EXPECT_EQ(run("-t read -m latency -p trigger:prof -o verbose"), runSucceeded);

    EXPECT_THAT(printed.output, testing::HasSubstr("PROFILER 'read-sync' STOPPED <<<<<<<<<<\n"));
    EXPECT_THAT(printed.output, testing::Not(testing::HasSubstr("AT END OF TRIGGER PHASE")));
}

TEST_F(Run, ProfilesThroughputToTheEndOfTheTriggerPhaseInTriggerMode)
{
    const FakeProfiler profiler(layer);

    EXPECT_EQ(run("-t read -p trigger:prof -o verbose"), runSucceeded);

    EXPECT_THAT(printed.output,
                testing::HasSubstr("PROFILER 'read-async' STOPPED AT END OF TRIGGER PHASE"));
    EXPECT_THAT(printed.output, testing::Not(testing::HasSubstr("'read-async' STOPPED <")));
}

TEST_F(Run, EndsWithTheExceptionOfAProfilerThatFails)
{
    FakeProfiler profiler(layer);
    profiler.failingCommand = "profiler stop";

    EXPECT_THROW(run("-t read -p all:prof"), Diagnose::CommandException);

    EXPECT_EQ(story(),
              "profiler clear\nopenFile datavol.dat 2 0 33\nwrite\n"
              "profiler start\nreadAsync\nprofiler stop\nclose\nfactory ends\n")
        << "no hook runs behind the one that failed";
}

TEST_F(Run, SetsUpTracingIfNobodyHas)
{
    if (Diagnose::TraceConfiguration::isConfigured())
        GTEST_SKIP() << "an earlier test of this process has set it up";
    const unitTests::ChildEnd end = unitTests::inChild([] {
        FakeFileLayer layerOfChild;
        std::cout << Diagnose::TraceConfiguration::isConfigured();
        Basis::string args = text("fsperf -t nothing .");
        runTestWrapper(args);
        std::cout << Diagnose::TraceConfiguration::isConfigured();
    });

    EXPECT_THAT(end.output, testing::StartsWith("0evaluation"));
    EXPECT_THAT(end.output, testing::EndsWith("1"));
}

TEST_F(Run, HasNoTextsBeforeTheFirstThatSucceeds)
{
    EXPECT_EQ(textsAtStart.json + textsAtStart.report + textsAtStart.row, "");
}

}  // namespace vetraTests
