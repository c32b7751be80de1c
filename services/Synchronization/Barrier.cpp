#include "Synchronization/Barrier.h"

#include <iostream>
#include <string>

namespace Synchronization {

void Barrier::wait()
{
    std::unique_lock lock(mutex);
    opened.wait(lock, [this] { return isSignalled; });
    isWaited = true;
}

void Barrier::signal()
{
    const std::scoped_lock lock(mutex);
    isSignalled = true;
    // Under the lock: the waiter may destroy the gate as soon as it can take it.
    opened.notify_all();
}

void Barrier::resetForReuse()
{
    const std::scoped_lock lock(mutex);
    isSignalled = false;
    isWaited = false;
}

bool Barrier::isAtRest() const
{
    const std::scoped_lock lock(mutex);
    return isSignalled == isWaited;
}

void Barrier::reportError(const char* text)
{
    std::cerr << std::string("vetra: barrier ") + text + "\n" << std::flush;
}

}  // namespace Synchronization
