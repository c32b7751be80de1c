#pragma once

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

namespace netTests {

/// Gives this process a network of its own, with its loopback device up, so that no server of the
/// host is in the way of a test, and none of a test in the way of the host. False if that is not
/// allowed here. At the second call it is there already.
inline bool hasOwnNetwork()
{
    static const bool isMade = [] {
        if (::unshare(CLONE_NEWNET) != 0 && ::unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
            return false;
        const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        ifreq request{};
        std::strcpy(request.ifr_name, "lo");
        request.ifr_flags = IFF_UP;
        const bool isUp = socket >= 0 && ::ioctl(socket, SIOCSIFFLAGS, &request) == 0;
        ::close(socket);
        return isUp;
    }();
    return isMade;
}

}  // namespace netTests
