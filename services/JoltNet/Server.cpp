#include "JoltNet/Server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <tuple>

#include "JoltNet/NetException.h"
#include "JoltNet/NetTrace.h"

namespace JoltNet {

namespace {

constexpr int backlog = 128;
constexpr std::size_t keptBytes = 64;

// Without descriptors or memory a waiting peer stays readable; accepting it is tried again then.
constexpr int pauseMilliseconds = 50;

// How long a request may take, and what it must bring beyond that.
constexpr std::chrono::seconds requestTime{10};
constexpr std::uint64_t bytesPerSecond = 1'000'000;

// How long requests under way may go on once somebody wants the process to end.
constexpr std::chrono::seconds stoppingTime{10};

// Most ends are near; the others take minutes.
constexpr int shortPauses = 1000;
constexpr int longPauseMilliseconds = 20;

std::int64_t now()
{
    return Clock::now().time_since_epoch().count();
}

}  // namespace

struct Server::Connection {
    Connection(Descriptor socket, std::string_view host, unsigned short port)
        : channel(std::move(socket), host, port)
    {
    }
    bool isLateBy(std::chrono::seconds time) const
    {
        const auto due = channel.dueTime();
        return due && Clock::now() - *due >= time;
    }

    Channel channel;
    std::thread thread;
    std::int64_t lastUse = now();
    bool hasSpoken = false;  // under the server's mutex, as are the others
    bool isLeaving = false;
    bool isInRequest = false;
    bool hasEnded = false;
};

Server::Server(std::string_view address, unsigned short port)
{
    const std::string text(address);
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_port = htons(port);
    if (::inet_pton(AF_INET, text.c_str(), &place.sin_addr) != 1)
        throwSystemError(EINVAL, "listen on", peerName(address, port));
    const auto refuse = [&] {
        const int reason = errno;
        if (listener >= 0)
            ::close(listener);
        if (wakeup >= 0)
            ::close(wakeup);
        throwSystemError(reason, "listen on", peerName(address, port));
    };
    wakeup = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (wakeup < 0 || listener < 0)
        refuse();
    const int on = 1;
    ::setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    socklen_t size = sizeof place;
    auto* const generic = reinterpret_cast<sockaddr*>(&place);
    if (::bind(listener, generic, sizeof place) != 0 || ::listen(listener, backlog) != 0 ||
        ::getsockname(listener, generic, &size) != 0)
        refuse();
    ownPort = ntohs(place.sin_port);
}

Server::~Server()
{
    stop();
    endAll();
    ::close(wakeup);
}

void Server::onRequest(const std::string& name, Handler handler)
{
    handlers[name] = std::move(handler);
}

void Server::stop() noexcept
{
    std::int64_t never = 0;
    stopTime.compare_exchange_strong(never, now());
    beginEnding();
}

void Server::beginEnding() noexcept
{
    const std::uint64_t one = 1;
    isStopping = true;
    [[maybe_unused]] const ssize_t written = ::write(wakeup, &one, sizeof one);
}

void Server::run(std::chrono::seconds idleTime)
{
    lastRequest = now();
    while (!isStopping) {
        if (!waitForPeer(idleTime)) {
            if (mayEnd())
                break;
            continue;
        }
        joinEnded();
        if (!isStopping)
            acceptPeer();
    }
    isStopping = true;
    mayEnd();
    endAll();
}

bool Server::isIdleFor(std::chrono::seconds time)
{
    return Clock::duration(now() - lastRequest) >= time && !isAnyAtWork(time);
}

bool Server::isAnyAtWork(std::chrono::seconds patience)
{
    const std::scoped_lock lock(mutex);
    return underWay != 0 &&
           std::any_of(connections.begin(), connections.end(), [&](const auto& one) {
               return one->isInRequest && !one->isLateBy(patience);
           });
}

// False when nothing has been asked for too long.
bool Server::waitForPeer(std::chrono::seconds idleTime)
{
    for (;;) {
        if (isIdleFor(idleTime))
            return false;
        const Clock::duration silent(now() - lastRequest);
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(idleTime - silent);
        pollfd waits[] = {{listener, POLLIN, 0}, {wakeup, POLLIN, 0}};
        // Ended connections are joined now and then, also if nobody comes.
        constexpr std::int64_t most = 1000;
        const std::int64_t wanted = left.count() <= 0 ? most : left.count() + 1;
        const int patience = static_cast<int>(std::min(wanted, most));
        const int ready = ::poll(waits, std::size(waits), patience);
        if (ready > 0 || isStopping)
            return true;
        joinEnded();
    }
}

void Server::acceptPeer()
{
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    Descriptor socket(::accept4(listener, reinterpret_cast<sockaddr*>(&peer), &size, SOCK_CLOEXEC));
    if (socket.number() < 0) {
        if (errno == EINVAL)
            beginEnding();  // the listener has been closed for the last answer
        if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS)
            ::poll(nullptr, 0, pauseMilliseconds);
        return;
    }
    char host[INET_ADDRSTRLEN] = "";
    ::inet_ntop(AF_INET, &peer.sin_addr, host, sizeof host);
    if (!makeRoom()) {
        trace(Diagnose::TraceLevel::Warning, "too many connections; refused one of ", host);
        return;
    }
    try {
        addConnection(std::make_unique<Connection>(std::move(socket), host, ntohs(peer.sin_port)));
    } catch (const std::exception& exception) {
        trace(Diagnose::TraceLevel::Warning, "connection refused: ", exception.what());
    }
}

