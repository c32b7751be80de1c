#include "System/TrustedOpen.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <iostream>
#include <mutex>
#include <set>
#include <string>
#include <utility>

namespace System {

namespace {

// As many as the kernel follows.
constexpr int mostLinks = 40;

// Closes, and leaves errno as it is.
class Directory {
public:
    explicit Directory(int owned) : descriptor(owned) {}
    ~Directory() { close(); }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    int number() const { return descriptor; }
    int release() { return std::exchange(descriptor, -1); }
    void replace(int owned)
    {
        close();
        descriptor = owned;
    }

private:
    void close() const
    {
        const int lastError = errno;
        if (descriptor >= 0)
            ::close(descriptor);
        errno = lastError;
    }

    int descriptor;
};

bool isTrusted(uid_t user)
{
    return user == 0 || user == ::geteuid();
}

// Whether others may put names into it.
bool isShared(int directory)
{
    struct stat status {};
    return ::fstat(directory, &status) != 0 || !isTrusted(status.st_uid) ||
           (status.st_mode & 022) != 0;
}

// Who may put something else in the place of the link that was looked at is no matter: it is the
// link itself that is open.
bool mayFollow(int directory, int link)
{
    struct stat ofLink {};
    return ::fstat(link, &ofLink) == 0 && (isTrusted(ofLink.st_uid) || !isShared(directory));
}

// What the links of /proc say is for people; only the kernel knows where they lead.
bool isOfKernel(int link)
{
    constexpr long procFileSystem = 0x9fa0;
    struct statfs place {};
    return ::fstatfs(link, &place) == 0 && place.f_type == procFileSystem;
}

// Whoever chose the path has to know why nothing is written there.
void sayWhatIsRefused(std::string_view path, const char* reason)
{
    static std::mutex mutex;
    static std::set<std::string, std::less<>> said;
    constexpr std::size_t most = 64;
    const std::scoped_lock lock(mutex);
    if (said.size() < most && said.emplace(path).second) {
        std::cerr << "vetra: " << path << " is not written: it " << reason
                  << ", in a directory that others may write to" << std::endl;
    }
}

class Walk {
public:
    Walk(std::string_view path, int openFlags, mode_t openMode)
        : whole(path), rest(path), flags(openFlags | O_CLOEXEC), mode(openMode), directory(-1)
    {
    }
    // To a directory, on the way to what somebody asked for.
    Walk(std::string_view path, std::string_view asked)
        : whole(asked), rest(path), flags(O_PATH), mode(0), directory(-1)
    {
    }

    int open()
    {
        if (!begin())
            return -1;
        for (;;) {
            const std::string name = takeName();
            const bool isLast = rest.find_first_not_of('/') == std::string::npos;
            if (isLast) {
                const int descriptor = openLast(name, O_NOFOLLOW);
                if (descriptor >= 0 || errno != ELOOP)
                    return descriptor;
                const Directory link(lookAt(name, O_NOFOLLOW));
                if (link.number() >= 0 && isOfKernel(link.number()))
                    return openLast(name, 0);
                if (link.number() < 0 || !follow(link))
                    return -1;
            } else if (!enter(name)) {
                return -1;
            }
        }
    }

