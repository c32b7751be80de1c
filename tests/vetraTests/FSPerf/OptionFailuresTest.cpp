#include <gtest/gtest.h>

#include <random>

#include "tests/services/support/Files.h"
#include "tests/vetraTests/FSPerf/Options.h"

namespace vetraTests {

namespace {

struct Refused {
    std::string args;
    std::string errors;
};

void PrintTo(const Refused& refused, std::ostream* stream)
{
    *stream << '"' << refused.args << '"';
}

class RefusedOptions : public testing::TestWithParam<Refused> {
    const unitTests::WorkingDirectory directory;
};

class OptionFailures : public testing::Test {
protected:
    const unitTests::WorkingDirectory directory;
};

constexpr const char* badBlock = "ERROR: Invalid block size specified!\n";
constexpr const char* badFile = "ERROR: Invalid size for file specified!\n";
constexpr const char* badAlloc = "ERROR: Invalid alloc size specified!\n";
constexpr const char* separator = "ERROR: wrong profiler mode-path separator!\n";
constexpr const char* noBaseName = "ERROR: missing profiler filename!\n";
constexpr const char* noInit =
    "ERROR: Noinit flag cannot be combined with write initialization test!\n";

// A string that a hurried operator or a broken configuration might give.
std::string someArguments(std::mt19937& generator)
{
    static const char* const pieces[] = {
        " ",   "  ",       " -t ",     " -m ",       " -b ", " -f ",        " -s ",     " -o ",
        " -i", " -c ",     " -p ",     "=",          "k=v",  "read",        "all",      "full",
        "4K",  "8192",     "0",        "1G",         ".",    " .",          "off",      "main:x",
        "-",   " noinit ", "noclean ", " -profiler", "/",    " -test-mode", " -output", "random",
    };
    std::string text;
    for (std::size_t count = generator() % 8; count > 0; --count) {
        if (generator() % 6 == 0)
            text += static_cast<char>(generator() % 256);
        else
            text += pieces[generator() % std::size(pieces)];
    }
    if (generator() % 2 == 0)
        text += " .";
    return text;
}

}  // namespace

TEST_P(RefusedOptions, SayWhyInOneLine)
{
    const Evaluation evaluation(GetParam().args);
    EXPECT_FALSE(evaluation.succeeded);
    EXPECT_EQ(evaluation.errors, GetParam().errors);
    EXPECT_EQ(evaluation.output, "evaluation is unsuccessful\n");
}

INSTANTIATE_TEST_SUITE_P(
    Words, RefusedOptions,
    testing::Values(
        Refused{"fsperf -t some .", "ERROR: Test mode \"some\" is unrecognized!\n"},
        Refused{"fsperf -t READ .", "ERROR: Test mode \"READ\" is unrecognized!\n"},
        Refused{"fsperf -t  read .", "ERROR: Test mode \"\" is unrecognized!\n"},
        Refused{"fsperf . -t ", "ERROR: Test mode \"\" is unrecognized!\n"},
        Refused{"fsperf -m full .",
                "ERROR: Measurement collection type \"full\" is unrecognized!\n"},
        Refused{"fsperf -m  .", "ERROR: Measurement collection type \"\" is unrecognized!\n"},
        Refused{"fsperf -measurements All .",
                "ERROR: Measurement collection type \"All\" is unrecognized!\n"},
        Refused{"fsperf . -measurements",
                "ERROR: Measurement collection type \"\" is unrecognized!\n"},
        Refused{"fsperf -o Json .", "ERROR: Output type \"Json\" is unrecognized!\n"},
        Refused{"fsperf -o JSON_SHORT .", "ERROR: Output type \"JSON_SHORT\" is unrecognized!\n"},
        Refused{"fsperf -output  full .", "ERROR: Output type \"\" is unrecognized!\n"},
        Refused{"fsperf . -output", "ERROR: Output type \"\" is unrecognized!\n"},
        Refused{"fsperf . -output ", "ERROR: Output type \"\" is unrecognized!\n"},
        Refused{"fsperf -i backwards .",
                "ERROR: I/O access order type \"backwards\" is unrecognized!\n"},
        Refused{"fsperf -io-order Random .",
                "ERROR: I/O access order type \"Random\" is unrecognized!\n"},
        Refused{"fsperf . -io-order", "ERROR: I/O access order type \"\" is unrecognized!\n"}));

INSTANTIATE_TEST_SUITE_P(
    Sizes, RefusedOptions,
    testing::Values(Refused{"fsperf -b 0 .", badBlock}, Refused{"fsperf -b big .", badBlock},
                    Refused{"fsperf -b  .", badBlock}, Refused{"fsperf -b -4K .", badBlock},
                    Refused{"fsperf -b 4.5K .", badBlock}, Refused{"fsperf -b 16384PB .", badBlock},
                    Refused{"fsperf . -block-size", badBlock}, Refused{"fsperf -f 0GB .", badFile},
                    Refused{"fsperf -f 4MBx .", badFile}, Refused{"fsperf . -file-size", badFile},
                    Refused{"fsperf -s 0 .", badAlloc}, Refused{"fsperf -s x .", badAlloc},
                    Refused{"fsperf . -alloc-size", badAlloc},
                    Refused{"fsperf -f 6MB .",
                            "ERROR: File size is not a whole-numbered multiple of block size!\n"},
                    Refused{"fsperf -b 3MB .",
                            "ERROR: File size is not a whole-numbered multiple of block size!\n"},
                    Refused{"fsperf -s 6MB .",
                            "ERROR: Alloc size is not a whole-numbered multiple of block size!\n"},
                    Refused{"fsperf -s 8MB -f 4MB .",
                            "ERROR: Alloc size greater than file_size!\n"},
                    Refused{"fsperf -s 8MB -f 12MB .",
                            "ERROR: File size is not a whole-numbered multiple of alloc size!\n"},
                    Refused{"fsperf -b 6144 .",
                            "ERROR: Block size must be 4KB aligned!\n"
                            "ERROR: File size is not a whole-numbered multiple of block size!\n"}));

INSTANTIATE_TEST_SUITE_P(
    ProfilerAndFlags, RefusedOptions,
    testing::Values(Refused{"fsperf -p main-prof .", separator},
                    Refused{"fsperf -p offline:x .", separator},
                    Refused{"fsperf -p ALLx .", separator}, Refused{"fsperf -p off .", noBaseName},
                    Refused{"fsperf -p off: .", noBaseName},
                    Refused{"fsperf -p Completion .", noBaseName},
                    Refused{"fsperf -p  .", noBaseName}, Refused{"fsperf . -profiler", noBaseName},
                    Refused{"fsperf noinit .", noInit}, Refused{"fsperf -t write noinit .", noInit},
                    Refused{"fsperf -t initial_write noinit .", noInit},
                    // The long form leaves the initial write on.
                    Refused{"fsperf -test-mode read noinit .", noInit}));

// Families are read in a fixed order, and the first that fails ends the reading.
INSTANTIATE_TEST_SUITE_P(
    Order, RefusedOptions,
    testing::Values(
        Refused{"-o x -i x -t x -m x -b 0 .", "ERROR: Test mode \"x\" is unrecognized!\n"},
        Refused{"- -b 0 -m x -o x .",
                "ERROR: Measurement collection type \"x\" is unrecognized!\n"},
        Refused{"- -o x -i x -s 0 -f 0 -b 0 .", badBlock},
        Refused{"- -o x -i x -s 0 -f 0 .", badFile}, Refused{"- -o x -i x -s 0 .", badAlloc},
        Refused{"- -p off -i x -o x .", "ERROR: Output type \"x\" is unrecognized!\n"},
        Refused{"- -p off -i x .", "ERROR: I/O access order type \"x\" is unrecognized!\n"},
        Refused{"- noinit -p off missing", noBaseName}, Refused{"- noinit missing", noInit}));

TEST_F(OptionFailures, AWordThatIsRefusedPutsTheDefaultsBack)
{
    for (const char* args : {"fsperf -t read -m wrong .", "fsperf -t read -o wrong .",
                             "fsperf -t read -i wrong .", "fsperf -t read -b wrong .",
                             "fsperf -t read -b 4K -f wrong .", "fsperf -t read -b 4K -s wrong .",
                             "fsperf -t read -f 6MB .", "fsperf -t read -f 16MB -s 6MB .",
                             "fsperf -t read -f 4MB -s 8MB .", "fsperf -t read -f 12MB -s 8MB ."}) {
        const Evaluation evaluation(args);
        EXPECT_FALSE(evaluation.succeeded) << args;
        Fields changes = evaluation.changes();
        changes.erase("alloc_size");  // which reset leaves
        const Fields noDirectory = {{"directory_path", ""}};
        EXPECT_EQ(changes, noDirectory) << args;
    }
}

TEST_F(OptionFailures, AProfilerValueThatIsRefusedLeavesTheRest)
{
    for (const char* args : {"fsperf -t read -p main-x .", "fsperf -t read -p main: ."}) {
        const Evaluation evaluation(args);
        EXPECT_FALSE(evaluation.options.m_test_overwrite) << args;
        EXPECT_EQ(evaluation.options.m_profiler_mode, ProfilerMode::MAIN) << args;
        EXPECT_EQ(evaluation.options.m_profiler_base_name, "") << args;
    }
}

TEST_F(OptionFailures, ARefusedNoinitLeavesTheRest)
{
    const Evaluation evaluation("fsperf -t write noinit .");
    EXPECT_FALSE(evaluation.options.m_test_read);
    EXPECT_FALSE(evaluation.options.m_initialize);
}

TEST_F(OptionFailures, EveryBeginningOfALongLineIsReadOrRefused)
{
    const std::string line =
        "fsperf -t overwrite -m all -b 16K -f 32K -s 16K -o json_short -i sequential -c "
        "-p main:prof noclean noinit -measurements all -output full -profiler off:x k=v .";
    std::size_t accepted = 0;
    for (std::size_t length = 0; length <= line.size(); ++length) {
        const Evaluation evaluation(line.substr(0, length));
        EXPECT_EQ(evaluation.succeeded, evaluation.output.empty()) << line.substr(0, length);
        accepted += evaluation.succeeded;
    }
    EXPECT_EQ(accepted, 1U);
}

TEST_F(OptionFailures, NoBytesCanDoMoreThanBeRefused)
{
    std::mt19937 generator(20);
    std::size_t accepted = 0;
    constexpr std::size_t rounds = 20000;
    for (std::size_t round = 0; round < rounds; ++round) {
        const std::string args = someArguments(generator);
        const Evaluation evaluation(args);
        const CCmdOptions& options = evaluation.options;
        if (!evaluation.succeeded) {
            EXPECT_EQ(evaluation.output, "evaluation is unsuccessful\n") << args;
            EXPECT_EQ(evaluation.errors.substr(0, 7), "ERROR: ") << args;
            continue;
        }
        ++accepted;
        EXPECT_EQ(evaluation.output, "") << args;
        EXPECT_EQ(options.m_file_size % options.m_block_size, 0U) << args;
        EXPECT_EQ(options.m_file_size % options.m_alloc_size, 0U) << args;
        EXPECT_NE(options.m_directory_path, "") << args;
    }
    // Both ways are taken often enough to mean something.
    EXPECT_GT(accepted, rounds / 100);
    EXPECT_LT(accepted, rounds * 9 / 10);
}

}  // namespace vetraTests
