#include "FileAccess/DirectoryLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

namespace FileAccess {

DirectoryLock::~DirectoryLock()
{
    if (descriptor >= 0)
        ::close(descriptor);
}

// Two openings of one directory exclude one another, also within a process.
DirectoryLock::Result DirectoryLock::take(const std::string& directory)
{
    descriptor = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    // Without the right to list a directory one may still work in it, and cannot lock it.
    if (descriptor < 0)
        return errno == EACCES ? Result::taken : Result::failed;
    if (::flock(descriptor, LOCK_EX | LOCK_NB) == 0)
        return Result::taken;
    return errno == EWOULDBLOCK ? Result::held : Result::taken;
}

}  // namespace FileAccess
