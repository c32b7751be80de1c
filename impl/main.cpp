#include "Basis/Crash.h"
#include "System/Environment.h"
#include "System/ResourceLimits.h"
#include "System/StandardStreams.h"
#include "impl/vetra.h"

int main(int argc, char** argv)
{
    System::openStandardStreams();
    System::Environment::dropWhatSteersCommands();
    System::surviveFileSizeLimit();
    System::surviveLostReader();
    Basis::nameUncaughtExceptions("vetra");
    // Each line of the log keeps a descriptor until the end; a long run must still be able to start
    // its commands and write its results.
    System::raiseOpenFileLimit();
    return Vetra::runVetra(argc, argv);
}
