#include "JoltNet/EverySecond.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <system_error>
#include <utility>

#include "Diagnose/SamplingSignal.h"

namespace JoltNet {

namespace {

constexpr std::chrono::seconds aSecond{1};

// Not a moment too short, and no more than a second whatever becomes of the clock.
int millisecondsUntil(Clock::time_point moment)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(moment - Clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 1000));
}

// Signals are for the threads that were there before, but for the profiler's.
void repeat(const std::function<void()>& work, int end)
{
    sigset_t all;
    ::sigfillset(&all);
    ::sigdelset(&all, Diagnose::samplingSignal());
    ::pthread_sigmask(SIG_SETMASK, &all, nullptr);
    pollfd event{end, POLLIN, 0};
    Clock::time_point due = Clock::now() + aSecond;
    while (::poll(&event, 1, millisecondsUntil(due)) <= 0) {
        if (Clock::now() < due)
            continue;  // the profiler's signal
        work();
        due = Clock::now() + aSecond;
    }
}

}  // namespace

bool EverySecond::start(std::function<void()> work)
{
    const std::scoped_lock lock(mutex);
    if (thread.joinable())
        return false;
    end.emplace(::eventfd(0, EFD_CLOEXEC));
    if (end->number() < 0)
        return false;
    try {
        thread =
            std::thread([work = std::move(work), event = end->number()] { repeat(work, event); });
    } catch (const std::system_error&) {
        return false;
    }
    return true;
}

void EverySecond::stop()
{
    const std::scoped_lock lock(mutex);
    if (!thread.joinable())
        return;
    ::eventfd_write(end->number(), 1);
    thread.join();
    end.reset();
}

}  // namespace JoltNet
