#pragma once

#include <cstdint>
#include <span>
#include <thread>
#include <vector>

#include "FileAccess/CompletionQueue.h"
#include "FileAccess/RequestDispatcher.h"
#include "FileAccess/WorkRounds.h"

namespace FileAccess {

/// The thread of one kernel queue: reaps completions, refills the slots that they free, and tells
/// the callbacks. The destructor joins it; the queue must have been closed.
class LocalFileCompletionThread {
public:
    LocalFileCompletionThread(CompletionQueue& kernelQueue, RequestDispatcher& requestDispatcher,
                              IOStatistics& fileStatistics, const FileIOParameters& parameters);
    ~LocalFileCompletionThread();
    LocalFileCompletionThread(const LocalFileCompletionThread&) = delete;
    LocalFileCompletionThread& operator=(const LocalFileCompletionThread&) = delete;

    void run();

    /// Returns when the thread is, or has been since the call, outside of callbacks.
    void waitOutsideOfCallbacks() const { rounds.waitForPause(); }

private:
    struct Finished {
        IOControlBlock* block;
        int systemError;  // 0 for success
    };

    void handle(std::span<io_event> events);
    void examine(const io_event& event);
    void account(std::uint64_t now);
    void notify();

    CompletionQueue& queue;
    RequestDispatcher& dispatcher;
    IOStatistics& statistics;
    std::uint32_t batchWorthWaitingFor;
    std::vector<io_event> eventBuffer;
    std::vector<Finished> finished;
    std::vector<IOControlBlock*> continued;
    alignas(cacheLine) WorkRounds rounds;
    std::thread thread;
};

}  // namespace FileAccess
