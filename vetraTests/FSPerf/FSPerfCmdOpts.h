#pragma once

#include <cstdint>

#include "Basis/Containers.h"
#include "Configuration/TempConfiguration.h"

namespace vetraTests {

/// How much a run prints.
enum class OutputType : std::uint8_t {
    SHORT = 0,       ///< settings and results
    VERBOSE = 1,     ///< progress as well
    FULL = 2,        ///< and the file layer's statistics
    JSON = 3,        ///< the JSON text alone
    JSON_SHORT = 4,  ///< the same, for the I/O tests
};

/// Bits of CCmdOptions::m_measurements.
enum Measurement : std::uint8_t {
    MEASURE_THROUGHPUT = 1,
    MEASURE_LATENCY = 2,
};

/// Which phase of a test the profiler watches.
enum class ProfilerMode : std::uint32_t {
    OFF = 0,
    ALL = 1,
    MAIN = 2,
    TRIGGER = 3,
    SUBMIT = 4,
    COMPLETION = 5,
};

/// What one run of the engine is to do, read from its argument string.
///
/// Options are found by plain search in the whole string, their blanks included: " -t read " is
/// seen anywhere but at the very start, the first occurrence counts, the short form goes before the
/// long one, unknown options are passed over, every word with "=" is a parameter of the file layer,
/// and the last word is the directory.
///
/// Units:   sizes are bytes.
/// Errors:  an operation that returns false has said why in one line on standard error. None
/// throws,
///          whatever the bytes of the string, but for want of memory.
/// Threads: one thread per object.
class CCmdOptions {
public:
    CCmdOptions();
    virtual ~CCmdOptions() = default;
    CCmdOptions(const CCmdOptions&) = delete;
    CCmdOptions& operator=(const CCmdOptions&) = delete;

    /// Puts the defaults back, except for m_cleanup, m_initialize, m_measurements, m_alloc_size and
    /// m_parameters.
    void reset();

    /// Reads the whole string into a new record. On failure the record is of no use, and standard
    /// output says so, too.
    bool evaluate(const Basis::string& args);

    // One family of options each, in the order in which evaluate calls them.
    /// Only the short form selects a mode; the value of " -test-mode" is dropped.
    bool evaluateTestMode(const Basis::string& args);
    bool evaluateMeasurementMode(const Basis::string& args);
    /// Reads the three sizes and checks that they divide each other. Needs what reset set.
    bool evaluateBlocksizeFilesize(const Basis::string& args);
    bool evaluateOutputType(const Basis::string& args);
    bool evaluateIOAccessOrder(const Basis::string& args);
    bool evaluateDataRadomization(const Basis::string& args);
    /// Leaves m_profiler_mode at what it was if the value begins with no mode word.
    bool evaluateProfilerMode(const Basis::string& args);
    bool evaluateCleanupMode(const Basis::string& args);
    /// To be called behind evaluateTestMode, since an initial write needs its file to be new.
    bool evaluateInitializationMode(const Basis::string& args);
    /// Hands every KEY=VALUE word to the configuration and keeps it in m_parameters.
    bool extractParams(const Basis::string& args);
    bool evaluateParameters(const Basis::string& args);
    bool evaluateFilePath(const Basis::string& args);

    /// Resolves the directory into m_directory_path and checks that its mode bits allow the tests,
    /// for root as well.
    bool getPath(const char* path);

    bool m_cleanup = true;
    bool m_initialize = true;
    bool m_test_initial_write = true;
    bool m_test_overwrite = true;
    bool m_test_read = true;
    bool m_random_io_order = true;
    bool m_randomize_data = true;
    OutputType m_output_type = OutputType::SHORT;
    std::uint8_t m_measurements = MEASURE_THROUGHPUT;
    std::uint64_t m_block_size;
    std::uint64_t m_file_size;
    std::uint64_t m_alloc_size;
    Basis::string m_block_size_text;
    Basis::string m_file_size_text;
    Basis::string m_directory_path;
    ProfilerMode m_profiler_mode = ProfilerMode::OFF;
    Basis::string m_profiler_base_name;
    Basis::vector<Basis::string> m_parameters;
    Configuration::TempConfiguration m_configuration;

private:
    bool resolveDirectory(const char* path);
    bool failWithoutCurrentDirectory();
};

/// True for the output types that print progress.
inline bool isTalkative(const CCmdOptions& options)
{
    return options.m_output_type == OutputType::VERBOSE ||
           options.m_output_type == OutputType::FULL;
}

/// True for the output types that print nothing but the JSON text.
inline bool isJson(const CCmdOptions& options)
{
    return options.m_output_type == OutputType::JSON ||
           options.m_output_type == OutputType::JSON_SHORT;
}

/// Replaces all parameters by the file layer's defaults of the engine. The flag is reserved.
void initConfig(Configuration::TempConfiguration& config, bool reconfigured);

}  // namespace vetraTests
