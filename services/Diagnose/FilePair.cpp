#include "Diagnose/FilePair.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>

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

// A file under another name beside the one that is wanted. Unless it was put there it goes.
class Sibling {
public:
    explicit Sibling(const WantedFile& file) : wanted(file)
    {
        if (const int error = create(); error != 0)
            refuseToWrite(wanted.path, error);
        if (const int error = write(); error != 0) {
            ::unlink(name.c_str());
            refuseToWrite(wanted.path, error);
        }
    }
    // What it holds after an exchange is the old file.
    ~Sibling()
    {
        if (!isGone)
            ::unlink(name.c_str());
        if (!kept.empty())
            ::unlink(kept.c_str());
    }
    Sibling(const Sibling&) = delete;
    Sibling& operator=(const Sibling&) = delete;

    // To be called for both before the first is put in its place.
    void checkPlace()
    {
        struct stat there {};
        isThere = ::lstat(wanted.path.c_str(), &there) == 0;
        if (isThere && S_ISDIR(there.st_mode))
            refuseToWrite(wanted.path, EISDIR);
    }

    void putInPlace()
    {
        // The old one can then be put back.
        isExchanged = isThere && rename(RENAME_EXCHANGE) == 0;
        if (isExchanged)
            return;
        // Not every file system exchanges.
        if (isThere && ::link(wanted.path.c_str(), (name + "o").c_str()) == 0)
            kept = name + "o";
        if (rename(0) != 0)
            refuseToWrite(wanted.path, errno);
        isGone = true;
    }

    void takeBack()
    {
        if (isExchanged)
            rename(RENAME_EXCHANGE);
        else if (kept.empty())
            ::unlink(wanted.path.c_str());
        else if (::rename(kept.c_str(), wanted.path.c_str()) == 0)
            kept.clear();
    }

private:
    static constexpr int mostAttempts = 100;

    int create()
    {
        const std::string directory = wanted.path.substr(0, wanted.path.rfind('/') + 1);
        for (int attempt = 0; attempt < mostAttempts; ++attempt) {
            // Short, whatever is wanted: a name may be as long as the file system allows.
            name =
                directory + ".vetra-" + std::to_string(::getpid()) + "-" + std::to_string(attempt);
            descriptor = System::openThroughTrustedLinks(name, O_WRONLY | O_CREAT | O_EXCL, 0666);
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
        return ::renameat2(AT_FDCWD, name.c_str(), AT_FDCWD, wanted.path.c_str(), flags);
    }

    const WantedFile& wanted;
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
