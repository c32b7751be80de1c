#include "vetraTests/FSPerf/FSPerfCmdOpts.h"

#include <algorithm>
#include <iostream>
#include <optional>
#include <string_view>

#include "Diagnose/ArgumentHelper.h"
#include "Diagnose/SystemError.h"
#include "FileAccess/FileFunctions.h"
#include "vetraTests/FSPerf/FSPerfHelper.h"

namespace vetraTests {

namespace {

constexpr std::uint64_t defaultBlockSize = 4UL << 20;
constexpr std::uint64_t defaultFileSize = 16UL << 30;
constexpr const char* defaultBlockSizeText = "4MB";
constexpr const char* defaultFileSizeText = "16GB";
constexpr std::uint64_t directIOAlignment = 4096;
constexpr const char* section = "fileio";
constexpr unsigned anyWriteBit = 0222;
constexpr unsigned anyReadBit = 0444;
constexpr std::size_t currentDirectorySize = 512;

// The patterns that an option is searched by, with their blanks.
struct OptionName {
    std::string_view shortForm;
    std::string_view longForm;
};

constexpr OptionName testMode = {" -t ", " -test-mode"};
constexpr OptionName measurements = {" -m ", " -measurements"};
constexpr OptionName blockSize = {" -b ", " -block-size"};
constexpr OptionName fileSize = {" -f ", " -file-size"};
constexpr OptionName allocSize = {" -s ", " -alloc-size"};
constexpr OptionName output = {" -o ", " -output"};
constexpr OptionName ioOrder = {" -i ", " -io-order"};
constexpr OptionName constData = {" -c ", " -const-data"};
constexpr OptionName profiler = {" -p ", " -profiler"};

bool has(std::string_view args, std::string_view pattern)
{
    return args.find(pattern) != std::string_view::npos;
}

bool has(std::string_view args, const OptionName& name)
{
    return has(args, name.shortForm) || has(args, name.longForm);
}

// From the position to the next blank; empty behind the end of the string.
std::string_view wordAt(std::string_view args, std::size_t position)
{
    const std::string_view rest = args.substr(std::min(position, args.size()));
    return rest.substr(0, rest.find(' '));
}

// Nothing if the option is absent; an empty value is a value.
std::optional<std::string_view> valueOf(std::string_view args, const OptionName& name)
{
    std::size_t position = args.find(name.shortForm);
    if (position != std::string_view::npos)
        return wordAt(args, position + name.shortForm.size());
    position = args.find(name.longForm);
    if (position == std::string_view::npos)
        return std::nullopt;
    // One character separates a long name from its value, whichever it is.
    return wordAt(args, position + name.longForm.size() + 1);
}

bool fail(const char* message)
{
    std::cerr << message << std::endl;
    return false;
}

bool resetAndFail(CCmdOptions& options, const char* message)
{
    options.reset();
    return fail(message);
}

// An option that takes one word of a list, with its two names in messages.
struct WordOption {
    OptionName name;
    const char* subject;
    const char* provided;
};

template <class Value>
struct Word {
    std::string_view text;
    Value value;
};

// Gives the value of the option's word, and leaves `result` if the option is absent.
template <class Value, std::size_t count>
bool readWord(CCmdOptions& options, std::string_view args, const WordOption& option,
              const Word<Value> (&words)[count], Value& result)
{
    if (!has(args, option.name))
        return true;
    const std::optional<std::string_view> value = valueOf(args, option.name);
    for (const Word<Value>& word : words) {
        if (value != word.text)
            continue;
        result = word.value;
        return true;
    }
    options.reset();
    // An option that is there has a value, if only an empty one; the other text is a guard.
    if (value)
        std::cerr << "ERROR: " << option.subject << " \"" << *value << "\" is unrecognized!";
    else
        std::cerr << "ERROR: No " << option.provided << " provided with command line option!";
    std::cerr << std::endl;
    return false;
}

bool decodeSize(std::string_view text, std::uint64_t& size)
{
    const Basis::string terminated(text, &fsperfAllocator());
    return Diagnose::ArgumentHelper::decodeSizeArgument(terminated.c_str(), size) && size != 0;
}

struct TestChoice {
    bool initialWrite;
    bool overwrite;
    bool read;
};

constexpr WordOption testModeOption = {testMode, "Test mode", "test mode"};
constexpr Word<TestChoice> testModeWords[] = {
    {"all", {true, true, true}},         {"read", {false, false, true}},
    {"write", {true, true, false}},      {"initial_write", {true, false, false}},
    {"overwrite", {false, true, false}},
};

constexpr WordOption measurementOption = {measurements, "Measurement collection type",
                                          "measurement mode"};
constexpr Word<std::uint8_t> measurementWords[] = {
    {"throughput", MEASURE_THROUGHPUT},
    {"latency", MEASURE_LATENCY},
    {"all", MEASURE_THROUGHPUT | MEASURE_LATENCY},
};

constexpr WordOption outputOption = {output, "Output type", "output type"};
constexpr Word<OutputType> outputWords[] = {
    {"short", OutputType::SHORT}, {"verbose", OutputType::VERBOSE},
    {"full", OutputType::FULL},   {"json", OutputType::JSON},
    {"JSON", OutputType::JSON},   {"json_short", OutputType::JSON_SHORT},
};

constexpr WordOption ioOrderOption = {ioOrder, "I/O access order type", "I/O access mode"};
constexpr Word<bool> ioOrderWords[] = {{"random", true}, {"sequential", false}};

// In the order in which they are tried; none begins with another.
constexpr Word<ProfilerMode> profilerWords[] = {
    {"off", ProfilerMode::OFF},       {"all", ProfilerMode::ALL},
    {"main", ProfilerMode::MAIN},     {"trigger", ProfilerMode::TRIGGER},
    {"submit", ProfilerMode::SUBMIT}, {"completion", ProfilerMode::COMPLETION},
};

// The mode words alone are read without regard to case. ASCII, whatever the locale.
bool beginsWithWord(std::string_view text, std::string_view word)
{
    return text.size() >= word.size() &&
           std::equal(word.begin(), word.end(), text.begin(), [](char lower, char any) {
               return any == lower || (any >= 'A' && any <= 'Z' && any - 'A' + 'a' == lower);
           });
}

}  // namespace

CCmdOptions::CCmdOptions()
    : m_block_size(defaultBlockSize),
      m_file_size(defaultFileSize),
      m_alloc_size(defaultFileSize),
      m_block_size_text(defaultBlockSizeText, &fsperfAllocator()),
      m_file_size_text(defaultFileSizeText, &fsperfAllocator()),
      m_directory_path(&fsperfAllocator()),
      m_profiler_base_name(&fsperfAllocator()),
      m_parameters(&fsperfAllocator()),
      m_configuration(fsperfAllocator(), "fsperf", nullptr)
{
}

void CCmdOptions::reset()
{
    m_test_initial_write = true;
    m_test_overwrite = true;
    m_test_read = true;
    m_random_io_order = true;
    m_randomize_data = true;
    m_output_type = OutputType::SHORT;
    m_block_size = defaultBlockSize;
    m_file_size = defaultFileSize;
    m_block_size_text = defaultBlockSizeText;
    m_file_size_text = defaultFileSizeText;
    m_directory_path.clear();
    m_profiler_mode = ProfilerMode::OFF;
    m_profiler_base_name.clear();
    initConfig(m_configuration, true);
}

bool CCmdOptions::evaluate(const Basis::string& args)
{
    reset();
    if (evaluateTestMode(args) && evaluateMeasurementMode(args) &&
        evaluateBlocksizeFilesize(args) && evaluateOutputType(args) &&
        evaluateIOAccessOrder(args) && evaluateDataRadomization(args) &&
        evaluateProfilerMode(args) && evaluateCleanupMode(args) &&
        evaluateInitializationMode(args) && evaluateParameters(args) && evaluateFilePath(args))
        return true;
    std::cout << "evaluation is unsuccessful" << std::endl;
    return false;
}

bool CCmdOptions::evaluateTestMode(const Basis::string& args)
{
    if (!has(args, testMode.shortForm))
        return true;
    TestChoice choice = {true, true, true};
    if (!readWord(*this, args, testModeOption, testModeWords, choice))
        return false;
    m_test_initial_write = m_test_initial_write && choice.initialWrite;
    m_test_overwrite = m_test_overwrite && choice.overwrite;
    m_test_read = m_test_read && choice.read;
    return true;
}

bool CCmdOptions::evaluateMeasurementMode(const Basis::string& args)
{
    return readWord(*this, args, measurementOption, measurementWords, m_measurements);
}

bool CCmdOptions::evaluateBlocksizeFilesize(const Basis::string& args)
{
    if (const auto text = valueOf(args, blockSize)) {
        m_block_size_text = *text;
        if (!decodeSize(*text, m_block_size))
            return resetAndFail(*this, "ERROR: Invalid block size specified!");
        // A run with such a block size is cached, not refused.
        if (m_block_size % directIOAlignment != 0)
            std::cerr << "ERROR: Block size must be " << memSize2Str(directIOAlignment)
                      << " aligned!" << std::endl;
    }
    if (const auto text = valueOf(args, fileSize)) {
        m_file_size_text = *text;
        if (!decodeSize(*text, m_file_size))
            return resetAndFail(*this, "ERROR: Invalid size for file specified!");
    }
    const auto allocText = valueOf(args, allocSize);
    if (!allocText)
        m_alloc_size = m_file_size;
    else if (!decodeSize(*allocText, m_alloc_size))
        return resetAndFail(*this, "ERROR: Invalid alloc size specified!");

    if (m_file_size % m_block_size != 0)
        return resetAndFail(*this,
                            "ERROR: File size is not a whole-numbered multiple of block size!");
    if (m_alloc_size % m_block_size != 0)
        return resetAndFail(*this,
                            "ERROR: Alloc size is not a whole-numbered multiple of block size!");
    if (m_alloc_size > m_file_size)
        return resetAndFail(*this, "ERROR: Alloc size greater than file_size!");
    if (m_file_size % m_alloc_size != 0)
        return resetAndFail(*this,
                            "ERROR: File size is not a whole-numbered multiple of alloc size!");
    return true;
}

bool CCmdOptions::evaluateOutputType(const Basis::string& args)
{
    return readWord(*this, args, outputOption, outputWords, m_output_type);
}

bool CCmdOptions::evaluateIOAccessOrder(const Basis::string& args)
{
    return readWord(*this, args, ioOrderOption, ioOrderWords, m_random_io_order);
}

bool CCmdOptions::evaluateDataRadomization(const Basis::string& args)
{
    if (has(args, constData))
        m_randomize_data = false;
    return true;
}

bool CCmdOptions::evaluateProfilerMode(const Basis::string& args)
{
    const std::optional<std::string_view> value = valueOf(args, profiler);
    if (!value)
        return true;
    std::string_view baseName = *value;
    for (const Word<ProfilerMode>& word : profilerWords) {
        if (!beginsWithWord(*value, word.text))
            continue;
        m_profiler_mode = word.value;
        baseName.remove_prefix(word.text.size());
        if (!baseName.empty() && baseName.front() != ':')
            return fail("ERROR: wrong profiler mode-path separator!");
        baseName = baseName.substr(std::min<std::size_t>(1, baseName.size()));
        break;
    }
    m_profiler_base_name = baseName;
    return !baseName.empty() || fail("ERROR: missing profiler filename!");
}

bool CCmdOptions::evaluateCleanupMode(const Basis::string& args)
{
    if (has(args, " noclean "))
        m_cleanup = false;
    return true;
}

bool CCmdOptions::evaluateInitializationMode(const Basis::string& args)
{
    if (!has(args, " noinit "))
        return true;
    m_initialize = false;
    return !m_test_initial_write ||
           fail("ERROR: Noinit flag cannot be combined with write initialization test!");
}

bool CCmdOptions::extractParams(const Basis::string& args)
{
    std::string_view rest = args;
    while (!rest.empty()) {
        const std::string_view word = rest.substr(0, rest.find(' '));
        rest.remove_prefix(std::min(word.size() + 1, rest.size()));
        const std::size_t separator = word.find('=');
        if (separator == std::string_view::npos)
            continue;
        m_configuration.setParameterValue(section, word.substr(0, separator), nullptr,
                                          word.substr(separator + 1));
        m_parameters.emplace_back(word);
    }
    m_configuration.reconfigure();
    return true;
}

bool CCmdOptions::evaluateParameters(const Basis::string& args)
{
    if (extractParams(args))
        return true;
    reset();
    return false;
}

bool CCmdOptions::evaluateFilePath(const Basis::string& args)
{
    const std::size_t blank = args.rfind(' ');
    if (blank == Basis::string::npos)
        return resetAndFail(*this, "ERROR: Path to directory for test file missing!");
    if (getPath(args.c_str() + blank + 1))
        return true;
    reset();
    return false;
}

bool CCmdOptions::getPath(const char* path)
{
    if (!path || !*path)
        return fail("ERROR: No path provided!");
    if (!resolveDirectory(path))
        return false;
    const unsigned rights = FileAccess::getAccessRights(m_directory_path.c_str());
    if ((rights & anyWriteBit) == 0)
        return fail("ERROR: No write permission on directory!");
    if (m_test_read && (rights & anyReadBit) == 0)
        return fail("ERROR: No read permission on directory!");
    return true;
}

bool CCmdOptions::resolveDirectory(const char* path)
{
    if (std::string_view(path) == ".")
        return FileAccess::getCurrentDirectory(m_directory_path) || failWithoutCurrentDirectory();
    if (!FileAccess::isRelative(path)) {
        if (!FileAccess::directoryExists(path))
            return fail("ERROR: Unknown directory specified!");
        m_directory_path = path;
        return true;
    }
    char current[currentDirectorySize];
    if (!FileAccess::getCurrentDirectory(current, sizeof current))
        return failWithoutCurrentDirectory();
    FileAccess::joinPath(current, path, m_directory_path);
    // What stands in the place of the directory may be an option that nobody knows.
    return FileAccess::directoryExists(m_directory_path) ||
           fail(*path == '-' ? "ERROR: Unknown command line argument found!"
                             : "ERROR: Unknown directory specified!");
}

bool CCmdOptions::failWithoutCurrentDirectory()
{
    const Diagnose::SystemError error = Diagnose::getSystemError();
    reset();
    std::cerr << "ERROR: " << error << std::endl;
    return false;
}

void initConfig(Configuration::TempConfiguration& config, bool)
{
    using Number = std::uint64_t;
    config.clear();
    config.setParameterValue(section, "num_completion_queues", nullptr, Number{1});
    config.setParameterValue(section, "size_kernel_io_queue", nullptr, Number{512});
    config.setParameterValue(section, "max_parallel_io_requests", nullptr, Number{64});
    config.setParameterValue(section, "max_submit_batch_size", nullptr, Number{64});
    config.setParameterValue(section, "min_submit_batch_size", nullptr, Number{16});
    config.setParameterValue(section, "async_read_submit", nullptr, "on");
    config.setParameterValue(section, "num_submit_queues", nullptr, Number{1});
    config.setParameterValue(section, "async_write_submit_blocks", nullptr, "all");
    config.setParameterValue(section, "async_write_submit_active", nullptr, "on");
    config.reconfigure();
}

}  // namespace vetraTests
