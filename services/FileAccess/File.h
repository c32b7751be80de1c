#pragma once

#include <cstddef>
#include <cstdint>

#include "Basis/Containers.h"
#include "FileAccess/FileCallback.h"

namespace FileAccess {

class IOControlBlock;

/// A file that is open for both directions.
///
/// Units:      offsets and sizes are bytes.
/// Alignment:  offset, size and buffer address are multiples of what direct I/O demands (4096 is
///             always enough); a request that is not runs through the page cache, see FileFactory.
/// Ownership:  buffer and control block belong to the caller and stay untouched until the callback
///             has run. The factory outlives the file, and the file its requests.
/// Threads:    requests may come from any thread.
/// Errors:     a failed asynchronous transfer reaches FileCallback::transferError once. A failed
///             synchronous one ends the process, after the file has been removed if it is to be
///             removed at the end.
class File {
public:
    virtual ~File() = default;

    /// Accepts one read and returns. Blocks only under synchronous submission, while no kernel slot
    /// is free. `flags` is reserved and 0.
    virtual void readAsync(std::uint64_t offset, void* buffer, std::size_t size, unsigned flags,
                           FileCallback& callback, IOControlBlock* block, void* context) = 0;

    /// The same for a write; `newBlocks` tells that the file has no block there yet.
    virtual void writeAsync(std::uint64_t offset, const void* buffer, std::size_t size,
                            bool newBlocks, FileCallback& callback, IOControlBlock* block,
                            void* context) = 0;

    /// One blocking request on the calling thread. Short transfers are continued.
    virtual void read(std::uint64_t offset, void* buffer, std::size_t size) = 0;
    virtual void write(std::uint64_t offset, const void* buffer, std::size_t size) = 0;

    /// The path of the file.
    virtual const Basis::string& getFullName() const = 0;
};

}  // namespace FileAccess
