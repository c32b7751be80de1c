#pragma once

#include <ostream>

#include "Basis/Exception.h"

namespace Diagnose {

/// An errno with its text. The form on a stream is "No such file or directory (2, ENOENT)".
struct SystemError {
    int number;
};

std::ostream& operator<<(std::ostream& stream, SystemError error);

/// The calling thread's last system error.
SystemError getSystemError();

/// A system call that failed.
class SystemException : public Basis::Exception {
public:
    SystemException(const char* file, int line, SystemError error)
        : Basis::Exception(file, line, error.number)
    {
    }
};

/// Keeps the calling thread's last system error over work that may disturb it, such as composing an
/// exception: the caller of that work may still want to read it.
class LastSystemErrorCache {
public:
    /// Saves the last system error.
    LastSystemErrorCache();

    /// Puts it back. If the work had changed it, the change is traced under `tag`.
    void restore(char const* tag) const;

private:
    int saved;
};

}  // namespace Diagnose
