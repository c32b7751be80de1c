#pragma once

#include <signal.h>

namespace Diagnose {

/// The signal by which the profiler has a thread copy its own stack. A thread that blocks it is
/// seen by the profiler, but not its stack: who blocks all signals leaves this one open.
///
/// It is one of the real-time signals: such a signal arrives with its ticket or is refused at once,
/// where SIGPROF may arrive without, and no interval timer of another profiler sends it.
inline int samplingSignal()
{
    return SIGRTMIN + 7;
}

}  // namespace Diagnose
