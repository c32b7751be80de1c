#include "vetraTests/FSPerf/StatisticsOutput.h"

#include <array>
#include <cstdint>
#include <iomanip>
#include <string_view>

namespace vetraTests {

namespace {

using Stream = Basis::ostringstream;

constexpr int labelWidth = 32;
constexpr int frameWidth = 60;

// One of the three tests as the texts see it.
struct TestView {
    bool isOn;
    const char* key;
    const char* title;
    const _SFSThroughputStatistics& throughput;
    const _SFSLatencyStatistics& latency;
};

std::array<TestView, 3> testsOf(const CCmdOptions& options, const _SFSStatistics& stats)
{
    return {{{options.m_test_initial_write, "Initial", "Results of Initial Write Test",
              stats.initialWriteThroughput, stats.initialWriteLatency},
             {options.m_test_overwrite, "Overwrite", "Results of Overwrite Test",
              stats.overwriteThroughput, stats.overwriteLatency},
             {options.m_test_read, "Read", "Results of Read Test", stats.readThroughput,
              stats.readLatency}}};
}

bool measuresThroughput(const CCmdOptions& options)
{
    return (options.m_measurements & MEASURE_THROUGHPUT) != 0;
}

bool measuresLatency(const CCmdOptions& options)
{
    return (options.m_measurements & MEASURE_LATENCY) != 0;
}

// A member of the JSON header; each ends with a comma, since something always follows the first.
template <class Value>
void writeHeaderLine(Stream& text, std::string_view key, const Value& value)
{
    text << "   \"" << key << "\":\"" << value << "\",\n";
}

void writeFigure(Stream& text, std::string_view key, double value, std::string_view end)
{
    text << "         \"" << key << "\":\"" << value << '"' << end << '\n';
}

const char* yesOrNo(bool value)
{
    return value ? "Yes" : "No";
}

const char* measurementTypes(const CCmdOptions& options)
{
    if (options.m_measurements == MEASURE_LATENCY)
        return "latency";
    return options.m_measurements == (MEASURE_THROUGHPUT | MEASURE_LATENCY) ? "full" : "throughput";
}

// False for what no unsigned number can hold, and what is no number.
bool hasWholePart(double value)
{
    constexpr double endOfUnsigned = 18446744073709551616.0;
    return value >= 0 && value < endOfUnsigned;
}

// A number cut off behind its digits. Rounding would show a rate that was not reached.
void writeCutOff(Stream& text, double value, int wholeWidth, int digits)
{
    const double printable = hasWholePart(value) ? value : 0;
    const auto whole = static_cast<std::uint64_t>(printable);
    const double fraction = printable - static_cast<double>(whole);
    double scale = 1;
    for (int digit = 0; digit < digits; ++digit)
        scale *= 10;
    text << std::right << std::setfill(' ') << std::setw(wholeWidth) << whole << '.'
         << std::setfill('0') << std::setw(digits) << static_cast<std::uint64_t>(fraction * scale);
}

void writeLabel(Stream& text, std::string_view label)
{
    text << "   " << std::left << std::setfill('.') << std::setw(labelWidth) << label;
}

void writeTimeRow(Stream& text, std::string_view label, double time, double rate,
                  double numOperations)
{
    writeLabel(text, label);
    writeCutOff(text, time, 6, 4);
    text << " s   (Throughput: ";
    writeCutOff(text, rate, 8, 1);
    text << " MB/s, ";
    writeCutOff(text, time > 0 ? numOperations / time : 0, 8, 1);
    text << " op/s)\n";
}

}  // namespace

Basis::string fileSystemJSON(const FileAccess::FileSystem& fileSystem, Basis::Allocator& allocator)
{
    Stream text = Basis::outputStream(allocator);
    writeHeaderLine(text, "FileSystem", fileSystem.getTypeStr());
    writeHeaderLine(text, "Validated", yesOrNo(fileSystem.isValid()));
    writeHeaderLine(text, "Supported", yesOrNo(fileSystem.isSupported()));
    return text.str();
}

Basis::string StatisticsOutput::outputJSONStatistics(const CCmdOptions& options,
                                                     const _SFSStatistics& stats) const
{
    Stream text = Basis::outputStream(getAllocator());
    text << "{\n" << outputJSONStatisticsHeader(options);
    bool isFirst = true;
    for (const TestView& test : testsOf(options, stats)) {
        if (!test.isOn)
            continue;
        if (!isFirst)
            text << "   ,\n";
        isFirst = false;
        text << "   \"" << test.key << "\":{\n";
        if (measuresThroughput(options))
            text << outputJSONThroughputStatistics(test.throughput);
        if (measuresThroughput(options) && measuresLatency(options))
            text << "      ,\n";
        if (measuresLatency(options))
            text << outputJSONLatencyStatistics(test.latency);
        text << "   }\n";
    }
    text << "}\n";
    return text.str();
}

Basis::string StatisticsOutput::outputJSONStatisticsHeader(const CCmdOptions& options) const
{
    const FileAccess::FileSystem fileSystem(options.m_directory_path, true, true);
    Stream text = Basis::outputStream(getAllocator());
    writeHeaderLine(text, "Path", options.m_directory_path);
    text << fileSystemJSON(fileSystem, getAllocator());
    writeHeaderLine(text, "TotalSize", options.m_file_size);
    writeHeaderLine(text, "BlockSize", options.m_block_size);
    writeHeaderLine(text, "IoOrder", options.m_random_io_order ? "random" : "sequential");
    writeHeaderLine(text, "RandomizedData", yesOrNo(options.m_randomize_data));
    writeHeaderLine(text, "MeasurementTypes", measurementTypes(options));
    text << outputJSONStatisticsParameterList(options);
    return text.str();
}

Basis::string StatisticsOutput::outputJSONStatisticsParameterList(const CCmdOptions& options) const
{
    Stream text = Basis::outputStream(getAllocator());
    std::size_t count = 0;
    for (const Basis::string& parameter : options.m_parameters)
        text << "   \"Parameter" << ++count << "\":\"" << parameter << "\",\n";
    return text.str();
}

Basis::string StatisticsOutput::outputJSONThroughputStatistics(
    const _SFSThroughputStatistics& stats) const
{
    Stream text = Basis::outputStream(getAllocator());
    text << "      \"Throughput\":{\n";
    writeFigure(text, "TriggerThroughput", stats.triggerThroughput, ",");
    writeFigure(text, "AsyncSubmitThroughput", stats.asyncSubmitThroughput, ",");
    writeFigure(text, "SyncSubmitThroughput", stats.syncSubmitThroughput, ",");
    writeFigure(text, "IoThroughput", stats.ioThroughput, ",");
    writeFigure(text, "RatioTriggerTime2IOTime", stats.ratioTriggerToIO, "");
    text << "      }\n";
    return text.str();
}

Basis::string StatisticsOutput::outputJSONLatencyStatistics(
    const _SFSLatencyStatistics& stats) const
{
    Stream text = Basis::outputStream(getAllocator());
    text << "      \"Latency\":{\n";
    writeFigure(text, "Throughput", stats.ioThroughput, ",");
    writeFigure(text, "Latency", stats.latency, "");
    text << "      }\n";
    return text.str();
}

Basis::string StatisticsOutput::outputHumanReadableStatistics(const CCmdOptions& options,
                                                              const _SFSStatistics& stats) const
{
    Stream text = Basis::outputStream(getAllocator());
    const Basis::string frame(frameWidth, '*', &getAllocator());
    text << frame << '\n'
         << "Output of Results for " << options.m_block_size_text << " blocksize "
         << options.m_file_size_text << " filesize \n"
         << frame << "\n\n";
    for (const TestView& test : testsOf(options, stats)) {
        if (!test.isOn)
            continue;
        text << printTestResultHeader(test.title, '=');
        if (measuresThroughput(options))
            text << outputHumanReadableThroughputStatistics(test.throughput);
        if (measuresLatency(options))
            text << outputHumanReadableLatencyStatistics(test.latency);
    }
    return text.str();
}

Basis::string StatisticsOutput::outputHumanReadableThroughputStatistics(
    const _SFSThroughputStatistics& stats) const
{
    Stream text = Basis::outputStream(getAllocator());
    text << printTestResultHeader("Throughput Test:", '-');
    writeTimeRow(text, "Trigger time:", stats.triggerTime, stats.triggerThroughput,
                 stats.numOperations);
    writeTimeRow(text, "Asynchronous submit time:", stats.asyncSubmitTime,
                 stats.asyncSubmitThroughput, stats.numOperations);
    writeTimeRow(text, "Synchronous submit time:", stats.syncSubmitTime, stats.syncSubmitThroughput,
                 stats.numOperations);
    writeTimeRow(text, "I/O time:", stats.ioTime, stats.ioThroughput, stats.numOperations);
    writeLabel(text, "Ratio trigger time to I/O time:");
    writeCutOff(text, stats.ratioTriggerToIO, 1, 5);
    text << "\n\n";
    return text.str();
}

Basis::string StatisticsOutput::outputHumanReadableLatencyStatistics(
    const _SFSLatencyStatistics& stats) const
{
    Stream text = Basis::outputStream(getAllocator());
    text << printTestResultHeader("Latency Test:", '-');
    writeTimeRow(text, "I/O time:", stats.ioTime, stats.ioThroughput, stats.numOperations);
    writeLabel(text, "Latency:");
    writeCutOff(text, stats.latency, 8, 1);
    text << " us\n\n";
    return text.str();
}

Basis::string StatisticsOutput::outputConsolidatedStatistics(const CCmdOptions& options,
                                                             const _SFSStatistics& stats) const
{
    Stream text = Basis::outputStream(getAllocator());
    text << std::left << std::setw(7) << options.m_block_size_text << std::setw(5)
         << options.m_file_size_text << std::right << std::fixed << std::setprecision(2);
    double latencySum = 0;
    for (const TestView& test : testsOf(options, stats)) {
        if (test.isOn && measuresThroughput(options))
            text << std::setw(11) << getoutputConsolidatedThroughputStatistics(test.throughput);
        if (test.isOn && measuresLatency(options))
            latencySum += getoutputConsolidatedLatencyStatistics(test.latency);
    }
    text << std::setw(15) << latencySum << '\n';
    return text.str();
}

Basis::string StatisticsOutput::printTestResultHeader(const char* text, char fill) const
{
    Basis::string header(&getAllocator());
    if (!text || !*text)
        return header;
    header.append(text).append(1, '\n');
    header.append(header.size() - 1, fill).append("\n\n");
    return header;
}

double getoutputConsolidatedThroughputStatistics(const _SFSThroughputStatistics& stats)
{
    return stats.ioThroughput;
}

double getoutputConsolidatedLatencyStatistics(const _SFSLatencyStatistics& stats)
{
    return stats.latency;
}

}  // namespace vetraTests
