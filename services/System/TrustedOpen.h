#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

namespace System {

/// Opens a file as open(2) does, for a process that writes where others may write as well.
///
/// In a directory that users other than the process's own and root may write to, no symbolic link
/// is followed that such a user owns, at any place of the path: it fails with EACCES. So does, in
/// such a directory, the opening for writing of a file that has another name too, which may be
/// where it belongs. The kernel's own protection looks at sticky directories alone, and is switched
/// off on many hosts. One line on standard error says so, once for a path.
///
/// Returns a descriptor that is closed on exec and owned by the caller, or -1 with errno set: what
/// open(2) sets, EINVAL for an empty path and one that holds a NUL. Of `flags`, O_CLOEXEC is
/// always set. Threads: any.
int openThroughTrustedLinks(std::string_view path, int flags, mode_t mode);

/// The directory of that path, as a place for calls that take one; the same links are refused, also
/// at its end. The line on standard error names what was asked for, the directory itself if that is
/// empty. Returns a descriptor that is closed on exec and owned by the caller, or -1 with errno.
int openPlaceThroughTrustedLinks(std::string_view directory, std::string_view askedFor = {});

/// The directory in which a path's last name lies, as written: "." for none.
std::string directoryOf(std::string_view path);
/// That name; empty behind a slash.
std::string lastNameOf(std::string_view path);

/// unlink(2) and mkdir(2), which themselves follow no link at the end of a path; the same links are
/// refused before that. 0, or -1 with errno.
int unlinkThroughTrustedLinks(std::string_view path);
int makeDirectoryThroughTrustedLinks(std::string_view path, mode_t mode);

}  // namespace System
