#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
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
/// Fork:       a child has the sampler but not its thread. Who forks after `holdStill` leaves the
///             child nothing that this thread had locked or half changed.
class Sampler {
public:
    static constexpr auto patienceAtEnd = std::chrono::milliseconds(100);

    /// Throws a SystemException, and leaves nothing behind, if the process cannot be sampled.
    Sampler(Samples& store, unsigned samplesPerSecond);
    ~Sampler();
    Sampler(const Sampler&) = delete;
    Sampler& operator=(const Sampler&) = delete;

    /// Waits for the end of the present turn; there is no other before `goOn`. Not for a thread
    /// that holds the loader's list of libraries, which a turn may wait for.
    void holdStill();
    /// By the same thread.
    void goOn() { atWork.unlock(); }
    /// Instead of `goOn`, in a child: there are no turns any more. What was asked for and has not
    /// come is counted as dropped. Allocates nothing.
    void endInChild();

private:
    using Clock = std::chrono::steady_clock;

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
    std::mutex nextAtWork;  // a thread that is always late would take `atWork` again and again
    std::mutex atWork;      // held by the thread unless it sleeps
    std::unique_ptr<std::thread> thread;
};

}  // namespace Diagnose
