#include "Basis/Crash.h"
#include "System/StandardStreams.h"
#include "programs/fsperf/FsperfCommand.h"

int main(int argc, char** argv)
{
    System::openStandardStreams();
    Basis::nameUncaughtExceptions("fsperf");
    return Fsperf::runFsperf(argc, argv);
}
