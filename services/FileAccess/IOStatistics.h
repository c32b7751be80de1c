#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <ostream>
#include <utility>
#include <vector>

#include "FileAccess/FileIOParameters.h"
#include "FileAccess/FileStatistics.h"

namespace FileAccess {

inline constexpr std::size_t cacheLine = 64;

/// The most requests that one submission or one reap handles.
inline constexpr std::size_t maxBatch = 2048;

enum Direction : unsigned { reading = 0, writing = 1 };

using Counter = std::atomic<std::uint64_t>;

inline void add(Counter& counter, std::uint64_t amount)
{
    counter.fetch_add(amount, std::memory_order_relaxed);
}

/// The time during which at least one request of a direction is under way.
///
/// A period begins with the request that finds none under way and ends with the one that leaves
/// none. Both edges are only summed up, so their order does not matter when threads are overtaken.
/// Threads: any.
class BusyTime {
public:
    /// A request is accepted.
    void accepted()
    {
        if (underWay.fetch_add(1, std::memory_order_relaxed) == 0) [[unlikely]]
            beginPeriod();
    }
    /// `count` requests have ended, the last of them at `now`. Before anybody is told.
    void ended(std::uint64_t count, std::uint64_t now)
    {
        if (underWay.fetch_sub(count, std::memory_order_relaxed) == count) [[unlikely]]
            endPeriod(now);
    }

    /// All periods so far, in ticks.
    std::uint64_t ticks() const;

private:
    void beginPeriod();
    void endPeriod(std::uint64_t now);

    alignas(cacheLine) Counter underWay{0};
    alignas(cacheLine) mutable std::mutex mutex;
    std::uint64_t edges = 0;  // ends less beginnings, modulo 2^64
    std::uint64_t open = 0;   // periods that have begun and not ended
};

/// How many threads that accept requests have counters of their own; more share them.
inline constexpr std::size_t acceptingShards = 8;

/// Deals the numbers out; from 1.
std::size_t nextAcceptingShard();

/// The number of the calling thread's counters.
inline std::size_t acceptingShardOfThread()
{
    static thread_local std::size_t number = 0;
    if (number == 0) [[unlikely]]
        number = nextAcceptingShard();
    return number - 1;
}

// What the threads of one kind add up for requests of one size and direction: a cache line for each
// thread that writes.
struct alignas(cacheLine) AcceptingShard {
    Counter triggerTicks{0};
    Counter syncSubmitTicks{0};
};
struct alignas(cacheLine) SubmittingShard {
    Counter asyncSubmitTicks{0};
};
struct alignas(cacheLine) CompletingShard {
    Counter requests{0};
    Counter requestTicks{0};
};

/// The counters of requests of one size, by direction.
struct SizeRecord {
    std::uint64_t blockSize = 0;
    std::array<std::array<AcceptingShard, acceptingShards>, 2> accepting;
    std::array<SubmittingShard, 2> submitting;
    // One per completion queue, the last one for calling threads.
    std::array<std::vector<CompletingShard>, 2> completing;
    DetailedStatistics snapshot{};

    AcceptingShard& acceptingHere(Direction direction)
    {
        return accepting[direction][acceptingShardOfThread()];
    }
};

/// What a submit queue or a completion queue has done.
struct alignas(cacheLine) QueueCounters {
    Counter calls{0};     // io_submit or io_getevents
    Counter requests{0};  // that went through them
    Counter smallest{UINT64_MAX};
    Counter largest{0};
    Counter mostInFlight{0};

    void count(std::uint64_t batch);
    void noteInFlight(std::uint64_t inFlight);
    void reset();
};

/// All counters of a factory.
///
/// Threads: counters are written by the threads that the types name, and read, reset and printed
///          under one lock.
class IOStatistics : public FileStatistics {
public:
    explicit IOStatistics(const FileIOParameters& fileParameters);

    /// The record of a size. The first request of a size makes it; sizes beyond a limit share one.
    SizeRecord& recordOf(std::uint64_t blockSize);

    BusyTime& busy(Direction direction) { return busyTimes[direction]; }
    /// By submit queue; the last one counts synchronous submits.
    QueueCounters& submitCounters(std::size_t index) { return submitQueues[index]; }
    QueueCounters& completionCounters(std::size_t index) { return completionQueues[index]; }

    /// Makes the reset domains known to the shell, until withdraw or the end. `settle` is called
    /// before a domain is reset or printed, so that no late count is missed or reaches the next
    /// pass.
    void registerDomains(const std::function<void()>& settle);
    /// Waits for a command that is under way.
    void withdrawDomains() { domains.clear(); }

    const DetailedStatistics& detailed(std::uint64_t blockSize);

    std::uint64_t getTotalReadTicks(unsigned domain) const override;
    std::uint64_t getTotalWriteTicks(unsigned domain) const override;
    void getConfigStatisticsString(std::ostream& stream, bool all) const override;

private:
    static constexpr std::size_t maxSizes = 64;

    void takeSnapshot(SizeRecord& record);
    std::uint64_t totalTicks(Direction direction) const;
    void resetTotals();
    void resetDetailed();
    void printTotals(std::ostream& stream);
    void printDetailed(std::ostream& stream);
    static void printQueues(std::ostream& stream, const char* kind,
                            std::vector<QueueCounters>& queues);

    FileIOParameters parameters;
    mutable std::mutex mutex;
    std::array<BusyTime, 2> busyTimes;
    std::array<std::uint64_t, 2> ticksAtReset{};
    // Made beforehand: the first request of a size lies within a measurement.
    std::array<std::unique_ptr<SizeRecord>, maxSizes> owned;
    std::size_t sizesInUse = 0;
    std::vector<QueueCounters> submitQueues;
    std::vector<QueueCounters> completionQueues;
    DetailedStatistics nothing{};
    std::vector<Diagnose::StatisticsRegistration> domains;  // last, so that they go first
};

}  // namespace FileAccess
