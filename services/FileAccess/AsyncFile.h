#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "Diagnose/SystemError.h"
#include "FileAccess/CompletionQueue.h"
#include "FileAccess/File.h"
#include "FileAccess/FileIOParameters.h"
#include "FileAccess/IOControlBlock.h"
#include "FileAccess/IOStatistics.h"
#include "FileAccess/RequestDispatcher.h"

namespace FileAccess {

/// What direct I/O wants offsets, sizes and addresses to be multiples of.
inline constexpr std::uint64_t directAlignment = 4096;

/// What a file needs of its factory.
struct FileMachinery {
    const FileIOParameters& parameters;
    IOStatistics& statistics;
    RequestDispatcher& dispatcher;
    std::vector<std::unique_ptr<CompletionQueue>>& queues;
    /// Whether the user knows that requests run through the page cache.
    std::atomic<bool>& hasSaidCached;
    /// Whether "auto" means that writes are submitted asynchronously on this file system.
    bool asyncWritesByFileSystem;
};

/// A file of a factory.
class AsyncFile : public File {
public:
    /// Takes the descriptor over. `isDirect` says how it was opened.
    AsyncFile(const FileMachinery& fileMachinery, Basis::string path, int descriptor,
              bool isDirect);
    ~AsyncFile() override;
    AsyncFile(const AsyncFile&) = delete;
    AsyncFile& operator=(const AsyncFile&) = delete;

    void readAsync(std::uint64_t offset, void* buffer, std::size_t size, unsigned flags,
                   FileCallback& callback, IOControlBlock* block, void* context) override;
    void writeAsync(std::uint64_t offset, const void* buffer, std::size_t size, bool newBlocks,
                    FileCallback& callback, IOControlBlock* block, void* context) override;
    void read(std::uint64_t offset, void* buffer, std::size_t size) override;
    void write(std::uint64_t offset, const void* buffer, std::size_t size) override;
    const Basis::string& getFullName() const override { return fullName; }

    /// Sets a block that was transferred in part up for the rest, and returns it.
    IOControlBlock* continueRequest(IOControlBlock& block);

private:
    struct Request {
        Direction direction;
        std::uint64_t offset;
        char* buffer;
        std::size_t size;
    };

    void accept(const Request& request, bool onThread, FileCallback& callback,
                IOControlBlock* block, void* context);
    void submitOnCaller(IOControlBlock* block);
    void transfer(const Request& request);
    SizeRecord& recordOf(std::uint64_t size);
    int descriptorFor(std::uint64_t offset, const void* buffer, std::uint64_t size);
    int cachedDescriptor();

    FileMachinery machinery;
    Basis::string fullName;
    int ownDescriptor;
    bool direct;
    std::atomic<SizeRecord*> lastRecord;
    std::atomic<int> cached{-1};
    std::mutex cachedMutex;
    std::atomic<std::uint32_t> nextQueue{0};
};

/// What a callback is told of a block's request.
FileCallback::Status statusOf(const IOControlBlock& block);

/// Names operation, file, offset, size and system error.
Diagnose::SystemException transferException(const IOControlBlock& block, int systemError);

}  // namespace FileAccess
