#include "Basis/Crash.h"
#include "programs/fsperf/FsperfCommand.h"

int main(int argc, char** argv)
{
    Basis::nameUncaughtExceptions("fsperf");
    return Fsperf::runFsperf(argc, argv);
}
