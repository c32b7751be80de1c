#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <thread>

#include "JoltNet/Channel.h"

namespace JoltNet {

/// Does something about once a second, on a thread of its own that takes no signals but the
/// profiler's.
/// Threads: any; the work must not start or stop it.
class EverySecond {
public:
    ~EverySecond() { stop(); }

    /// False if there can be no thread, or if there is one already.
    bool start(std::function<void()> work);
    /// Waits for the work, if it is being done.
    void stop();

private:
    std::mutex mutex;
    std::optional<Descriptor> end;  // becomes readable
    std::thread thread;
};

}  // namespace JoltNet
