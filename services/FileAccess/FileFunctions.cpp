#include "FileAccess/FileFunctions.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "System/TrustedOpen.h"

namespace FileAccess {

namespace {

// A path comes from a configuration: behind a NUL the kernel would see another path than the
// caller.
bool isUsable(std::string_view path)
{
    return !path.empty() && path.find('\0') == std::string_view::npos;
}

bool isOrdinary(const struct stat& status)
{
    return S_ISREG(status.st_mode) || S_ISCHR(status.st_mode);
}

FileDescriptor refused(FileDescriptor descriptor, int reason)
{
    if (descriptor >= 0)
        ::close(descriptor);
    errno = reason;
    return INVALID_FILE_DESCRIPTOR;
}

}  // namespace

FileDescriptor fileOpen(std::string_view path, int mode, unsigned permissions, unsigned flags,
                        bool& created)
{
    created = false;
    if (!isUsable(path) || (mode != readExisting && mode != writeExisting))
        return refused(-1, EINVAL);

    int openFlags = mode == readExisting ? O_RDONLY : (O_WRONLY | O_NONBLOCK);
    if ((flags & closeOnExec) != 0)
        openFlags |= O_CLOEXEC;
    const std::string terminated(path);
    FileDescriptor descriptor = -1;
    do {
        descriptor = mode == readExisting
                         ? ::open(terminated.c_str(), openFlags)
                         : System::openThroughTrustedLinks(terminated, openFlags,
                                                           static_cast<mode_t>(permissions));
    } while (descriptor < 0 && errno == EINTR);
    if (descriptor < 0)
        return INVALID_FILE_DESCRIPTOR;

    struct stat status {};
    if (::fstat(descriptor, &status) != 0)
        return refused(descriptor, errno);
    if (S_ISDIR(status.st_mode))
        return refused(descriptor, EISDIR);
    if (mode == writeExisting)
        ::fcntl(descriptor, F_SETFL, 0);
    return descriptor;
}

bool fileReadAll(FileDescriptor descriptor, Basis::string& content)
{
    constexpr std::size_t leastRoom = 64 * 1024;
    std::size_t used = 0;
    for (;;) {
        if (content.size() - used < leastRoom)
            content.resize(std::max(content.size() * 2, used + leastRoom));
        const ssize_t count = ::read(descriptor, content.data() + used, content.size() - used);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0) {
            content.resize(used);
            return count == 0;
        }
        used += static_cast<std::size_t>(count);
    }
}

FileDescriptor fileCreate(std::string_view path, bool isToAppend)
{
    // A pipe that somebody put there would be waited for until another one reads it.
    const int flags = O_WRONLY | O_CREAT | O_NONBLOCK | (isToAppend ? O_APPEND : O_TRUNC);
    const int descriptor = System::openThroughTrustedLinks(path, flags, 0666);
    if (descriptor < 0)
        return INVALID_FILE_DESCRIPTOR;
    struct stat status {};
    if (::fstat(descriptor, &status) != 0 || !isOrdinary(status))
        return refused(descriptor, ENXIO);
    ::fcntl(descriptor, F_SETFL, isToAppend ? O_APPEND : 0);
    return descriptor;
}

bool fileWriteAll(FileDescriptor descriptor, std::string_view content)
{
    while (!content.empty()) {
        const ssize_t count = ::write(descriptor, content.data(), content.size());
        if (count < 0 && errno != EINTR)
            return false;
        content.remove_prefix(count < 0 ? 0 : static_cast<std::size_t>(count));
    }
    return true;
}

bool isOrdinaryOrAbsent(std::string_view path)
{
    if (!isUsable(path))
        return false;
    struct stat status {};
    if (::stat(std::string(path).c_str(), &status) != 0)
        return errno == ENOENT;
    return isOrdinary(status);
}

bool getCurrentDirectory(Basis::string& directory)
{
    std::vector<char> buffer(512);
    while (!::getcwd(buffer.data(), buffer.size())) {
        if (errno != ERANGE) {
            directory = ".";
            return false;
        }
        buffer.resize(buffer.size() * 2);
    }
    directory = buffer.data();
    return true;
}

bool getCurrentDirectory(char* buffer, unsigned long size)
{
    return ::getcwd(buffer, size) != nullptr;
}

bool isRelative(const char* path)
{
    return path[0] != '/';
}

void joinPath(const char* base, const char* path, Basis::string& joined)
{
    joined = base;
    if (joined.empty() || joined.back() != '/')
        joined.append("/");
    joined.append(path);
}

unsigned getAccessRights(const char* path)
{
    struct stat status {};
    return ::stat(path, &status) == 0 ? status.st_mode & 07777U : 0;
}

bool directoryExists(std::string_view path)
{
    struct stat status {};
    return isUsable(path) && ::stat(std::string(path).c_str(), &status) == 0 &&
           S_ISDIR(status.st_mode);
}

bool directoryCreate(std::string_view path)
{
    if (!isUsable(path) || path.size() >= PATH_MAX)
        return false;
    for (std::size_t end = 0; end != std::string_view::npos;) {
        end = path.find('/', end + 1);
        const std::string_view above = path.substr(0, end);
        // Another run may have made it meanwhile.
        if (!directoryExists(above) && System::makeDirectoryThroughTrustedLinks(above, 0777) != 0 &&
            errno != EEXIST)
            break;
    }
    return directoryExists(path);
}

}  // namespace FileAccess
