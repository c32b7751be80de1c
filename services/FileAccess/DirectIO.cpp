#include "FileAccess/DirectIO.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "FileAccess/AsyncFile.h"

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
int openNameless(const std::string& directory)
{
    const int descriptor = ::open(directory.c_str(), O_RDWR | O_TMPFILE | O_CLOEXEC, 0600);
    if (descriptor >= 0)
        return descriptor;
    const std::string pattern = directory + "/.vetra-probe-XXXXXX";
    std::vector<char> name(pattern.c_str(), pattern.c_str() + pattern.size() + 1);
    const int named = ::mkostemp(name.data(), O_CLOEXEC);
    if (named >= 0)
        ::unlink(name.data());
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
    const int descriptor = openNameless(directory);
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
