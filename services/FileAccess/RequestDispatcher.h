#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include "FileAccess/CompletionQueue.h"
#include "FileAccess/FileIOParameters.h"
#include "FileAccess/IOStatistics.h"
#include "FileAccess/RequestQueue.h"
#include "FileAccess/WaitableWord.h"

namespace FileAccess {

/// Brings accepted requests from the submit queues to the kernel.
///
/// While requests are in flight the completion threads do that, each after a reap: it has the slots
/// in its hand, and no other thread need be woken. A submit thread starts the flow when nothing is
/// in flight.
///
/// `flowing` says that somebody is responsible: the kernel has a request, whose completion will be
/// followed by a look at the queues, or a thread is awake that is about to look. A push that finds
/// nobody responsible wakes a submit thread. Whoever looks last, with nothing in the kernel, takes
/// the responsibility back and looks once more, so that a push beside it is never forgotten. Taking
/// it back once too often costs a wake-up and nothing else.
class RequestDispatcher {
public:
    RequestDispatcher(const FileIOParameters& fileParameters, IOStatistics& fileStatistics,
                      std::vector<std::unique_ptr<CompletionQueue>>& kernelQueues);

    /// Accepts one request into a submit queue. Never blocks.
    void push(IOControlBlock* block);

    /// A submit thread sleeps here. False once close has been called.
    bool waitForStart(std::size_t submitQueue);
    /// Brings requests of a submit queue to all kernel queues, until no slot is left or no batch.
    void start(std::size_t submitQueue);

    /// Fills the free slots of a kernel queue from all submit queues, and wakes kernel queues that
    /// lie idle beside it. To be called after every reap, also of failures.
    void refill(CompletionQueue& kernelQueue);

    /// True if requests wait for a slot, as far as the caller can know.
    bool hasBacklog() const;

    /// Waits until the kernel has, or has had, every request that was pushed. No push may follow.
    void drain();
    /// Lets waitForStart return false. To be called after drain.
    void close();

private:
    struct SubmitQueue {
        RequestQueue incoming;
        std::mutex takeMutex;                 // one at a time takes
        std::vector<IOControlBlock*> staged;  // taken, and held back for company
        std::size_t stagedAtLastLook = 0;
        std::atomic<bool> backlog{false};
        alignas(cacheLine) WaitableWord starts;

        // For the one who holds the mutex.
        bool isEmpty() const { return staged.empty() && incoming.isEmpty(); }
    };

    bool submitBatch(std::size_t submitQueue, CompletionQueue& kernelQueue);
    std::uint32_t takeBatch(SubmitQueue& source, CompletionQueue& kernelQueue,
                            IOControlBlock** batch);
    std::uint32_t nextStep(const CompletionQueue& kernelQueue) const;
    static std::uint32_t stage(SubmitQueue& source, std::uint32_t wanted);
    bool mayGo(SubmitQueue& source, std::uint32_t count, std::uint32_t slots,
               const CompletionQueue& kernelQueue) const;
    bool isAnythingInKernel() const;
    static bool isWaiting(SubmitQueue& source);
    void endFlowIfIdle();
    void wake(std::size_t submitQueue);

    FileIOParameters parameters;
    IOStatistics& statistics;
    std::vector<std::unique_ptr<CompletionQueue>>& queues;
    std::vector<std::unique_ptr<SubmitQueue>> submitQueues;
    std::atomic<bool> closed{false};
    // Read by every push, and written only when the flow starts or ends.
    alignas(cacheLine) std::atomic<bool> flowing{false};
    alignas(cacheLine) std::atomic<std::uint32_t> nextQueue{0};
};

}  // namespace FileAccess
