#include "FileAccess/LocalFileCompletionThread.h"

#include <algorithm>
#include <cerrno>

#include "Basis/Timer.h"
#include "FileAccess/AsyncFile.h"
#include "FileAccess/ThreadStart.h"

namespace FileAccess {

LocalFileCompletionThread::LocalFileCompletionThread(CompletionQueue& kernelQueue,
                                                     RequestDispatcher& requestDispatcher,
                                                     IOStatistics& fileStatistics,
                                                     const FileIOParameters& parameters)
    : queue(kernelQueue),
      dispatcher(requestDispatcher),
      statistics(fileStatistics),
      batchWorthWaitingFor(parameters.minSubmitBatchSize),
      eventBuffer(parameters.maxParallelIoRequests)
{
    finished.reserve(eventBuffer.size());
    continued.reserve(eventBuffer.size());
    thread = startThread("completion", kernelQueue.index(), [this] { run(); });
}

LocalFileCompletionThread::~LocalFileCompletionThread()
{
    thread.join();
}

// Stays a frame of its own, so that a profile shows what the thread does below its name.
[[gnu::noinline]] void LocalFileCompletionThread::run()
{
    while (queue.waitForWork()) {
        // With a backlog, fewer completions than make a batch would not be followed by a
        // submission.
        std::uint32_t least = 1;
        if (dispatcher.hasBacklog())
            least = std::clamp<std::uint32_t>(queue.inKernel(), 1, batchWorthWaitingFor);
        const std::size_t count = queue.reap(eventBuffer, least);
        if (count == 0)
            continue;
        const WorkRounds::Scope round(rounds);
        handle(std::span(eventBuffer.data(), count));
    }
}

void LocalFileCompletionThread::handle(std::span<io_event> events)
{
    finished.clear();
    continued.clear();
    // The blocks were last touched long ago; the device waits until they are here.
    for (const io_event& event : events)
        __builtin_prefetch(reinterpret_cast<const char*>(event.obj) + cacheLine, 1);
    for (const io_event& event : events)
        examine(event);
    if (!continued.empty())
        queue.submit(continued);
    if (!finished.empty()) {
        account(Basis::Timer::s_fHiPerfTimer());
        queue.giveSlots(static_cast<std::uint32_t>(finished.size()));
    }
    dispatcher.refill(queue);
    notify();
}

void LocalFileCompletionThread::examine(const io_event& event)
{
    auto* const block = reinterpret_cast<IOControlBlock*>(event.obj);
    // Sees what the submitting thread wrote; the kernel carries the block from thread to thread.
    block->next.load(std::memory_order_acquire);
    const auto result = static_cast<std::int64_t>(event.res);
    if (result < 0) {
        if (block->mayRetry(static_cast<int>(-result)))
            continued.push_back(block);
        else
            finished.push_back({block, static_cast<int>(-result)});
        return;
    }
    block->done += static_cast<std::uint64_t>(result);
    if (block->done >= block->size)
        finished.push_back({block, 0});
    else if (result == 0)
        finished.push_back({block, block->isRead() ? ENODATA : ENOSPC});
    else
        continued.push_back(block->file->continueRequest(*block));
}

void LocalFileCompletionThread::account(std::uint64_t now)
{
    std::uint64_t ended[2] = {0, 0};
    for (std::size_t i = 0; i < finished.size();) {
        SizeRecord* const record = finished[i].block->record;
        const bool isRead = finished[i].block->isRead();
        std::uint64_t count = 0;
        std::uint64_t ticks = 0;
        for (; i < finished.size() && finished[i].block->record == record &&
               finished[i].block->isRead() == isRead;
             ++i) {
            ++count;
            ticks += now - finished[i].block->acceptedTicks;
        }
        const Direction direction = isRead ? reading : writing;
        CompletingShard& shard = record->completing[direction][queue.index()];
        add(shard.requests, count);
        add(shard.requestTicks, ticks);
        ended[direction] += count;
    }
    for (const Direction direction : {reading, writing}) {
        if (ended[direction] != 0)
            statistics.busy(direction).ended(ended[direction], now);
    }
}

void LocalFileCompletionThread::notify()
{
    for (const Finished& entry : finished) {
        IOControlBlock& block = *entry.block;
        if (entry.systemError != 0)
            reportFailure(block, entry.systemError);
        else if (block.isRead())
            block.callback->dataRead(statusOf(block));
        else
            block.callback->dataWritten(statusOf(block));
    }
}

}  // namespace FileAccess
