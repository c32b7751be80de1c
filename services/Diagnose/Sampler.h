#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <thread>

#include "Diagnose/SampledThreads.h"
#include "Diagnose/Samples.h"
#include "Diagnose/StackWalker.h"

namespace Diagnose {

/// Samples the threads of this process, one a turn, on a thread of its own, from construction to
/// destruction.
///
/// A turn is a weight of one for what the thread is doing: processor time if it runs or could run,
/// wait time if it sleeps. A thread that was asked for its stack and has not answered yet, as one
/// in a transfer of direct I/O, goes on to gain weight for the stack that will come.
///
/// Threads:    one sampler at a time. Its own thread has all signals blocked and takes no turn.
/// Destructor: ends within a few milliseconds, or after `patienceAtEnd` if threads do not answer;
///             what they gained is counted as dropped.
/// Fork:       a child has the sampler but not its thread. Who forks between `holdStill` and `goOn`
///             leaves the child nothing that this thread had locked or half changed.
class Sampler {
public:
    static constexpr auto patienceAtEnd = std::chrono::milliseconds(100);

    /// Throws a SystemException, and leaves nothing behind, if the process cannot be sampled.
    Sampler(Samples& store, unsigned samplesPerSecond);
    ~Sampler();
    Sampler(const Sampler&) = delete;
    Sampler& operator=(const Sampler&) = delete;

    /// Waits for the end of the present turn; there is no other before `goOn`, which the same
    /// thread calls, or in a child the copy of it.
    void holdStill() { atWork.lock(); }
    void goOn() { atWork.unlock(); }

private:
    using Clock = std::chrono::steady_clock;

    void forgetThread();
    void run();
    void work(Clock::time_point& turn, Clock::time_point& look);
    void sleepUntil(Clock::time_point moment) const;
    void takeTurn();
    Clock::rep countMissedTurns(Clock::time_point due);
    void ask(SampledThread& thread, SampleCounts weight, std::string waitChannel);
    void collect(SampledThread& thread);
    void collectAll();
    void forgetIfCleared();
    void dropPending(SampledThread& thread);
    bool isAnythingPending() const;
    void finish();

    Samples& samples;
    Clock::duration period;
    SampledThreads threads;
    StackWalker walker;
    std::size_t next = 0;
    unsigned knownClears;
    std::atomic<bool> isEnding{false};
    std::mutex atWork;  // held by the thread unless it sleeps
    pid_t owner;        // a child that was forked has no thread to wait for
    std::thread thread;
};

}  // namespace Diagnose
