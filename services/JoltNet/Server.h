#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "JoltNet/Request.h"

namespace JoltNet {

/// What came in with a request.
struct Received {
    std::uint64_t bytes = 0;      ///< of all its strings
    std::string_view firstBytes;  ///< of its first string, 64 at most
};

/// What is done about it.
struct Answer {
    bool isAccepted = true;                 ///< false drops the connection without a confirmation
    std::optional<std::uint64_t> length{};  ///< of the string that goes back, nothing for none
    bool isLast = false;                    ///< the server ends after this answer
};

/// Answers named requests of many peers.
///
/// Each connection has a thread of its own, which blocks in the kernel while the peer is silent:
/// the way from the wire to the handler is one system call. A peer that breaks the protocol or a
/// deadline is dropped with a trace line, and the others notice nothing.
///
/// Units:      seconds.
/// Threads:    handlers run on the connections' threads, several at a time.
/// Errors:     the constructor throws NetException if it cannot listen.
/// Limits:     256 connections. One more takes the place of the oldest that has never sent a byte,
///             else of the one that has asked for nothing for the longest time, else of one whose
///             request comes in, or whose answer goes out, at less than 1 MB/s for 10 s; it is
///             refused only if all are at work. A string takes 10 s, or a second for each megabyte
///             that was announced, and a request of many strings 10 s and a second for each
///             megabyte.
class Server {
public:
    using Handler = std::function<Answer(const Received&)>;

    static constexpr std::size_t maxConnections = 256;

    /// Listens on an IPv4 address; port 0 lets the system choose.
    Server(std::string_view address, unsigned short port);
    /// Stops, and waits for the connections' threads.
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    unsigned short port() const { return ownPort; }

    /// Says who answers requests of a name. Before run.
    void onRequest(const std::string& name, Handler handler);

    /// Accepts connections until stop is called, an answer was the last, or nothing has been asked
    /// for so long. Before it returns, requests under way are answered as long as they are not
    /// late, but for no more than 10 s once stop was called.
    void run(std::chrono::seconds idleTime);
    /// Asked before the server ends for its idle time, and told whenever it ends; false lets it go
    /// on, for one who has begun the idle time anew meanwhile. Before run.
    void onEnding(std::function<bool()> mayEndNow) { endingCheck = std::move(mayEndNow); }
    /// Begins the idle time anew.
    void touch() { lastRequest = Clock::now().time_since_epoch().count(); }
    bool isEnding() const { return isStopping; }
    /// A request of which bytes are overdue for as long, its own or its answer's, counts for
    /// nothing.
    bool isIdleFor(std::chrono::seconds time);
    /// Frees the port, for one who takes the place of this server while it ends; run ends.
    void stopListening();
    /// Ends run. May be called from a signal handler.
    void stop() noexcept;

private:
    struct Connection;
    using Connections = std::list<std::unique_ptr<Connection>>;

    bool waitForPeer(std::chrono::seconds idleTime);
    bool mayEnd() const { return !endingCheck || endingCheck(); }
    void acceptPeer();
    void addConnection(std::unique_ptr<Connection> connection);
    void serve(Connection& connection);
    bool serveRequest(Connection& connection);
    Answer handle(Request& request, std::uint64_t& received);
    void joinEnded();
    bool makeRoom();
    void beginEnding() noexcept;
    bool isToWaitFor(const Connection& connection) const;
    bool isAnyAtWork(std::chrono::seconds patience);
    void endAll();

    int listener = -1;
    int wakeup = -1;  // an eventfd: readable once the server is to stop
    unsigned short ownPort = 0;
    std::map<std::string, Handler, std::less<>> handlers;
    std::function<bool()> endingCheck;
    std::mutex mutex;
    Connections connections;
    std::atomic<bool> isStopping{false};
    std::atomic<std::int64_t> lastRequest{0};  // ticks of Clock
    std::atomic<std::int64_t> stopTime{0};     // the same, 0 as long as nobody has called stop
    std::atomic<unsigned> underWay{0};
};

}  // namespace JoltNet
