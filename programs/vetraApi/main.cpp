#include "Basis/Crash.h"
#include "programs/vetraApi/FrontEnd.h"

int main(int argc, char** argv)
{
    Basis::nameUncaughtExceptions("vetraApi");
    return VetraApi::runFrontEnd(argc, argv,
                                 [](vetraTests::SystemInfo& facts) { facts.gatherInfo(); });
}
