#pragma once

#include <string_view>

#include "Basis/Containers.h"

namespace FileAccess {

using FileDescriptor = int;
inline constexpr FileDescriptor INVALID_FILE_DESCRIPTOR = -1;

/// What fileOpen may do with the file.
enum FileMode : int {
    readExisting = 0,   ///< read; the file must be there
    writeExisting = 1,  ///< write; the file must be there and is left as it is
};

/// Flags of fileOpen, to be combined with `|`.
enum FileFlags : unsigned {
    closeOnExec = 2,  ///< programs that this process starts do not inherit the descriptor
};

/// Opens a file and returns its descriptor, which the caller owns, or INVALID_FILE_DESCRIPTOR with
/// the reason in errno.
///
/// Where others may write, it is not opened for writing through a link that one of them owns.
/// A directory is refused with EISDIR in either mode, as is, when writing, a pipe that nobody
/// reads: the call never waits for a peer on the writing side. `permissions` are those that a
/// created file would get; neither mode creates one, so `created` comes back false.
FileDescriptor fileOpen(std::string_view path, int mode, unsigned permissions, unsigned flags,
                        bool& created);

/// Replaces `content` by all that is left to read. False if reading failed before the end; what had
/// been read is then there.
bool fileReadAll(FileDescriptor descriptor, Basis::string& content);

/// Opens a file for writing that is made if it is missing, with the rights that the umask leaves.
/// What it holds is cut off, or kept to be appended to. Where others may write, no link is followed
/// that one of them owns. Returns a descriptor that the caller owns and that programs do not
/// inherit, or INVALID_FILE_DESCRIPTOR with the reason in errno.
FileDescriptor fileCreate(std::string_view path, bool isToAppend);

/// Writes all of it; false if some could not be written.
bool fileWriteAll(FileDescriptor descriptor, std::string_view content);

/// True if a file of that name can be written without waiting for anybody: it is a regular or a
/// character file, or missing. Opening a pipe would wait for its reader.
bool isOrdinaryOrAbsent(std::string_view path);

/// The process's current directory. Returns false, and gives ".", if it has been removed.
bool getCurrentDirectory(Basis::string& directory);

/// The same into a buffer of `size` bytes; false also if it does not fit.
bool getCurrentDirectory(char* buffer, unsigned long size);

/// True for a path that does not begin with a slash.
bool isRelative(const char* path);

/// `base` and `path` with one slash between them; nothing else is normalised.
void joinPath(const char* base, const char* path, Basis::string& joined);

/// The permission bits of a path, in the layout of POSIX mode bits; 0 if it cannot be inspected.
unsigned getAccessRights(const char* path);

/// True if the path names a directory, also through a symbolic link.
bool directoryExists(std::string_view path);

/// Creates a directory with all its missing parents, with the mode that the umask leaves. Returns
/// true if the directory is there afterwards.
bool directoryCreate(std::string_view path);

}  // namespace FileAccess
