#pragma once

#include <atomic>
#include <chrono>
#include <thread>

#include "JoltNet/Server.h"

namespace netTests {

/// Runs a server on a thread until the end of its scope.
class RunningServer {
public:
    /// Longer than any clock is moved forward.
    static constexpr std::chrono::hours forEver{500'000};

    explicit RunningServer(JoltNet::Server& runServer, std::chrono::seconds idleTime = forEver)
        : server(runServer), thread([this, idleTime] {
              server.run(idleTime);
              ended = true;
          })
    {
    }
    ~RunningServer()
    {
        server.stop();
        thread.join();
    }
    RunningServer(const RunningServer&) = delete;
    RunningServer& operator=(const RunningServer&) = delete;

    bool hasEnded() const { return ended; }

private:
    JoltNet::Server& server;
    std::atomic<bool> ended{false};
    std::thread thread;
};

}  // namespace netTests
