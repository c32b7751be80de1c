#pragma once

namespace Fsperf {

/// What `main` does: one run of the engine with the command line as its argument string, or the
/// usage. The results go to standard output: JSON if that was asked for, otherwise the report and
/// the row of the table.
///
/// Returns the exit status: the engine's code, or 1 after an exception, which one line on standard
/// error names.
int runFsperf(int argc, char** argv);

}  // namespace Fsperf
