#include "FileAccess/CompletionQueue.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>

#include "Basis/Timer.h"
#include "FileAccess/AsyncFile.h"

namespace FileAccess {

namespace {

// The kernel may be short of memory for a moment. Slots are fewer than the ring has entries, so a
// refusal that lasts is a failure.
constexpr int submitAttempts = 500;
constexpr auto pauseBetweenAttempts = std::chrono::milliseconds(10);

// A reap for several events comes back after this time with those that there are, so that slow
// requests do not hold back what is known of fast ones.
constexpr long reapNanoseconds = 250'000'000;

}  // namespace

CompletionQueue::CompletionQueue(std::size_t queueIndex, std::uint32_t slots,
                                 IOStatistics& fileStatistics)
    : ownIndex(queueIndex), slotCount(slots), statistics(fileStatistics)
{
}

CompletionQueue::~CompletionQueue()
{
    if (context)
        ::io_destroy(context);
}

int CompletionQueue::open(std::uint32_t depth)
{
    return -::io_setup(static_cast<int>(depth), &context);
}

std::uint32_t CompletionQueue::takeSlots(std::uint32_t wanted)
{
    std::uint32_t known = slotsTaken.value.load(std::memory_order_relaxed);
    for (;;) {
        const std::uint32_t taken = std::min(wanted, slotCount - known);
        if (taken == 0)
            return 0;
        if (slotsTaken.value.compare_exchange_weak(known, known + taken, std::memory_order_seq_cst))
            return taken;
    }
}

void CompletionQueue::waitForSlot()
{
    while (takeSlots(1) != 1)
        slotsTaken.waitWhile(slotCount);
}

void CompletionQueue::giveSlots(std::uint32_t count)
{
    slotsTaken.value.fetch_sub(count, std::memory_order_seq_cst);
    slotsTaken.wake();
}

void CompletionQueue::submit(std::span<IOControlBlock*> blocks)
{
    iocb* list[maxBatch];
    std::size_t count = 0;
    for (IOControlBlock* block : blocks) {
        // Whoever reaps the event reads this back, and with it all that stands in the block.
        block->next.store(nullptr, std::memory_order_release);
        list[count++] = &block->kernelBlock;
    }
    int attempts = 0;
    for (std::size_t done = 0; done < count;) {
        const int result = ::io_submit(context, static_cast<long>(count - done), list + done);
        if (result > 0) {
            submitted.value.fetch_add(static_cast<std::uint32_t>(result) * one);
            submitted.wake();
            done += static_cast<std::size_t>(result);
            attempts = 0;
            continue;
        }
        const bool mayPass = result == -EAGAIN || result == -EINTR || result == 0;
        if (mayPass && ++attempts < submitAttempts) {
            if (result != -EINTR)
                std::this_thread::sleep_for(pauseBetweenAttempts);
            continue;
        }
        refuse(*blocks[done++], result == 0 ? EAGAIN : -result);
    }
}

void CompletionQueue::refuse(IOControlBlock& block, int systemError)
{
    const Direction direction = block.isRead() ? reading : writing;
    const std::uint64_t now = Basis::Timer::s_fHiPerfTimer();
    CompletingShard& shard = block.record->completing[direction].back();
    add(shard.requests, 1);
    add(shard.requestTicks, now - block.acceptedTicks);
    statistics.busy(direction).ended(1, now);
    giveSlots(1);
    reportFailure(block, systemError);
}

std::uint32_t CompletionQueue::inKernel() const
{
    const std::uint32_t taken = submitted.value.load(std::memory_order_seq_cst) & ~closedBit;
    const std::uint32_t seen = reaped.load(std::memory_order_seq_cst);
    // What was submitted a moment ago may be reaped before it is counted.
    const auto difference = static_cast<std::int32_t>(taken - seen);
    return difference > 0 ? static_cast<std::uint32_t>(difference) / one : 0;
}

bool CompletionQueue::waitForWork()
{
    for (;;) {
        const std::uint32_t known = submitted.value.load(std::memory_order_seq_cst);
        if ((known & ~closedBit) != reaped.load(std::memory_order_relaxed))
            return true;
        if ((known & closedBit) == 0) {
            submitted.waitWhile(known);
            continue;
        }
        if (isIdle())
            return false;
        // Somebody is about to submit.
        std::this_thread::yield();
    }
}

void CompletionQueue::close()
{
    submitted.value.fetch_or(closedBit, std::memory_order_seq_cst);
    submitted.wake();
}

std::size_t CompletionQueue::reap(std::span<io_event> events, std::uint32_t least)
{
    timespec patience{0, reapNanoseconds};
    const int result = ::io_getevents(context, static_cast<long>(least),
                                      static_cast<long>(events.size()), events.data(), &patience);
    if (result <= 0)
        return 0;
    const auto count = static_cast<std::uint32_t>(result);
    QueueCounters& counters = statistics.completionCounters(ownIndex);
    counters.count(count);
    counters.noteInFlight(std::max(inKernel(), count));
    reaped.fetch_add(count * one);
    return count;
}

void reportFailure(IOControlBlock& block, int systemError)
{
    block.callback->transferError(statusOf(block), transferException(block, systemError));
}

}  // namespace FileAccess
