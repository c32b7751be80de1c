#pragma once

#include <atomic>
#include <thread>

#include "programs/VNSNetServerBidi/MeasuringServer.h"

namespace netTests {

/// Options for a server of this host alone, on a port of the system.
inline NetServer::ServerOptions localOptions()
{
    NetServer::ServerOptions options;
    options.port = static_cast<unsigned short>(0);
    options.bindAddress = "127.0.0.1";
    return options;
}

/// A measuring server on a thread, until the end of its scope.
class RunningMeasuringServer {
public:
    RunningMeasuringServer()
        : server(localOptions()), thread([this] {
              server.run();
              ended = true;
          })
    {
    }
    ~RunningMeasuringServer()
    {
        server.stop();
        thread.join();
    }
    RunningMeasuringServer(const RunningMeasuringServer&) = delete;
    RunningMeasuringServer& operator=(const RunningMeasuringServer&) = delete;

    unsigned short port() const { return server.port(); }
    void addUser() { server.addUser(); }
    bool hasEnded() const { return ended; }

private:
    NetServer::MeasuringServer server;
    std::atomic<bool> ended{false};
    std::thread thread;
};

}  // namespace netTests
