#pragma once

#include <libaio.h>

#include <atomic>
#include <cstdint>
#include <span>

#include "FileAccess/IOControlBlock.h"
#include "FileAccess/IOStatistics.h"
#include "FileAccess/WaitableWord.h"

namespace FileAccess {

/// A kernel context for asynchronous I/O with a number of slots for requests in flight.
///
/// Threads: any thread may take slots and submit; one thread reaps and gives slots back.
class CompletionQueue {
public:
    CompletionQueue(std::size_t queueIndex, std::uint32_t slots, IOStatistics& fileStatistics);
    /// Waits in the kernel for what is in flight.
    ~CompletionQueue();
    CompletionQueue(const CompletionQueue&) = delete;
    CompletionQueue& operator=(const CompletionQueue&) = delete;

    /// Makes the context for `depth` requests. Returns 0 or an errno.
    int open(std::uint32_t depth);

    std::size_t index() const { return ownIndex; }

    /// Takes up to `wanted` free slots and returns how many.
    std::uint32_t takeSlots(std::uint32_t wanted);
    /// Takes one slot and waits for it, which ends with the next completion.
    void waitForSlot();
    /// Gives slots back; requests that hold them have ended or were not submitted.
    void giveSlots(std::uint32_t count);
    /// True if no slot is taken.
    bool isIdle() const { return slotsTaken.value.load(std::memory_order_seq_cst) == 0; }

    /// Hands the requests, each of which holds a slot, to the kernel. Those that it refuses are
    /// reported to their callbacks on the calling thread and give their slots back.
    void submit(std::span<IOControlBlock*> blocks);

    /// The requests that the kernel has and the reaping thread will still see. While a submission
    /// is under way its requests may be missing, but none is counted that nobody will reap.
    std::uint32_t inKernel() const;

    /// Blocks while the kernel has no request. False once close has been called and no slot is
    /// taken.
    bool waitForWork();
    /// Lets waitForWork return false from now on.
    void close();

    /// Reaps at least `least` events, or fewer after a while, and returns their number.
    std::size_t reap(std::span<io_event> events, std::uint32_t least);

private:
    static constexpr std::uint32_t closedBit = 1;
    static constexpr std::uint32_t one = 2;  // of what is counted above the bit

    void refuse(IOControlBlock& block, int systemError);

    std::size_t ownIndex;
    std::uint32_t slotCount;
    IOStatistics& statistics;
    io_context_t context = nullptr;
    alignas(cacheLine) WaitableWord slotsTaken;
    // Both count requests in steps of `one`, modulo 2^32; the reaping thread sleeps on the first.
    alignas(cacheLine) WaitableWord submitted;
    alignas(cacheLine) std::atomic<std::uint32_t> reaped{0};
};

/// Tells a request's callback that the transfer failed.
void reportFailure(IOControlBlock& block, int systemError);

}  // namespace FileAccess
