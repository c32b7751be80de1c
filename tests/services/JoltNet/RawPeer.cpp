#include "tests/services/JoltNet/RawPeer.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <utility>

namespace netTests {

namespace {

constexpr int patienceSeconds = 20;
constexpr int soonMilliseconds = 10;

template <class Number>
void append(std::string& bytes, Number number)
{
    for (std::size_t i = sizeof number; i-- > 0;)
        bytes += static_cast<char>((std::uint64_t{number} >> (8 * i)) & 0xff);
}

sockaddr_in loopback(unsigned short port)
{
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_port = htons(port);
    place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return place;
}

int streamSocket()
{
    const int made = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (made < 0)
        throw std::runtime_error("cannot make a socket");
    return made;
}

unsigned short bindLoopback(int socket)
{
    sockaddr_in place = loopback(0);
    socklen_t size = sizeof place;
    auto* const generic = reinterpret_cast<sockaddr*>(&place);
    if (::bind(socket, generic, size) != 0 || ::getsockname(socket, generic, &size) != 0)
        throw std::runtime_error("cannot bind a socket");
    return ntohs(place.sin_port);
}

// The real time, whatever becomes of the clock that the engine sees.
std::int64_t seconds()
{
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec;
}

int secondEndOf(int& first)
{
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        throw std::runtime_error("cannot make a pair of sockets");
    first = ends[0];
    return ends[1];
}

}  // namespace

std::string headerBytes(std::string_view name, std::uint8_t flags)
{
    std::string bytes("JOLT\x01");
    append(bytes, flags);
    append(bytes, static_cast<std::uint8_t>(name.size()));
    append(bytes, std::uint8_t{0});
    return bytes.append(name);
}

std::string frameBytes(std::uint32_t kind, std::uint32_t count, std::uint64_t value)
{
    std::string bytes;
    append(bytes, kind);
    append(bytes, count);
    append(bytes, value);
    return bytes;
}

std::string stringBytes(std::string_view text)
{
    return frameBytes(stringKind, 0, text.size()).append(text);
}

std::string requestBytes(std::string_view name, std::initializer_list<std::string_view> strings)
{
    std::string bytes = headerBytes(name);
    for (const std::string_view text : strings)
        bytes += stringBytes(text);
    return bytes + frameBytes(endKind, 0, 0);
}

std::string receiptBytes(std::uint64_t received, std::uint32_t strings)
{
    return frameBytes(receiptKind, strings, received);
}

bool until(const std::function<bool()>& condition)
{
    const std::int64_t end = seconds() + patienceSeconds;
    while (!condition()) {
        if (seconds() > end)
            return false;
        std::this_thread::yield();
    }
    return true;
}

RawSocket::RawSocket(int connectedSocket) : descriptor(connectedSocket)
{
    const timeval patience{patienceSeconds, 0};
    ::setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    ::setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
}

RawSocket RawSocket::connectedTo(unsigned short port)
{
    RawSocket socket(streamSocket());
    const sockaddr_in place = loopback(port);
    if (::connect(socket.descriptor, reinterpret_cast<const sockaddr*>(&place), sizeof place) != 0)
        throw std::runtime_error("cannot connect");
    return socket;
}

RawSocket::RawSocket(RawSocket&& other) noexcept : descriptor(std::exchange(other.descriptor, -1))
{
}

RawSocket::~RawSocket()
{
    close();
}

void RawSocket::close()
{
    if (descriptor >= 0)
        ::close(descriptor);
    descriptor = -1;
}

void RawSocket::reset()
{
    const linger atOnce{1, 0};
    ::setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    close();
}

void RawSocket::send(std::string_view bytes) const
{
    while (!bytes.empty()) {
        const ssize_t sent = ::send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0)
            return;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
}

std::string RawSocket::receive(std::size_t bytes) const
{
    std::string all(bytes, '\0');
    std::size_t count = 0;
    while (count < bytes) {
        const ssize_t received = ::read(descriptor, &all[count], bytes - count);
        if (received <= 0)
            break;
        count += static_cast<std::size_t>(received);
    }
    all.resize(count);
    return all;
}

bool RawSocket::isEnded() const
{
    char byte = 0;
    const ssize_t received = ::read(descriptor, &byte, 1);
    return received == 0 || (received < 0 && (errno == ECONNRESET || errno == EPIPE));
}

bool RawSocket::isEndedSoon() const
{
    pollfd wait{descriptor, POLLIN, 0};
    return ::poll(&wait, 1, soonMilliseconds) > 0 && isEnded();
}

void RawSocket::finish() const
{
    ::shutdown(descriptor, SHUT_WR);
}

void RawSocket::shutDown() const
{
    ::shutdown(descriptor, SHUT_RDWR);
}

SocketPair::SocketPair() : second(secondEndOf(first)) {}

ScriptedPeer::ScriptedPeer(Script connectionScript)
    : script(std::move(connectionScript)), listener(streamSocket())
{
    ownPort = bindLoopback(listener);
    ::listen(listener, 128);
    thread = std::thread([this] { acceptAll(); });
}

ScriptedPeer::~ScriptedPeer()
{
    {
        const std::scoped_lock lock(mutex);
        isEnding = true;
        ::shutdown(listener, SHUT_RDWR);
        if (current)
            current->shutDown();
    }
    thread.join();
    ::close(listener);
}

void ScriptedPeer::acceptAll()
{
    for (;;) {
        const int accepted = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (accepted < 0)
            return;
        ++begun;
        {
            RawSocket socket(accepted);
            setCurrent(&socket);
            script(socket);
            setCurrent(nullptr);
        }
        ++ended;
    }
}

void ScriptedPeer::setCurrent(RawSocket* socket)
{
    const std::scoped_lock lock(mutex);
    current = socket;
    if (isEnding && current)
        current->shutDown();
}

unsigned short unusedPort()
{
    const int socket = streamSocket();
    const unsigned short port = bindLoopback(socket);
    ::close(socket);
    return port;
}

}  // namespace netTests
