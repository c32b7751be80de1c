#include "FileAccess/IOStatistics.h"

#include <algorithm>
#include <iomanip>
#include <span>

#include "Basis/Crash.h"
#include "Basis/Timer.h"

namespace FileAccess {

namespace {

constexpr const char* directionNames[] = {"read", "write"};

void raiseTo(Counter& counter, std::uint64_t value)
{
    std::uint64_t known = counter.load(std::memory_order_relaxed);
    while (known < value && !counter.compare_exchange_weak(known, value, std::memory_order_relaxed))
        continue;
}

void lowerTo(Counter& counter, std::uint64_t value)
{
    std::uint64_t known = counter.load(std::memory_order_relaxed);
    while (known > value && !counter.compare_exchange_weak(known, value, std::memory_order_relaxed))
        continue;
}

std::uint64_t microseconds(std::uint64_t ticks)
{
    return Basis::Timer::s_fHiPerfTimerConvert(ticks);
}

}  // namespace

void BusyTime::beginPeriod()
{
    const std::scoped_lock lock(mutex);
    // Read anew: the request's own time may lie before the end of the last period.
    edges -= Basis::Timer::s_fHiPerfTimer();
    ++open;
}

void BusyTime::endPeriod(std::uint64_t now)
{
    const std::scoped_lock lock(mutex);
    edges += now;
    --open;
}

std::uint64_t BusyTime::ticks() const
{
    const std::scoped_lock lock(mutex);
    return edges + open * Basis::Timer::s_fHiPerfTimer();
}

std::size_t nextAcceptingShard()
{
    static std::atomic<std::size_t> threads{0};
    return 1 + threads.fetch_add(1, std::memory_order_relaxed) % acceptingShards;
}

void QueueCounters::count(std::uint64_t batch)
{
    add(calls, 1);
    add(requests, batch);
    lowerTo(smallest, batch);
    raiseTo(largest, batch);
}

void QueueCounters::noteInFlight(std::uint64_t inFlight)
{
    raiseTo(mostInFlight, inFlight);
}

void QueueCounters::reset()
{
    calls = 0;
    requests = 0;
    smallest = UINT64_MAX;
    largest = 0;
    mostInFlight = 0;
}

IOStatistics::IOStatistics(const FileIOParameters& fileParameters)
    : parameters(fileParameters),
      submitQueues(fileParameters.numSubmitQueues + 1),
      completionQueues(fileParameters.numCompletionQueues)
{
    for (auto& record : owned) {
        record = std::make_unique<SizeRecord>();
        for (auto& shards : record->completing)
            shards = std::vector<CompletingShard>(parameters.numCompletionQueues + 1);
    }
}

SizeRecord& IOStatistics::recordOf(std::uint64_t blockSize)
{
    const std::scoped_lock lock(mutex);
    for (std::size_t i = 0; i < sizesInUse; ++i) {
        if (owned[i]->blockSize == blockSize)
            return *owned[i];
    }
    if (sizesInUse == maxSizes)
        return *owned.back();
    SizeRecord& record = *owned[sizesInUse++];
    record.blockSize = blockSize;
    record.snapshot.blockSize = blockSize;
    return record;
}

void IOStatistics::takeSnapshot(SizeRecord& record)
{
    DirectionCounters* const sides[] = {&record.snapshot.read, &record.snapshot.write};
    for (unsigned direction = 0; direction < 2; ++direction) {
        DirectionCounters& side = *sides[direction];
        std::uint64_t triggerTicks = 0;
        std::uint64_t syncSubmitTicks = 0;
        for (const AcceptingShard& shard : record.accepting[direction]) {
            triggerTicks += shard.triggerTicks;
            syncSubmitTicks += shard.syncSubmitTicks;
        }
        side.triggerTicks.publish(triggerTicks);
        side.syncSubmitTicks.publish(syncSubmitTicks);
        side.asyncSubmitTicks.publish(record.submitting[direction].asyncSubmitTicks);
        std::uint64_t requests = 0;
        std::uint64_t ticks = 0;
        for (const CompletingShard& shard : record.completing[direction]) {
            requests += shard.requests;
            ticks += shard.requestTicks;
        }
        side.requests.publish(requests);
        side.requestTicks.publish(ticks);
    }
}

const DetailedStatistics& IOStatistics::detailed(std::uint64_t blockSize)
{
    const std::scoped_lock lock(mutex);
    for (const auto& record : std::span(owned).first(sizesInUse)) {
        if (record->blockSize != blockSize)
            continue;
        takeSnapshot(*record);
        return record->snapshot;
    }
    return nothing;
}

std::uint64_t IOStatistics::totalTicks(Direction direction) const
{
    // A reset while requests are under way may lie a moment ahead of their end.
    const std::uint64_t now = busyTimes[direction].ticks();
    return now - std::min(now, ticksAtReset[direction]);
}

std::uint64_t IOStatistics::getTotalReadTicks(unsigned domain) const
{
    Basis::assertThat(domain == 1, "counters have one reset domain");
    const std::scoped_lock lock(mutex);
    return totalTicks(reading);
}

std::uint64_t IOStatistics::getTotalWriteTicks(unsigned domain) const
{
    Basis::assertThat(domain == 1, "counters have one reset domain");
    const std::scoped_lock lock(mutex);
    return totalTicks(writing);
}

void IOStatistics::getConfigStatisticsString(std::ostream& stream, bool) const
{
    stream << parameters;
}

void IOStatistics::registerDomains(const std::function<void()>& settle)
{
    domains.reserve(4);
    const auto addDomain = [&](const char* name, auto reset, auto print) {
        const auto settledReset = [this, settle, reset] {
            settle();
            const std::scoped_lock lock(mutex);
            reset();
        };
        const auto settledPrint = [this, settle, print](std::ostream& stream) {
            settle();
            const std::scoped_lock lock(mutex);
            print(stream);
        };
        domains.emplace_back(Diagnose::StatisticsDomain{name, settledReset, settledPrint});
    };
    const auto resetQueues = [](std::vector<QueueCounters>& queues) {
        std::for_each(queues.begin(), queues.end(), [](QueueCounters& queue) { queue.reset(); });
    };
    addDomain(
        "M_VOLUME_IO_TOTAL_STATISTICS_RESET", [this] { resetTotals(); },
        [this](std::ostream& stream) { printTotals(stream); });
    addDomain(
        "M_DEV_VOLUME_IO_DETAILED_STATISTICS_RESET", [this] { resetDetailed(); },
        [this](std::ostream& stream) { printDetailed(stream); });
    addDomain(
        "M_DEV_VOLUME_IO_QUEUE_STATISTICS_RESET",
        [this, resetQueues] { resetQueues(submitQueues); },
        [this](std::ostream& stream) { printQueues(stream, "submit", submitQueues); });
    addDomain(
        "M_DEV_VOLUME_IO_COMPLETION_STATISTICS_RESET",
        [this, resetQueues] { resetQueues(completionQueues); },
        [this](std::ostream& stream) { printQueues(stream, "completion", completionQueues); });
}

void IOStatistics::resetTotals()
{
    for (unsigned direction = 0; direction < 2; ++direction)
        ticksAtReset[direction] = busyTimes[direction].ticks();
}

void IOStatistics::resetDetailed()
{
    for (const auto& record : std::span(owned).first(sizesInUse)) {
        takeSnapshot(*record);
        for (DirectionCounters* side : {&record->snapshot.read, &record->snapshot.write}) {
            side->triggerTicks.reset();
            side->asyncSubmitTicks.reset();
            side->syncSubmitTicks.reset();
            side->requests.reset();
            side->requestTicks.reset();
        }
    }
}

void IOStatistics::printTotals(std::ostream& stream)
{
    stream << "Totals since the last reset:\n";
    for (const Direction direction : {reading, writing}) {
        stream << "   " << directionNames[direction] << ": I/O time "
               << microseconds(totalTicks(direction)) << " us\n";
    }
}

void IOStatistics::printDetailed(std::ostream& stream)
{
    stream << "Requests by size and direction since the last reset:\n";
    for (const auto& record : std::span(owned).first(sizesInUse)) {
        takeSnapshot(*record);
        const DirectionCounters* const sides[] = {&record->snapshot.read, &record->snapshot.write};
        for (unsigned direction = 0; direction < 2; ++direction) {
            const DirectionCounters& side = *sides[direction];
            const std::uint64_t requests = side.requests.getValueSinceReset(1);
            if (requests == 0)
                continue;
            const auto since = [](const Diagnose::StatisticsSimpleCounter& counter) {
                return microseconds(counter.getValueSinceReset(1));
            };
            stream << "   " << record->blockSize << " bytes, " << directionNames[direction] << ": "
                   << requests << " requests, mean "
                   << microseconds(side.requestTicks.getValueSinceReset(1) / requests)
                   << " us, trigger " << since(side.triggerTicks) << " us, asynchronous submit "
                   << since(side.asyncSubmitTicks) << " us, synchronous submit "
                   << since(side.syncSubmitTicks) << " us\n";
        }
    }
}

void IOStatistics::printQueues(std::ostream& stream, const char* kind,
                               std::vector<QueueCounters>& queues)
{
    stream << "Work of the " << kind << " queues since the last reset:\n";
    for (std::size_t i = 0; i < queues.size(); ++i) {
        const QueueCounters& queue = queues[i];
        const bool isCaller = kind[0] == 's' && i + 1 == queues.size();
        stream << "   ";
        if (isCaller)
            stream << "calling threads";
        else
            stream << "queue " << i;
        const std::uint64_t calls = queue.calls;
        const std::uint64_t requests = queue.requests;
        stream << ": " << calls << " calls, " << requests << " requests";
        if (calls != 0) {
            stream << ", batches of " << queue.smallest << " to " << queue.largest << ", mean "
                   << requests / calls << ", at most " << queue.mostInFlight << " in flight";
        }
        stream << '\n';
    }
}

}  // namespace FileAccess
