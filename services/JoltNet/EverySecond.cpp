#include "JoltNet/EverySecond.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>

#include <system_error>
#include <utility>

#include "Diagnose/SamplingSignal.h"

namespace JoltNet {

namespace {

constexpr int aSecond = 1000;  // milliseconds

// Signals are for the threads that were there before, but for the profiler's.
void repeat(const std::function<void()>& work, int end)
{
    sigset_t all;
    ::sigfillset(&all);
    ::sigdelset(&all, Diagnose::samplingSignal());
    ::pthread_sigmask(SIG_SETMASK, &all, nullptr);
    pollfd event{end, POLLIN, 0};
    for (int count = -1; count <= 0; count = ::poll(&event, 1, aSecond)) {
        if (count == 0)
            work();
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
