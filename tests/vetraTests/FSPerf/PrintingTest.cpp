#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <iostream>
#include <sstream>

#include "tests/services/support/CapturedOutput.h"
#include "tests/services/support/ChildProcess.h"
#include "tests/services/support/Guards.h"
#include "tests/vetraTests/FSPerf/Options.h"
#include "vetraTests/FSPerf/FSPerfHelper.h"

namespace vetraTests {

namespace {

std::string printedHeader(const char* text, char frame)
{
    const unitTests::CapturedOutput out;
    printBlockHeader(text, frame);
    return out.text();
}

std::string printedSettings(const CCmdOptions& options)
{
    const unitTests::CapturedOutput out;
    printExtractedCmdArgs(options);
    return out.text();
}

// Counts the flushes of a stream.
class FlushCounter : public std::stringbuf {
public:
    long flushes = 0;

private:
    int sync() override
    {
        ++flushes;
        return 0;
    }
};

// The row of a label, without its three blanks.
std::string setting(const CCmdOptions& options, const std::string& label)
{
    const std::string all = printedSettings(options);
    const std::size_t start = all.find("\n   " + label) + 4;
    return all.substr(start, all.find('\n', start) - start);
}

}  // namespace

TEST(MemSize2Str, PrintsTheLargestUnitThatDivides)
{
    const std::pair<unsigned long, const char*> sizes[] = {
        {0, "0PB"},
        {1, "1B"},
        {512, "512B"},
        {1023, "1023B"},
        {1024, "1KB"},
        {1536, "1536B"},
        {4096, "4KB"},
        {(1UL << 20) - 1024, "1023KB"},
        {1UL << 20, "1MB"},
        {4UL << 20, "4MB"},
        {(1UL << 30) - (1UL << 20), "1023MB"},
        {1UL << 30, "1GB"},
        {16UL << 30, "16GB"},
        {1UL << 40, "1TB"},
        {3UL << 39, "1536GB"},
        {1UL << 50, "1PB"},
        {3UL << 49, "1536TB"},
        {1UL << 63, "8192PB"},
        {~0UL, "18446744073709551615B"},
    };
    for (const auto& [bytes, text] : sizes)
        EXPECT_EQ(memSize2Str(bytes), text);
}

TEST(FsperfAllocator, IsTheEnginesDomainBelowTheGlobalOne)
{
    EXPECT_EQ(fsperfAllocator().name(), "FSPerf");
    EXPECT_EQ(fsperfAllocatorHandle().get(), &fsperfAllocator());
    const std::size_t before = Basis::Allocator::global()->bytes();
    const Basis::string text(100, 'x', &fsperfAllocator());
    EXPECT_GE(Basis::Allocator::global()->bytes(), before + 100);
}

TEST(FsperfAllocator, ServesWhatTheHelpersReturn)
{
    const unitTests::NoDefaultResource noDefault;
    EXPECT_EQ(memSize2Str(~0UL).get_allocator().resource(), &fsperfAllocator());
    EXPECT_EQ(testUsage().get_allocator().resource(), &fsperfAllocator());
}

TEST(PrintBlockHeader, FramesAShortTextIn80Columns)
{
    const std::string border(80, '*');
    EXPECT_EQ(
        printedHeader("Running tests", '*'),
        "\n" + border + "\n* Running tests" + std::string(63, ' ') + " *\n" + border + "\n\n");
}

TEST(PrintBlockHeader, PutsBarsBesideTheFramesMadeOfLines)
{
    for (const char frame : {'-', '/', '=', '\\'}) {
        const std::string border(80, frame);
        EXPECT_EQ(printedHeader("x", frame),
                  "\n" + border + "\n| x" + std::string(75, ' ') + " |\n" + border + "\n\n");
    }
    for (const char frame : {'#', '|', '+', '_', 'a'}) {
        const std::string side(1, frame);
        const std::string border(80, frame);
        EXPECT_EQ(printedHeader("x", frame), "\n" + border + "\n" + side + " x" +
                                                 std::string(75, ' ') + " " + side + "\n" + border +
                                                 "\n\n");
    }
}

TEST(PrintBlockHeader, WidensWithATextBeyond76Characters)
{
    for (const std::size_t length : {76U, 77U, 200U}) {
        const std::string text(length, 't');
        const std::string border(length + 4, '=');
        EXPECT_EQ(printedHeader(text.c_str(), '='),
                  "\n" + border + "\n| " + text + " |\n" + border + "\n\n");
    }
}

TEST(PrintBlockHeader, PrintsNothingForNoText)
{
    EXPECT_EQ(printedHeader(nullptr, '*'), "");
    EXPECT_EQ(printedHeader("", '*'), "");
}

TEST(PrintCommandLine, AddsNothingToTheArguments)
{
    const unitTests::CapturedOutput out;
    printCommandLine(arguments("fsperf  -t read ."));
    printCommandLine(arguments(""));
    EXPECT_EQ(out.text(),
              "Original command line was:fsperf  -t read .\n\n"
              "Original command line was:\n\n");
}

TEST(PrintExtractedCmdArgs, PrintsTheDefaultsRowByRow)
{
    CCmdOptions options;
    options.m_directory_path = "/data";
    EXPECT_EQ(printedSettings(options),
              "The tests will be executed with the following settings:\n"
              "\n"
              "   Test mode:..............................all\n"
              "   Measurements............................throughput\n"
              "   Program output:.........................short\n"
              "   Block size:.............................4MB\n"
              "   File size:..............................16GB\n"
              "   Alloc size:.............................16GB\n"
              "   I/O access order:.......................random\n"
              "   Randomize data:.........................yes\n"
              "   No cleanup: ............................no\n"
              "   No initialization:......................no\n"
              "   Profiler mode:..........................off\n"
              "   Profiler base name:.....................\n"
              "   Directory path:........................./data\n"
              "   Additional program parameters:\n"
              "      None\n"
              "\n");
}

TEST(PrintExtractedCmdArgs, PrintsWhatOptionsChange)
{
    CCmdOptions options;
    options.m_test_initial_write = false;
    options.m_test_read = false;
    options.m_measurements = 3;
    options.m_output_type = OutputType::FULL;
    options.m_block_size = 6144;
    options.m_file_size = 12288;
    options.m_alloc_size = 0;
    options.m_random_io_order = false;
    options.m_randomize_data = false;
    options.m_cleanup = false;
    options.m_initialize = false;
    options.m_profiler_mode = ProfilerMode::TRIGGER;
    options.m_profiler_base_name = "prof";
    options.m_directory_path = "/";
    options.m_parameters.emplace_back("k=v");
    options.m_parameters.emplace_back("=");
    EXPECT_EQ(printedSettings(options),
              "The tests will be executed with the following settings:\n"
              "\n"
              "   Test mode:..............................overwrite\n"
              "   Measurements............................all\n"
              "   Program output:.........................full\n"
              "   Block size:.............................6KB\n"
              "   File size:..............................12KB\n"
              "   Alloc size:.............................0PB\n"
              "   I/O access order:.......................sequential\n"
              "   Randomize data:.........................no\n"
              "   No cleanup: ............................yes\n"
              "   No initialization:......................yes\n"
              "   Profiler mode:..........................trigger\n"
              "   Profiler base name:.....................prof\n"
              "   Directory path:........................./\n"
              "   Additional program parameters:\n"
              "      k=v\n"
              "      =\n"
              "\n");
}

TEST(PrintExtractedCmdArgs, NamesTheTestModeFromThreeFlags)
{
    const char* const modes[] = {"read",          "read",          "overwrite", "overwrite",
                                 "initial_write", "initial_write", "write",     "all"};
    CCmdOptions options;
    for (unsigned flags = 0; flags < 8; ++flags) {
        options.m_test_initial_write = (flags & 4) != 0;
        options.m_test_overwrite = (flags & 2) != 0;
        options.m_test_read = (flags & 1) != 0;
        EXPECT_EQ(setting(options, "Test mode:"),
                  "Test mode:" + std::string(30, '.') + modes[flags]);
    }
}

TEST(PrintExtractedCmdArgs, NamesEachMeasurementAndOutputType)
{
    CCmdOptions options;
    const char* const measurements[] = {"Unknown", "throughput", "latency", "all", "Unknown"};
    for (std::uint8_t value = 0; value < std::size(measurements); ++value) {
        options.m_measurements = value;
        EXPECT_EQ(setting(options, "Measurements"),
                  "Measurements" + std::string(28, '.') + measurements[value]);
    }
    const char* const types[] = {"short", "verbose", "full", "json", "json_short", "Unknown"};
    for (std::uint8_t value = 0; value < std::size(types); ++value) {
        options.m_output_type = static_cast<OutputType>(value);
        EXPECT_EQ(setting(options, "Program output:"),
                  "Program output:" + std::string(25, '.') + types[value]);
    }
}

TEST(PrintExtractedCmdArgs, NamesEachProfilerMode)
{
    CCmdOptions options;
    const char* const modes[] = {"off", "all", "main", "trigger", "submit", "completion"};
    for (std::uint32_t value = 0; value < std::size(modes); ++value) {
        options.m_profiler_mode = static_cast<ProfilerMode>(value);
        EXPECT_EQ(setting(options, "Profiler mode:"),
                  "Profiler mode:" + std::string(26, '.') + modes[value]);
    }
}

TEST(PrintExtractedCmdArgs, StopsTheProgramAtAProfilerModeThatDoesNotExist)
{
    const unitTests::ChildEnd end = unitTests::inChild([] {
        CCmdOptions options;
        options.m_profiler_mode = static_cast<ProfilerMode>(6);
        printExtractedCmdArgs(options);
    });
    EXPECT_EQ(end.signal, SIGABRT);
    EXPECT_NE(end.errors.find("profiler mode"), std::string::npos) << end.errors;
}

TEST(Printing, FlushesAtEachEndOfLine)
{
    FlushCounter counter;
    std::streambuf* const usual = std::cout.rdbuf(&counter);
    printBlockHeader("text", '*');
    printCommandLine(arguments("fsperf ."));
    printExtractedCmdArgs(CCmdOptions());
    std::cout.rdbuf(usual);

    const std::string all = counter.str();
    EXPECT_EQ(counter.flushes, std::count(all.begin(), all.end(), '\n'));
    EXPECT_EQ(counter.flushes, 5 + 2 + 18);
}

TEST(PrintExtractedCmdArgs, LeavesTheFormatOfTheStreamAlone)
{
    const unitTests::CapturedOutput out;
    printExtractedCmdArgs(CCmdOptions());
    printBlockHeader("text", '*');
    EXPECT_EQ(std::cout.fill(), ' ');
    EXPECT_EQ(std::cout.width(), 0);
}

}  // namespace vetraTests
