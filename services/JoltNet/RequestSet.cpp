#include "JoltNet/RequestSet.h"

#include <system_error>

#include "JoltNet/NetException.h"

namespace JoltNet {

RequestSet::~RequestSet()
{
    join();
}

void RequestSet::addRequest(std::shared_ptr<AutonomousRequest> request)
{
    requests.push_back(std::move(request));
}

void RequestSet::carryOut(AutonomousRequest& request, RequestSetCallback* callback)
{
    try {
        request.carryOut();
    } catch (const std::exception& exception) {
        {
            const std::scoped_lock lock(mutex);
            hasFailed = true;
        }
        if (callback)
            callback->requestEnded(request, &exception);
        return;
    }
    if (callback)
        callback->requestEnded(request, nullptr);
}

void RequestSet::go(RequestSetCallback* callback, int)
{
    join();
    hasFailed = false;
    threads.reserve(requests.size());
    for (const auto& request : requests) {
        try {
            threads.emplace_back([this, request, callback] { carryOut(*request, callback); });
        } catch (const std::system_error& error) {
            join();
            throwSystemError(error.code().value(), "start a thread for", "a request");
        }
    }
}

int RequestSet::join()
{
    for (std::thread& thread : threads)
        thread.join();
    threads.clear();
    const std::scoped_lock lock(mutex);
    return hasFailed ? 0 : 1;
}

}  // namespace JoltNet
