#include "FileAccess/RequestDispatcher.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <thread>

#include "Basis/Timer.h"

namespace FileAccess {

namespace {

// The first step into an idle queue, as a part of the least batch.
constexpr std::uint32_t firstStepDivisor = 4;

// Whose requests a batch holds, so that its time can be shared out after it has gone.
class BatchShares {
public:
    explicit BatchShares(std::span<IOControlBlock*> blocks) : total(blocks.size())
    {
        for (const IOControlBlock* block : blocks) {
            const Direction direction = block->isRead() ? reading : writing;
            Counter& counter = block->record->submitting[direction].asyncSubmitTicks;
            if (used == 0 || shares[used - 1].counter != &counter) {
                // Beyond so many changes the rest goes to the last one.
                if (used < shares.size())
                    shares[used++] = {&counter, 0};
            }
            ++shares[used - 1].requests;
        }
    }

    void addTime(std::uint64_t ticks) const
    {
        for (std::size_t i = 0; i < used; ++i)
            add(*shares[i].counter, ticks * shares[i].requests / total);
    }

private:
    struct Share {
        Counter* counter;
        std::uint64_t requests;
    };
    std::array<Share, 16> shares{};
    std::size_t used = 0;
    std::size_t total;
};

}  // namespace

RequestDispatcher::RequestDispatcher(const FileIOParameters& fileParameters,
                                     IOStatistics& fileStatistics,
                                     std::vector<std::unique_ptr<CompletionQueue>>& kernelQueues)
    : parameters(fileParameters), statistics(fileStatistics), queues(kernelQueues)
{
    for (std::uint32_t i = 0; i < parameters.numSubmitQueues; ++i) {
        submitQueues.push_back(std::make_unique<SubmitQueue>());
        submitQueues.back()->staged.reserve(parameters.maxSubmitBatchSize);
    }
}

void RequestDispatcher::push(IOControlBlock* block)
{
    std::size_t target = 0;
    if (submitQueues.size() > 1)
        target = nextQueue.fetch_add(1, std::memory_order_relaxed) % submitQueues.size();
    submitQueues[target]->incoming.push(block);
    // Behind the push's exchange, which orders the two for the one who ends the flow.
    if (!flowing.load(std::memory_order_seq_cst) && !flowing.exchange(true))
        wake(target);
}

void RequestDispatcher::wake(std::size_t submitQueue)
{
    submitQueues[submitQueue]->starts.value.fetch_add(1);
    submitQueues[submitQueue]->starts.wake();
}

bool RequestDispatcher::waitForStart(std::size_t submitQueue)
{
    WaitableWord& starts = submitQueues[submitQueue]->starts;
    starts.waitWhile(0);
    starts.value.fetch_sub(1);
    return !closed.load();
}

void RequestDispatcher::drain()
{
    const auto isBusy = [this] {
        return flowing.load() ||
               std::any_of(submitQueues.begin(), submitQueues.end(),
                           [](const auto& submitQueue) { return isWaiting(*submitQueue); });
    };
    while (isBusy())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

void RequestDispatcher::close()
{
    closed = true;
    for (std::size_t i = 0; i < submitQueues.size(); ++i)
        wake(i);
}

void RequestDispatcher::start(std::size_t submitQueue)
{
    bool isProgressing = true;
    while (isProgressing) {
        isProgressing = false;
        for (const auto& queue : queues)
            isProgressing |= submitBatch(submitQueue, *queue);
    }
    endFlowIfIdle();
}

void RequestDispatcher::refill(CompletionQueue& kernelQueue)
{
    const std::size_t first = kernelQueue.index();
    for (std::size_t i = 0; i < submitQueues.size(); ++i) {
        const std::size_t submitQueue = (first + i) % submitQueues.size();
        while (submitBatch(submitQueue, kernelQueue))
            continue;
        for (const auto& other : queues) {
            if (!submitQueues[submitQueue]->backlog.load(std::memory_order_relaxed))
                break;
            if (other->isIdle())
                submitBatch(submitQueue, *other);
        }
    }
    endFlowIfIdle();
}

bool RequestDispatcher::hasBacklog() const
{
    return std::any_of(submitQueues.begin(), submitQueues.end(), [](const auto& submitQueue) {
        return submitQueue->backlog.load(std::memory_order_relaxed);
    });
}

bool RequestDispatcher::submitBatch(std::size_t submitQueue, CompletionQueue& kernelQueue)
{
    std::array<IOControlBlock*, maxBatch> batch;
    const std::uint32_t count = takeBatch(*submitQueues[submitQueue], kernelQueue, batch.data());
    if (count == 0)
        return false;

    const std::span<IOControlBlock*> blocks(batch.data(), count);
    QueueCounters& counters = statistics.submitCounters(submitQueue);
    counters.count(count);
    // The blocks are the kernel's, and soon their owner's, once they are submitted.
    const BatchShares shares(blocks);
    const std::uint64_t begin = Basis::Timer::s_fHiPerfTimer();
    kernelQueue.submit(blocks);
    shares.addTime(Basis::Timer::s_fHiPerfTimer() - begin);
    counters.noteInFlight(kernelQueue.inKernel());
    return true;
}

std::uint32_t RequestDispatcher::takeBatch(SubmitQueue& source, CompletionQueue& kernelQueue,
                                           IOControlBlock** batch)
{
    const std::scoped_lock lock(source.takeMutex);
    if (source.isEmpty())
        return 0;
    const std::uint32_t slots = kernelQueue.takeSlots(nextStep(kernelQueue));
    if (slots == 0)
        return 0;
    const std::uint32_t count = stage(source, slots);
    const bool isMoreThere = !source.incoming.isEmpty();
    if (source.backlog.load(std::memory_order_relaxed) != isMoreThere)
        source.backlog.store(isMoreThere, std::memory_order_relaxed);
    if (!mayGo(source, count, slots, kernelQueue)) {
        kernelQueue.giveSlots(slots);
        return 0;
    }
    std::copy_n(source.staged.begin(), count, batch);
    source.staged.erase(source.staged.begin(), source.staged.begin() + count);
    source.stagedAtLastLook = 0;
    if (count < slots)
        kernelQueue.giveSlots(slots - count);
    return count;
}

// A queue that ran dry is filled in growing steps: the device begins with the first requests while
// the kernel prepares the others. One large step would let it idle for as long as that takes, which
// is a tenth of the throughput of small requests where a device ends many of them at once.
std::uint32_t RequestDispatcher::nextStep(const CompletionQueue& kernelQueue) const
{
    const std::uint32_t least = parameters.minSubmitBatchSize;
    const std::uint32_t inKernel = kernelQueue.inKernel();
    if (inKernel != 0)
        return std::clamp(inKernel, least, parameters.maxSubmitBatchSize);
    // Behind a small first step there must be room for a batch.
    const std::uint32_t first = std::max(1U, least / firstStepDivisor);
    const bool isRoomBehind = first + least <= parameters.maxParallelIoRequests;
    return isRoomBehind ? first : parameters.maxSubmitBatchSize;
}

std::uint32_t RequestDispatcher::stage(SubmitQueue& source, std::uint32_t wanted)
{
    while (source.staged.size() < wanted) {
        IOControlBlock* const block = source.incoming.take();
        if (!block)
            break;
        source.staged.push_back(block);
    }
    return std::min(wanted, static_cast<std::uint32_t>(source.staged.size()));
}

// A small batch waits for company while the device is busy, but only as long as company comes: what
// has not grown since the last look is the end of a pass. Each completion is followed by a look.
bool RequestDispatcher::mayGo(SubmitQueue& source, std::uint32_t count, std::uint32_t slots,
                              const CompletionQueue& kernelQueue) const
{
    if (count == 0)
        return false;
    if (count >= parameters.minSubmitBatchSize || kernelQueue.inKernel() == 0)
        return true;
    if (count == slots)
        return false;
    if (source.stagedAtLastLook == source.staged.size())
        return true;
    source.stagedAtLastLook = source.staged.size();
    return false;
}

bool RequestDispatcher::isAnythingInKernel() const
{
    return std::any_of(queues.begin(), queues.end(),
                       [](const auto& queue) { return queue->inKernel() != 0; });
}

bool RequestDispatcher::isWaiting(SubmitQueue& source)
{
    const std::scoped_lock lock(source.takeMutex);
    return !source.isEmpty();
}

void RequestDispatcher::endFlowIfIdle()
{
    if (isAnythingInKernel())
        return;
    flowing.store(false, std::memory_order_seq_cst);
    for (std::size_t i = 0; i < submitQueues.size(); ++i) {
        if (isWaiting(*submitQueues[i]) && !flowing.exchange(true))
            wake(i);
    }
}

}  // namespace FileAccess
