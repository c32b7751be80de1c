#pragma once

#include <memory>
#include <mutex>
#include <optional>

#include "JoltNet/Server.h"
#include "programs/VNSNetServerBidi/ServerOptions.h"

namespace NetServer {

/// The port that the test assumes where the peer's netstat shows none.
inline constexpr unsigned short assumedPort = 4464;

/// The server of the network test with its six requests, and the count of its users.
///
/// Threads:    addUser and the requests may come from any.
/// Errors:     the constructor throws JoltNet::NetException if it cannot listen.
class MeasuringServer {
public:
    explicit MeasuringServer(const ServerOptions& options);

    unsigned short port() const { return server->port(); }

    /// One user more; the port, or nothing if the last one has gone.
    std::optional<unsigned short> addUser();

    /// Serves until the last user has stopped it, stop is called or the idle time is over.
    void run() { server->run(idleTimeout); }
    /// May be called from a signal handler.
    void stop() noexcept { server->stop(); }

    /// A user that addUser has counted did not hear of it.
    void dropUser();

    /// Called once, when the server is to end and before the last user is told that it does.
    void onLastUser(std::function<void()> action) { lastUserAction = std::move(action); }

private:
    static std::unique_ptr<JoltNet::Server> listen(const ServerOptions& options);
    JoltNet::Answer removeUser();
    bool mayEnd();
    void tellLastUser();

    std::unique_ptr<JoltNet::Server> server;
    std::chrono::seconds idleTimeout;
    std::function<void()> lastUserAction;
    std::mutex mutex;
    unsigned users = 1;
};

}  // namespace NetServer
