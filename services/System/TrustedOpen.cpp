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

// Who may put something else in the place of the link that was looked at is no matter: it is the
// link itself that is open.
bool mayFollow(int directory, int link)
{
    struct stat ofDirectory {};
    struct stat ofLink {};
    if (::fstat(directory, &ofDirectory) != 0 || ::fstat(link, &ofLink) != 0)
        return false;
    const bool isShared = !isTrusted(ofDirectory.st_uid) || (ofDirectory.st_mode & 022) != 0;
    return isTrusted(ofLink.st_uid) || !isShared;
}

// What the links of /proc say is for people; only the kernel knows where they lead.
bool isOfKernel(int link)
{
    constexpr long procFileSystem = 0x9fa0;
    struct statfs place {};
    return ::fstatfs(link, &place) == 0 && place.f_type == procFileSystem;
}

// Whoever chose the path has to know why nothing is written there.
void sayThatALinkIsRefused(std::string_view path)
{
    static std::mutex mutex;
    static std::set<std::string, std::less<>> said;
    constexpr std::size_t most = 64;
    const std::scoped_lock lock(mutex);
    if (said.size() < most && said.emplace(path).second) {
        std::cerr << "vetra: " << path << " is not written: it leads through a symbolic link of "
                  << "another user, in a directory that others may write to" << std::endl;
    }
}

class Walk {
public:
    Walk(std::string_view path, int openFlags, mode_t openMode)
        : whole(path), rest(path), flags(openFlags | O_CLOEXEC), mode(openMode), directory(-1)
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
                const Directory link(openPlace(name, O_NOFOLLOW));
                if (link.number() >= 0 && isOfKernel(link.number()))
                    return openLast(name, 0);
                if (link.number() < 0 || !follow(link))
                    return -1;
            } else if (!enter(name)) {
                return -1;
            }
        }
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
        const int asked = flags | more | (rest.empty() ? 0 : O_DIRECTORY);
        do {
            descriptor = ::openat(directory.number(), name.c_str(), asked, mode);
        } while (descriptor < 0 && errno == EINTR);
        return descriptor;
    }

    int openPlace(const std::string& name, int more) const
    {
        return ::openat(directory.number(), name.c_str(), O_PATH | O_CLOEXEC | more);
    }

    bool enter(const std::string& name)
    {
        int next = openPlace(name, O_NOFOLLOW);
        struct stat status {};
        if (next >= 0 && ::fstat(next, &status) == 0 && S_ISLNK(status.st_mode)) {
            const Directory link(next);
            if (!isOfKernel(next))
                return follow(link);
            next = openPlace(name, 0);
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
            sayThatALinkIsRefused(whole);
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

}  // namespace

int openThroughTrustedLinks(std::string_view path, int flags, mode_t mode)
{
    if (path.empty() || path.find('\0') != std::string_view::npos) {
        errno = EINVAL;
        return -1;
    }
    return Walk(path, flags, mode).open();
}

}  // namespace System
