#include <gtest/gtest.h>

#include "tests/services/support/Files.h"
#include "tests/vetraTests/FSPerf/Options.h"

namespace vetraTests {

namespace {

// An argument string that is accepted without a word, and the fields that it changes.
struct Accepted {
    std::string args;
    Fields changes;
};

// gtest prints a parameter that fails.
void PrintTo(const Accepted& accepted, std::ostream* stream)
{
    *stream << '"' << accepted.args << '"';
}

class AcceptedOptions : public testing::TestWithParam<Accepted> {
    const unitTests::WorkingDirectory directory;
};

class OptionValues : public testing::Test {
protected:
    const unitTests::WorkingDirectory directory;
};

const Fields readOnly = {{"test_initial_write", "0"}, {"test_overwrite", "0"}};

}  // namespace

TEST_P(AcceptedOptions, ChangeTheirFieldsAlone)
{
    const Evaluation evaluation(GetParam().args);
    EXPECT_TRUE(evaluation.succeeded);
    EXPECT_EQ(evaluation.output, "");
    EXPECT_EQ(evaluation.errors, "");
    EXPECT_EQ(evaluation.changes(), GetParam().changes);
}

INSTANTIATE_TEST_SUITE_P(
    TestMode, AcceptedOptions,
    testing::Values(
        Accepted{"fsperf -t all .", {}}, Accepted{"fsperf -t read .", readOnly},
        Accepted{"fsperf -t write .", {{"test_read", "0"}}},
        Accepted{"fsperf -t initial_write .", {{"test_read", "0"}, {"test_overwrite", "0"}}},
        Accepted{"fsperf -t overwrite .", {{"test_read", "0"}, {"test_initial_write", "0"}}},
        // The long form selects nothing, whatever its value.
        Accepted{"fsperf -test-mode read .", {}}, Accepted{"fsperf -test-mode nonsense .", {}},
        Accepted{"fsperf -test-mode read -t write .", {{"test_read", "0"}}}));

INSTANTIATE_TEST_SUITE_P(
    Measurements, AcceptedOptions,
    testing::Values(Accepted{"fsperf -m throughput .", {}},
                    Accepted{"fsperf -m latency .", {{"measurements", "2"}}},
                    Accepted{"fsperf -m all .", {{"measurements", "3"}}},
                    Accepted{"fsperf -measurements throughput .", {}},
                    Accepted{"fsperf -measurements latency .", {{"measurements", "2"}}},
                    Accepted{"fsperf -measurements all .", {{"measurements", "3"}}}));

INSTANTIATE_TEST_SUITE_P(
    Output, AcceptedOptions,
    testing::Values(Accepted{"fsperf -o short .", {}},
                    Accepted{"fsperf -o verbose .", {{"output_type", "1"}}},
                    Accepted{"fsperf -o full .", {{"output_type", "2"}}},
                    Accepted{"fsperf -o json .", {{"output_type", "3"}}},
                    Accepted{"fsperf -o JSON .", {{"output_type", "3"}}},
                    Accepted{"fsperf -o json_short .", {{"output_type", "4"}}},
                    Accepted{"fsperf -output short .", {}},
                    Accepted{"fsperf -output verbose .", {{"output_type", "1"}}},
                    Accepted{"fsperf -output full .", {{"output_type", "2"}}},
                    Accepted{"fsperf -output json .", {{"output_type", "3"}}},
                    Accepted{"fsperf -output JSON .", {{"output_type", "3"}}},
                    Accepted{"fsperf -output json_short .", {{"output_type", "4"}}}));

INSTANTIATE_TEST_SUITE_P(
    OrderAndData, AcceptedOptions,
    testing::Values(Accepted{"fsperf -i random .", {}},
                    Accepted{"fsperf -i sequential .", {{"random_io_order", "0"}}},
                    Accepted{"fsperf -io-order random .", {}},
                    Accepted{"fsperf -io-order sequential .", {{"random_io_order", "0"}}},
                    Accepted{"fsperf -c .", {{"randomize_data", "0"}}},
                    Accepted{"fsperf -const-data .", {{"randomize_data", "0"}}}));

INSTANTIATE_TEST_SUITE_P(
    Sizes, AcceptedOptions,
    testing::Values(
        Accepted{"fsperf -b 16K .", {{"block_size", "16384"}, {"block_size_text", "16K"}}},
        Accepted{"fsperf -block-size 16K .", {{"block_size", "16384"}, {"block_size_text", "16K"}}},
        // The buffer follows the file.
        Accepted{
            "fsperf -f 1GB .",
            {{"file_size", "1073741824"}, {"alloc_size", "1073741824"}, {"file_size_text", "1GB"}}},
        Accepted{
            "fsperf -file-size 5G .",
            {{"file_size", "5368709120"}, {"alloc_size", "5368709120"}, {"file_size_text", "5G"}}},
        Accepted{"fsperf -s 8MB .", {{"alloc_size", "8388608"}}},
        Accepted{"fsperf -alloc-size 8MB .", {{"alloc_size", "8388608"}}},
        Accepted{"fsperf -b 4mb -f 0016GB -s 16gb .",
                 {{"block_size_text", "4mb"}, {"file_size_text", "0016GB"}}},
        Accepted{"fsperf -b 4096 -f 8192 -s 4096 .",
                 {{"block_size", "4096"},
                  {"file_size", "8192"},
                  {"alloc_size", "4096"},
                  {"block_size_text", "4096"},
                  {"file_size_text", "8192"}}}));

INSTANTIATE_TEST_SUITE_P(
    Profiler, AcceptedOptions,
    testing::Values(
        Accepted{"fsperf -p off:prof .", {{"profiler_base_name", "prof"}}},
        Accepted{"fsperf -p all:prof .", {{"profiler_mode", "1"}, {"profiler_base_name", "prof"}}},
        Accepted{"fsperf -p main:prof .", {{"profiler_mode", "2"}, {"profiler_base_name", "prof"}}},
        Accepted{"fsperf -p MAIN:prof .", {{"profiler_mode", "2"}, {"profiler_base_name", "prof"}}},
        Accepted{"fsperf -p mAiN:Prof .", {{"profiler_mode", "2"}, {"profiler_base_name", "Prof"}}},
        Accepted{"fsperf -p trigger:prof .",
                 {{"profiler_mode", "3"}, {"profiler_base_name", "prof"}}},
        Accepted{"fsperf -p submit:prof .",
                 {{"profiler_mode", "4"}, {"profiler_base_name", "prof"}}},
        Accepted{"fsperf -profiler completion:prof .",
                 {{"profiler_mode", "5"}, {"profiler_base_name", "prof"}}},
        Accepted{"fsperf -p prof .", {{"profiler_base_name", "prof"}}},
        Accepted{"fsperf -p ma:prof .", {{"profiler_base_name", "ma:prof"}}},
        Accepted{"fsperf -p main:a:b .", {{"profiler_mode", "2"}, {"profiler_base_name", "a:b"}}},
        Accepted{"fsperf -p main:: .", {{"profiler_mode", "2"}, {"profiler_base_name", ":"}}}));

INSTANTIATE_TEST_SUITE_P(Flags, AcceptedOptions,
                         testing::Values(Accepted{"fsperf noclean .", {{"cleanup", "0"}}},
                                         Accepted{"fsperf -t read noinit .",
                                                  {{"test_initial_write", "0"},
                                                   {"test_overwrite", "0"},
                                                   {"initialize", "0"}}},
                                         // One blank ends the first flag and begins the second.
                                         Accepted{"fsperf -t overwrite noclean noinit .",
                                                  {{"test_initial_write", "0"},
                                                   {"test_read", "0"},
                                                   {"cleanup", "0"},
                                                   {"initialize", "0"}}},
                                         Accepted{"noclean .", {}}, Accepted{"noinit .", {}}));

INSTANTIATE_TEST_SUITE_P(
    Search, AcceptedOptions,
    testing::Values(
        // A short form in the first position has no blank in front.
        Accepted{"-t read .", {}}, Accepted{" -t read .", readOnly}, Accepted{"-output full .", {}},
        Accepted{" -output full .", {{"output_type", "2"}}}, Accepted{"-c .", {}},
        Accepted{"-const-data .", {}}, Accepted{"fsperf -o full -o json .", {{"output_type", "2"}}},
        Accepted{"fsperf -output json -o full .", {{"output_type", "2"}}},
        Accepted{"fsperf -output:full .", {{"output_type", "2"}}},
        Accepted{"fsperf -outputXfull .", {{"output_type", "2"}}},
        // The value of one option may begin another.
        Accepted{"fsperf -p -c .", {{"profiler_base_name", "-c"}, {"randomize_data", "0"}}},
        Accepted{"fsperf -const-database .", {{"randomize_data", "0"}}},
        Accepted{"fsperf --output full .", {}}, Accepted{"fsperf -mesurements all .", {}},
        Accepted{"fsperf\t-t\tread .", {}}, Accepted{"  .", {}}, Accepted{" .", {}}));

INSTANTIATE_TEST_SUITE_P(
    Parameters, AcceptedOptions,
    testing::Values(Accepted{"fsperf --param k=v .", {{"parameters", "k=v\n"}}},
                    Accepted{"k=v .", {{"parameters", "k=v\n"}}},
                    Accepted{"fsperf  a=1   b=2  .", {{"parameters", "a=1\nb=2\n"}}},
                    Accepted{"fsperf k=1 k=2 .", {{"parameters", "k=1\nk=2\n"}}},
                    Accepted{"fsperf =v .", {{"parameters", "=v\n"}}},
                    Accepted{"fsperf = .", {{"parameters", "=\n"}}},
                    Accepted{"fsperf k= .", {{"parameters", "k=\n"}}},
                    Accepted{"fsperf k=a=b .", {{"parameters", "k=a=b\n"}}},
                    Accepted{"fsperf -output=full .",
                             {{"output_type", "2"}, {"parameters", "-output=full\n"}}}));

TEST_F(OptionValues, WithoutOptionsAreTheDefaultsForTheDirectory)
{
    const CCmdOptions fresh;
    const Evaluation evaluation("fsperf .");

    ASSERT_TRUE(evaluation.succeeded);
    const Fields changes = {{"directory_path", directory.path()}};
    EXPECT_EQ(differences(fieldsOf(fresh), fieldsOf(evaluation.options)), changes);
}

TEST_F(OptionValues, AnUnalignedBlockIsWarnedAboutAndTaken)
{
    const Evaluation evaluation("fsperf -b 6144 -f 12288 .");

    EXPECT_TRUE(evaluation.succeeded);
    EXPECT_EQ(evaluation.errors, "ERROR: Block size must be 4KB aligned!\n");
    EXPECT_EQ(evaluation.output, "");
    EXPECT_EQ(evaluation.options.m_block_size, 6144U);
}

TEST_F(OptionValues, TheLastParameterOfAKeyCountsAndTheOthersAreKept)
{
    const Evaluation evaluation("fsperf num_submit_queues=2 x= =y num_submit_queues=3 a=b=c .");

    ASSERT_TRUE(evaluation.succeeded);
    const Configuration::TempConfiguration& configuration = evaluation.options.m_configuration;
    EXPECT_EQ(inForce(configuration, "num_submit_queues"), "3");
    EXPECT_EQ(inForce(configuration, "x"), "");
    EXPECT_EQ(inForce(configuration, ""), "y");
    EXPECT_EQ(inForce(configuration, "a"), "b=c");
    EXPECT_EQ(evaluation.options.m_parameters.size(), 5U);
}

TEST_F(OptionValues, ALongOptionWithAnEqualsSignIsAParameterAsWell)
{
    const Evaluation evaluation("fsperf -output=full .");

    ASSERT_TRUE(evaluation.succeeded);
    EXPECT_EQ(inForce(evaluation.options.m_configuration, "-output"), "full");
}

TEST_F(OptionValues, ADirectoryWithAnEqualsSignIsAParameterAsWell)
{
    std::filesystem::create_directory("a=b");
    const Evaluation evaluation("fsperf a=b");

    ASSERT_TRUE(evaluation.succeeded);
    ASSERT_EQ(evaluation.options.m_parameters.size(), 1U);
    EXPECT_EQ(evaluation.options.m_directory_path, arguments(directory.path() + "/a=b"));
}

TEST_F(OptionValues, EvaluateParametersDoesWhatExtractParamsDoes)
{
    CCmdOptions options;
    EXPECT_TRUE(options.evaluateParameters(arguments("k=v")));
    EXPECT_EQ(inForce(options.m_configuration, "k"), "v");
    EXPECT_EQ(options.m_parameters.size(), 1U);
    EXPECT_TRUE(options.extractParams(arguments("")));
    EXPECT_EQ(options.m_parameters.size(), 1U);
}

TEST_F(OptionValues, ATestModeTurnsNoTestOn)
{
    CCmdOptions options;
    options.m_test_overwrite = false;
    EXPECT_TRUE(options.evaluateTestMode(arguments(" -t write ")));
    EXPECT_FALSE(options.m_test_overwrite);
    EXPECT_TRUE(options.m_test_initial_write);
    EXPECT_FALSE(options.m_test_read);
}

}  // namespace vetraTests
