#pragma once

#include <pthread.h>
#include <signal.h>

#include <cstddef>
#include <string>
#include <thread>
#include <utility>

#include "Diagnose/SamplingSignal.h"

namespace FileAccess {

/// Blocks all signals of the calling thread until the end of its scope, but for the one by which a
/// profiler sees what the thread does.
class SignalsBlocked {
public:
    SignalsBlocked()
    {
        sigset_t all;
        ::sigfillset(&all);
        ::sigdelset(&all, Diagnose::samplingSignal());
        ::pthread_sigmask(SIG_SETMASK, &all, &before);
    }
    ~SignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &before, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t before;
};

/// Starts a thread of the layer: named for tools that list threads, and with the signals of
/// the process blocked, so that they reach its own threads.
template <class Body>
std::thread startThread(const char* kind, std::size_t number, Body body)
{
    const std::string name = std::string(kind) + "-" + std::to_string(number);
    const SignalsBlocked forTheThread;
    std::thread thread(std::move(body));
    ::pthread_setname_np(thread.native_handle(), name.c_str());
    return thread;
}

}  // namespace FileAccess
