#include "Basis/Crash.h"
#include "System/StandardStreams.h"
#include "programs/VNSNetServerBidi/ServerProcess.h"

int main(int argc, char** argv)
{
    System::openStandardStreams();
    Basis::nameUncaughtExceptions("VNSNetServerBidi");
    return NetServer::runServerProcess(argc, argv);
}
