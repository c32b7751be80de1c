#pragma once

#include <algorithm>
#include <chrono>

#include "programs/VNSNetServerBidi/UserRegistry.h"

namespace NetServer {

/// How long a start waits for its turn where somebody else holds the registry's name.
///
/// A server of the same user that answers is about to listen or to end, and then frees the name:
/// it is worth waiting for on a host that has much to do. One who does not answer may be a server
/// between taking the name and listening, which is a moment, or anybody for ever.
class Patience {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::seconds turnTime{15};
    static constexpr std::chrono::milliseconds silentTime{500};

    explicit Patience(Clock::time_point begin)
        : turnEnd(begin + turnTime), silentEnd(begin + silentTime)
    {
    }

    /// Whether it is worth trying again; `holder` is who has answered this time.
    bool isLeft(Holder holder, Clock::time_point now)
    {
        if (holder == Holder::otherUser)
            return false;
        if (holder == Holder::sameUser)
            silentEnd = std::min(now + silentTime, turnEnd);
        return now < (holder == Holder::sameUser ? turnEnd : silentEnd);
    }

private:
    Clock::time_point turnEnd;
    Clock::time_point silentEnd;
};

}  // namespace NetServer
