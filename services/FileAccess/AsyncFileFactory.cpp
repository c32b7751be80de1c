#include "FileAccess/AsyncFileFactory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <new>

#include "FileAccess/DirectIO.h"
#include "FileAccess/FileFunctions.h"
#include "FileAccess/FileSystem.h"
#include "FileAccess/ProcessEnd.h"
#include "System/TrustedOpen.h"

namespace FileAccess {

namespace {

void say(const std::string& text)
{
    std::cerr << "vetra: " + text + "\n" << std::flush;
}

// The descriptor, if there is one and what it stands for has places to write to: a pipe that
// somebody put there would be waited for. Else -1 with errno.
int withPlaces(int descriptor)
{
    struct stat status {};
    if (descriptor < 0 || (::fstat(descriptor, &status) == 0 && !S_ISFIFO(status.st_mode)))
        return descriptor;
    ::close(descriptor);
    errno = ESPIPE;
    return -1;
}

std::string kernelNumber(const char* path)
{
    std::ifstream file(path);
    std::string number = "?";
    file >> number;
    return number;
}

// Root may use the blocks that the file system keeps back.
std::uint64_t freeBytes(const struct statvfs& status)
{
    const std::uint64_t blocks = ::geteuid() == 0 ? status.f_bfree : status.f_bavail;
    return blocks * status.f_frsize;
}

constexpr std::uint64_t bytesPerStatBlock = 512;

// What would become free if the file were removed.
std::uint64_t bytesHeldBy(const std::string& path)
{
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_nlink != 1)
        return 0;
    return static_cast<std::uint64_t>(status.st_blocks) * bytesPerStatBlock;
}

}  // namespace

std::shared_ptr<FileFactory> FileFactory::createInstance(
    const Configuration::ConfigurationHandler& configuration, Type, const Basis::string& root,
    unsigned permissions, unsigned, Usage)
{
    try {
        auto factory = std::make_shared<AsyncFileFactory>(FileIOParameters::read(configuration),
                                                          root, permissions);
        if (factory->open())
            return factory;
    } catch (const std::exception& error) {
        say("cannot set up asynchronous I/O for " + std::string(root) + ": " + error.what());
    }
    return nullptr;
}

AsyncFileFactory::AsyncFileFactory(const FileIOParameters& fileParameters,
                                   const Basis::string& rootDirectory, unsigned filePermissions)
    : parameters(fileParameters),
      root(rootDirectory, rootDirectory.get_allocator()),
      permissions(filePermissions),
      statistics(fileParameters)
{
    ProcessEnd::enter();
}

AsyncFileFactory::~AsyncFileFactory()
{
    statistics.withdrawDomains();
    // Queues and dispatcher are there before the first thread; not all threads need have come.
    if (dispatcher) {
        if (submitThreads.size() == parameters.numSubmitQueues)
            dispatcher->drain();
        dispatcher->close();
    }
    submitThreads.clear();
    for (const auto& queue : queues)
        queue->close();
    completionThreads.clear();
    for (const std::string& path : guarded) {
        System::unlinkThroughTrustedLinks(path);
        ProcessEnd::guard(path, false);
    }
    ProcessEnd::leave();
}

bool AsyncFileFactory::open()
{
    if (!takeDirectory() || !openQueues())
        return false;
    dispatcher.emplace(parameters, statistics, queues);
    // A thread that has started has its place in the list, whatever fails then.
    completionThreads.reserve(queues.size());
    submitThreads.reserve(parameters.numSubmitQueues);
    for (const auto& queue : queues) {
        completionThreads.push_back(std::make_unique<LocalFileCompletionThread>(
            *queue, *dispatcher, statistics, parameters));
    }
    for (std::size_t i = 0; i < parameters.numSubmitQueues; ++i)
        submitThreads.push_back(std::make_unique<SubmitThread>(*dispatcher, i));
    statistics.registerDomains([this] { waitOutsideOfCallbacks(); });
    return true;
}

bool AsyncFileFactory::takeDirectory()
{
    const std::string directory(root);
    switch (lock.take(directory)) {
        case DirectoryLock::Result::taken:
            return true;
        case DirectoryLock::Result::held:
            say("the directory " + directory + " is in use by another measurement");
            return false;
        case DirectoryLock::Result::failed:
            break;
    }
    say("cannot open the directory " + directory + ": " + std::strerror(errno));
    return false;
}

bool AsyncFileFactory::openQueues()
{
    for (std::uint32_t i = 0; i < parameters.numCompletionQueues; ++i) {
        queues.push_back(
            std::make_unique<CompletionQueue>(i, parameters.maxParallelIoRequests, statistics));
        const int systemError = queues.back()->open(parameters.sizeKernelIoQueue);
        if (systemError == 0)
            continue;
        std::string text = "cannot set up " + std::to_string(parameters.sizeKernelIoQueue) +
                           " asynchronous requests: " + std::strerror(systemError);
        if (systemError == EAGAIN) {
            text += ": " + kernelNumber("/proc/sys/fs/aio-nr") + " of " +
                    kernelNumber("/proc/sys/fs/aio-max-nr") +
                    " allowed are in use; raise the limit with sysctl fs.aio-max-nr";
        }
        say(text);
        return false;
    }
    return true;
}

