#pragma once

namespace System {

/// Raises the number of files that the process may have open to the most that it is allowed: the
/// hard limit, and for a privileged process the kernel's own maximum, but no more than 1048576.
/// Returns the limit then in force. Failing to raise it is no error; the old limit stays.
unsigned long raiseOpenFileLimit();

}  // namespace System