    // The directory that the whole path leads to.
    int openPlace()
    {
        if (!begin())
            return -1;
        while (rest.find_first_not_of('/') != std::string::npos) {
            if (!enter(takeName()))
                return -1;
        }
        struct stat status {};
        if (::fstat(directory.number(), &status) != 0)
            return -1;
        if (!S_ISDIR(status.st_mode)) {
            errno = ENOTDIR;
            return -1;
        }
        return directory.release();
    }

private:
    bool begin()
    {
        directory.replace(
            ::open(rest.front() == '/' ? "/" : ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
        return directory.number() >= 0;
    }

    std::string takeName()
    {
        const std::size_t start = std::min(rest.find_first_not_of('/'), rest.size());
        const std::size_t end = std::min(rest.find('/', start), rest.size());
        std::string name = rest.substr(start, end - start);
        rest.erase(0, end);
        return name.empty() ? "." : name;
    }

    // A slash behind the name asks for a directory.
    int openLast(const std::string& name, int more)
    {
        int descriptor = -1;
        if (!rest.empty() && (flags & O_CREAT) != 0) {
            errno = EISDIR;
            return -1;
        }
        // A file must not lose what it holds before it is known to belong here.
        const int asked = (flags & ~O_TRUNC) | more | (rest.empty() ? 0 : O_DIRECTORY);
        do {
            descriptor = ::openat(directory.number(), name.c_str(), asked, mode);
        } while (descriptor < 0 && errno == EINTR);
        return descriptor >= 0 && (flags & O_ACCMODE) != O_RDONLY ? accept(descriptor) : descriptor;
    }

    // Of a descriptor for writing: itself, or -1 if it is not to be written.
    int accept(int descriptor)
    {
        Directory opened(descriptor);
        struct stat status {};
        if (::fstat(descriptor, &status) != 0)
            return -1;
        if (S_ISREG(status.st_mode) && status.st_nlink > 1 && isShared(directory.number())) {
            sayWhatIsRefused(whole, "has another name as well");
            errno = EACCES;
            return -1;
        }
        // A file that was just made has nothing to lose, and not every file system shortens files.
        const bool isToEmpty = (flags & O_TRUNC) != 0 && S_ISREG(status.st_mode);
        if (isToEmpty && status.st_size != 0 && ::ftruncate(descriptor, 0) != 0)
            return -1;
        return opened.release();
    }

    int lookAt(const std::string& name, int more) const
    {
        return ::openat(directory.number(), name.c_str(), O_PATH | O_CLOEXEC | more);
    }

    bool enter(const std::string& name)
    {
        // What is asked for as a directory is mounted, if it is mounted on demand.
        int next = lookAt(name, O_NOFOLLOW | O_DIRECTORY);
        if (next < 0 && errno == ENOTDIR)
            next = lookAt(name, O_NOFOLLOW);
        struct stat status {};
        if (next >= 0 && ::fstat(next, &status) == 0 && S_ISLNK(status.st_mode)) {
            const Directory link(next);
            if (!isOfKernel(next))
                return follow(link);
            next = lookAt(name, 0);
        }
        if (next < 0)
            return false;
        directory.replace(next);
        return true;
    }

    // What the link says takes the place of its name.
    // False, with errno, if it may not be followed.
    bool follow(const Directory& link)
    {
        if (++links > mostLinks) {
            errno = ELOOP;
            return false;
        }
        if (!mayFollow(directory.number(), link.number())) {
            sayWhatIsRefused(whole, "leads through a symbolic link of another user");
            errno = EACCES;
            return false;
        }
        char target[PATH_MAX];
        const ssize_t size = ::readlinkat(link.number(), "", target, sizeof target);
        if (size < 0)
            return false;
        if (size == 0 || size == sizeof target) {
            errno = size == 0 ? ENOENT : ENAMETOOLONG;
            return false;
        }
        rest.insert(0, std::string(target, static_cast<std::size_t>(size)));
        return rest.front() != '/' || begin();
    }

    std::string_view whole;
    std::string rest;
    int flags;
    mode_t mode;
    Directory directory;
    int links = 0;
};

// Behind a NUL the kernel would see another path.
bool isUsable(std::string_view path)
{
    if (!path.empty() && path.find('\0') == std::string_view::npos)
        return true;
    errno = EINVAL;
    return false;
}

}  // namespace

int openThroughTrustedLinks(std::string_view path, int flags, mode_t mode)
{
    return isUsable(path) ? Walk(path, flags, mode).open() : -1;
}

int openPlaceThroughTrustedLinks(std::string_view directory, std::string_view askedFor)
{
    if (!isUsable(directory))
        return -1;
    return Walk(directory, askedFor.empty() ? directory : askedFor).openPlace();
}

std::string directoryOf(std::string_view path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? "." : std::string(path.substr(0, slash + 1));
}

std::string lastNameOf(std::string_view path)
{
    return std::string(path.substr(path.rfind('/') + 1));
}

int unlinkThroughTrustedLinks(std::string_view path)
{
    if (!isUsable(path))
        return -1;
    const Directory place(openPlaceThroughTrustedLinks(directoryOf(path), path));
    return place.number() < 0 ? -1 : ::unlinkat(place.number(), lastNameOf(path).c_str(), 0);
}

int makeDirectoryThroughTrustedLinks(std::string_view path, mode_t mode)
{
    if (!isUsable(path))
        return -1;
    const std::size_t end = path.find_last_not_of('/');
    const std::string_view bare = path.substr(0, end == std::string_view::npos ? 0 : end + 1);
    const Directory place(openPlaceThroughTrustedLinks(directoryOf(bare), bare));
    return place.number() < 0 ? -1 : ::mkdirat(place.number(), lastNameOf(bare).c_str(), mode);
}

}  // namespace System
