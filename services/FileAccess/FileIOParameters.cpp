#include "FileAccess/FileIOParameters.h"

#include <algorithm>
#include <limits>
#include <string_view>

namespace FileAccess {

namespace {

using WriteBlocks = FileIOParameters::WriteBlocks;
using WriteSubmit = FileIOParameters::WriteSubmit;

constexpr std::uint32_t maxQueues = 16;
constexpr std::uint32_t minKernelQueue = 128;
constexpr std::uint32_t maxKernelQueue = 2048;

constexpr const char* section = "fileio";

class Reader {
public:
    explicit Reader(const Configuration::ConfigurationHandler& handler)
        : configuration(handler), text(Basis::Allocator::global().get())
    {
    }

    std::uint32_t number(const char* key, std::uint32_t fallback, std::uint32_t least,
                         std::uint32_t most)
    {
        if (!configuration.getParameterValue(section, key, text) || text.empty() ||
            text.find_first_not_of("0123456789") != Basis::string::npos)
            return std::clamp(fallback, least, most);
        std::uint64_t value = 0;
        for (const char digit : text)
            value = std::min<std::uint64_t>(value * 10 + static_cast<std::uint64_t>(digit - '0'),
                                            std::numeric_limits<std::uint32_t>::max());
        return static_cast<std::uint32_t>(std::clamp<std::uint64_t>(value, least, most));
    }

    template <class Word, std::size_t count>
    Word word(const char* key, Word fallback,
              const std::pair<std::string_view, Word> (&words)[count])
    {
        if (!configuration.getParameterValue(section, key, text))
            return fallback;
        for (const auto& [name, meaning] : words) {
            if (text == name)
                return meaning;
        }
        return fallback;
    }

private:
    const Configuration::ConfigurationHandler& configuration;
    Basis::string text;
};

constexpr std::pair<std::string_view, bool> switchWords[] = {{"on", true}, {"off", false}};
constexpr std::pair<std::string_view, WriteSubmit> submitWords[] = {
    {"on", WriteSubmit::on}, {"off", WriteSubmit::off}, {"auto", WriteSubmit::automatic}};
constexpr std::pair<std::string_view, WriteBlocks> blockWords[] = {
    {"none", WriteBlocks::none}, {"new", WriteBlocks::onlyNew}, {"all", WriteBlocks::all}};

template <class Word, std::size_t count>
std::string_view nameOf(Word meaning, const std::pair<std::string_view, Word> (&words)[count])
{
    const auto* found = std::find_if(std::begin(words), std::end(words),
                                     [&](const auto& entry) { return entry.second == meaning; });
    return found->first;
}

}  // namespace

FileIOParameters FileIOParameters::read(const Configuration::ConfigurationHandler& configuration)
{
    FileIOParameters result;
    Reader reader(configuration);
    result.numCompletionQueues =
        reader.number("num_completion_queues", result.numCompletionQueues, 1, maxQueues);
    result.numSubmitQueues =
        reader.number("num_submit_queues", result.numSubmitQueues, 1, maxQueues);
    result.sizeKernelIoQueue = reader.number("size_kernel_io_queue", result.sizeKernelIoQueue,
                                             minKernelQueue, maxKernelQueue);
    result.maxParallelIoRequests = reader.number(
        "max_parallel_io_requests", result.maxParallelIoRequests, 1, result.sizeKernelIoQueue);
    // The smallest batch lies below the largest, but for a queue of one request.
    const std::uint32_t most = result.maxParallelIoRequests;
    result.maxSubmitBatchSize = reader.number("max_submit_batch_size", result.maxSubmitBatchSize,
                                              std::min<std::uint32_t>(2, most), most);
    result.minSubmitBatchSize =
        reader.number("min_submit_batch_size", result.minSubmitBatchSize, 1,
                      std::max<std::uint32_t>(1, result.maxSubmitBatchSize - 1));
    result.asyncReadSubmit = reader.word("async_read_submit", result.asyncReadSubmit, switchWords);
    result.asyncWriteSubmitActive =
        reader.word("async_write_submit_active", result.asyncWriteSubmitActive, submitWords);
    result.asyncWriteSubmitBlocks =
        reader.word("async_write_submit_blocks", result.asyncWriteSubmitBlocks, blockWords);
    return result;
}

std::ostream& operator<<(std::ostream& stream, const FileIOParameters& parameters)
{
    return stream << "num_completion_queues=" << parameters.numCompletionQueues
                  << ",num_submit_queues=" << parameters.numSubmitQueues
                  << ",size_kernel_io_queue=" << parameters.sizeKernelIoQueue
                  << ",max_parallel_io_requests=" << parameters.maxParallelIoRequests
                  << ",min_submit_batch_size=" << parameters.minSubmitBatchSize
                  << ",max_submit_batch_size=" << parameters.maxSubmitBatchSize
                  << ",async_read_submit=" << nameOf(parameters.asyncReadSubmit, switchWords)
                  << ",async_write_submit_active="
                  << nameOf(parameters.asyncWriteSubmitActive, submitWords)
                  << ",async_write_submit_blocks="
                  << nameOf(parameters.asyncWriteSubmitBlocks, blockWords);
}

}  // namespace FileAccess
