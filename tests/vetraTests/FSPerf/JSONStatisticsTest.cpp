#include <gtest/gtest.h>

#include <filesystem>
#include <limits>
#include <vector>

#include "tests/services/support/Guards.h"
#include "tests/vetraTests/FSPerf/StatisticsCases.h"
#include "vetraTests/FSPerf/FSPerfHelper.h"

namespace vetraTests {

namespace {

const StatisticsOutput output(fsperfAllocatorHandle());

// The header of newOptions(), whose directory does not exist.
std::string header(const std::string& measurementTypes)
{
    return "   \"Path\":\"/no/such/directory\",\n"
           "   \"FileSystem\":\"unknown\",\n"
           "   \"Validated\":\"No\",\n"
           "   \"Supported\":\"No\",\n"
           "   \"TotalSize\":\"1073741824\",\n"
           "   \"BlockSize\":\"16384\",\n"
           "   \"IoOrder\":\"random\",\n"
           "   \"RandomizedData\":\"Yes\",\n"
           "   \"MeasurementTypes\":\"" +
           measurementTypes + "\",\n";
}

constexpr const char* initialThroughput =
    "      \"Throughput\":{\n"
    "         \"TriggerThroughput\":\"109\",\n"
    "         \"AsyncSubmitThroughput\":\"107\",\n"
    "         \"SyncSubmitThroughput\":\"108\",\n"
    "         \"IoThroughput\":\"106.5\",\n"
    "         \"RatioTriggerTime2IOTime\":\"103\"\n"
    "      }\n";
constexpr const char* overwriteThroughput =
    "      \"Throughput\":{\n"
    "         \"TriggerThroughput\":\"209\",\n"
    "         \"AsyncSubmitThroughput\":\"207\",\n"
    "         \"SyncSubmitThroughput\":\"208\",\n"
    "         \"IoThroughput\":\"206.5\",\n"
    "         \"RatioTriggerTime2IOTime\":\"203\"\n"
    "      }\n";
constexpr const char* readThroughput =
    "      \"Throughput\":{\n"
    "         \"TriggerThroughput\":\"309\",\n"
    "         \"AsyncSubmitThroughput\":\"307\",\n"
    "         \"SyncSubmitThroughput\":\"308\",\n"
    "         \"IoThroughput\":\"306.5\",\n"
    "         \"RatioTriggerTime2IOTime\":\"303\"\n"
    "      }\n";
constexpr const char* initialLatency =
    "      \"Latency\":{\n"
    "         \"Throughput\":\"14\",\n"
    "         \"Latency\":\"13.25\"\n"
    "      }\n";
constexpr const char* overwriteLatency =
    "      \"Latency\":{\n"
    "         \"Throughput\":\"24\",\n"
    "         \"Latency\":\"23.25\"\n"
    "      }\n";
constexpr const char* readLatency =
    "      \"Latency\":{\n"
    "         \"Throughput\":\"34\",\n"
    "         \"Latency\":\"33.25\"\n"
    "      }\n";

std::string block(const char* opening, const char* throughput, const char* latency, unsigned mask)
{
    std::string text = opening;
    if (mask == 1)
        text += throughput;
    if (mask == 2)
        text += latency;
    if (mask == 3)
        text += std::string(throughput) + "      ,\n" + latency;
    return text + "   }\n";
}

// The document for some of the tests, put together from the blocks above.
std::string document(bool initialWrite, bool overwrite, bool read, unsigned mask)
{
    std::vector<std::string> blocks;
    if (initialWrite)
        blocks.push_back(block("   \"Initial\":{\n", initialThroughput, initialLatency, mask));
    if (overwrite)
        blocks.push_back(
            block("   \"Overwrite\":{\n", overwriteThroughput, overwriteLatency, mask));
    if (read)
        blocks.push_back(block("   \"Read\":{\n", readThroughput, readLatency, mask));

    const char* const types[] = {"", "throughput", "latency", "full"};
    std::string text = "{\n" + header(types[mask]);
    for (std::size_t place = 0; place < blocks.size(); ++place)
        text += (place == 0 ? "" : "   ,\n") + blocks[place];
    return text + "}\n";
}

std::string figure(double value)
{
    _SFSLatencyStatistics stats;
    stats.latency = value;
    const std::string text(output.outputJSONLatencyStatistics(stats));
    const std::string key = "\"Latency\":\"";
    const std::size_t start = text.find(key) + key.size();
    return text.substr(start, text.find('"', start) - start);
}

// A file system of any code.
struct TypedFileSystem : FileAccess::FileSystem {
    explicit TypedFileSystem(int code) : FileSystem(code, "somefs", fsperfAllocator()) {}
};

}  // namespace

TEST(JSONStatistics, AreOneDocumentForAllTestsWithBothMeasurements)
{
    CCmdOptions options;
    newOptions(options);
    options.m_measurements = 3;
    options.m_parameters.emplace_back("a=b");
    EXPECT_EQ(std::string(output.outputJSONStatistics(options, someStatistics())),
              "{\n"
              "   \"Path\":\"/no/such/directory\",\n"
              "   \"FileSystem\":\"unknown\",\n"
              "   \"Validated\":\"No\",\n"
              "   \"Supported\":\"No\",\n"
              "   \"TotalSize\":\"1073741824\",\n"
              "   \"BlockSize\":\"16384\",\n"
              "   \"IoOrder\":\"random\",\n"
              "   \"RandomizedData\":\"Yes\",\n"
              "   \"MeasurementTypes\":\"full\",\n"
              "   \"Parameter1\":\"a=b\",\n"
              "   \"Initial\":{\n"
              "      \"Throughput\":{\n"
              "         \"TriggerThroughput\":\"109\",\n"
              "         \"AsyncSubmitThroughput\":\"107\",\n"
              "         \"SyncSubmitThroughput\":\"108\",\n"
              "         \"IoThroughput\":\"106.5\",\n"
              "         \"RatioTriggerTime2IOTime\":\"103\"\n"
              "      }\n"
              "      ,\n"
              "      \"Latency\":{\n"
              "         \"Throughput\":\"14\",\n"
              "         \"Latency\":\"13.25\"\n"
              "      }\n"
              "   }\n"
              "   ,\n"
              "   \"Overwrite\":{\n"
              "      \"Throughput\":{\n"
              "         \"TriggerThroughput\":\"209\",\n"
              "         \"AsyncSubmitThroughput\":\"207\",\n"
              "         \"SyncSubmitThroughput\":\"208\",\n"
              "         \"IoThroughput\":\"206.5\",\n"
              "         \"RatioTriggerTime2IOTime\":\"203\"\n"
              "      }\n"
              "      ,\n"
              "      \"Latency\":{\n"
              "         \"Throughput\":\"24\",\n"
              "         \"Latency\":\"23.25\"\n"
              "      }\n"
              "   }\n"
              "   ,\n"
              "   \"Read\":{\n"
              "      \"Throughput\":{\n"
              "         \"TriggerThroughput\":\"309\",\n"
              "         \"AsyncSubmitThroughput\":\"307\",\n"
              "         \"SyncSubmitThroughput\":\"308\",\n"
              "         \"IoThroughput\":\"306.5\",\n"
              "         \"RatioTriggerTime2IOTime\":\"303\"\n"
              "      }\n"
              "      ,\n"
              "      \"Latency\":{\n"
              "         \"Throughput\":\"34\",\n"
              "         \"Latency\":\"33.25\"\n"
              "      }\n"
              "   }\n"
              "}\n");
}

TEST(JSONStatistics, HaveNoCommaLineInATestWithLatencyAlone)
{
    CCmdOptions options;
    newOptions(options);
    options.m_measurements = 2;
    options.m_test_initial_write = false;
    options.m_test_overwrite = false;
    EXPECT_EQ(std::string(output.outputJSONStatistics(options, someStatistics())),
              "{\n" + header("latency") +
                  "   \"Read\":{\n"
                  "      \"Latency\":{\n"
                  "         \"Throughput\":\"34\",\n"
                  "         \"Latency\":\"33.25\"\n"
                  "      }\n"
                  "   }\n"
                  "}\n");
}

TEST(JSONStatistics, JoinAnyTestsByCommaLines)
{
    forAllFlagsAndMasks([](const CCmdOptions& options) {
        EXPECT_EQ(std::string(output.outputJSONStatistics(options, someStatistics())),
                  document(options.m_test_initial_write, options.m_test_overwrite,
                           options.m_test_read, options.m_measurements));
    });
}

TEST(JSONStatistics, KeepTheLastCommaWithoutAnyTest)
{
    CCmdOptions options;
    newOptions(options);
    options.m_test_initial_write = false;
    options.m_test_overwrite = false;
    options.m_test_read = false;
    EXPECT_EQ(std::string(output.outputJSONStatistics(options, someStatistics())),
              "{\n" + header("throughput") + "}\n");
}

TEST(JSONHeader, SaysWhatWasMeasuredHow)
{
    CCmdOptions options;
    newOptions(options);
    options.m_random_io_order = false;
    options.m_randomize_data = false;
    options.m_block_size = 512;
    options.m_file_size = std::numeric_limits<std::uint64_t>::max();
    options.m_directory_path = "/no\"escape\\";
    EXPECT_EQ(std::string(output.outputJSONStatisticsHeader(options)),
              "   \"Path\":\"/no\"escape\\\",\n"
              "   \"FileSystem\":\"unknown\",\n"
              "   \"Validated\":\"No\",\n"
              "   \"Supported\":\"No\",\n"
              "   \"TotalSize\":\"18446744073709551615\",\n"
              "   \"BlockSize\":\"512\",\n"
              "   \"IoOrder\":\"sequential\",\n"
              "   \"RandomizedData\":\"No\",\n"
              "   \"MeasurementTypes\":\"throughput\",\n");
}

TEST(JSONHeader, TakesAnyOtherMeasurementsForThroughput)
{
    const char* const types[] = {"throughput", "throughput", "latency",    "full",
                                 "throughput", "throughput", "throughput", "throughput"};
    CCmdOptions options;
    newOptions(options);
    for (std::uint8_t value = 0; value < std::size(types); ++value) {
        options.m_measurements = value;
        EXPECT_EQ(std::string(output.outputJSONStatisticsHeader(options)), header(types[value]));
    }
}

TEST(JSONHeader, EndsWithTheParameters)
{
    CCmdOptions options;
    newOptions(options);
    options.m_parameters.emplace_back("k=v");
    options.m_parameters.emplace_back("=\"");
    EXPECT_EQ(std::string(output.outputJSONStatisticsHeader(options)),
              header("throughput") + "   \"Parameter1\":\"k=v\",\n   \"Parameter2\":\"=\"\",\n");
}

TEST(JSONHeader, LooksAtTheFileSystemOfTheDirectory)
{
    CCmdOptions options;
    newOptions(options);
    options.m_directory_path = std::filesystem::current_path().c_str();
    const FileAccess::FileSystem here(options.m_directory_path, true, true);
    const std::string lines(fileSystemJSON(here, fsperfAllocator()));
    EXPECT_NE(std::string(output.outputJSONStatisticsHeader(options)).find(lines),
              std::string::npos);

    options.m_directory_path = "/proc";
    EXPECT_NE(std::string(output.outputJSONStatisticsHeader(options))
                  .find("   \"Validated\":\"No\",\n   \"Supported\":\"No\",\n"),
              std::string::npos);
}

TEST(JSONHeader, ValidatesFileSystemsFrom10To28AndKnowsTheSupportedOnes)
{
    const auto lines = [](int code) {
        return std::string(fileSystemJSON(TypedFileSystem(code), fsperfAllocator()));
    };
    const std::string name = "   \"FileSystem\":\"somefs\",\n";
    const std::string neither = "   \"Validated\":\"No\",\n   \"Supported\":\"No\",\n";
    for (const int code : {-1, 0, 9, 29, 1000})
        EXPECT_EQ(lines(code), name + neither) << code;
    for (int code = 10; code < 29; ++code) {
        const char* const supported = FileAccess::FileSystem::SUPPORTED[code] ? "Yes" : "No";
        EXPECT_EQ(lines(code),
                  name + "   \"Validated\":\"Yes\",\n   \"Supported\":\"" + supported + "\",\n")
            << code;
    }
}

TEST(JSONParameterList, CountsFromOne)
{
    CCmdOptions options;
    EXPECT_EQ(output.outputJSONStatisticsParameterList(options), "");
    std::string expected;
    for (int count = 1; count <= 11; ++count) {
        options.m_parameters.emplace_back("k=v");
        expected += "   \"Parameter" + std::to_string(count) + "\":\"k=v\",\n";
    }
    EXPECT_EQ(std::string(output.outputJSONStatisticsParameterList(options)), expected);
}

TEST(JSONFigures, AreTextsAsAStreamPrintsThem)
{
    const double infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(figure(0), "0");
    EXPECT_EQ(figure(0.1), "0.1");
    EXPECT_EQ(figure(123456.7), "123457");
    EXPECT_EQ(figure(1234567.891), "1.23457e+06");
    EXPECT_EQ(figure(1e-7), "1e-07");
    EXPECT_EQ(figure(2.0 / 3), "0.666667");
    EXPECT_EQ(figure(infinity), "inf");
    EXPECT_EQ(figure(-infinity), "-inf");
    EXPECT_EQ(figure(std::numeric_limits<double>::quiet_NaN()), "nan");
}

TEST(StatisticsOutput, TakesAllItsMemoryFromItsAllocator)
{
    const auto domain = Basis::Allocator::createChild(Basis::Allocator::global(), "OUTPUT", 0);
    const StatisticsOutput own(domain);
    EXPECT_EQ(&own.getAllocator(), domain.get());

    CCmdOptions options;
    newOptions(options);
    options.m_measurements = 3;
    options.m_parameters.emplace_back("a_key_beyond_the_short_string=a_value");
    const _SFSStatistics stats = someStatistics();
    const unitTests::NoDefaultResource noDefault;
    const Basis::string texts[] = {
        own.outputJSONStatistics(options, stats),
        own.outputJSONStatisticsHeader(options),
        own.outputJSONStatisticsParameterList(options),
        own.outputJSONThroughputStatistics(stats.readThroughput),
        own.outputJSONLatencyStatistics(stats.readLatency),
        own.outputHumanReadableStatistics(options, stats),
        own.outputHumanReadableThroughputStatistics(stats.readThroughput),
        own.outputHumanReadableLatencyStatistics(stats.readLatency),
        own.outputConsolidatedStatistics(options, stats),
        own.printTestResultHeader("a heading beyond the short string", '-'),
        own.printTestResultHeader("", '-'),
    };
    for (const Basis::string& text : texts)
        EXPECT_EQ(text.get_allocator().resource(), domain.get());
}

}  // namespace vetraTests
