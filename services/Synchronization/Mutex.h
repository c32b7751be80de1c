#pragma once

#include <mutex>

namespace Synchronization {

/// A plain mutex with a name for diagnosis. Not recursive.
class Mutex {
public:
    /// The name must be a literal; the component number says which part of a program owns it.
    Mutex(const char* mutexName, unsigned componentNumber)
        : ownName(mutexName), ownComponent(componentNumber)
    {
    }

    void lock() { mutex.lock(); }
    /// True if the caller now holds the mutex.
    bool tryLock() { return mutex.try_lock(); }
    void unlock() { mutex.unlock(); }

    const char* name() const { return ownName; }
    unsigned component() const { return ownComponent; }

private:
    std::mutex mutex;
    const char* ownName;
    unsigned ownComponent;
};

/// Holds a mutex for its own lifetime.
class MutexScope {
public:
    explicit MutexScope(Mutex& heldMutex) : mutex(heldMutex) { mutex.lock(); }
    ~MutexScope() { mutex.unlock(); }
    MutexScope(const MutexScope&) = delete;
    MutexScope& operator=(const MutexScope&) = delete;

private:
    Mutex& mutex;
};

}  // namespace Synchronization
