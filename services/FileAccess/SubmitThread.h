#pragma once

#include <cstddef>
#include <thread>

#include "FileAccess/RequestDispatcher.h"
#include "FileAccess/WorkRounds.h"

namespace FileAccess {

/// The thread of one submit queue: starts the flow of requests to the kernel when nothing is in
/// flight. The destructor joins it; the dispatcher must have been closed.
class SubmitThread {
public:
    SubmitThread(RequestDispatcher& requestDispatcher, std::size_t submitQueue);
    ~SubmitThread();
    SubmitThread(const SubmitThread&) = delete;
    SubmitThread& operator=(const SubmitThread&) = delete;

    void run();

    /// Returns when the thread is, or has been since the call, outside of a submission.
    void waitOutsideOfSubmission() const { rounds.waitForPause(); }

private:
    RequestDispatcher& dispatcher;
    std::size_t queue;
    WorkRounds rounds;
    std::thread thread;
};

}  // namespace FileAccess
