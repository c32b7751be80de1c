#include "JoltNet/Channel.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "JoltNet/NetException.h"

namespace JoltNet {

namespace {

// Blocking calls return so often and look at their deadline: one system call for what arrives in
// time, where waiting and reading would be two.
constexpr timeval patience{0, 250'000};

constexpr std::chrono::seconds leastTransferTime{10};
constexpr std::uint64_t leastBytesPerSecond = 1'000'000;

// What is still to be sent behind the first bytes of the parts.
std::span<iovec> withoutFirst(std::span<iovec> parts, std::size_t bytes)
{
    while (!parts.empty() && bytes >= parts.front().iov_len) {
        bytes -= parts.front().iov_len;
        parts = parts.subspan(1);
    }
    if (!parts.empty()) {
        parts.front().iov_base = static_cast<char*>(parts.front().iov_base) + bytes;
        parts.front().iov_len -= bytes;
    }
    return parts;
}

// When the bytes behind so many are due. A peer that was fast has no claim to be silent for as much
// longer.
Deadline dueBehind(Deadline due, std::size_t bytes)
{
    const auto earned = std::chrono::microseconds(bytes * 1'000'000 / leastBytesPerSecond);
    return std::min<Deadline>(due + earned, Clock::now() + leastTransferTime);
}

bool mayPass(int systemError)
{
    return systemError == EINTR || systemError == EAGAIN || systemError == EWOULDBLOCK;
}

}  // namespace

Deadline transferDeadline(std::uint64_t bytes)
{
    const std::chrono::seconds atLeastRate(bytes / leastBytesPerSecond);
    return Clock::now() + std::max(leastTransferTime, atLeastRate);
}

Channel::Channel(Descriptor connectedSocket, std::string_view hostName, unsigned short portNumber)
    : descriptor(std::move(connectedSocket)),
      peerHost(hostName),
      peerPort(portNumber),
      peerText(peerName(hostName, portNumber)),
      buffer(new std::byte[channelBufferSize])
{
    const int on = 1;
    ::setsockopt(descriptor.number(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    ::setsockopt(descriptor.number(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    ::setsockopt(descriptor.number(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
}

Descriptor::~Descriptor()
{
    if (held >= 0)
        ::close(held);
}

Channel::~Channel() = default;

void Channel::timeOut(Deadline deadline, const char* operation) const
{
    if (Clock::now() >= deadline)
        throwSystemError(ETIMEDOUT, operation, peerText);
}

// What goes out in several calls is one transfer, whose time goes on until the last of them.
void Channel::send(std::span<iovec> parts, bool isMoreComing, Deadline deadline)
{
    const int flags = MSG_NOSIGNAL | (isMoreComing ? MSG_MORE : 0);
    Deadline due = dueTime().value_or(Clock::now() + leastTransferTime);
    for (parts = withoutFirst(parts, 0); !parts.empty();) {
        setDue(due);
        msghdr message{};
        message.msg_iov = parts.data();
        message.msg_iovlen = parts.size();
        const ssize_t sent = ::sendmsg(descriptor.number(), &message, flags);
        if (sent >= 0) {
            parts = withoutFirst(parts, static_cast<std::size_t>(sent));
            if (isMoreComing || !parts.empty())
                due = dueBehind(due, static_cast<std::size_t>(sent));
        } else if (!mayPass(errno)) {
            throwSystemError(errno, "send to", peerText);
        }
        if (!parts.empty())
            timeOut(deadline, "send to");
    }
    setDue(isMoreComing ? due : Deadline());
}

bool Channel::waitForFirstByte()
{
    while (buffered() == 0) {
        const ssize_t received = ::recv(descriptor.number(), buffer.get(), channelBufferSize, 0);
        if (received > 0) {
            begin = 0;
            end = static_cast<std::size_t>(received);
        } else if (received == 0 || !mayPass(errno)) {
            return false;
        }
    }
    return true;
}

std::size_t Channel::receiveSome(std::span<std::byte> place, Deadline deadline)
{
    for (;;) {
        const ssize_t received = ::recv(descriptor.number(), place.data(), place.size(), 0);
        if (received > 0)
            return static_cast<std::size_t>(received);
        if (received == 0)
            throwSystemError(ECONNRESET, "connection ended by", peerText);
        if (!mayPass(errno))
            throwSystemError(errno, "receive from", peerText);
        timeOut(deadline, "receive from");
    }
}

void Channel::fill(std::size_t most, Deadline deadline)
{
    begin = 0;
    end = 0;
    end = receiveSome(std::span(buffer.get(), std::min(most, channelBufferSize)), deadline);
}

void Channel::receive(std::span<std::byte> place, std::size_t ahead, Deadline deadline)
{
    while (!place.empty()) {
        timeOut(deadline, "receive from");
        if (buffered() == 0)
            fill(place.size() + ahead, deadline);
        const std::size_t count = std::min(place.size(), buffered());
        std::memcpy(place.data(), &buffer[begin], count);
        begin += count;
        place = place.subspan(count);
    }
}

void Channel::receive(Basis::string& text, std::uint64_t length, Deadline deadline)
{
    constexpr std::uint64_t piece = std::uint64_t{1} << 20;
    if (text.size() > length)
        text.resize(static_cast<std::size_t>(length));
    std::size_t filled = 0;
    while (filled != length) {
        if (filled == text.size())
            text.resize(filled + static_cast<std::size_t>(std::min(length - filled, piece)));
        std::span<std::byte> rest = std::as_writable_bytes(std::span(text).subspan(filled));
        filled = text.size();
        const std::size_t ahead = std::min(rest.size(), buffered());
        std::memcpy(rest.data(), &buffer[begin], ahead);
        begin += ahead;
        for (rest = rest.subspan(ahead); !rest.empty();) {
            timeOut(deadline, "receive from");
            rest = rest.subspan(receiveSome(rest, deadline));
        }
    }
}

void Channel::consume(std::uint64_t length, std::span<char> firstBytes, Deadline deadline)
{
    Deadline due = Clock::now() + leastTransferTime;
    while (length != 0) {
        timeOut(deadline, "receive from");
        setDue(due);
        if (buffered() == 0)
            fill(channelBufferSize, deadline);
        const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(length, buffered()));
        const std::size_t kept = std::min(count, firstBytes.size());
        if (kept != 0)
            std::memcpy(firstBytes.data(), &buffer[begin], kept);
        firstBytes = firstBytes.subspan(kept);
        begin += count;
        length -= count;
        due = dueBehind(due, count);
    }
    setDue({});
}

// The beginning of the clock stands for nothing.
void Channel::setDue(Deadline due)
{
    dueTicks.store(due.time_since_epoch().count(), std::memory_order_relaxed);
}

std::optional<Clock::time_point> Channel::dueTime() const
{
    const Clock::rep ticks = dueTicks.load(std::memory_order_relaxed);
    if (ticks == 0)
        return std::nullopt;
    return Clock::time_point(Clock::duration(ticks));
}

bool Channel::isQuiet() const
{
    char byte = 0;
    return buffered() == 0 && ::recv(descriptor.number(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) < 0 &&
           (errno == EAGAIN || errno == EWOULDBLOCK);
}

void Channel::shutDown()
{
    ::shutdown(descriptor.number(), SHUT_RDWR);
}

}  // namespace JoltNet
