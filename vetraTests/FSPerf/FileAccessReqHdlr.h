#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <memory>

#include "Basis/Containers.h"
#include "Basis/Timer.h"
#include "FileAccess/File.h"
#include "FileAccess/FileCallback.h"
#include "FileAccess/FileFactory.h"
#include "Synchronization/Barrier.h"
#include "Synchronization/Mutex.h"
#include "vetraTests/FSPerf/AlignedMemory.h"
#include "vetraTests/FSPerf/FSPerfCmdOpts.h"
#include "vetraTests/VetraTestDefines.h"

namespace vetraTests {

/// The one object of a run that talks to the file layer.
///
/// It owns the file factory, the data file "datavol.dat", the I/O buffer and a control block for
/// each request, makes the load and collects its figures. All times come from the file layer's
/// counters; nothing here measures.
///
/// Lifecycle:  init once; initDataFile or openDataFile; the passes, each over the whole file;
///             cleanup once. What init could not finish is left to the destructor, and so is
///             everything after an exception.
/// Units:      bytes, unless a name says otherwise.
/// Threads:    one thread calls everything but the three callbacks, which run on completion
/// threads. Errors:     an operation that returns false has said why in one line on standard error,
/// or leaves
///             that to its caller where it says so. Commands of the diagnostics shell that fail
///             pass on as exceptions. A failed transfer ends the process.
class CFileAccessRequestHandler : public FileAccess::FileCallback {
public:
    /// Shows on standard output how far a pass is, at each percent.
    ///
    /// It is silent until start, which no pass calls: passes of fewer than 100 requests, and a step
    /// of no requests done, are beyond its arithmetic and stop the program.
    /// Threads: notifyProgress may come from any thread; it prints only if nobody else does.
    class ProgressMeter {
    public:
        explicit ProgressMeter(Synchronization::Mutex& outputMutex);

        void start(unsigned long total);
        void notifyProgress(unsigned long done);
        void notifyProgressLeft(unsigned long left);
        /// Ends the line. Nobody else may be printing.
        void stop();

    private:
        void printStep(unsigned long done, unsigned long percent) const;

        Synchronization::Mutex& m_output_mutex;
        unsigned long m_total_requests = 0;
        std::uint64_t m_start_time = 0;  // microseconds
    };

    CFileAccessRequestHandler();
    CFileAccessRequestHandler(const CFileAccessRequestHandler&) = delete;
    CFileAccessRequestHandler& operator=(const CFileAccessRequestHandler&) = delete;

    void dataRead(const FileAccess::FileCallback::Status& status) override;
    void dataWritten(const FileAccess::FileCallback::Status& status) override;
    void transferError(const FileAccess::FileCallback::Status& status,
                       const std::exception& error) override;
    ~CFileAccessRequestHandler() override;

    /// Creates the factory, proves that it took the parameters, and makes all memory ready.
    bool init(CCmdOptions& options);
    /// Compares each parameter of the caller with what the factory says is in force.
    bool checkConfigParams(const CCmdOptions& options) const;
    /// Compares one KEY=VALUE word with a list of such words between commas. False without a
    /// message if the word has no "=" or its key is not in the list.
    bool checkFileIOParam(const char* config, const Basis::string& parameter) const;
    /// True for a text of nothing but digits, so for the empty one, too.
    bool isInteger(const Basis::string& text) const;

    /// Creates an empty data file in place of the one that may be there.
    bool initDataFile(const CCmdOptions& options);
    /// Opens the data file of an earlier run. False without a message if there is none.
    bool openDataFile(const CCmdOptions& options);
    /// Fills the data file with what the buffer holds.
    bool initFile(const CCmdOptions& options);

    /// Makes ready what a pass needs, so that its requests allocate nothing.
    void initTestData(const CCmdOptions& options, bool randomize,
                      Basis::vector<unsigned long>& order);
    /// Draws the order of the blocks, and arms the counter and the barrier.
    void initBlockAccessVector(const CCmdOptions& options, Basis::vector<unsigned long>& order);
    /// Fills the buffer with random words, or with the byte 128.
    void initDataBuffer(const CCmdOptions& options, bool randomize, AlignedMemory& buffer);
    /// Appends a control block for each request. The list keeps those of earlier passes, which lie
    /// in the same memory; a pass uses as many as it has requests, from the beginning.
    void initControlBlocks(const CCmdOptions& options);

