#pragma once

#include <condition_variable>
#include <mutex>

namespace Synchronization {

/// A one-shot gate: wait blocks until signal, whichever comes first.
///
/// Threads:    any. Several may signal; one waits.
/// Lifetime:   nobody may be inside a call when the gate is destroyed. A gate that goes neither
///             fresh nor both signalled and waited for is reported by its owner, see isAtRest.
class Barrier {
public:
    /// Blocks until the gate has been signalled since it was armed.
    void wait();
    /// Opens the gate. More than one signal counts as one.
    void signal();
    /// Arms the gate again. No signal of the last use may still be under way.
    void resetForReuse();

    /// True if the gate is fresh, or both signalled and waited for.
    bool isAtRest() const;

    /// Says on standard error that a gate was misused.
    static void reportError(const char* text);

private:
    mutable std::mutex mutex;
    std::condition_variable opened;
    bool isSignalled = false;
    bool isWaited = false;
};

}  // namespace Synchronization
