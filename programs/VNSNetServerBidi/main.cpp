#include <fcntl.h>
#include <unistd.h>

#include "Basis/Crash.h"
#include "System/StandardStreams.h"
#include "programs/VNSNetServerBidi/ServerProcess.h"

int main(int argc, char** argv)
{
    // Behind the opening it looks as if somebody read it.
    const bool hasOutput = ::fcntl(STDOUT_FILENO, F_GETFD) >= 0;
    System::openStandardStreams();
    Basis::nameUncaughtExceptions("VNSNetServerBidi");
    return NetServer::runServerProcess(argc, argv, hasOutput);
}
