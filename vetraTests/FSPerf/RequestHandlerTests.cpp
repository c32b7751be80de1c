#include <iostream>

#include "Basis/Crash.h"
#include "vetraTests/FSPerf/FSPerfHelper.h"
#include "vetraTests/FSPerf/FileAccessReqHdlr.h"

namespace vetraTests {

namespace {

constexpr unsigned requestFlags = 0;

bool reported(bool succeeded, const char* message)
{
    if (!succeeded)
        std::cerr << message << std::endl;
    return succeeded;
}

}  // namespace

// The load of a throughput pass. The time of the loop is a published figure: each turn costs one
// multiplication, one division and the call of the file layer, and all that could move in memory
// meanwhile stands in locals.
template <class Request>
void CFileAccessRequestHandler::runAsynchronousPass(const CCmdOptions& options, const char* name,
                                                    const Basis::vector<unsigned long>& order,
                                                    Request request)
{
    resetStatistics();
    const unsigned long count = m_num_requests_i.value;  // before completions count it down
    const unsigned long blockSize = options.m_block_size;
    const unsigned long allocSize = options.m_alloc_size;
    std::byte* const buffer = m_data_buffer.data();
    const unsigned long* const blocks = order.data();
    FileAccess::IOControlBlock* const* const controlBlocks = m_control_blocks.data();

    notifyProfilerStartTest(options, name);
    for (unsigned long i = 0; i < count; ++i) {
        const unsigned long offset = blockSize * blocks[i];
        request(offset, buffer + offset % allocSize, blockSize, controlBlocks[i]);
    }
    endTriggerPhase(options, name);
    m_barrier.wait();
    endPass(options, name);
}

// An exception takes the handler's memory away, so it has to wait for the requests under way.
void CFileAccessRequestHandler::endTriggerPhase(const CCmdOptions& options, const char* name)
{
    try {
        notifyProfilerEndTrigger(options, name);
    } catch (...) {
        m_barrier.wait();
        throw;
    }
}

// The load of a latency pass. No callback counts: counter and barrier stay as they were armed.
template <class Request>
void CFileAccessRequestHandler::runSynchronousPass(const CCmdOptions& options, const char* name,
                                                   const Basis::vector<unsigned long>& order,
                                                   Request request)
{
    resetStatistics();
    notifyProfilerStartTest(options, name);
    for (unsigned long i = 0; i < m_num_requests_i.value; ++i) {
        const unsigned long offset = options.m_block_size * order[i];
        request(offset, m_data_buffer.data() + offset % options.m_alloc_size, options.m_block_size);
        m_progress_meter.notifyProgress(i);
    }
    endPass(options, name);
}

void CFileAccessRequestHandler::endPass(const CCmdOptions& options, const char* name)
{
    if (isTalkative(options))
        m_progress_meter.stop();
    notifyProfilerEndTest(options, name);
    if (options.m_output_type == OutputType::FULL)
        printStatistics();
}

bool CFileAccessRequestHandler::executeAsynchronousReadTest(const CCmdOptions& options,
                                                            _SFSThroughputStatistics& stats)
{
    Basis::vector<unsigned long> order(&fsperfAllocator());
    initTestData(options, false, order);
    runAsynchronousPass(
        options, "read-async", order,
        [this, file = m_file.get()](std::uint64_t offset, std::byte* buffer, std::size_t size,
                                    FileAccess::IOControlBlock* block) {
            file->readAsync(offset, buffer, size, requestFlags, *this, block, nullptr);
        });
    return reported(collectThroughputStatistics(options, false, stats),
                    "ERROR: Collection of the read statistics failed!");
}

bool CFileAccessRequestHandler::executeAsynchronousWriteTest(const CCmdOptions& options,
                                                             bool newBlocks,
                                                             _SFSThroughputStatistics& stats)
{
    Basis::vector<unsigned long> order(&fsperfAllocator());
    initTestData(options, options.m_randomize_data, order);
    runAsynchronousPass(
        options, "write-async", order,
        [this, newBlocks, file = m_file.get()](std::uint64_t offset, const std::byte* buffer,
                                               std::size_t size,
                                               FileAccess::IOControlBlock* block) {
            file->writeAsync(offset, buffer, size, newBlocks, *this, block, nullptr);
        });
    return reported(collectThroughputStatistics(options, true, stats),
                    "ERROR: Collection of the write statistics failed!");
}

bool CFileAccessRequestHandler::executeSynchronousReadTest(const CCmdOptions& options,
                                                           _SFSLatencyStatistics& stats)
{
    Basis::vector<unsigned long> order(&fsperfAllocator());
    initTestData(options, false, order);
    runSynchronousPass(options, "read-sync", order,
                       [this](std::uint64_t offset, std::byte* buffer, std::size_t size) {
                           m_file->read(offset, buffer, size);
                       });
    return reported(collectReadLatencyStatistics(options, stats),
                    "ERROR: Collection of the read latency statistics failed!");
}

bool CFileAccessRequestHandler::executeSynchronousWriteTest(const CCmdOptions& options,
                                                            _SFSLatencyStatistics& stats)
{
    Basis::vector<unsigned long> order(&fsperfAllocator());
    initTestData(options, options.m_randomize_data, order);
    runSynchronousPass(options, "write-sync", order,
                       [this](std::uint64_t offset, const std::byte* buffer, std::size_t size) {
                           m_file->write(offset, buffer, size);
                       });
    return reported(collectWriteLatencyStatistics(options, stats),
                    "ERROR: Collection of the write latency statistics failed!");
}

void CFileAccessRequestHandler::dataRead(const FileAccess::FileCallback::Status&)
{
    decRequestCount();
}

void CFileAccessRequestHandler::dataWritten(const FileAccess::FileCallback::Status&)
{
    decRequestCount();
}

// A pass with a hole in it has no figures.
void CFileAccessRequestHandler::transferError(const FileAccess::FileCallback::Status&,
                                              const std::exception& error)
{
    Basis::crashImpl(__FILE__, __LINE__, error);
}

void CFileAccessRequestHandler::decRequestCount()
{
    Basis::assertThat(m_num_requests_i.value != 0, "m_num_requests_i != 0");
    const unsigned long left = --m_num_requests_i.value;
    m_progress_meter.notifyProgressLeft(left);
    // Read anew: of two threads that end the pass together, both may find 0 and signal.
    if (m_num_requests_i.value == 0)
        m_barrier.signal();
}

void CFileAccessRequestHandler::waitFinished() const
{
    m_barrier.wait();
}

}  // namespace vetraTests
