#pragma once

#include <dirent.h>
#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Diagnose/StackTable.h"

namespace Diagnose {

/// What the kernel says of a thread at one moment.
struct ThreadState {
    enum class Activity { Running, Asleep, Gone };

    Activity activity = Activity::Gone;
    std::uint64_t startTime = 0;  ///< tells a thread from an earlier one of its number
};

/// Reads the text of a thread's "stat" file; Gone for a text that is none and for a thread that
/// has ended.
ThreadState readThreadState(std::string_view text);

/// A thread of this process that takes its turns. Its files stay open, so reading them finds this
/// thread and no later one of the same number.
struct SampledThread {
    SampledThread(pid_t threadNumber, int stat, int waitChannel)
        : number(threadNumber), statFile(stat), channelFile(waitChannel)
    {
    }
    ~SampledThread();
    SampledThread(SampledThread&& other) noexcept;
    SampledThread& operator=(SampledThread&& other) noexcept;

    ThreadState state() const;
    /// Where in the kernel it sleeps; empty if the kernel does not say.
    std::string waitChannel() const;

    pid_t number;
    int record = -1;  ///< the one it was asked to fill
    SampleCounts pending;
    std::string pendingChannel;

private:
    int statFile;
    int channelFile;
};

/// The threads of this process but for the one that asks.
class SampledThreads {
public:
    static constexpr std::size_t mostThreads = 1024;

    SampledThreads();
    SampledThreads(const SampledThreads&) = delete;
    SampledThreads& operator=(const SampledThreads&) = delete;

    /// False where the kernel's lists cannot be read.
    bool canBeListed() const { return listing != nullptr; }
    /// Adds the threads that have come since. Those that have gone stay until they are removed.
    void refresh();
    /// How many there were at the last look for whose files there was no room.
    std::size_t unseen() const { return unseenCount; }
    std::vector<SampledThread>& all() { return threads; }
    const std::vector<SampledThread>& all() const { return threads; }
    void remove(std::size_t position);

private:
    bool knows(pid_t number) const;
    bool add(pid_t number);

    std::unique_ptr<DIR, int (*)(DIR*)> listing;  // open all the time: later there may be no room
    std::size_t unseenCount = 0;
    std::vector<SampledThread> threads;
};

}  // namespace Diagnose
