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

constexpr timeval patience{5, 0};
constexpr int backlog = 16;
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

int makeSocket()
{
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (socket >= 0) {
        ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    }
    return socket;
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

// Connected to whoever holds the name; -1 if nobody does.
int connectToHolder()
{
    const int socket = makeSocket();
    sockaddr_un address;
    const socklen_t size = nameSocket(address);
    if (socket < 0 ||
        uninterrupted([&] {
            return ssize_t{::connect(socket, reinterpret_cast<sockaddr*>(&address), size)};
        }) == 0)
        return socket;
    ::close(socket);
    return -1;
}

}  // namespace

std::optional<unsigned short> UserRegistry::joinRunning(bool& isHeldByOther)
{
    isHeldByOther = false;
    const int socket = connectToHolder();
    if (socket < 0)
        return std::nullopt;
    unsigned short port = 0;
    const auto receive = [&] { return ::recv(socket, &port, sizeof port, MSG_WAITALL); };
    isHeldByOther = !isOwnUser(socket);
    const bool isJoined =
        !isHeldByOther && uninterrupted(receive) == static_cast<ssize_t>(sizeof port);
    ::close(socket);
    return isJoined ? std::optional(port) : std::nullopt;
}

UserRegistry::UserRegistry(OnJoin onJoin, std::function<void()> onLeave)
    : join(std::move(onJoin)), leave(std::move(onLeave))
{
    listener = makeSocket();
    sockaddr_un address;
    const socklen_t size = nameSocket(address);
    if (listener >= 0 && (::bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
                          ::listen(listener, backlog) != 0)) {
        ::close(listener);
        listener = -1;
    }
    if (listener >= 0)
        thread = std::thread([this] { answerAll(); });
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
    if (listener >= 0)
        ::close(listener);
}

// Wakes the thread that accepts; the descriptor stays until it has ended.
void UserRegistry::close()
{
    if (listener >= 0)
        ::shutdown(listener, SHUT_RDWR);
}

void UserRegistry::answerAll()
{
    for (;;) {
        const int peer = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (peer >= 0) {
            answer(peer);
            ::close(peer);
        } else if (errno == EINVAL) {
            return;  // shut down
        } else if (errno != EAGAIN && errno != EINTR) {
            ::poll(nullptr, 0, pauseMilliseconds);
        }
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
