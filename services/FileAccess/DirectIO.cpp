#include "FileAccess/DirectIO.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "FileAccess/AsyncFile.h"
#include "System/TrustedOpen.h"

namespace FileAccess {

namespace {

bool meansRefusal(int systemError)
{
    return systemError == EINVAL || systemError == EOPNOTSUPP || systemError == ENOSYS;
}

DirectIOAnswer answerFor(int systemError, const char* what)
{
    if (!meansRefusal(systemError))
        return {true, {}};
    return {false, std::string(what) + ": " + std::strerror(systemError)};
}

// A file that vanishes with its descriptor; by a name that is removed at once where the file system
// has no nameless files.
int openNameless(int directory)
{
    const int descriptor = ::openat(directory, ".", O_RDWR | O_TMPFILE | O_CLOEXEC, 0600);
    if (descriptor >= 0)
        return descriptor;
    const std::string name = ".vetra-probe-" + std::to_string(::getpid());
    const int named =
        ::openat(directory, name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (named >= 0)
        ::unlinkat(directory, name.c_str(), 0);
    return named;
}

DirectIOAnswer probeTransfers(int descriptor)
{
    alignas(directAlignment) char block[directAlignment] = {};
    if (::pwrite(descriptor, block, sizeof block, 0) < 0)
        return answerFor(errno, "a write");
    if (::pread(descriptor, block, sizeof block, 0) < 0)
        return answerFor(errno, "a read");
    return {true, {}};
}

}  // namespace

DirectIOAnswer probeDirectIO(const std::string& directory)
{
    const int place = System::openPlaceThroughTrustedLinks(directory);
    if (place < 0)
        return {true, {}};
    const int descriptor = openNameless(place);
    ::close(place);
    if (descriptor < 0)
        return {true, {}};
    DirectIOAnswer answer{true, {}};
    // The flag is asked of the file system as an opening would ask it.
    if (::fcntl(descriptor, F_SETFL, O_DIRECT) != 0)
        answer = answerFor(errno, "the opening of a file");
    else
        answer = probeTransfers(descriptor);
    ::close(descriptor);
    return answer;
}

}  // namespace FileAccess
