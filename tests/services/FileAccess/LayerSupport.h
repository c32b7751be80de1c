#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "FileAccess/FileFactory.h"
#include "Synchronization/Barrier.h"

namespace fileLayerTests {

/// Parameters of the section "fileio".
using Parameters = std::vector<std::pair<std::string, std::string>>;

/// A factory for the directory; null if it cannot be made.
std::shared_ptr<FileAccess::FileFactory> makeFactory(const std::string& root,
                                                     const Parameters& parameters = {});

/// A fresh directory below `base`, gone with what it holds at the end of its scope. Without a base
/// it lies where temporary files do.
class TemporaryDirectory {
public:
    explicit TemporaryDirectory(const std::string& base = {});
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::string& path() const { return ownPath; }
    std::string operator/(const std::string& name) const { return ownPath + "/" + name; }

private:
    std::string ownPath;
};

/// Where files in memory can be made: "/dev/shm" if that is a tmpfs, else an empty text.
std::string memoryBase();

/// Zeroed memory that direct I/O takes.
class AlignedBuffer {
public:
    explicit AlignedBuffer(std::size_t bytes);
    ~AlignedBuffer();
    AlignedBuffer(const AlignedBuffer&) = delete;
    AlignedBuffer& operator=(const AlignedBuffer&) = delete;

    char* data() const { return memory; }
    std::size_t size() const { return ownSize; }

private:
    char* memory;
    std::size_t ownSize;
};

/// Control blocks of a factory.
class Blocks {
public:
    Blocks(const FileAccess::FileFactory& factory, std::size_t count);

    FileAccess::IOControlBlock* operator[](std::size_t index) const { return blocks[index]; }

private:
    AlignedBuffer memory;
    std::vector<FileAccess::IOControlBlock*> blocks;
};

/// Counts what the layer reports, and opens a gate when all has been reported.
class Completions : public FileAccess::FileCallback {
public:
    /// From here on `count` requests are awaited. Not while any is under way.
    void expect(std::uint64_t count);
    /// Returns when they all have ended.
    void wait() { gate.wait(); }

    std::uint64_t reads() const { return readCount; }
    std::uint64_t writes() const { return writeCount; }
    std::uint64_t errors() const { return errorCount; }
    /// The text of the last error.
    std::string errorText() const;
    Status lastStatus() const;

    void dataRead(const Status& status) override;
    void dataWritten(const Status& status) override;
    void transferError(const Status& status, const std::exception& error) override;

private:
    void finishOne(const Status& status);

    Synchronization::Barrier gate;
    std::atomic<std::uint64_t> awaited{0};
    std::atomic<std::uint64_t> readCount{0};
    std::atomic<std::uint64_t> writeCount{0};
    std::atomic<std::uint64_t> errorCount{0};
    mutable std::mutex mutex;
    std::string text;
    Status status{};
};

inline constexpr std::size_t page = 4096;

/// A factory, one file of it and what a test needs to drive them.
struct Layer {
    explicit Layer(const std::string& root, const Parameters& parameters = {},
                   std::size_t requests = 64);

    /// One request of the size of a page; block and memory are those of `index`.
    void read(std::size_t index, std::uint64_t offset);
    void write(std::size_t index, std::uint64_t offset);
    /// Fills the file with pages, each of them filled with the low byte of its number.
    void fillPages(std::size_t count) const;
    char* pageAt(std::size_t index) const { return buffer.data() + index * page; }

    std::shared_ptr<FileAccess::FileFactory> factory;
    std::shared_ptr<FileAccess::File> file;
    Blocks blocks;
    AlignedBuffer buffer;
    Completions completions;
};

/// The answer of a command of the diagnostics shell.
std::string command(const std::string& text);

/// The reset domains of the layer.
inline constexpr const char* totalDomain = "M_VOLUME_IO_TOTAL_STATISTICS_RESET";
inline constexpr const char* detailedDomain = "M_DEV_VOLUME_IO_DETAILED_STATISTICS_RESET";
inline constexpr const char* queueDomain = "M_DEV_VOLUME_IO_QUEUE_STATISTICS_RESET";
inline constexpr const char* completionDomain = "M_DEV_VOLUME_IO_COMPLETION_STATISTICS_RESET";
void resetAllDomains();

}  // namespace fileLayerTests
