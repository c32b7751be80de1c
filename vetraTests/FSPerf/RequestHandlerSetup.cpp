#include <algorithm>
#include <charconv>
#include <cstring>
#include <iostream>
#include <limits>
#include <new>
#include <numeric>
#include <optional>
#include <streambuf>
#include <string_view>
#include <utility>

#include "Basis/Random.h"
#include "Basis/RandomFill.h"
#include "FileAccess/FileFunctions.h"
#include "vetraTests/FSPerf/FSPerfHelper.h"
#include "vetraTests/FSPerf/FileAccessReqHdlr.h"

namespace vetraTests {

namespace {

constexpr const char* dataFileName = "datavol.dat";
constexpr unsigned componentNumber = 32;
constexpr unsigned filePermissions = 0664;
constexpr unsigned factoryFlags = 4;
constexpr int fileMode = 2;
constexpr int fileSharing = 0;
constexpr int fileFlags = 33;
constexpr int constantByte = 128;

bool fail(const char* message)
{
    std::cerr << message << std::endl;
    return false;
}

unsigned long requestsOf(const CCmdOptions& options)
{
    return options.m_file_size / options.m_block_size;
}

// Takes what fits into 1023 characters and refuses the rest.
class ConfigurationText : public std::streambuf {
public:
    ConfigurationText() { setp(text, text + sizeof text - 1); }
    const char* terminated()
    {
        *pptr() = '\0';
        return text;
    }

private:
    char text[1024];
};

// A key may be the tail of a longer one: only the beginning of a word counts, with or without the
// one character that marks some words.
bool beginsWord(std::string_view config, std::size_t position)
{
    if (position <= 1 || config[position - 1] == ',')
        return true;
    return config[position - 1] == '#' && config[position - 2] == ',';
}

std::optional<std::string_view> valueOf(std::string_view config, std::string_view key)
{
    for (std::size_t hit = config.find(key); hit != std::string_view::npos;
         hit = config.find(key, hit + 1)) {
        const std::size_t behind = hit + key.size();
        if (behind < config.size() && config[behind] == '=' && beginsWord(config, hit)) {
            const std::string_view value = config.substr(behind + 1);
            return value.substr(0, value.find(','));
        }
    }
    return std::nullopt;
}

// The digits at the beginning: 0 if there are none, the largest number for one beyond 64 bits.
unsigned long decimalOf(std::string_view text)
{
    unsigned long number = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    return result.ec == std::errc::result_out_of_range ? std::numeric_limits<unsigned long>::max()
                                                       : number;
}

bool numbersMatch(std::string_view inForce, std::string_view wanted, const Basis::string& word)
{
    const unsigned long actual = decimalOf(inForce);
    if (actual == decimalOf(wanted))
        return true;
    std::cerr << "Parameter value \"" << actual << "\" in file factory does not match specified"
              << std::endl
              << "value for parameter \"" << word << "\"" << std::endl;
    return false;
}

bool textsMatch(std::string_view inForce, std::string_view wanted, const Basis::string& word)
{
    if (inForce == wanted)
        return true;
    std::cerr << "Parameter value" << std::endl
              << std::endl
              << inForce << std::endl
              << std::endl
              << "in file factory does not match specified value for parameter!" << std::endl
              << "Parameter is specified as:" << std::endl
              << std::endl
              << word << std::endl;
    return false;
}

Basis::string dataFilePath(const Basis::string& root)
{
    Basis::string path(&fsperfAllocator());
    FileAccess::joinPath(root.c_str(), dataFileName, path);
    return path;
}

std::size_t bytesForControlBlocks(unsigned long count, std::size_t each)
{
    if (each != 0 && count > std::numeric_limits<std::size_t>::max() / each)
        throw std::bad_alloc();
    return count * each;
}

}  // namespace

CFileAccessRequestHandler::CFileAccessRequestHandler()
    : m_control_blocks(&fsperfAllocator()),
      m_output_mutex("FSPers::Output", componentNumber),
      m_progress_meter(m_output_mutex)
{
}

// The gate is looked at first. Then the members go from the last to the first: the mutex, the
// memory of the requests, the file and its factory.
CFileAccessRequestHandler::~CFileAccessRequestHandler()
{
    // A completion thread may still be on its way out of a callback; this waits for it.
    if (m_file_factory)
        m_file_factory->getStatistics();
    if (!m_barrier.isAtRest())
        Synchronization::Barrier::reportError("not signaled and waited in destructor");
}

bool CFileAccessRequestHandler::init(CCmdOptions& options)
{
    m_file_factory = FileAccess::FileFactory::createInstance(
        options.m_configuration, FileAccess::FileFactory::Type::volume, options.m_directory_path,
        filePermissions, factoryFlags, FileAccess::FileFactory::Usage::data);
    if (!m_file_factory)
        return fail("ERROR: Creation of file factory failed!");
    // Before the memory: a refused parameter is not to cost the time that a large buffer takes.
    if (!checkConfigParams(options))
        return fail("ERROR: Parameter check failed!");
    if (!allocateDataBuffer(options) || !allocateControlBlocks(options) ||
        !reserveControlBlockList(options))
        return false;
    profilerInit(options);
    return true;
}

bool CFileAccessRequestHandler::allocateDataBuffer(const CCmdOptions& options)
{
    try {
        m_data_buffer = AlignedMemory(options.m_alloc_size);
    } catch (const std::exception&) {
        return fail("ERROR: Exception: Could not allocate buffer!");
    }
    if (!m_data_buffer.data())
        return fail("ERROR: Could not allocate buffer!");
    initDataBuffer(options, false, m_data_buffer);
    return true;
}

bool CFileAccessRequestHandler::allocateControlBlocks(const CCmdOptions& options)
{
    try {
        m_control_block_buffer = AlignedMemory(
            bytesForControlBlocks(requestsOf(options), m_file_factory->getIOControlBlockSize()));
    } catch (const std::exception&) {
        return fail("ERROR: Exception: Could not allocate IO control block buffer!");
    }
    return m_control_block_buffer.data() ||
           fail("ERROR: Could not allocate IO control block buffer!");
}

bool CFileAccessRequestHandler::reserveControlBlockList(const CCmdOptions& options)
{
    try {
        m_control_blocks.reserve(requestsOf(options));
    } catch (const std::exception&) {
        return fail("ERROR: Exception: Could not allocate IO control block list!");
    }
    return true;
}

bool CFileAccessRequestHandler::checkConfigParams(const CCmdOptions& options) const
{
    ConfigurationText text;
    std::ostream stream(&text);
    if (const FileAccess::FileStatistics* statistics = m_file_factory->getStatistics())
        statistics->getConfigStatisticsString(stream, true);
    const char* const config = text.terminated();

    if (isTalkative(options))
        std::cout << "The configuration parameters set are:" << std::endl
                  << "   " << config << std::endl
                  << std::endl;
    if (options.m_parameters.empty())
        return true;
    if (!*config)
        return fail("Configuration parameter string empty although parameters set!");
    for (const Basis::string& word : options.m_parameters)
        if (!checkFileIOParam(config, word))
            return false;
    return true;
}

bool CFileAccessRequestHandler::checkFileIOParam(const char* config,
                                                 const Basis::string& parameter) const
{
    const std::size_t separator = parameter.find('=');
    if (separator == Basis::string::npos)
        return false;
    const Basis::string key(parameter, 0, separator, &fsperfAllocator());
    const Basis::string wanted(parameter, separator + 1, &fsperfAllocator());
    const std::optional<std::string_view> inForce = valueOf(config, key);
    if (!inForce)
        return false;
    return isInteger(wanted) ? numbersMatch(*inForce, wanted, parameter)
                             : textsMatch(*inForce, wanted, parameter);
}

bool CFileAccessRequestHandler::isInteger(const Basis::string& text) const
{
    return text.find_first_not_of("0123456789") == Basis::string::npos;
}

bool CFileAccessRequestHandler::createFile(const CCmdOptions& options)
{
    // Before the file is there: from its first moment on a signal or a crash leaves it behind only
    // if it is to be kept.
    m_file_factory->removeAtEnd(dataFileName, options.m_cleanup);
    m_file = m_file_factory->openFile(dataFileName, fileMode, fileSharing, fileFlags);
    if (m_file)
        return true;
    m_file_factory->removeAtEnd(dataFileName, false);
    return fail("ERROR: Creation of data file failed!");
}

bool CFileAccessRequestHandler::initDataFile(const CCmdOptions& options)
{
    if (isTalkative(options))
        std::cout << "Opening and initializing file \"" << dataFilePath(m_file_factory->getRoot())
                  << "\"... " << std::flush;
    m_file.reset();
    // Asked while the old file is still there, since its space counts as free.
    if (!m_file_factory->ensureSpace(dataFileName, options.m_file_size))
        return fail("ERROR: Creation of data file failed!");
    if (m_file_factory->fileExists(dataFileName))
        m_file_factory->removeFile(dataFileName);
    if (!createFile(options))
        return false;
    if (isTalkative(options))
        std::cout << "done." << std::endl;
    return true;
}

bool CFileAccessRequestHandler::openDataFile(const CCmdOptions& options)
{
    m_file.reset();
    if (!m_file_factory->fileExists(dataFileName))
        return false;
    if (!createFile(options))
        return false;
    if (isTalkative(options))
        std::cout << "File \"" << m_file->getFullName() << "\" opened." << std::endl;
    return true;
}

bool CFileAccessRequestHandler::initFile(const CCmdOptions& options)
{
    const std::uint64_t end = options.m_file_size;
    for (std::uint64_t offset = 0; offset < end; offset += options.m_alloc_size)
        m_file->write(offset, m_data_buffer.data(),
                      std::min<std::uint64_t>(options.m_alloc_size, end - offset));
    return true;
}

void CFileAccessRequestHandler::initTestData(const CCmdOptions& options, bool randomize,
                                             Basis::vector<unsigned long>& order)
{
    if (isTalkative(options))
        std::cout << "Preparing I/O buffer... " << std::flush;
    initBlockAccessVector(options, order);
    initDataBuffer(options, randomize, m_data_buffer);
    initControlBlocks(options);
    if (isTalkative(options))
        std::cout << "done." << std::endl;
}

void CFileAccessRequestHandler::initBlockAccessVector(const CCmdOptions& options,
                                                      Basis::vector<unsigned long>& order)
{
    Basis::Random random(Basis::Timer::s_fMicroTimer());
    order.clear();
    m_num_requests_i.value = requestsOf(options);
    m_barrier.resetForReuse();

    order.resize(m_num_requests_i.value);
    std::iota(order.begin(), order.end(), 0UL);
    if (!options.m_random_io_order)
        return;
    for (std::size_t i = 1; i < order.size(); ++i)
        std::swap(order[i], order[random.getRandom8(i + 1)]);
}

void CFileAccessRequestHandler::initDataBuffer(const CCmdOptions& options, bool randomize,
                                               AlignedMemory& buffer)
{
    if (randomize)
        Basis::RandomFill(Basis::Timer::s_fMicroTimer()).fill(buffer.data(), options.m_alloc_size);
    else
        std::memset(buffer.data(), constantByte, options.m_alloc_size);
}

void CFileAccessRequestHandler::initControlBlocks(const CCmdOptions& options)
{
    const unsigned long count = requestsOf(options);
    const std::size_t each = m_file_factory->getIOControlBlockSize();
    // Exactly: growing by half or double would cost a large run more than its control blocks.
    m_control_blocks.reserve(m_control_blocks.size() + count);
    for (unsigned long i = 0; i < count; ++i)
        m_control_blocks.push_back(
            m_file_factory->constructIOControlBlock(m_control_block_buffer.data() + i * each));
}

void CFileAccessRequestHandler::cleanup(const CCmdOptions& options)
{
    const bool talkative = isTalkative(options);
    if (talkative)
        std::cout << "Cleanup..." << std::flush;
    profilerClose(options, "runTests");
    if (options.m_cleanup) {
        if (talkative)
            std::cout << " close..." << std::flush;
        const bool wasOpen = m_file != nullptr;
        m_file.reset();
        if (talkative)
            std::cout << " remove..." << std::flush;
        if (m_file_factory->fileExists(dataFileName))
            m_file_factory->removeFile(dataFileName);
        else if (wasOpen)
            std::cerr << dataFilePath(m_file_factory->getRoot())
                      << " was removed by somebody else while it was measured" << std::endl;
        m_file_factory->removeAtEnd(dataFileName, false);
    }
    if (talkative)
        std::cout << " done." << std::endl;
}

}  // namespace vetraTests
