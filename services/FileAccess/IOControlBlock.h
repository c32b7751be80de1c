#pragma once

#include <libaio.h>

#include <atomic>
#include <cerrno>
#include <cstdint>

#include "FileAccess/FileCallback.h"

namespace FileAccess {

class AsyncFile;
struct SizeRecord;

/// Everything that one request needs on its way, two cache lines: accepting a request fills it in
/// place and allocates nothing. The kernel hands back the address of `kernelBlock` with the event.
class IOControlBlock {
public:
    iocb kernelBlock{};  // first: its address is the block's
    std::atomic<IOControlBlock*> next{
        nullptr};  // link of the submit queue; also carries the block's
                   // content to the thread that reaps the event
    FileCallback* callback = nullptr;
    void* context = nullptr;
    AsyncFile* file = nullptr;
    SizeRecord* record = nullptr;
    std::uint64_t acceptedTicks = 0;
    std::uint64_t size = 0;  // bytes asked for
    std::uint64_t done = 0;  // bytes transferred so far

    bool isRead() const { return kernelBlock.aio_lio_opcode == IO_CMD_PREAD; }

    /// Whether a transfer that ended with this errno is to be tried again as it is: an interruption
    /// or a shortage passes, but not for ever. Counts the trials in the field that the kernel
    /// leaves to the caller; setting a request up clears it.
    bool mayRetry(int systemError)
    {
        const auto trials = reinterpret_cast<std::uintptr_t>(kernelBlock.data);
        if ((systemError != EINTR && systemError != EAGAIN) || trials >= maxTrials)
            return false;
        kernelBlock.data = reinterpret_cast<void*>(trials + 1);
        return true;
    }

    static constexpr std::uintptr_t maxTrials = 500;
};
static_assert(sizeof(IOControlBlock) == 128);

}  // namespace FileAccess
