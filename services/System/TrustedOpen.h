#pragma once

#include <sys/types.h>

#include <string_view>

namespace System {

/// Opens a file as open(2) does, for a process that writes where others may write as well.
///
/// In a directory that users other than the process's own and root may write to, no symbolic link
/// is followed that such a user owns, at any place of the path: it fails with EACCES. The kernel's
/// own protection looks at sticky directories alone, and is switched off on many hosts. One line on
/// standard error says so, once for a path.
///
/// Returns a descriptor that is closed on exec and owned by the caller, or -1 with errno set: what
/// open(2) sets, EINVAL for an empty path and one that holds a NUL. Of `flags`, O_CLOEXEC is
/// always set. Threads: any.
int openThroughTrustedLinks(std::string_view path, int flags, mode_t mode);

}  // namespace System
