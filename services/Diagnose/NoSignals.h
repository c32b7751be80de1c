#pragma once

#include <pthread.h>
#include <signal.h>

namespace Diagnose {

/// The calling thread takes no signal until the end of the scope, nor will a thread that it starts.
/// What was sent meanwhile arrives then.
class NoSignals {
public:
    NoSignals()
    {
        sigset_t all;
        ::sigfillset(&all);
        ::pthread_sigmask(SIG_SETMASK, &all, &before);
    }
    ~NoSignals() { ::pthread_sigmask(SIG_SETMASK, &before, nullptr); }
    NoSignals(const NoSignals&) = delete;
    NoSignals& operator=(const NoSignals&) = delete;

private:
    sigset_t before;
};

}  // namespace Diagnose
