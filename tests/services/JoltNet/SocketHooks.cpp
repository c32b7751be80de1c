#include "tests/services/JoltNet/SocketHooks.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

namespace {

std::atomic<netTests::SocketHooks*> active{nullptr};
std::atomic<std::int64_t> shift{0};

bool takeOne(std::atomic<int>& left)
{
    return left > 0 && left-- > 0;
}

}  // namespace

// The linker sends the program's calls here, and keeps the library's own under "__real_".
extern "C" {

ssize_t __real_sendmsg(int socket, const msghdr* message, int flags);
ssize_t __real_recv(int socket, void* place, std::size_t size, int flags);
int __real_accept4(int socket, sockaddr* address, socklen_t* size, int flags);

ssize_t __wrap_sendmsg(int socket, const msghdr* message, int flags)
{
    netTests::SocketHooks* const hooks = active;
    if (!hooks)
        return __real_sendmsg(socket, message, flags);
    ++hooks->sends;
    hooks->lastSendFlags = flags;
    hooks->beforeTransfer();
    if (takeOne(hooks->interruptedSends)) {
        errno = EINTR;
        return -1;
    }
    if (hooks->mostPerSend == netTests::SocketHooks::anything)
        return __real_sendmsg(socket, message, flags);
    iovec first = message->msg_iov[0];
    first.iov_len = std::min<std::size_t>(first.iov_len, hooks->mostPerSend);
    msghdr less = *message;
    less.msg_iov = &first;
    less.msg_iovlen = 1;
    return __real_sendmsg(socket, &less, flags);
}

ssize_t __wrap_recv(int socket, void* place, std::size_t size, int flags)
{
    netTests::SocketHooks* const hooks = active;
    if (!hooks || (flags & MSG_PEEK) != 0)
        return __real_recv(socket, place, size, flags);
    hooks->lastReceiveSize = size;
    hooks->beforeTransfer();
    if (takeOne(hooks->interruptedReceives)) {
        errno = EINTR;
        return -1;
    }
    return __real_recv(socket, place, std::min<std::size_t>(size, hooks->mostPerReceive), flags);
}

int __wrap_accept4(int socket, sockaddr* address, socklen_t* size, int flags)
{
    netTests::SocketHooks* const hooks = active;
    if (hooks) {
        ++hooks->accepts;
        if (takeOne(hooks->refusedAccepts)) {
            errno = EMFILE;
            return -1;
        }
    }
    return __real_accept4(socket, address, size, flags);
}
}

namespace netTests {

std::chrono::steady_clock::time_point hookedNow() __asm__(
    "__wrap__ZNSt6chrono3_V212steady_clock3nowEv");
std::chrono::steady_clock::time_point realNow() __asm__(
    "__real__ZNSt6chrono3_V212steady_clock3nowEv");

std::chrono::steady_clock::time_point hookedNow()
{
    return realNow() + std::chrono::nanoseconds(shift.load());
}

// Moved back only when nobody measures with it any more: what a channel remembers is then of
// before.
ShiftedClock::~ShiftedClock()
{
    shift = 0;
}

void ShiftedClock::advance(std::chrono::nanoseconds time)
{
    shift += time.count();
}

SocketHooks::SocketHooks()
{
    active = this;
}

SocketHooks::~SocketHooks()
{
    active = nullptr;
}

}  // namespace netTests
