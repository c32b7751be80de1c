#include "FileAccess/ProcessEnd.h"

#include <limits.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <mutex>
#include <utility>

#include "Basis/Crash.h"
#include "System/TrustedOpen.h"

namespace FileAccess {

namespace {

constexpr int endingSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE, SIGXFSZ};
constexpr std::size_t maxFiles = 64;

// Fixed storage: the handler may run at any moment and must not allocate or lock.
struct GuardedFile {
    std::atomic<bool> isArmed{false};
    char path[PATH_MAX];
    // Where the path led when it was marked, which may have changed since.
    int directory = -1;
    char name[NAME_MAX + 1];
};
GuardedFile files[maxFiles];
struct sigaction oldActions[std::size(endingSignals)];
bool isInstalled[std::size(endingSignals)];
std::atomic<pid_t> owner{0};        // children that were forked keep the files of their parent
std::atomic<bool> isEnding{false};  // no path changes any more

std::mutex mutex;
unsigned users = 0;

// Two signals may come here at once, and both must find the files gone when they go on: a file is
// removed first and disarmed then.
void removeGuardedFiles()
{
    if (::getpid() != owner)
        return;
    isEnding = true;
    for (GuardedFile& file : files) {
        if (!file.isArmed)
            continue;
        ::unlinkat(file.directory, file.name, 0);
        file.isArmed = false;
    }
}

void handleEndingSignal(int number)
{
    const int lastError = errno;
    removeGuardedFiles();
    for (std::size_t i = 0; i < std::size(endingSignals); ++i) {
        if (endingSignals[i] == number)
            ::sigaction(number, &oldActions[i], nullptr);
    }
    // The kernel keeps the first process of a container from the effect of such signals; the run
    // would go on without its file.
    if (::getpid() == 1)
        ::_exit(128 + number);
    // Blocked until this handler returns, and then taken in the old way.
    ::raise(number);
    errno = lastError;
}

// Only a signal that ends the process is taken over: one that is ignored, or that somebody else
// handles and survives, must not take the file away from a run that goes on.
void install(std::size_t index)
{
    ::sigaction(endingSignals[index], nullptr, &oldActions[index]);
    isInstalled[index] = oldActions[index].sa_handler == SIG_DFL;
    if (!isInstalled[index])
        return;
    struct sigaction action {};
    action.sa_handler = &handleEndingSignal;
    action.sa_flags = SA_RESTART;
    ::sigfillset(&action.sa_mask);
    ::sigaction(endingSignals[index], &action, nullptr);
}

// A handler that somebody else has set meanwhile stays.
void uninstall(std::size_t index)
{
    struct sigaction current {};
    ::sigaction(endingSignals[index], nullptr, &current);
    if (isInstalled[index] && current.sa_handler == &handleEndingSignal)
        ::sigaction(endingSignals[index], &oldActions[index], nullptr);
}

// The place that holds the path already, else one that was never used, else one that is free: a
// path that a handler may be reading is not written over without need.
GuardedFile* placeFor(const std::string& path)
{
    GuardedFile* place = nullptr;
    for (GuardedFile& file : files) {
        if (path == file.path)
            return &file;
        const bool isBetter = !place || (place->path[0] != 0 && file.path[0] == 0);
        if (!file.isArmed && isBetter)
            place = &file;
    }
    return place;
}

// A handler that has seen the mark has said before that the process ends.
void disarm(GuardedFile& file)
{
    file.isArmed = false;
    if (!isEnding && file.directory >= 0)
        ::close(std::exchange(file.directory, -1));
}

// A file that nobody could make needs no mark.
void arm(GuardedFile& file, const std::string& path)
{
    const std::string name = System::lastNameOf(path);
    if (file.isArmed || name.size() > NAME_MAX)
        return;
    file.directory = System::openPlaceThroughTrustedLinks(System::directoryOf(path), path);
    if (file.directory < 0)
        return;
    if (path != file.path)
        std::memcpy(file.path, path.c_str(), path.size() + 1);
    std::memcpy(file.name, name.c_str(), name.size() + 1);
    file.isArmed = true;
}

}  // namespace

void ProcessEnd::enter()
{
    const std::scoped_lock lock(mutex);
    if (users++ != 0)
        return;
    owner = ::getpid();
    isEnding = false;
    Basis::setCrashHook(&removeGuardedFiles);
    for (std::size_t i = 0; i < std::size(endingSignals); ++i)
        install(i);
}

void ProcessEnd::leave()
{
    const std::scoped_lock lock(mutex);
    if (--users != 0)
        return;
    for (std::size_t i = 0; i < std::size(endingSignals); ++i)
        uninstall(i);
    Basis::setCrashHook(nullptr);
}

void ProcessEnd::guard(const std::string& path, bool remove)
{
    const std::scoped_lock lock(mutex);
    GuardedFile* const place = path.size() < PATH_MAX ? placeFor(path) : nullptr;
    if (!remove) {
        if (place && path == place->path)
            disarm(*place);
        return;
    }
    if (!place) {
        std::cerr << "vetra: " + path + " stays behind if the process is ended by a signal\n"
                  << std::flush;
        return;
    }
    if (isEnding)
        return;
    arm(*place, path);
}

}  // namespace FileAccess
