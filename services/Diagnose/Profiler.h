#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace Diagnose {

/// Carries out the commands of the family "profiler", the sampling profiler of this process:
///   profiler clear                        forgets all samples, also while it runs
///   profiler start [-r HZ]                begins to sample, by default 997 times a second in all
///   profiler stop                         ends it; the samples of several periods add up
///   profiler print -o CPU,WAIT [-f NAME]  writes two call graphs in the dot format, of processor
///                                         time and of wait time; with a function's full name, of
///                                         what happens in and below that function alone
/// Each says in a line or two what it did. While the profiler does not run there is no thread of it
/// and no signal handler.
///
/// Threads:    any; one command after the other.
/// Fork:       waits for the end of the present command, so that answering one must not lead to it.
///             A child has the samples, and no profiler that runs.
/// Errors:     a command that cannot be carried out throws a CommandException and changes nothing.
void executeProfilerCommand(const std::vector<std::string>& words, std::ostream& answer);

}  // namespace Diagnose
