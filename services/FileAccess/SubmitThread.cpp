#include "FileAccess/SubmitThread.h"

#include "FileAccess/ThreadStart.h"

namespace FileAccess {

SubmitThread::SubmitThread(RequestDispatcher& requestDispatcher, std::size_t submitQueue)
    : dispatcher(requestDispatcher),
      queue(submitQueue),
      thread(startThread("submit", submitQueue, [this] { run(); }))
{
}

SubmitThread::~SubmitThread()
{
    thread.join();
}

// Stays a frame of its own, so that a profile shows what the thread does below its name.
[[gnu::noinline]] void SubmitThread::run()
{
    while (dispatcher.waitForStart(queue)) {
        const WorkRounds::Scope round(rounds);
        dispatcher.start(queue);
    }
}

}  // namespace FileAccess
