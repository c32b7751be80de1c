#include "Basis/Crash.h"
#include "programs/scanhypervisorCheck/ScannerCommand.h"

int main(int argc, char** argv)
{
    Basis::nameUncaughtExceptions("scanhypervisorCheck");
    return HypervisorScan::runScanner(argc, argv, &HypervisorScan::readCpuid,
                                      HypervisorScan::systemDmiDirectory);
}
