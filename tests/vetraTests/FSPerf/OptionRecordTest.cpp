#include <gtest/gtest.h>

#include <iostream>
#include <type_traits>

#include "tests/services/support/CapturedOutput.h"
#include "tests/services/support/Files.h"
#include "tests/services/support/Guards.h"
#include "tests/vetraTests/FSPerf/Options.h"
#include "vetraTests/FSPerf/FSPerfHelper.h"

namespace vetraTests {

namespace {

const Fields newRecord = {
    {"cleanup", "1"},           {"initialize", "1"},          {"test_initial_write", "1"},
    {"test_overwrite", "1"},    {"test_read", "1"},           {"random_io_order", "1"},
    {"randomize_data", "1"},    {"output_type", "0"},         {"measurements", "1"},
    {"block_size", "4194304"},  {"file_size", "17179869184"}, {"alloc_size", "17179869184"},
    {"block_size_text", "4MB"}, {"file_size_text", "16GB"},   {"directory_path", ""},
    {"profiler_mode", "0"},     {"profiler_base_name", ""},   {"parameters", ""},
};

const Fields engineDefaults = {
    {"num_completion_queues", "1"},      {"size_kernel_io_queue", "512"},
    {"max_parallel_io_requests", "64"},  {"max_submit_batch_size", "64"},
    {"min_submit_batch_size", "16"},     {"async_read_submit", "on"},
    {"num_submit_queues", "1"},          {"async_write_submit_blocks", "all"},
    {"async_write_submit_active", "on"},
};

void changeEveryField(CCmdOptions& options)
{
    options.m_cleanup = false;
    options.m_initialize = false;
    options.m_test_initial_write = false;
    options.m_test_overwrite = false;
    options.m_test_read = false;
    options.m_random_io_order = false;
    options.m_randomize_data = false;
    options.m_output_type = OutputType::FULL;
    options.m_measurements = 3;
    options.m_block_size = 1;
    options.m_file_size = 2;
    options.m_alloc_size = 3;
    options.m_block_size_text = "block";
    options.m_file_size_text = "file";
    options.m_directory_path = "/directory";
    options.m_profiler_mode = ProfilerMode::SUBMIT;
    options.m_profiler_base_name = "base";
    options.m_parameters.emplace_back("key=value");
}

std::ptrdiff_t placeIn(const CCmdOptions& options, const void* field)
{
    return static_cast<const char*>(field) - reinterpret_cast<const char*>(&options);
}

}  // namespace

TEST(CmdOptionsRecord, StartsWithItsDefaultsAndAnEmptyConfiguration)
{
    const CCmdOptions options;

    EXPECT_EQ(fieldsOf(options), newRecord);
    EXPECT_EQ(options.m_configuration.name(), "fsperf");
    for (const auto& [key, value] : defaultsInForce(options.m_configuration))
        EXPECT_EQ(value, "(unset)") << key;
}

TEST(CmdOptionsRecord, ResetPutsBackAllFieldsButFive)
{
    CCmdOptions options;
    changeEveryField(options);
    ASSERT_EQ(differences(newRecord, fieldsOf(options)).size(), newRecord.size());
    options.m_configuration.setParameterValue("fileio", "key", nullptr, "value");
    options.m_configuration.setParameterValue("fileio", "async_read_submit", nullptr, "off");
    options.m_configuration.reconfigure();

    options.reset();

    const Fields kept = {{"cleanup", "0"},
                         {"initialize", "0"},
                         {"measurements", "3"},
                         {"alloc_size", "3"},
                         {"parameters", "key=value\n"}};
    EXPECT_EQ(differences(newRecord, fieldsOf(options)), kept);
    EXPECT_EQ(defaultsInForce(options.m_configuration), engineDefaults);
    EXPECT_EQ(inForce(options.m_configuration, "key"), "(unset)");
}

TEST(CmdOptionsRecord, ASecondEvaluationInheritsWhatResetLeaves)
{
    const unitTests::WorkingDirectory directory;
    CCmdOptions options;
    ASSERT_TRUE(options.evaluate(arguments("fsperf -t read -m all noclean noinit k=1 .")));

    ASSERT_TRUE(options.evaluate(arguments("fsperf k=2 .")));

    EXPECT_FALSE(options.m_cleanup);
    EXPECT_FALSE(options.m_initialize);
    EXPECT_EQ(options.m_measurements, 3);
    ASSERT_EQ(options.m_parameters.size(), 2U);
    EXPECT_TRUE(options.m_test_initial_write);
    EXPECT_EQ(inForce(options.m_configuration, "k"), "2");
}

TEST(CmdOptionsRecord, KeepsItsFieldsInTheirOrder)
{
    const CCmdOptions options;
    const void* const fields[] = {
        &options.m_cleanup,         &options.m_initialize,         &options.m_test_initial_write,
        &options.m_test_overwrite,  &options.m_test_read,          &options.m_random_io_order,
        &options.m_randomize_data,  &options.m_output_type,        &options.m_measurements,
        &options.m_block_size,      &options.m_file_size,          &options.m_alloc_size,
        &options.m_block_size_text, &options.m_file_size_text,     &options.m_directory_path,
        &options.m_profiler_mode,   &options.m_profiler_base_name, &options.m_parameters,
        &options.m_configuration};

    std::ptrdiff_t before = 0;
    for (const void* field : fields) {
        EXPECT_LT(before, placeIn(options, field));
        before = placeIn(options, field);
    }
}

TEST(CmdOptionsRecord, HasTheWidthsAndNumbersThatOthersTest)
{
    EXPECT_EQ(sizeof(CCmdOptions::m_output_type), 1U);
    EXPECT_EQ(sizeof(CCmdOptions::m_measurements), 1U);
    EXPECT_EQ(sizeof(CCmdOptions::m_profiler_mode), 4U);
    EXPECT_EQ(sizeof(CCmdOptions::m_block_size), 8U);
    EXPECT_TRUE(std::has_virtual_destructor_v<CCmdOptions>);
    EXPECT_FALSE(std::is_copy_constructible_v<CCmdOptions>);
    EXPECT_FALSE(std::is_copy_assignable_v<CCmdOptions>);
}

TEST(CmdOptionsRecord, TakesAllItsMemoryFromTheDomainOfTheEngine)
{
    const unitTests::WorkingDirectory directory;
    const std::size_t before = fsperfAllocator().bytes();
    {
        const Basis::string args = arguments(
            "fsperf -b 0000000000000000000000000000000064K -p main:a_rather_long_base_name_here "
            "a_key_beyond_the_short_string=a_value_beyond_the_short_string .");
        const unitTests::NoDefaultResource noDefault;
        CCmdOptions options;
        EXPECT_TRUE(options.evaluate(args));
        EXPECT_EQ(options.m_parameters.size(), 1U);
    }
    EXPECT_EQ(fsperfAllocator().bytes(), before);
}

TEST(InitConfig, ReplacesEverythingThatWasSetWhateverTheFlag)
{
    for (const bool flag : {false, true}) {
        Configuration::TempConfiguration configuration(fsperfAllocator(), "test", nullptr);
        configuration.setParameterValue("fileio", "other", nullptr, "1");
        configuration.setParameterValue("fileio", "num_submit_queues", nullptr, "7");
        configuration.reconfigure();

        initConfig(configuration, flag);

        EXPECT_EQ(inForce(configuration, "other"), "(unset)");
        EXPECT_EQ(defaultsInForce(configuration), engineDefaults);
    }
}

TEST(OutputTypes, VerboseAndFullAreTheTalkativeOnes)
{
    CCmdOptions options;
    std::string talkative;
    std::string json;
    for (int type = 0; type < 5; ++type) {
        options.m_output_type = static_cast<OutputType>(type);
        talkative += isTalkative(options) ? 'x' : '-';
        json += isJson(options) ? 'x' : '-';
    }
    EXPECT_EQ(talkative, "-xx--");
    EXPECT_EQ(json, "---xx");
}

}  // namespace vetraTests
