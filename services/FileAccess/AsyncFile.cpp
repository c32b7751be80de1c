#include "FileAccess/AsyncFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>
#include <string>

#include "Basis/Crash.h"
#include "Basis/Timer.h"

namespace FileAccess {

namespace {

bool isAligned(std::uint64_t offset, const void* buffer, std::uint64_t size)
{
    return ((offset | reinterpret_cast<std::uintptr_t>(buffer) | size) & (directAlignment - 1)) ==
           0;
}

Diagnose::SystemException failure(bool isRead, const Basis::string& name, std::uint64_t offset,
                                  std::uint64_t size, int systemError)
{
    Diagnose::SystemException exception(__FILE__, __LINE__, {systemError});
    exception.addArgument(std::string(isRead ? "read of " : "write of ") + name.c_str() +
                          " at offset " + std::to_string(offset) + ", size " +
                          std::to_string(size));
    return exception;
}

}  // namespace

AsyncFile::AsyncFile(const FileMachinery& fileMachinery, Basis::string path, int descriptor,
                     bool isDirect)
    : machinery(fileMachinery),
      fullName(std::move(path)),
      ownDescriptor(descriptor),
      direct(isDirect),
      lastRecord(&fileMachinery.statistics.recordOf(directAlignment))
{
}

AsyncFile::~AsyncFile()
{
    ::close(ownDescriptor);
    if (cached >= 0)
        ::close(cached);
}

void AsyncFile::readAsync(std::uint64_t offset, void* buffer, std::size_t size, unsigned,
                          FileCallback& callback, IOControlBlock* block, void* context)
{
    accept({reading, offset, static_cast<char*>(buffer), size},
           machinery.parameters.asyncReadSubmit, callback, block, context);
}

void AsyncFile::writeAsync(std::uint64_t offset, const void* buffer, std::size_t size,
                           bool newBlocks, FileCallback& callback, IOControlBlock* block,
                           void* context)
{
    using WriteBlocks = FileIOParameters::WriteBlocks;
    using WriteSubmit = FileIOParameters::WriteSubmit;
    const FileIOParameters& parameters = machinery.parameters;
    const bool isActive = parameters.asyncWriteSubmitActive == WriteSubmit::on ||
                          (parameters.asyncWriteSubmitActive == WriteSubmit::automatic &&
                           machinery.asyncWritesByFileSystem);
    const bool isMeant = parameters.asyncWriteSubmitBlocks == WriteBlocks::all ||
                         (parameters.asyncWriteSubmitBlocks == WriteBlocks::onlyNew && newBlocks);
    // The kernel only reads from it; the request has one form for both directions.
    char* const bytes = const_cast<char*>(static_cast<const char*>(buffer));
    accept({writing, offset, bytes, size}, isActive && isMeant, callback, block, context);
}

void AsyncFile::accept(const Request& request, bool onThread, FileCallback& callback,
                       IOControlBlock* block, void* context)
{
    const std::uint64_t begin = Basis::Timer::s_fHiPerfTimer();
    SizeRecord& record = recordOf(request.size);
    const int descriptor = descriptorFor(request.offset, request.buffer, request.size);
    if (request.direction == reading)
        ::io_prep_pread(&block->kernelBlock, descriptor, request.buffer, request.size,
                        static_cast<long long>(request.offset));
    else
        ::io_prep_pwrite(&block->kernelBlock, descriptor, request.buffer, request.size,
                         static_cast<long long>(request.offset));
    block->callback = &callback;
    block->context = context;
    block->file = this;
    block->record = &record;
    block->acceptedTicks = begin;
    block->size = request.size;
    block->done = 0;

    machinery.statistics.busy(request.direction).accepted();
    if (onThread)
        machinery.dispatcher.push(block);
    else
        submitOnCaller(block);
    add(record.acceptingHere(request.direction).triggerTicks,
        Basis::Timer::s_fHiPerfTimer() - begin);
}

void AsyncFile::submitOnCaller(IOControlBlock* block)
{
    // The block is the kernel's, and soon its owner's, once it is submitted.
    AcceptingShard& shard = block->record->acceptingHere(block->isRead() ? reading : writing);
    const std::size_t target =
        machinery.queues.size() == 1
            ? 0
            : nextQueue.fetch_add(1, std::memory_order_relaxed) % machinery.queues.size();
    CompletionQueue& queue = *machinery.queues[target];
    queue.waitForSlot();
    QueueCounters& counters =
        machinery.statistics.submitCounters(machinery.parameters.numSubmitQueues);
    counters.count(1);
    const std::uint64_t begin = Basis::Timer::s_fHiPerfTimer();
    queue.submit(std::span(&block, 1));
    add(shard.syncSubmitTicks, Basis::Timer::s_fHiPerfTimer() - begin);
    counters.noteInFlight(queue.inKernel());
}

void AsyncFile::read(std::uint64_t offset, void* buffer, std::size_t size)
{
    transfer({reading, offset, static_cast<char*>(buffer), size});
}

void AsyncFile::write(std::uint64_t offset, const void* buffer, std::size_t size)
{
    transfer({writing, offset, const_cast<char*>(static_cast<const char*>(buffer)), size});
}

void AsyncFile::transfer(const Request& request)
{
    machinery.statistics.busy(request.direction).accepted();
    const std::uint64_t begin = Basis::Timer::s_fHiPerfTimer();
    const bool isRead = request.direction == reading;
    std::uintptr_t trials = 0;
    for (std::size_t done = 0; done < request.size;) {
        char* const place = request.buffer + done;
        const std::size_t rest = request.size - done;
        const std::uint64_t offset = request.offset + done;
        const int descriptor = descriptorFor(offset, place, rest);
        const ssize_t result = isRead
                                   ? ::pread(descriptor, place, rest, static_cast<off_t>(offset))
                                   : ::pwrite(descriptor, place, rest, static_cast<off_t>(offset));
        if (result > 0) {
            done += static_cast<std::size_t>(result);
            continue;
        }
        if (result < 0 && errno == EINTR && trials++ < IOControlBlock::maxTrials)
            continue;
        const int systemError = result < 0 ? errno : (isRead ? ENODATA : ENOSPC);
        Basis::crashImpl(__FILE__, __LINE__,
                         failure(isRead, fullName, request.offset, request.size, systemError));
    }
    const std::uint64_t end = Basis::Timer::s_fHiPerfTimer();
    machinery.statistics.busy(request.direction).ended(1, end);
    CompletingShard& shard = recordOf(request.size).completing[request.direction].back();
    add(shard.requests, 1);
    add(shard.requestTicks, end - begin);
}

IOControlBlock* AsyncFile::continueRequest(IOControlBlock& block)
{
    auto& range = block.kernelBlock.u.c;
    const std::uint64_t rest = block.size - block.done;
    const std::uint64_t moved = range.nbytes - rest;  // by the last part alone
    range.buf = static_cast<char*>(range.buf) + moved;
    range.offset += static_cast<long long>(moved);
    range.nbytes = rest;
    block.kernelBlock.aio_fildes =
        descriptorFor(static_cast<std::uint64_t>(range.offset), range.buf, rest);
    return &block;
}

SizeRecord& AsyncFile::recordOf(std::uint64_t size)
{
    SizeRecord* known = lastRecord.load(std::memory_order_acquire);
    if (known->blockSize != size) [[unlikely]] {
        known = &machinery.statistics.recordOf(size);
        lastRecord.store(known, std::memory_order_release);
    }
    return *known;
}

int AsyncFile::descriptorFor(std::uint64_t offset, const void* buffer, std::uint64_t size)
{
    if (!direct || isAligned(offset, buffer, size)) [[likely]]
        return ownDescriptor;
    return cachedDescriptor();
}

int AsyncFile::cachedDescriptor()
{
    int descriptor = cached.load(std::memory_order_acquire);
    if (descriptor >= 0)
        return descriptor;
    const std::scoped_lock lock(cachedMutex);
    descriptor = cached.load(std::memory_order_acquire);
    if (descriptor >= 0)
        return descriptor;
    // The same file by its descriptor: its name may lead elsewhere by now.
    const std::string self = "/proc/self/fd/" + std::to_string(ownDescriptor);
    descriptor = ::open(self.c_str(), O_RDWR | O_CLOEXEC);
    if (descriptor < 0)
        return ownDescriptor;
    if (!machinery.hasSaidCached.exchange(true)) {
        std::cerr << std::string("vetra: requests to ") + fullName.c_str() +
                         " are not multiples of 4096 bytes and run through the page cache: their "
                         "figures are not the device's\n"
                  << std::flush;
    }
    cached.store(descriptor, std::memory_order_release);
    return descriptor;
}

FileCallback::Status statusOf(const IOControlBlock& block)
{
    const auto& range = block.kernelBlock.u.c;
    // The kernel's range moves on with each part of a transfer; its end stays.
    const std::uint64_t end = static_cast<std::uint64_t>(range.offset) + range.nbytes;
    return {end - block.size, block.size, block.context};
}

Diagnose::SystemException transferException(const IOControlBlock& block, int systemError)
{
    const FileCallback::Status status = statusOf(block);
    return failure(block.isRead(), block.file->getFullName(), status.offset, status.size,
                   systemError);
}

}  // namespace FileAccess
