#pragma once

#include <atomic>
#include <cstdint>
#include <thread>

namespace FileAccess {

/// Tells other threads when a thread is done with what it does at the moment.
class WorkRounds {
public:
    /// A piece of work, from construction to destruction. For the owning thread.
    class Scope {
    public:
        explicit Scope(WorkRounds& workRounds) : rounds(workRounds) { rounds.count.fetch_add(1); }
        ~Scope() { rounds.count.fetch_add(1); }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        WorkRounds& rounds;
    };

    /// Returns when the owning thread is, or has been since the call, outside of its work.
    void waitForPause() const
    {
        const std::uint64_t known = count.load();
        while (known % 2 != 0 && count.load() == known)
            std::this_thread::yield();
    }

private:
    std::atomic<std::uint64_t> count{0};  // odd during work
};

}  // namespace FileAccess
