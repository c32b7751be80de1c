#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "FileAccess/FileFactory.h"

namespace vetraTests {

/// One request as the engine made it.
struct SeenRequest {
    std::uint64_t offset;
    const void* buffer;
    std::size_t size;
    bool newBlocks;
    unsigned flags;
    FileAccess::FileCallback* callback;
    FileAccess::IOControlBlock* block;
    void* context;
    bool isRead;
};

/// Who tells the engine that an asynchronous request has ended.
enum class Completion {
    ATONCE,    ///< the accepting call itself: the last one comes before the submitter waits
    THREADS,   ///< two threads, while the submitter goes on
    RELEASED,  ///< the same, but none before release()
};

/// A file layer in memory: what FileFactory::createInstance gives while an object of this class
/// lives. It transfers nothing, keeps everything that it was asked for, and stands behind the four
/// reset domains of the diagnostics shell.
///
/// Threads: one thread sets it up, runs the engine and looks at what was seen.
class FakeFileLayer {
public:
    FakeFileLayer();
    ~FakeFileLayer();
    FakeFileLayer(const FakeFileLayer&) = delete;
    FakeFileLayer& operator=(const FakeFileLayer&) = delete;

    /// The object that lives.
    static FakeFileLayer& current();

    void note(std::string_view event);
    /// Counts the entry `event` again only if another one came between.
    void noteOnce(const char* event);
    /// The asynchronous requests that wait may end from now on.
    void release();
    /// No request has been seen any more. None may be under way.
    void forgetRequests();
    /// The journal with a line for each entry, and an empty one from then on.
    std::string takeJournal();

    // How the layer behaves.
    bool refusesFactory = false;
    bool refusesSpace = false;
    bool refusesFile = false;
    bool isFileThere = false;
    bool keepsStatistics = true;
    Completion completion = Completion::ATONCE;
    std::size_t failingRequest = SIZE_MAX;  ///< number of the asynchronous request to fail
    std::size_t controlBlockSize = 64;
    std::string configuration = "num_completion_queues=1,num_submit_queues=1,async_read_submit=on";
    std::string failingCommand;  ///< event of the "statreg" command to fail
    std::uint64_t readTicks = 0;
    std::uint64_t writeTicks = 0;
    FileAccess::DetailedStatistics detailed{};
    std::function<void(const SeenRequest&)> onRequest;  ///< called for each request, if set

    // What it has seen.
    std::vector<std::string> journal;
    std::vector<SeenRequest> requests;
    std::vector<void*> controlBlocks;  ///< memory of those constructed
    std::uint64_t askedBlockSize = 0;
    std::vector<unsigned> askedDomains;
    std::size_t openFiles = 0;

    // For the layer's own objects.
    void accept(const SeenRequest& request, const char* event);
    /// Waits until no thread is inside a callback.
    void quiesce();

private:
    void addDomain(const char* name, const char* shortName);
    void work();
    void complete(const SeenRequest& request, std::size_t number);
    void stopThreads();

    std::vector<unsigned> domains;
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::thread> threads;
    std::size_t accepted = 0;
    std::size_t taken = 0;
    std::size_t insideCallback = 0;
    bool isReleased = false;
    bool isEnding = false;
};

/// The command family "profiler", which answers and does nothing else. Every command is an entry of
/// the layer's journal.
class FakeProfiler {
public:
    explicit FakeProfiler(FakeFileLayer& layer);
    ~FakeProfiler();

    std::string failingCommand;  ///< such as "profiler stop"
    int failingTime = 1;         ///< which of those commands fails, counted from 1
    std::function<void(const std::string& command)> onCommand;
};

}  // namespace vetraTests
