#include "Diagnose/FilePair.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>

#include "Diagnose/NoSignals.h"
#include "Diagnose/Shell.h"
#include "Diagnose/SystemError.h"
#include "System/TrustedOpen.h"

namespace Diagnose {

namespace {

[[noreturn]] void refuseToWrite(const std::string& path, int error)
{
    std::ostringstream reason;
    reason << "cannot write '" << path << "': " << SystemError{error};
    refuseCommand(reason.view());
}

// The directory of a file that is wanted. What its path leads to may change meanwhile.
class Place {
public:
    explicit Place(const std::string& path)
        : name(System::lastNameOf(path)),
          directory(System::openPlaceThroughTrustedLinks(System::directoryOf(path), path))
    {
        if (directory < 0)
            refuseToWrite(path, errno);
    }
    ~Place() { ::close(directory); }
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

    const std::string name;
    const int directory;
};

// A file under another name beside the one that is wanted. Unless it was put there it goes.
class Sibling {
public:
    explicit Sibling(const WantedFile& file) : wanted(file), place(file.path)
    {
        if (const int error = create(); error != 0)
            refuseToWrite(wanted.path, error);
        if (const int error = write(); error != 0) {
            remove(name);
            refuseToWrite(wanted.path, error);
        }
    }
    // What it holds after an exchange is the old file.
    ~Sibling()
    {
        if (!isGone)
            remove(name);
        if (!kept.empty())
            remove(kept);
    }
    Sibling(const Sibling&) = delete;
    Sibling& operator=(const Sibling&) = delete;

    // To be called for both before the first is put in its place.
    void checkPlace()
    {
        struct stat there {};
        isThere = ::fstatat(place.directory, place.name.c_str(), &there, AT_SYMLINK_NOFOLLOW) == 0;
        if (place.name.empty() || (isThere && S_ISDIR(there.st_mode)))
            refuseToWrite(wanted.path, EISDIR);
    }

    void putInPlace()
    {
        // The old one can then be put back.
        isExchanged = isThere && rename(RENAME_EXCHANGE) == 0;
        if (isExchanged)
            return;
        // Not every file system exchanges.
        const std::string second = name + "o";
        if (isThere &&
            ::linkat(place.directory, place.name.c_str(), place.directory, second.c_str(), 0) == 0)
            kept = second;
        if (rename(0) != 0)
            refuseToWrite(wanted.path, errno);
        isGone = true;
    }

    void takeBack()
    {
        if (isExchanged)
            rename(RENAME_EXCHANGE);
        else if (kept.empty())
            remove(place.name);
        else if (::renameat(place.directory, kept.c_str(), place.directory, place.name.c_str()) ==
                 0)
            kept.clear();
    }

private:
    static constexpr int mostAttempts = 100;

    int create()
    {
        for (int attempt = 0; attempt < mostAttempts; ++attempt) {
            // Short, whatever is wanted: a name may be as long as the file system allows.
            name = ".vetra-" + std::to_string(::getpid()) + "-" + std::to_string(attempt);
            descriptor = ::openat(place.directory, name.c_str(),
                                  O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
            if (descriptor >= 0 || errno != EEXIST)
                return descriptor >= 0 ? 0 : errno;
        }
        return EEXIST;
    }

    int write()
    {
        int error = 0;
        for (std::size_t done = 0; done < wanted.content.size() && error == 0;) {
            const ssize_t count =
                ::write(descriptor, wanted.content.data() + done, wanted.content.size() - done);
            if (count > 0)
                done += static_cast<std::size_t>(count);
            else if (count < 0 && errno != EINTR)
                error = errno;
        }
        if (::close(descriptor) != 0 && error == 0)
            error = errno;
        return error;
    }

    int rename(unsigned flags) const
    {
        return ::renameat2(place.directory, name.c_str(), place.directory, place.name.c_str(),
                           flags);
    }

    void remove(const std::string& one) const { ::unlinkat(place.directory, one.c_str(), 0); }

    const WantedFile& wanted;
    Place place;
    std::string name;
    std::string kept;  // a second name of the old file
    int descriptor = -1;
    bool isThere = false;
    bool isExchanged = false;
    bool isGone = false;
};

}  // namespace

void writeBoth(const WantedFile& first, const WantedFile& second)
{
    // A signal that ends the process waits until both files are there and nothing beside them.
    const NoSignals meanwhile;
    Sibling one(first);
    Sibling other(second);
    one.checkPlace();
    other.checkPlace();
    one.putInPlace();
    try {
        other.putInPlace();
    } catch (...) {
        one.takeBack();
        throw;
    }
}

}  // namespace Diagnose