void Server::addConnection(std::unique_ptr<Connection> connection)
{
    const std::scoped_lock lock(mutex);
    Connection& added = *connections.emplace_back(std::move(connection));
    try {
        added.thread = std::thread([this, &added] { serve(added); });
    } catch (const std::system_error&) {
        connections.pop_back();
        throw;
    }
}

// Those that are silent lock nobody out, and those that have never sent a byte least of all.
bool Server::makeRoom()
{
    const std::scoped_lock lock(mutex);
    std::size_t staying = 0;
    Connection* chosen = nullptr;
    for (const auto& one : connections) {
        if (one->isLeaving || one->hasEnded)
            continue;
        ++staying;
        if (one->isInRequest && !one->isLateBy(std::chrono::seconds(0)))
            continue;
        const auto rank = [](const Connection& connection) {
            return std::tuple(connection.isInRequest, connection.hasSpoken, connection.lastUse);
        };
        const bool isBetter = !chosen || rank(*one) < rank(*chosen);
        if (isBetter)
            chosen = one.get();
    }
    if (staying < maxConnections)
        return true;
    if (!chosen)
        return false;
    chosen->channel.shutDown();
    chosen->isLeaving = true;
    return true;
}

void Server::serve(Connection& connection)
{
    try {
        while (serveRequest(connection))
            continue;
    } catch (const std::exception& exception) {
        trace(Diagnose::TraceLevel::Warning, "connection dropped: ", exception.what());
    }
    // The peer is to notice now, not when the thread is joined.
    connection.channel.shutDown();
    const std::scoped_lock lock(mutex);
    if (connection.isInRequest)
        --underWay;
    connection.isInRequest = false;
    connection.hasEnded = true;
}

bool Server::serveRequest(Connection& connection)
{
    if (!connection.channel.waitForFirstByte())
        return false;
    {
        const std::scoped_lock lock(mutex);
        if (isStopping)
            return false;
        connection.hasSpoken = true;
        connection.isInRequest = true;
        ++underWay;
    }
    Request request(connection.channel);
    request.readHeader(&connection.channel, true);
    std::uint64_t received = 0;
    const Answer answer = handle(request, received);
    try {
        if (answer.isLast)
            stopListening();
        if (answer.isAccepted)
            request.confirm(received, answer.length, answer.isLast);
    } catch (...) {
        if (answer.isLast)
            beginEnding();
        throw;
    }
    touch();
    {
        const std::scoped_lock lock(mutex);
        connection.isInRequest = false;
        connection.lastUse = now();
        --underWay;
    }
    if (answer.isLast)
        beginEnding();
    return answer.isAccepted && !answer.isLast;
}

Answer Server::handle(Request& request, std::uint64_t& received)
{
    const auto handler = handlers.find(request.name());
    if (handler == handlers.end())
        throwProtocolError(std::string("nobody answers ").append(request.name()).append(" of"),
                           request.channel()->peer());
    std::array<char, keptBytes> kept{};
    std::size_t keptSize = 0;
    std::uint32_t strings = 0;
    std::optional<std::uint64_t> length;
    const Clock::time_point begin = Clock::now();
    do {
        length = request.reader().takeString(strings == 0 ? std::span(kept) : std::span<char>());
        if (!length)
            break;
        if (strings++ == 0)
            keptSize = static_cast<std::size_t>(std::min<std::uint64_t>(*length, kept.size()));
        received += *length;
        if (Clock::now() > begin + requestTime + std::chrono::seconds(received / bytesPerSecond))
            throwSystemError(ETIMEDOUT, "receive from", request.channel()->peer());
        if (received > maxStringLength || strings > maxStrings)
            throwProtocolError("a request without an end from", request.channel()->peer());
    } while (length);
    return handler->second({received, std::string_view(kept.data(), keptSize)});
}

// Before the last answer goes out.
void Server::stopListening()
{
    const std::scoped_lock lock(mutex);
    if (listener >= 0)
        ::shutdown(listener, SHUT_RDWR);
}

void Server::joinEnded()
{
    Connections ended;
    {
        const std::scoped_lock lock(mutex);
        for (auto one = connections.begin(); one != connections.end();) {
            const auto following = std::next(one);
            if ((*one)->hasEnded)
                ended.splice(ended.end(), connections, one);
            one = following;
        }
    }
    for (const auto& one : ended)
        one->thread.join();
}

// With the mutex held.
bool Server::isToWaitFor(const Connection& connection) const
{
    const std::int64_t stopped = stopTime;
    const bool isOver = stopped != 0 && Clock::duration(now() - stopped) >= stoppingTime;
    return connection.isInRequest && !isOver && !connection.isLateBy(std::chrono::seconds(0));
}

// Silent connections end at once, those in a request when it is answered or its time is over.
void Server::endAll()
{
    {
        const std::scoped_lock lock(mutex);
        if (listener >= 0)
            ::close(listener);
        listener = -1;
    }
    for (int pauses = 0;; ++pauses) {
        {
            const std::scoped_lock lock(mutex);
            for (const auto& one : connections) {
                if (!isToWaitFor(*one))
                    one->channel.shutDown();
            }
            if (connections.empty())
                return;
        }
        joinEnded();
        ::poll(nullptr, 0, pauses < shortPauses ? 1 : longPauseMilliseconds);
    }
}

}  // namespace JoltNet
