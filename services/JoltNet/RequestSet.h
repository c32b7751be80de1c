#pragma once

#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "JoltNet/AutonomousRequest.h"

namespace JoltNet {

/// Hears of each request of a set when it is over.
class RequestSetCallback {
public:
    virtual ~RequestSetCallback() = default;
    /// `failure` is null for a request that succeeded. On the request's thread.
    virtual void requestEnded(AutonomousRequest& request, const std::exception* failure) = 0;
};

/// Requests that are carried out at the same time, each on a thread of the engine.
///
/// A set may go again when it has been joined. The destructor joins it. Every wait has an end,
/// since each request has its deadlines. Threads: one at a time.
class RequestSet {
public:
    RequestSet() = default;
    ~RequestSet();
    RequestSet(const RequestSet&) = delete;
    RequestSet& operator=(const RequestSet&) = delete;

    void addRequest(std::shared_ptr<AutonomousRequest> request);

    /// Sets all requests going and returns. The callback may be null. `timeout` is reserved and -1:
    /// the requests have deadlines of their own. Throws NetException if no thread can be started.
    void go(RequestSetCallback* callback, int timeout);

    /// Waits for the end of all requests. Not zero if each has succeeded, or none was set going.
    int join();

private:
    void carryOut(AutonomousRequest& request, RequestSetCallback* callback);

    std::vector<std::shared_ptr<AutonomousRequest>> requests;
    std::vector<std::thread> threads;
    std::mutex mutex;
    bool hasFailed = false;
};

}  // namespace JoltNet
