#include "Basis/Crash.h"
#include "System/Environment.h"
#include "System/StandardStreams.h"
#include "programs/vetraApi/FrontEnd.h"

int main(int argc, char** argv)
{
    System::openStandardStreams();
    System::surviveLostReader();
    System::Environment::dropWhatSteersCommands();
    Basis::nameUncaughtExceptions("vetraApi");
    return VetraApi::runFrontEnd(argc, argv,
                                 [](vetraTests::SystemInfo& facts) { facts.gatherInfo(); });
}
