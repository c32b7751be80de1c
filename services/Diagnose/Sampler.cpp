#include "Diagnose/Sampler.h"

#include <pthread.h>
#include <signal.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "Diagnose/NoSignals.h"
#include "Diagnose/SampleRecords.h"
#include "Diagnose/SystemError.h"

namespace Diagnose {

namespace {

using namespace std::chrono_literals;

constexpr auto betweenLooksForThreads = 100ms;
// However slow the sampling, its end is not waited for longer than that.
constexpr auto longestSleep = 10ms;

timespec toTimespec(std::chrono::steady_clock::time_point moment)
{
    const auto sinceStart = moment.time_since_epoch();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(sinceStart);
    return {seconds.count(), std::chrono::nanoseconds(sinceStart - seconds).count()};
}

}  // namespace

Sampler::Sampler(Samples& store, unsigned samplesPerSecond)
    : samples(store),
      period(std::chrono::nanoseconds(1s) / samplesPerSecond),
      knownClears(store.clears())
{
    if (!threads.canBeListed())
        throw SystemException(__FILE__, __LINE__, {ENOENT});
    if (const int error = SampleRecords::open(); error != 0)
        throw SystemException(__FILE__, __LINE__, {error});
    try {
        const NoSignals forTheThread;
        thread = std::make_unique<std::thread>([this] { run(); });
    } catch (const std::system_error& failure) {
        SampleRecords::close();
        throw SystemException(__FILE__, __LINE__, {failure.code().value()});
    } catch (...) {
        SampleRecords::close();
        throw;
    }
    ::pthread_setname_np(thread->native_handle(), "profiler");
}

Sampler::~Sampler()
{
    isEnding = true;
    if (thread)
        thread->join();
    SampleRecords::close();
}

void Sampler::holdStill()
{
    const std::scoped_lock first(nextAtWork);
    atWork.lock();
}

void Sampler::endInChild()
{
    atWork.unlock();
    // There is nothing to join, and what a handle stands for is the thread's own memory.
    static_cast<void>(thread.release());
    for (SampledThread& asked : threads.all())
        dropPending(asked);
    SampleRecords::takeBackAll();
}

void Sampler::run()
{
    Clock::time_point turn = Clock::now();
    Clock::time_point look = turn;
    while (!isEnding) {
        work(turn, look);
        sleepUntil(turn);
    }
    const std::scoped_lock lock(atWork);
    finish();
}

// The turn that is due and, now and then, a look for other threads.
void Sampler::work(Clock::time_point& turn, Clock::time_point& look)
{
    nextAtWork.lock();
    nextAtWork.unlock();
    const std::scoped_lock lock(atWork);
    if (Clock::now() >= look) {
        threads.refresh();
        look = Clock::now() + betweenLooksForThreads;
    }
    forgetIfCleared();
    collectAll();
    takeTurn();
    turn += period;
    turn += period * countMissedTurns(turn);
}

void Sampler::sleepUntil(Clock::time_point moment) const
{
    for (Clock::time_point now = Clock::now(); now < moment && !isEnding; now = Clock::now()) {
        const timespec end = toTimespec(std::min<Clock::time_point>(moment, now + longestSleep));
        ::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr);
    }
}

// Turns that were missed are not made up for, since they would all see the same moment.
Sampler::Clock::rep Sampler::countMissedTurns(Clock::time_point due)
{
    const auto missed = std::max<Clock::rep>((Clock::now() - due) / period, 0);
    if (missed != 0)
        samples.miss(static_cast<std::uint64_t>(missed));
    return missed;
}

void Sampler::takeTurn()
{
    std::vector<SampledThread>& all = threads.all();
    while (!all.empty() || threads.unseen() != 0) {
        if (next >= all.size() + threads.unseen())
            next = 0;
        if (next >= all.size()) {
            // A thread that cannot be looked at has its turn all the same.
            ++next;
            samples.drop(1);
            return;
        }
        SampledThread& chosen = all[next];
        const ThreadState state = chosen.state();
        if (state.activity == ThreadState::Activity::Gone) {
            dropPending(chosen);
            threads.remove(next);
            continue;
        }
        ++next;
        samples.noteThread(chosen.number, state.startTime);
        if (state.activity == ThreadState::Activity::Running)
            ask(chosen, {1, 0}, {});
        else
            ask(chosen, {0, 1}, chosen.waitChannel());
        return;
    }
}

void Sampler::ask(SampledThread& chosen, SampleCounts weight, std::string waitChannel)
{
    if (chosen.pendingChannel.empty())
        chosen.pendingChannel = std::move(waitChannel);
    chosen.pending += weight;
    if (chosen.record >= 0)
        return;
    unsigned record = 0;
    if (SampleRecords::ask(chosen.number, record) == SampleRecords::Answer::Asked)
        chosen.record = static_cast<int>(record);
    else
        dropPending(chosen);
}

void Sampler::collect(SampledThread& asked)
{
    const StackCopy* const copy = SampleRecords::filled(static_cast<unsigned>(asked.record));
    if (!copy)
        return;
    if (asked.pending.sum() != 0)
        samples.add(walker.walk(*copy), asked.pending, asked.pendingChannel);
    SampleRecords::release(static_cast<unsigned>(asked.record));
    asked.record = -1;
    asked.pending = {};
    asked.pendingChannel.clear();
}

void Sampler::collectAll()
{
    for (SampledThread& asked : threads.all()) {
        if (asked.record >= 0)
            collect(asked);
    }
}

void Sampler::forgetIfCleared()
{
    const unsigned clears = samples.clears();
    if (clears == knownClears)
        return;
    knownClears = clears;
    for (SampledThread& asked : threads.all()) {
        asked.pending = {};
        asked.pendingChannel.clear();
    }
}

void Sampler::dropPending(SampledThread& asked)
{
    if (asked.record >= 0)
        SampleRecords::withdraw(static_cast<unsigned>(asked.record));
    samples.drop(asked.pending.sum());
    asked.record = -1;
    asked.pending = {};
    asked.pendingChannel.clear();
}

bool Sampler::isAnythingPending() const
{
    const auto& all = threads.all();
    return std::any_of(all.begin(), all.end(),
                       [](const SampledThread& asked) { return asked.record >= 0; });
}

void Sampler::finish()
{
    const Clock::time_point end = Clock::now() + patienceAtEnd;
    collectAll();
    while (isAnythingPending() && Clock::now() < end) {
        std::this_thread::sleep_for(1ms);
        collectAll();
    }
    forgetIfCleared();
    for (SampledThread& asked : threads.all()) {
        if (asked.record >= 0)
            dropPending(asked);
    }
}

}  // namespace Diagnose
