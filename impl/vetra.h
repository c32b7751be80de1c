#pragma once

#include "vetraDefines.h"

namespace Vetra {

/// The three useful forms of the command line, each line ended by a line feed.
string vetraUsage();

/// Prints the version line on standard output.
void vetraVersion();

/// What `main` does: reads the command line and carries it out. Returns the exit status, which
/// tells only whether the command line was well-formed. Exceptions other than VetraException pass
/// through.
int runVetra(int argc, char** argv);

}  // namespace Vetra