IOControlBlock* AsyncFileFactory::constructIOControlBlock(void* memory) const
{
    return new (memory) IOControlBlock;
}

std::string AsyncFileFactory::pathOf(const char* name) const
{
    Basis::string path(root.get_allocator());
    joinPath(root.c_str(), name, path);
    return std::string(path);
}

std::string AsyncFileFactory::absolutePathOf(const char* name) const
{
    const std::string path = pathOf(name);
    if (!isRelative(path.c_str()))
        return path;
    Basis::string directory(root.get_allocator());
    Basis::string absolute(root.get_allocator());
    getCurrentDirectory(directory);
    joinPath(directory.c_str(), path.c_str(), absolute);
    return std::string(absolute);
}

bool AsyncFileFactory::isDirectIOPossible()
{
    const std::scoped_lock held(mutex);
    if (!directIO) {
        const DirectIOAnswer answer = probeDirectIO(std::string(root));
        directIO = true;
        if (!answer.isPossible)
            goOnCached(answer.reason);
    }
    return *directIO;
}

void AsyncFileFactory::goOnCached(const std::string& reason)
{
    directIO = false;
    say("the file system of " + std::string(root) + " refuses direct I/O (" + reason +
        "); the page cache is used, and figures are not the device's");
}

std::shared_ptr<File> AsyncFileFactory::openFile(const char* name, int, int, int)
{
    try {
        const std::string path = pathOf(name);
        bool isDirect = isDirectIOPossible();
        const int descriptor = openDescriptor(path, isDirect);
        if (descriptor >= 0)
            return makeFile(path, descriptor, isDirect);
        say("cannot open " + path + ": " + std::strerror(errno));
    } catch (const std::exception& error) {
        say(std::string("cannot open ") + name + ": " + error.what());
    }
    return nullptr;
}

int AsyncFileFactory::openDescriptor(const std::string& path, bool& isDirect)
{
    const int flags = O_RDWR | O_CREAT | O_CLOEXEC;
    const auto mode = static_cast<mode_t>(permissions);
    const int descriptor =
        System::openThroughTrustedLinks(path, flags | (isDirect ? O_DIRECT : 0), mode);
    // Where no file could be made for the probe, the refusal comes only now.
    if (descriptor >= 0 || !isDirect || errno != EINVAL)
        return withPlaces(descriptor);
    isDirect = false;
    const int cached = withPlaces(System::openThroughTrustedLinks(path, flags, mode));
    if (cached >= 0) {
        const std::scoped_lock held(mutex);
        goOnCached(std::string("the opening of a file: ") + std::strerror(EINVAL));
    }
    return cached;
}

std::shared_ptr<File> AsyncFileFactory::makeFile(const std::string& path, int descriptor,
                                                 bool isDirect)
{
    try {
        const FileMachinery machinery{parameters,    statistics,
                                      *dispatcher,   queues,
                                      hasSaidCached, FileSystem(root, true, true).isValid()};
        return std::make_shared<AsyncFile>(machinery, Basis::string(path, root.get_allocator()),
                                           descriptor, isDirect);
    } catch (...) {
        ::close(descriptor);
        throw;
    }
}

bool AsyncFileFactory::fileExists(const char* name) const
{
    return ::access(pathOf(name).c_str(), F_OK) == 0;
}

void AsyncFileFactory::removeFile(const char* name)
{
    const std::string path = pathOf(name);
    if (System::unlinkThroughTrustedLinks(path) != 0)
        say("cannot remove " + path + ": " + std::strerror(errno));
}

bool AsyncFileFactory::ensureSpace(const char* name, std::uint64_t size)
{
    try {
        return hasSpace(pathOf(name), size);
    } catch (const std::exception& error) {
        say(std::string("cannot inspect ") + name + ": " + error.what());
    }
    return false;
}

bool AsyncFileFactory::hasSpace(const std::string& path, std::uint64_t size) const
{
    struct statvfs status {};
    if (::statvfs(root.c_str(), &status) != 0) {
        say("cannot inspect " + std::string(root) + ": " + std::strerror(errno));
        return false;
    }
    // A file system without a size of its own, such as one in memory without a limit.
    if (status.f_blocks == 0)
        return true;
    const std::uint64_t available = freeBytes(status) + bytesHeldBy(path);
    if (available >= size)
        return true;
    say(path + " needs " + std::to_string(size) + " bytes, but only " + std::to_string(available) +
        " are free");
    return false;
}

void AsyncFileFactory::removeAtEnd(const char* name, bool remove)
{
    const std::string path = absolutePathOf(name);
    const std::scoped_lock held(mutex);
    if (remove)
        guarded.insert(path);
    else
        guarded.erase(path);
    ProcessEnd::guard(path, remove);
}

void AsyncFileFactory::waitOutsideOfCallbacks()
{
    for (const auto& thread : submitThreads)
        thread->waitOutsideOfSubmission();
    for (const auto& thread : completionThreads)
        thread->waitOutsideOfCallbacks();
}

FileStatistics* AsyncFileFactory::getStatistics()
{
    waitOutsideOfCallbacks();
    return &statistics;
}

const DetailedStatistics& AsyncFileFactory::getDetailedStatistics(std::uint64_t blockSize)
{
    waitOutsideOfCallbacks();
    return statistics.detailed(blockSize);
}

}  // namespace FileAccess
