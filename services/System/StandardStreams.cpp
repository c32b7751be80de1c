#include "System/StandardStreams.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <initializer_list>

namespace System {

namespace {

// Caught rather than ignored: what is caught is at its default again in a program that is started.
void takeNoNotice(int) {}

void survive(int signal)
{
    struct sigaction action {};
    action.sa_handler = &takeNoNotice;
    action.sa_flags = SA_RESTART;
    ::sigaction(signal, &action, nullptr);
}

}  // namespace

void openStandardStreams()
{
    // Lowest first, so that each opening takes the number that is free.
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(stream, F_GETFD) < 0)
            ::open("/dev/null", O_RDWR);
    }
}

void surviveFileSizeLimit()
{
    survive(SIGXFSZ);
}

void surviveLostReader()
{
    survive(SIGPIPE);
}

}  // namespace System