    /// Writes the profiler's output, then closes and removes the data file unless it is to be kept.
    void cleanup(const CCmdOptions& options);
    /// Always 0: no transfer error lets the process live.
    std::int32_t getError() const { return m_error; }

    /// As many requests in flight as the file layer takes: these passes measure throughput.
    bool executeAsynchronousReadTest(const CCmdOptions& options, _SFSThroughputStatistics& stats);
    /// `newBlocks` says that the file has no blocks yet.
    bool executeAsynchronousWriteTest(const CCmdOptions& options, bool newBlocks,
                                      _SFSThroughputStatistics& stats);
    /// One request in flight: these passes measure latency.
    bool executeSynchronousReadTest(const CCmdOptions& options, _SFSLatencyStatistics& stats);
    bool executeSynchronousWriteTest(const CCmdOptions& options, _SFSLatencyStatistics& stats);

    bool collectThroughputStatistics(const CCmdOptions& options, bool write,
                                     _SFSThroughputStatistics& stats);
    bool collectReadLatencyStatistics(const CCmdOptions& options, _SFSLatencyStatistics& stats);
    bool collectWriteLatencyStatistics(const CCmdOptions& options, _SFSLatencyStatistics& stats);

    /// The file layer's counters count anew.
    void resetStatistics();
    /// Prints the file layer's counters on standard output.
    void printStatistics() const;

    /// One request less; the last one lets the submitter go on.
    void decRequestCount();
    void waitFinished() const;

    // The profiler's part in a run. With the mode off, none of these does anything. Each prints
    // under the output mutex, and a failed command passes on as an exception after its message.
    void profilerInit(const CCmdOptions& options);
    void notifyProfilerStartTest(const CCmdOptions& options, const char* name);
    /// Between the last request issued and the last one completed.
    void notifyProfilerEndTrigger(const CCmdOptions& options, const char* name);
    void notifyProfilerEndTest(const CCmdOptions& options, const char* name);
    /// Writes the call graphs of all passes; `name` is the function that some modes look below.
    void profilerClose(const CCmdOptions& options, const char* name);

protected:
    // Completion threads write it for every request; alone on its cache line, it takes nothing
    // else with it.
    struct alignas(64) RequestCounter {
        std::atomic<unsigned long> value{0};
    };

    std::int32_t m_error = 0;
    std::shared_ptr<FileAccess::FileFactory> m_file_factory;
    std::shared_ptr<FileAccess::File> m_file;
    AlignedMemory m_data_buffer;
    AlignedMemory m_control_block_buffer;
    Basis::vector<FileAccess::IOControlBlock*> m_control_blocks;
    mutable Synchronization::Barrier m_barrier;
    RequestCounter m_num_requests_i;
    bool m_profiler_running = false;
    Synchronization::Mutex m_output_mutex;
    ProgressMeter m_progress_meter;

private:
    bool allocateDataBuffer(const CCmdOptions& options);
    bool allocateControlBlocks(const CCmdOptions& options);
    bool reserveControlBlockList(const CCmdOptions& options);
    bool createFile(const CCmdOptions& options);

    template <class Request>
    void runAsynchronousPass(const CCmdOptions& options, const char* name,
                             const Basis::vector<unsigned long>& order, Request request);
    template <class Request>
    void runSynchronousPass(const CCmdOptions& options, const char* name,
                            const Basis::vector<unsigned long>& order, Request request);
    void endTriggerPhase(const CCmdOptions& options, const char* name);
    void endPass(const CCmdOptions& options, const char* name);

    FileAccess::FileStatistics& statistics() const;
    void executeProfilerCommand(const char* command, Basis::ostringstream& answer,
                                const char* failure);
};

}  // namespace vetraTests
