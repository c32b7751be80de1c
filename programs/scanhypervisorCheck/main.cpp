#include "Basis/Crash.h"
#include "System/StandardStreams.h"
#include "programs/scanhypervisorCheck/ScannerCommand.h"

int main(int argc, char** argv)
{
    System::openStandardStreams();
    Basis::nameUncaughtExceptions("scanhypervisorCheck");
    return HypervisorScan::runScanner(argc, argv, &HypervisorScan::readCpuid,
                                      HypervisorScan::systemDmiDirectory);
}
