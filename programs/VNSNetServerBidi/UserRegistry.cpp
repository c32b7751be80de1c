#include "programs/VNSNetServerBidi/UserRegistry.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

namespace NetServer {

namespace {

// Whoever is connected is answered at once, but for a host that has more to do than it can. Whoever
// is not has met a holder that takes nobody.
constexpr timeval patience{5, 0};
constexpr timeval connectTime{0, 250'000};
constexpr int backlog = SOMAXCONN;
constexpr int pauseMilliseconds = 50;

// A name that begins with a zero byte lies in the network namespace, not in a directory.
socklen_t nameSocket(sockaddr_un& address)
{
    const std::string name = "vetra-network-server-" + std::to_string(::geteuid());
    address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(&address.sun_path[1], name.data(), name.size());
    return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
}

// Anybody may take the name first.
bool isOwnUser(int peer)
{
    ucred credentials{};
    socklen_t size = sizeof credentials;
    return ::getsockopt(peer, SOL_SOCKET, SO_PEERCRED, &credentials, &size) == 0 &&
           credentials.uid == ::geteuid();
}

// A call that a signal interrupts is made anew: sockets with a time-out do not go on by themselves.
template <class Call>
ssize_t uninterrupted(Call call)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(patience.tv_sec);
    ssize_t result = 0;
    do {
        result = call();
    } while (result < 0 && errno == EINTR && std::chrono::steady_clock::now() < deadline);
    return result;
}

bool isConnectedToHolder(int socket)
{
    ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &connectTime, sizeof connectTime);
    sockaddr_un address;
    const socklen_t size = nameSocket(address);
    return uninterrupted([&] {
               return ssize_t{::connect(socket, reinterpret_cast<sockaddr*>(&address), size)};
           }) == 0;
}

}  // namespace

UserRegistry::Joining UserRegistry::joinRunning()
{
    const JoltNet::Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (socket.number() < 0 || !isConnectedToHolder(socket.number()))
        return {};
    if (!isOwnUser(socket.number()))
        return {.holder = Holder::otherUser};
    unsigned short port = 0;
    const ssize_t received =
        uninterrupted([&] { return ::recv(socket.number(), &port, sizeof port, MSG_WAITALL); });
    if (received == static_cast<ssize_t>(sizeof port))
        return {.port = port, .holder = Holder::sameUser};
    // One that is suspended says nothing. One that ends or has not begun closes.
    const bool isSilent = received < 0 && errno != ECONNRESET;
    return {.holder = isSilent ? Holder::silent : Holder::sameUser};
}

UserRegistry::UserRegistry(OnJoin onJoin, std::function<void()> onLeave)
    : join(std::move(onJoin)), leave(std::move(onLeave))
{
    sockaddr_un address;
    const socklen_t size = nameSocket(address);
    listener.emplace(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int socket = listener->number();
    const bool isBound =
        socket >= 0 && ::bind(socket, reinterpret_cast<sockaddr*>(&address), size) == 0;
    nameTaken = socket >= 0 && !isBound && errno == EADDRINUSE;
    if (isBound && ::listen(socket, backlog) == 0)
        thread = std::thread([this] { answerAll(); });
    else
        listener.reset();
}

void UserRegistry::closeAndWait()
{
    close();
    if (thread.joinable())
        thread.join();
}

UserRegistry::~UserRegistry()
{
    closeAndWait();
}

// A socket at which somebody waits keeps its name though it is closed: the thread is sent away
// first. While it answers it is not there, and may be asking for a lock that the caller has.
void UserRegistry::close()
{
    const std::scoped_lock one(closing);
    isClosing = true;
    if (!listener)
        return;
    ::shutdown(listener->number(), SHUT_RDWR);
    const std::scoped_lock lock(mutex);
    listener.reset();
}

// Nothing if it is closed, and if whoever came cannot be accepted.
std::optional<JoltNet::Descriptor> UserRegistry::nextPeer()
{
    int reason = 0;
    {
        const std::scoped_lock lock(mutex);
        if (!listener)
            return std::nullopt;
        pollfd event{listener->number(), POLLIN, 0};
        ::poll(&event, 1, -1);
        JoltNet::Descriptor peer(::accept4(event.fd, nullptr, nullptr, SOCK_CLOEXEC));
        if (peer.number() >= 0)
            return peer;
        reason = errno;
    }
    // Without descriptors or memory whoever waits stays there.
    if (!isClosing && reason != EAGAIN && reason != EINTR)
        ::poll(nullptr, 0, pauseMilliseconds);
    return std::nullopt;
}

void UserRegistry::answerAll()
{
    while (!isClosing) {
        if (const std::optional<JoltNet::Descriptor> peer = nextPeer())
            answer(peer->number());
    }
}

void UserRegistry::answer(int peer) const
{
    if (!isOwnUser(peer))
        return;
    const std::optional<unsigned short> port = join();
    const auto send = [&] { return ::send(peer, &*port, sizeof *port, MSG_NOSIGNAL); };
    if (port && uninterrupted(send) != sizeof *port && leave)
        leave();
}

}  // namespace NetServer
